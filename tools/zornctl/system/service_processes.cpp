#include "zornctl/system/service_processes.h"

#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <system_error>

#include "service/version_record.h"
#include "trace/file_text.h"
#include "zornctl/order/trace_prefix.h"

namespace zornctl {

namespace {

namespace fs = std::filesystem;

/// Whether a process, by its folder in /proc, is known to have another root folder than this one: a
/// service in a container has files of its own.
bool HasAnotherRoot(const fs::path& process) {
    struct stat own {};
    struct stat other {};
    if (stat("/", &own) != 0 || stat((process / "root/").c_str(), &other) != 0) return false;
    return own.st_dev != other.st_dev || own.st_ino != other.st_ino;
}

/// Whether the process, by its folder in /proc, is one of the service; `executable` is empty if it is
/// not known.
bool IsService(const fs::path& process, const fs::path& executable) {
    const auto stat = ReadFileText((process / "stat").c_str());
    if (!stat || ParseProcessName(*stat) != kServiceName) return false;
    const auto status = ReadFileText((process / "status").c_str());
    if (!status || !IsOfRoot(*status)) return false;
    // "zorn (deleted)" and the like are it too.
    if (!executable.empty() && !executable.filename().native().starts_with(kServiceName))
        return false;
    return !HasAnotherRoot(process);
}

}  // namespace

bool IsOfRoot(std::string_view status) {
    constexpr std::string_view kKey = "Uid:\t";
    while (!status.empty()) {
        const auto line = TakeLine(status);
        if (line.starts_with(kKey)) return line.substr(kKey.size()).starts_with("0\t0\t");
    }
    return false;
}

std::string ParseProcessName(std::string_view stat) {
    const auto open = stat.find('(');
    const auto close = stat.rfind(')');
    if (open == stat.npos || close == stat.npos || close < open) return {};
    return std::string{stat.substr(open + 1, close - open - 1)};
}

std::vector<ServiceProcess> FindServiceProcesses() {
    std::vector<ServiceProcess> found;
    std::error_code error;
    for (fs::directory_iterator entry{"/proc", error}, end; !error && entry != end;
         entry.increment(error)) {
        const auto name = entry->path().filename().native();
        uint32_t pid = 0;
        const auto [behind, bad] = std::from_chars(name.data(), name.data() + name.size(), pid);
        if (bad != std::errc{} || behind != name.data() + name.size()) continue;
        std::error_code unknown;
        const auto executable = fs::read_symlink(entry->path() / "exe", unknown);
        if (IsService(entry->path(), executable)) found.push_back({pid, executable.native()});
    }
    std::sort(found.begin(), found.end(),
              [](const auto& a, const auto& b) { return a.pid < b.pid; });
    return found;
}

}  // namespace zornctl

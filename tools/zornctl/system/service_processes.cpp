#include "zornctl/system/service_processes.h"

#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <system_error>

#include "service/version_record.h"
#include "trace/file_text.h"

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

}  // namespace

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
        const auto stat = ReadFileText((entry->path() / "stat").c_str());
        if (!stat || ParseProcessName(*stat) != kServiceName) continue;
        if (HasAnotherRoot(entry->path())) continue;
        std::error_code unknown;
        found.push_back({pid, fs::read_symlink(entry->path() / "exe", unknown).native()});
    }
    std::sort(found.begin(), found.end(),
              [](const auto& a, const auto& b) { return a.pid < b.pid; });
    return found;
}

}  // namespace zornctl

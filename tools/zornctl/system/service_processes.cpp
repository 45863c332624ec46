#include "zornctl/system/service_processes.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <system_error>

#include "service/version_record.h"
#include "trace/file_text.h"

namespace zornctl {

namespace {

namespace fs = std::filesystem;

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
        std::error_code unknown;
        found.push_back({pid, fs::read_symlink(entry->path() / "exe", unknown).native()});
    }
    std::sort(found.begin(), found.end(),
              [](const auto& a, const auto& b) { return a.pid < b.pid; });
    return found;
}

}  // namespace zornctl

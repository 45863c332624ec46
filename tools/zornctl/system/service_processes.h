#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace zornctl {

/// A running process of the service.
struct ServiceProcess {
    uint32_t pid = 0;
    std::string executable;  ///< path, as the kernel tells it; empty if one may not know
};

/// The running processes called like the service, the lowest number first; empty without /proc. Those
/// that are known to have another root folder, in containers, are left out.
/// Thread-safety: any thread; no state.
[[nodiscard]] std::vector<ServiceProcess> FindServiceProcesses();

/// The name of a process out of the text of its /proc/PID/stat (proc_pid_stat(5), field 2); empty
/// if there is none.
[[nodiscard]] std::string ParseProcessName(std::string_view stat);

}  // namespace zornctl

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

/// The running processes of root called like the service, the lowest number first; empty without
/// /proc. Left out are those that are known to have another root folder, in containers, and those whose
/// executable is known to have another name: whoever may run a program as root may call it so.
/// Thread-safety of all here: any thread; no state.
[[nodiscard]] std::vector<ServiceProcess> FindServiceProcesses();

/// The name of a process out of the text of its /proc/PID/stat (proc_pid_stat(5), field 2); empty
/// if there is none.
[[nodiscard]] std::string ParseProcessName(std::string_view stat);

/// Whether the text of a /proc/PID/status (proc_pid_status(5)) tells that both the real and the
/// effective user of the process are root. False if it does not tell.
[[nodiscard]] bool IsOfRoot(std::string_view status);

}  // namespace zornctl

#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "support/host_process.h"
#include "support/host_root.h"
#include "support/owned_fd.h"

/// A process on a fake host, the program or the body of a test.
class RunningProcess {
  public:
    /// REQUIRES: `id` is a child that nobody has waited for; `root` outlives the object.
    RunningProcess(pid_t id, HostRoot& root);
    /// Kills it if it still runs.
    ~RunningProcess();
    RunningProcess(const RunningProcess&) = delete;
    RunningProcess& operator=(const RunningProcess&) = delete;

    [[nodiscard]] pid_t Id() const { return m_Id; }
    /// Becomes readable when it ends.
    [[nodiscard]] int Handle() const { return m_Handle.Get(); }

    void Signal(int number);
    /// Waits for its end; `kStillRunning` if that does not come in time.
    ProcessEnd Wait(std::chrono::milliseconds limit);

  private:
    pid_t m_Id;
    HostRoot& m_Root;
    OwnedFd m_Handle;
    std::optional<ProcessEnd> m_End;
};

struct HostProcess::State {
    State(pid_t id, HostRoot& hostRoot, OwnedFd standardOutput, OwnedFd standardError)
        : process(id, hostRoot),
          root(hostRoot),
          output(std::move(standardOutput)),
          error(std::move(standardError)) {}

    RunningProcess process;
    HostRoot& root;
    OwnedFd output;  ///< files in memory
    OwnedFd error;
};

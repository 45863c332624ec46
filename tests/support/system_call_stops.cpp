#include "support/system_call_stops.h"

#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "support/libc_fault.h"

namespace {

constexpr int kDone = 77;

/// The child: stops itself between the two, so that the parent counts from there.
[[noreturn]] void Run(const std::function<void()>& prepare, const std::function<void()>& body) {
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) _exit(1);
    prepare();
    (void)raise(SIGSTOP);
    body();
    _exit(kDone);
}

int WaitFor(pid_t child) {
    int status = 0;
    while (LibcFault::Real<&::waitpid>(child, &status, 0) < 0 && errno == EINTR) continue;
    return status;
}

void Kill(pid_t child) {
    (void)LibcFault::Real<&::kill>(child, SIGKILL);
    (void)WaitFor(child);
}

/// Lets the child run to its next stop at a system call. False if it has ended.
bool GoOn(pid_t child, int& status) {
    (void)ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
    status = WaitFor(child);
    return WIFSTOPPED(status);
}

}  // namespace

bool KilledAtStop(int stop, const std::function<void()>& prepare,
                  const std::function<void()>& body) {
    const pid_t child = LibcFault::Real<&::fork>();
    if (child == 0) Run(prepare, body);
    if (child < 0) {
        ADD_FAILURE() << "cannot fork";
        return false;
    }
    int status = WaitFor(child);
    while (WIFSTOPPED(status) && WSTOPSIG(status) != SIGSTOP) {
        (void)ptrace(PTRACE_CONT, child, nullptr, WSTOPSIG(status));
        status = WaitFor(child);
    }
    if (!WIFSTOPPED(status)) {
        ADD_FAILURE() << "the child ended before it was prepared, status " << status;
        return false;
    }
    constexpr long kOptions = PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL;
    (void)ptrace(PTRACE_SETOPTIONS, child, nullptr, kOptions);
    // The first stop is the return of the call by which it stopped itself.
    for (int at = -1;;) {
        if (!GoOn(child, status)) break;
        if (WSTOPSIG(status) != (SIGTRAP | 0x80)) continue;
        if (at++ == stop) {
            Kill(child);
            return true;
        }
    }
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == kDone) << "status " << status;
    return false;
}

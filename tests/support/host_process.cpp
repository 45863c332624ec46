#include "support/host_process.h"

#include <poll.h>
#include <sys/stat.h>

extern "C" {
#include <sys/pidfd.h>  // which forgets to say so itself
}

#include <cerrno>
#include <csignal>
#include <cstring>
#include <system_error>

#include "support/libc_fault.h"
#include "support/running_process.h"

using std::chrono::milliseconds;

namespace {

/// The whole of a file in memory that another process writes.
std::string ReadAll(int fd) {
    struct stat status {};
    (void)LibcFault::Real<&::fstat>(fd, &status);
    std::string text(static_cast<size_t>(status.st_size), '\0');
    const ssize_t got =
        LibcFault::Real<&::pread>(fd, static_cast<void*>(text.data()), text.size(), off_t{0});
    text.resize(got < 0 ? 0 : static_cast<size_t>(got));
    return text;
}

ProcessEnd Decode(int status) {
    return WIFSIGNALED(status) ? Killed(WTERMSIG(status)) : Exited(WEXITSTATUS(status));
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const ProcessEnd& end) {
    switch (end.kind) {
        case ProcessEnd::Kind::kExited:
            return out << "exited with " << end.value;
        case ProcessEnd::Kind::kKilled:
            return out << "killed by signal " << end.value << " (" << strsignal(end.value) << ")";
        case ProcessEnd::Kind::kRunning:
            break;
    }
    return out << "still running";
}

RunningProcess::RunningProcess(pid_t id, HostRoot& root)
    : m_Id(id), m_Root(root), m_Handle(pidfd_open(id, 0)) {
    if (!m_Handle) throw std::system_error(errno, std::generic_category(), "pidfd_open");
}

RunningProcess::~RunningProcess() {
    Signal(SIGKILL);
    (void)Wait(kPatience);
}

void RunningProcess::Signal(int number) {
    if (!m_End) (void)pidfd_send_signal(m_Handle.Get(), number, nullptr, 0);
}

ProcessEnd RunningProcess::Wait(milliseconds limit) {
    if (m_End) return *m_End;
    pollfd handle{m_Handle.Get(), POLLIN, 0};
    int ready = 0;
    do {
        ready = poll(&handle, 1, static_cast<int>(limit.count()));
    } while (ready < 0 && errno == EINTR);
    if (ready <= 0) return kStillRunning;
    int status = 0;
    (void)LibcFault::Real<&::waitpid>(m_Id, &status, 0);
    m_End = Decode(status);
    // Its folder in the host's /proc, a mount that has gone with the process.
    std::error_code ignored;
    std::filesystem::remove(m_Root.Folder() / "proc" / std::to_string(m_Id), ignored);
    return *m_End;
}

HostProcess::HostProcess(std::unique_ptr<State> state) : m_State(std::move(state)) {}
HostProcess::HostProcess(HostProcess&&) noexcept = default;
HostProcess& HostProcess::operator=(HostProcess&&) noexcept = default;
HostProcess::~HostProcess() = default;

pid_t HostProcess::Id() const {
    return m_State->process.Id();
}

void HostProcess::Signal(int number) {
    m_State->process.Signal(number);
}

ProcessEnd HostProcess::Wait(milliseconds limit) {
    return m_State->process.Wait(limit);
}

std::string HostProcess::StandardOutput() const {
    return ReadAll(m_State->output.Get());
}

std::string HostProcess::StandardError() const {
    return ReadAll(m_State->error.Get());
}

void HostProcess::Nap() {
    const timespec millisecond{0, 1'000'000};
    (void)LibcFault::Real<&::nanosleep>(&millisecond, static_cast<timespec*>(nullptr));
}

testing::AssertionResult HostProcess::WaitForText(const std::function<std::string()>& read,
                                                  std::string_view where, std::string_view text) {
    std::string seen;
    bool hasEnded = false;
    const bool isThere = WaitUntil([&] {
        const bool wasLast = hasEnded || Wait(milliseconds{0}) != kStillRunning;
        seen = read();
        if (seen.find(text) != seen.npos) return true;
        hasEnded = wasLast;
        return hasEnded;
    });
    if (isThere && seen.find(text) != seen.npos) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "\"" << text << "\" did not come into " << where
                                       << "; the process: " << Wait(milliseconds{0}) << "\n"
                                       << where << ":\n"
                                       << seen << "\nstandard error:\n"
                                       << StandardError();
}

testing::AssertionResult HostProcess::WaitForFileText(std::string_view path,
                                                      std::string_view text) {
    const HostRoot& root = m_State->root;
    return WaitForText([&] { return root.Exists(path) ? root.Read(path) : std::string{}; }, path,
                       text);
}

testing::AssertionResult HostProcess::WaitForStandardError(std::string_view text) {
    return WaitForText([this] { return StandardError(); }, "standard error", text);
}

testing::AssertionResult HostProcess::WaitForStandardOutput(std::string_view text) {
    return WaitForText([this] { return StandardOutput(); }, "standard output", text);
}

// Between `fork` and `execvp` the child may use nothing that another thread could have held at that
// moment: no memory of the heap, no trace, no streams. So everything is made ready before, and a
// child that cannot become the command ends without the handlers and destructors of an exit, which
// would wait for locks that nobody gives back, and write once more what waits in our streams.

#include "platform/run_command.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <sstream>
#include <utility>
#include <vector>

#include "platform/current_directory.h"
#include "platform/retry_interrupted.h"
#include "trace/no_cancellation.h"

namespace {

constexpr unsigned kFirstOfOurFds = 3;
constexpr int kNoExitCode = -1;
constexpr int kNotFoundStatus = 255;

/// The words of a command, as `execvp` takes them.
class Arguments {
  public:
    explicit Arguments(const std::string& command) {
        std::istringstream words{command};
        for (std::string word; words >> word;) m_Words.push_back(word);
        for (std::string& word : m_Words) m_Pointers.push_back(word.data());
        m_Pointers.push_back(nullptr);
    }

    [[nodiscard]] char* const* Pointers() const { return m_Pointers.data(); }

  private:
    std::vector<std::string> m_Words;
    std::vector<char*> m_Pointers;
};

/// Descriptors below this one are closed in the child.
unsigned FdLimit() {
    const long limit = sysconf(_SC_OPEN_MAX);
    return limit < 256 ? 1024 : static_cast<unsigned>(limit);
}

void CloseFds(unsigned limit) {
    if (close_range(kFirstOfOurFds, limit - 1, 0) == 0) return;
    // A kernel before 5.9.
    for (unsigned fd = kFirstOfOurFds; fd < limit; ++fd) (void)close(static_cast<int>(fd));
}

void UnblockServiceSignals() {
    sigset_t signals;
    (void)sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGALRM}) (void)sigaddset(&signals, signal);
    (void)sigprocmask(SIG_UNBLOCK, &signals, nullptr);
}

[[noreturn]] void BecomeCommand(char* const* arguments, unsigned fdLimit, bool keepFds) {
    if (!keepFds) CloseFds(fdLimit);
    UnblockServiceSignals();
    if (arguments[0] != nullptr) (void)execvp(arguments[0], arguments);
    _exit(kNotFoundStatus);
}

/// The child's process number; -1 if there is none.
pid_t StartCommand(const Arguments& arguments, bool keepFds) {
    const unsigned fdLimit = FdLimit();
    const pid_t pid = fork();
    if (pid == 0) BecomeCommand(arguments.Pointers(), fdLimit, keepFds);
    return pid;
}

/// Where we were before we went to `workDir`; empty if we did not get there.
std::string GoTo(const char* workDir) {
    std::string former = GetCurrentDirectory();
    if (former.empty() || chdir(workDir) != 0) return {};
    return former;
}

}  // namespace

bool RunCommand(const std::string& command, pid_t* pid, int* exitCode, const char* workDir,
                unsigned /*ignored*/, bool noWait, bool keepFds) {
    const NoCancellation untilBackAgain;
    const Arguments arguments{command};
    std::string former;
    if (workDir != nullptr && (former = GoTo(workDir)).empty()) return false;
    *exitCode = kNoExitCode;
    *pid = StartCommand(arguments, keepFds);
    const bool done = *pid > 0 && (noWait || WaitForProcess(*pid, exitCode));
    const bool isBack = workDir == nullptr || chdir(former.c_str()) == 0;
    return done && isBack;
}

bool RunCommandAndWait(const std::string& command, const char* workDir, unsigned ignored,
                       bool keepFds) {
    pid_t pid = 0;
    int exitCode = 0;
    return RunCommand(command, &pid, &exitCode, workDir, ignored, false, keepFds);
}

bool RunCommandAndWait(const std::string& command, pid_t* pid, int* exitCode, const char* workDir,
                       unsigned ignored, bool keepFds) {
    return RunCommand(command, pid, exitCode, workDir, ignored, false, keepFds);
}

bool RunCommandNoWait(const std::string& command, const char* workDir, unsigned ignored,
                      bool keepFds) {
    pid_t pid = 0;
    return RunCommandNoWait(command, &pid, workDir, ignored, keepFds);
}

bool RunCommandNoWait(const std::string& command, pid_t* pid, const char* workDir, unsigned ignored,
                      bool keepFds) {
    int exitCode = 0;
    return RunCommand(command, pid, &exitCode, workDir, ignored, true, keepFds);
}

bool WaitForProcess(pid_t pid, int* exitCode) {
    *exitCode = kNoExitCode;
    int status = 0;
    const pid_t ended = RetryInterrupted([&] { return waitpid(pid, &status, 0); });
    if (ended != pid || !WIFEXITED(status)) return false;
    *exitCode = WEXITSTATUS(status);
    return *exitCode == 0;
}

bool KillProcess(pid_t pid) {
    return kill(pid, SIGKILL) == 0;
}

#include "platform/run_command.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/current_directory.h"
#include "platform/unique_fd.h"
#include "support/fake_host.h"
#include "support/libc_fault.h"
#include "support/trace_capture.h"
#include "trace/unique_file.h"

using testing::IsEmpty;

namespace {

/// What a call of `RunCommand` told.
struct Told {
    bool result;
    pid_t pid;
    int exitCode;
};

constexpr pid_t kUntouched = 4711;

Told Try(const std::string& command, const char* workDir = nullptr, bool keepFds = false) {
    Told told{false, kUntouched, kUntouched};
    told.result =
        RunCommandAndWait(command, &told.pid, &told.exitCode, workDir, 0xFFFFFFFF, keepFds);
    return told;
}

std::string ReadAll(const char* path) {
    std::ifstream file{path};
    return {std::istreambuf_iterator<char>{file}, {}};
}

/// A pipe with a name that holds who reads it (`cat <path>`) until it is let go.
class Hold {
  public:
    explicit Hold(const char* path) : m_Path(path) { EXPECT_EQ(mkfifo(path, 0600), 0); }
    void LetGo() const { EXPECT_TRUE(UniqueFd{open(m_Path, O_WRONLY | O_CLOEXEC)}); }

  private:
    const char* m_Path;
};

void SetOpenFilesLimit(rlim_t limit) {
    rlimit files{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &files), 0);
    ASSERT_LE(limit, files.rlim_max);
    files.rlim_cur = limit;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &files), 0);
}

/// Makes `fd` a descriptor that a command would inherit.
UniqueFd MakeInheritable(int fd) {
    EXPECT_EQ(dup2(STDIN_FILENO, fd), fd);
    return UniqueFd{fd};
}

/// A host with `has-fd N`: whether it was started with that descriptor.
class FdHost : public FakeHost {
  public:
    FdHost() {
        KernelProc();
        Command("has-fd", "test -L /proc/$$/fd/$1");
    }
};

bool CommandHas(int fd, bool keepFds) {
    return Try("has-fd " + std::to_string(fd), nullptr, keepFds).result;
}

}  // namespace

// The command

TEST(RunCommand, SplitsAtWhiteSpaceWithoutQuoting) {
    FakeHost host;
    host.Command("say", "printf '%s.' \"$0\" \"$@\" > /tmp/said");
    host.Run([] { EXPECT_TRUE(Try("\t say 'a  b'\v\n \"c\"\f*\r$HOME ").result); });
    EXPECT_EQ(host.Read("/tmp/said"), "/usr/local/bin/say.'a.b'.\"c\".*.$HOME.");
}

TEST(RunCommand, GivesTheExitStatus) {
    FakeHost host;
    host.Command("exits", "exit $1");
    host.Run([] {
        for (const int status : {0, 1, 3, 127, 255}) {
            const Told told = Try("exits " + std::to_string(status));
            EXPECT_EQ(told.result, status == 0);
            EXPECT_EQ(told.exitCode, status);
            EXPECT_GT(told.pid, 0);
            EXPECT_NE(told.pid, kUntouched);
        }
    });
}

TEST(RunCommand, IsFalseWith255IfTheCommandCannotBeFound) {
    FakeHost host;
    host.File("/usr/local/bin/no-program", "text", 0644);
    host.Run([] {
        for (const char* command : {"no-such-command", "/nonexistent/x", "no-program", "/tmp", "",
                                    "  \n", "./relative"}) {
            const Told told = Try(command);
            EXPECT_FALSE(told.result) << command;
            EXPECT_EQ(told.exitCode, 255) << command;
        }
    });
}

TEST(RunCommand, IsFalseWithoutAnExitStatusIfASignalEndsTheCommand) {
    FakeHost host;
    host.Command("dies", "kill -$1 $$");
    host.Run([] {
        for (const char* signal : {"TERM", "KILL", "INT"}) {
            const Told told = Try(std::string{"dies "} + signal);
            EXPECT_FALSE(told.result) << signal;
            EXPECT_EQ(told.exitCode, -1) << signal;
        }
    });
}

TEST(RunCommand, WritesNothingIntoTheTrace) {
    const TraceCapture trace{255};
    EXPECT_TRUE(Try("true").result);
    EXPECT_FALSE(Try("no-such-command").result);
    EXPECT_FALSE(Try("true", "/nonexistent").result);
    EXPECT_THAT(trace.Lines(), IsEmpty());
}

// The working directory

TEST(RunCommand, RunsInTheWorkingDirectoryAndComesBack) {
    FakeHost host;
    host.Command("where", "pwd > /tmp/where");
    host.Command("/opt/there/local", "pwd > /tmp/local");
    host.Directory("/opt/here");
    host.Run([] {
        ASSERT_TRUE(SetCurrentDirectory("/opt/here"));
        EXPECT_TRUE(RunCommandAndWait("where", "../there", 0, false));
        EXPECT_EQ(GetCurrentDirectory(), "/opt/here");
        EXPECT_EQ(ReadAll("/tmp/where"), "/opt/there\n");
        EXPECT_TRUE(RunCommandAndWait("./local", "/opt/there", 0, false));
        EXPECT_EQ(ReadAll("/tmp/local"), "/opt/there\n");
        EXPECT_TRUE(RunCommandAndWait("where", nullptr, 0, false));
        EXPECT_EQ(ReadAll("/tmp/where"), "/opt/here\n");
        EXPECT_FALSE(RunCommandAndWait("no-such-command", "/", 0, false));
        EXPECT_EQ(GetCurrentDirectory(), "/opt/here");
    });
}

TEST(RunCommand, StartsNothingIfItCannotGoToTheWorkingDirectory) {
    FakeHost host;
    host.Run([] {
        const FaultOf<&::fork> start;
        for (const char* directory : {"/nonexistent", "", "/etc/passwd"}) {
            const Told told = Try("true", directory);
            EXPECT_FALSE(told.result) << directory;
            EXPECT_EQ(told.pid, kUntouched) << directory;
            EXPECT_EQ(told.exitCode, kUntouched) << directory;
        }
        EXPECT_EQ(start.Calls(), 0);
        EXPECT_EQ(GetCurrentDirectory(), "/");
    });
}

TEST(RunCommand, StartsNothingIfTheWayBackIsNotKnown) {
    FaultOf<&::getcwd> fault;
    fault.Fail(ENOENT);
    const FaultOf<&::chdir> change;
    const FaultOf<&::fork> start;
    EXPECT_FALSE(Try("true", "/").result);
    EXPECT_EQ(change.Calls() + start.Calls(), 0);
}

TEST(RunCommand, IsFalseIfThereIsNoWayBack) {
    FakeHost host;
    for (const char* directory : {"/opt/one", "/opt/two"}) host.Directory(directory);
    host.Run([] {
        ASSERT_TRUE(SetCurrentDirectory("/opt/one"));
        const Told told = Try("rmdir /opt/one", "/opt");
        EXPECT_FALSE(told.result);
        EXPECT_EQ(told.exitCode, 0);
        EXPECT_EQ(GetCurrentDirectory(), "/opt");

        ASSERT_TRUE(SetCurrentDirectory("/opt/two"));
        FaultOf<&::chdir> fault;
        fault.PassThrough();
        fault.Fail(EACCES);
        pid_t pid = 0;
        EXPECT_FALSE(RunCommandNoWait("true", &pid, "/", 0, false));
        int exitCode = 0;
        EXPECT_TRUE(WaitForProcess(pid, &exitCode));
    });
}

// What the command inherits

TEST(RunCommand, ClosesDescriptorsUnlessTheyAreToBeKept) {
    FdHost host;
    host.Run([] {
        const UniqueFd low = MakeInheritable(3);
        const UniqueFd high = MakeInheritable(100);
        const UniqueFd ours{fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 200)};
        for (const bool keepFds : {false, true}) {
            for (const int fd : {0, 1, 2}) EXPECT_TRUE(CommandHas(fd, keepFds)) << fd;
            EXPECT_EQ(CommandHas(3, keepFds), keepFds);
            EXPECT_EQ(CommandHas(100, keepFds), keepFds);
            EXPECT_FALSE(CommandHas(ours.Get(), keepFds));
        }
    });
}

TEST(RunCommand, ClosesDescriptorsUpToTheLimitOfOpenFiles) {
    const struct {
        rlim_t limit;
        int closed;
        int kept;
    } cases[] = {
        {300, 299, 300}, {256, 255, 256}, {255, 1023, 1024}, {64, 1023, 1024}, {1500, 1499, 1500}};
    for (const bool hasCloseRange : {true, false}) {
        for (const auto& row : cases) {
            FdHost host;
            host.Run([&] {
                SetOpenFilesLimit(2000);
                const UniqueFd closed = MakeInheritable(row.closed);
                const UniqueFd kept = MakeInheritable(row.kept);
                SetOpenFilesLimit(row.limit);
                FaultOf<&::close_range> kernel;
                if (!hasCloseRange) kernel.AlwaysFail(ENOSYS);
                EXPECT_FALSE(CommandHas(3, false)) << row.limit;
                EXPECT_FALSE(CommandHas(row.closed, false)) << row.limit;
                EXPECT_TRUE(CommandHas(row.kept, false)) << row.limit;
            });
        }
    }
}

TEST(RunCommand, ClosesBelow1024IfTheLimitOfOpenFilesIsNotKnown) {
    for (const long limit : {-1L, 255L}) {
        FdHost host;
        host.Run([limit] {
            SetOpenFilesLimit(2000);
            const UniqueFd closed = MakeInheritable(1023);
            const UniqueFd kept = MakeInheritable(1024);
            FaultOf<&::sysconf> told;
            told.Only([](int name) { return name == _SC_OPEN_MAX; });
            told.Always([limit](int) { return limit; });
            EXPECT_FALSE(CommandHas(1023, false));
            EXPECT_TRUE(CommandHas(1024, false));
        });
    }
}

TEST(RunCommand, KeepsDescriptorsInItsShortFormsToo) {
    FdHost host;
    host.Run([] {
        const UniqueFd inherited = MakeInheritable(100);
        for (const bool keepFds : {false, true}) {
            EXPECT_EQ(RunCommandAndWait("has-fd 100", nullptr, 0, keepFds), keepFds);
            pid_t pid = 0;
            int exitCode = 0;
            ASSERT_TRUE(RunCommandNoWait("has-fd 100", &pid, nullptr, 0, keepFds));
            EXPECT_EQ(WaitForProcess(pid, &exitCode), keepFds);
            ASSERT_TRUE(RunCommandNoWait("has-fd 100", nullptr, 0, keepFds));
            int status = -1;
            EXPECT_GT(waitpid(-1, &status, 0), 0);
            EXPECT_EQ(status == 0, keepFds);
        }
    });
}

TEST(RunCommand, ClosesAMillionDescriptorsInOneStep) {
    FakeHost host;
    host.Run([] {
        FaultOf<&::close> loop;
        loop.Always([](int) -> int { _exit(99); });
        FaultOf<&::close_range> all;
        all.Always([](unsigned first, unsigned last, int flags) -> int {
            _exit(first == 3 && last == sysconf(_SC_OPEN_MAX) - 1 && flags == 0 ? 42 : 98);
        });
        EXPECT_EQ(Try("true").exitCode, 42);
    });
}

TEST(RunCommand, UnblocksTheSignalsOfTheServiceAndNoOther) {
    FakeHost host;
    host.KernelProc();
    host.Run([] {
        sigset_t blocked{};
        sigemptyset(&blocked);
        for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGALRM, SIGUSR1, SIGUSR2}) {
            sigaddset(&blocked, signal);
        }
        ASSERT_EQ(sigprocmask(SIG_SETMASK, &blocked, nullptr), 0);
        ASSERT_TRUE(Try("cp /proc/self/status /tmp/status").result);  // a shell has its own mask
        const std::string status = ReadAll("/tmp/status");
        const auto mask = status.find("SigBlk:") + sizeof "SigBlk:";
        EXPECT_EQ(std::stoull(status.substr(mask), nullptr, 16),
                  1ULL << (SIGUSR1 - 1) | 1ULL << (SIGUSR2 - 1));
        sigset_t ours{};
        ASSERT_EQ(sigprocmask(SIG_SETMASK, nullptr, &ours), 0);
        EXPECT_EQ(sigismember(&ours, SIGTERM), 1);
    });
}

// The child before it is the command

TEST(RunCommand, DoesNotWriteOurStreamsOrRunOurExitHandlersInAChildThatFails) {
    FakeHost host;
    host.Run([] {
        const UniqueFile file{fopen("/tmp/stream", "we")};
        ASSERT_TRUE(file);
        fputs("once", file.get());
        ASSERT_EQ(atexit([] { (void)creat("/tmp/exit-handler", 0600); }), 0);
        EXPECT_EQ(Try("no-such-command").exitCode, 255);
    });
    EXPECT_EQ(host.Read("/tmp/stream"), "once");
    EXPECT_FALSE(host.Exists("/tmp/exit-handler"));
}

TEST(RunCommand, AllocatesNothingInTheChild) {
    if (!LibcFault::kHeapFaults) GTEST_SKIP() << LibcFault::kNoHeapFaults;
    static const pid_t s_Parent = getpid();
    FaultOf<&::malloc> fault;
    fault.Always([](size_t size) {
        if (LibcFault::Real<&::getpid>() != s_Parent) _exit(99);
        return LibcFault::Real<&::malloc>(size);
    });
    EXPECT_EQ(Try("true").exitCode, 0);
    EXPECT_EQ(Try("no-such-command").exitCode, 255);
    EXPECT_EQ(Try("true", nullptr, true).exitCode, 0);
}

// Failures

TEST(RunCommand, IsFalseIfNoProcessCanBeMade) {
    FakeHost host;
    host.Run([] {
        FaultOf<&::fork> fault;
        fault.Fail(EAGAIN, 4);
        const FaultOf<&::waitpid> wait;
        for (const char* directory : {static_cast<const char*>(nullptr), "/opt"}) {
            const Told told = Try("true", directory);
            EXPECT_FALSE(told.result);
            EXPECT_EQ(told.pid, -1);
            EXPECT_EQ(told.exitCode, -1);
        }
        pid_t pid = kUntouched;
        EXPECT_FALSE(RunCommandNoWait("true", &pid, nullptr, 0, false));
        EXPECT_EQ(pid, -1);
        EXPECT_FALSE(RunCommandNoWait("true", "/opt", 0, false));
        EXPECT_EQ(wait.Calls(), 0);
        EXPECT_EQ(GetCurrentDirectory(), "/");
    });
}

TEST(RunCommand, GoesOnWaitingWhenASignalInterrupts) {
    FaultOf<&::waitpid> fault;
    fault.Fail(EINTR, 3);
    EXPECT_TRUE(Try("true").result);
    EXPECT_EQ(fault.Calls(), 4);
}

TEST(RunCommand, IsFalseWithoutAnExitStatusIfSomebodyElseHasWaited) {
    FaultOf<&::waitpid> fault;
    fault.Answer([](pid_t pid, int* status, int options) {
        EXPECT_EQ(LibcFault::Real<&::waitpid>(pid, status, options), pid);
        *status = 0;
        errno = ECHILD;
        return -1;
    });
    const Told told = Try("true");
    EXPECT_FALSE(told.result);
    EXPECT_EQ(told.exitCode, -1);
}

// The other forms

TEST(RunCommandNoWait, IsTrueWhileTheCommandRuns) {
    FakeHost host;
    host.Run([] {
        const Hold hold{"/tmp/hold"};
        pid_t pid = 0;
        EXPECT_TRUE(RunCommandNoWait("cat /tmp/hold", &pid, nullptr, 0, false));
        ASSERT_GT(pid, 0);
        EXPECT_EQ(waitpid(pid, nullptr, WNOHANG), 0);
        hold.LetGo();
        int exitCode = kUntouched;
        EXPECT_TRUE(WaitForProcess(pid, &exitCode));
        EXPECT_EQ(exitCode, 0);
    });
}

TEST(RunCommandNoWait, IsTrueForACommandThatCannotBeFound) {
    pid_t pid = 0;
    EXPECT_TRUE(RunCommandNoWait("no-such-command", &pid, nullptr, 0, false));
    int exitCode = 0;
    EXPECT_FALSE(WaitForProcess(pid, &exitCode));
    EXPECT_EQ(exitCode, 255);
}

TEST(RunCommandNoWait, LeavesTheExitCodeAtMinusOne) {
    pid_t pid = 0;
    int exitCode = kUntouched;
    EXPECT_TRUE(RunCommand("true", &pid, &exitCode, nullptr, 0, true, false));
    EXPECT_EQ(exitCode, -1);
    EXPECT_TRUE(WaitForProcess(pid, &exitCode));
}

TEST(RunCommandNoWait, MayBeCalledWithoutAWordForTheNumber) {
    FakeHost host;
    host.Command("where", "pwd > /tmp/where");
    host.Run([] {
        EXPECT_TRUE(RunCommandNoWait("where", "/opt", 0, false));
        EXPECT_EQ(GetCurrentDirectory(), "/");
        EXPECT_GT(wait(nullptr), 0);
        EXPECT_EQ(ReadAll("/tmp/where"), "/opt\n");
    });
}

TEST(RunCommandAndWait, TellsWhetherTheCommandSucceeded) {
    EXPECT_TRUE(RunCommandAndWait("true", nullptr, 0, false));
    EXPECT_FALSE(RunCommandAndWait("false", nullptr, 0, true));
}

// WaitForProcess, KillProcess

TEST(WaitForProcess, IsFalseForAnotherProcess) {
    int exitCode = 0;
    EXPECT_FALSE(WaitForProcess(getppid(), &exitCode));
    EXPECT_EQ(exitCode, -1);
    pid_t pid = 0;
    ASSERT_TRUE(RunCommandNoWait("true", &pid, nullptr, 0, false));
    exitCode = 0;
    EXPECT_FALSE(WaitForProcess(-1, &exitCode));  // told of a process of another number
    EXPECT_EQ(exitCode, -1);
}

TEST(WaitForProcess, GoesOnWaitingWhenASignalInterrupts) {
    pid_t pid = 0;
    ASSERT_TRUE(RunCommandNoWait("true", &pid, nullptr, 0, false));
    FaultOf<&::waitpid> fault;
    fault.Fail(EINTR, 2);
    int exitCode = kUntouched;
    EXPECT_TRUE(WaitForProcess(pid, &exitCode));
    EXPECT_EQ(exitCode, 0);
}

TEST(KillProcess, EndsAProcess) {
    FakeHost host;
    host.Run([] {
        const Hold hold{"/tmp/hold"};
        pid_t pid = 0;
        ASSERT_TRUE(RunCommandNoWait("cat /tmp/hold", &pid, nullptr, 0, false));
        EXPECT_TRUE(KillProcess(pid));
        int exitCode = 0;
        EXPECT_FALSE(WaitForProcess(pid, &exitCode));
        EXPECT_EQ(exitCode, -1);
        EXPECT_FALSE(KillProcess(pid));
    });
}

TEST(KillProcess, SendsSigkill) {
    FaultOf<&::kill> fault;
    fault.Answer([](pid_t pid, int signal) {
        EXPECT_EQ(pid, 12345);
        EXPECT_EQ(signal, SIGKILL);
        errno = EPERM;
        return -1;
    });
    EXPECT_FALSE(KillProcess(12345));
}

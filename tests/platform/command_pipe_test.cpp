#include "platform/command_pipe.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/wait.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/victim.h"
#include "support/libc_fault.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::vector<std::string> Lines(CommandPipe& pipe, size_t limit) {
    std::vector<std::string> lines;
    for (std::string line; pipe.ReadLine(line, limit);) lines.push_back(line);
    return lines;
}

}  // namespace

TEST(CommandPipe, IsEmptyByDefault) {
    CommandPipe pipe;
    std::string line = "former";
    EXPECT_FALSE(pipe);
    EXPECT_EQ(pipe.Get(), nullptr);
    EXPECT_FALSE(pipe.ReadLine(line, 10));
    EXPECT_EQ(line, "");
    EXPECT_EQ(pipe.Close(), 0);
}

TEST(CommandPipe, ReadsTheLinesOfACommandWithTheirLineFeeds) {
    CommandPipe pipe = CommandPipe::Open("printf 'one\\n\\ntwo'");
    ASSERT_TRUE(pipe);
    EXPECT_THAT(Lines(pipe, 100), ElementsAre("one\n", "\n", "two"));
    EXPECT_EQ(pipe.Close(), 0);
    EXPECT_FALSE(pipe);
}

TEST(CommandPipe, ReadsALongLineInPieces) {
    CommandPipe pipe = CommandPipe::Open("printf 'abcdef\\ngh\\n'");
    EXPECT_THAT(Lines(pipe, 4), ElementsAre("abcd", "ef\n", "gh\n"));
}

TEST(CommandPipe, ReadsNothingForALimitOfZero) {
    CommandPipe pipe = CommandPipe::Open("echo one");
    EXPECT_THAT(Lines(pipe, 0), IsEmpty());
    EXPECT_THAT(Lines(pipe, 10), ElementsAre("one\n"));
}

TEST(CommandPipe, KeepsNulsInALine) {
    CommandPipe pipe = CommandPipe::Open("printf 'a\\0b\\n'");
    EXPECT_THAT(Lines(pipe, 10), ElementsAre(std::string("a\0b\n", 4)));
}

TEST(CommandPipe, TellsTheStatusOfTheCommand) {
    CommandPipe pipe = CommandPipe::Open("exit 3");
    const int status = pipe.Close();
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 3);
}

TEST(CommandPipe, RunsACommandThatTheShellDoesNotKnowToStatus127) {
    CommandPipe pipe = CommandPipe::Open("/nonexistent 2>/dev/null");
    ASSERT_TRUE(pipe);
    EXPECT_THAT(Lines(pipe, 10), IsEmpty());
    EXPECT_EQ(WEXITSTATUS(pipe.Close()), 127);
}

TEST(CommandPipe, IsEmptyWithTheNumberOfTheFailureIfNothingStarts) {
    FaultOf<&::popen> fault;
    fault.Fail(EMFILE);
    EXPECT_FALSE(CommandPipe::Open("true"));
    EXPECT_EQ(errno, EMFILE);
}

TEST(CommandPipe, IsCloseOnExec) {
    const CommandPipe pipe = CommandPipe::Open("true");
    EXPECT_NE(fcntl(fileno(pipe.Get()), F_GETFD) & FD_CLOEXEC, 0);
}

TEST(CommandPipe, EndsACommandThatStillWritesWhenItGoes) {
    CommandPipe pipe = CommandPipe::Open("yes");
    std::string line;
    EXPECT_TRUE(pipe.ReadLine(line, 10));
    EXPECT_EQ(line, "y\n");
}

// The daemon ignores SIGPIPE, and so do its commands.
TEST(CommandPipe, LetsACommandEndAtItsOwnChoiceWhereBrokenPipesAreIgnored) {
    const struct {
        sighandler_t handler;
        const char* command;
        bool exits;
        int status;
    } cases[] = {
        {SIG_DFL, "while echo x; do :; done; exit 7", false, SIGPIPE},
        {SIG_IGN, "while echo x 2>/dev/null; do :; done; exit 7", true, 7},
        {SIG_IGN, "yes 2>/dev/null", true, 1},
        {SIG_IGN, "i=0; while [ $i -lt 9 ]; do echo $i; i=$((i + 1)); done 2>/dev/null; exit $i",
         true, 9},
    };
    for (const auto& [handler, command, exits, status] : cases) {
        const sighandler_t former = signal(SIGPIPE, handler);
        CommandPipe pipe = CommandPipe::Open(command);
        (void)signal(SIGPIPE, former);
        const int ended = pipe.Close();
        EXPECT_EQ(WIFEXITED(ended), exits) << command;
        EXPECT_EQ(exits ? WEXITSTATUS(ended) : WTERMSIG(ended), status) << command;
    }
}

TEST(CommandPipe, GivesUpTheStreamEvenIfTheEndCannotBeWaitedFor) {
    CommandPipe pipe = CommandPipe::Open("true");
    FaultOf<&::pclose> fault;
    fault.Answer([](FILE* stream) {
        EXPECT_EQ(LibcFault::Real<&::pclose>(stream), 0);
        errno = ECHILD;
        return -1;
    });
    EXPECT_EQ(pipe.Close(), -1);
    EXPECT_EQ(errno, ECHILD);
    EXPECT_FALSE(pipe);
}

TEST(CommandPipe, LeavesErrnoAloneInItsDestructor) {
    {
        const CommandPipe pipe = CommandPipe::Open("exit 1");
        errno = ENOTTY;
    }
    EXPECT_EQ(errno, ENOTTY);
}

TEST(CommandPipe, MovesAndCannotBeCopied) {
    EXPECT_FALSE(std::is_copy_constructible_v<CommandPipe>);
    EXPECT_FALSE(std::is_copy_assignable_v<CommandPipe>);
    CommandPipe first = CommandPipe::Open("echo one");
    CommandPipe second{std::move(first)};
    EXPECT_FALSE(first);  // NOLINT(bugprone-use-after-move): left empty by contract
    CommandPipe third = CommandPipe::Open("echo two");
    third = std::move(second);  // the former one is closed
    EXPECT_FALSE(second);       // NOLINT(bugprone-use-after-move)
    EXPECT_THAT(Lines(third, 10), ElementsAre("one\n"));
    CommandPipe& same = third;
    third = std::move(same);
    EXPECT_TRUE(third);
}

TEST(CommandPipe, IsNotDisturbedBySignals) {
    CommandPipe pipe = CommandPipe::Open("sleep 0.05; echo one");
    struct sigaction action {};
    action.sa_handler = [](int) {};  // no SA_RESTART: reads are interrupted
    struct sigaction former {};
    ASSERT_EQ(sigaction(SIGUSR1, &action, &former), 0);
    const pthread_t reader = pthread_self();
    std::atomic<bool> done{false};
    std::thread disturber{[&] {
        while (!done) {
            pthread_kill(reader, SIGUSR1);
            std::this_thread::yield();
        }
    }};
    EXPECT_THAT(Lines(pipe, 10), ElementsAre("one\n"));
    done = true;
    disturber.join();
    sigaction(SIGUSR1, &former, nullptr);
}

TEST(CommandPipe, IsClosedByAThreadThatIsToBeCancelled) {
    Victim victim{[] {
        {
            const CommandPipe pipe = CommandPipe::Open("true");
            pthread_cancel(pthread_self());  // pending: the wait is a cancellation point
        }
        pthread_testcancel();
    }};
    EXPECT_TRUE(victim.EndedByCancellation());
}

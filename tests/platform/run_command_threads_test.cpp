#include "platform/run_command.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "platform/current_directory.h"
#include "platform/unique_fd.h"
#include "platform/victim.h"
#include "support/fake_host.h"
#include "support/host_process.h"
#include "support/libc_fault.h"
#include "trace/trace.h"

TEST(RunCommandThreads, CommandsRunAtTheSameTime) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int run = 0; run < 5; ++run) {
                pid_t pid = 0;
                int exitCode = 0;
                EXPECT_TRUE(RunCommandAndWait("true", &pid, &exitCode, nullptr, 0, false));
                EXPECT_FALSE(RunCommandAndWait("false", &pid, &exitCode, nullptr, 0, false));
                EXPECT_EQ(exitCode, 1);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
}

// The child of the failing command has only a copy of the lock, which nobody gives back.
TEST(RunCommandThreads, AChildThatFailsDoesNotWaitForTheTrace) {
    const RecursiveLockGuard hold{Debug.Lock()};
    std::thread{[] {
        EXPECT_FALSE(RunCommandAndWait("no-such-command", nullptr, 0, false));
    }}.join();
}

TEST(RunCommandThreads, ACancelledThreadWaitsForItsCommandAndComesBack) {
    FakeHost host;
    host.Run([] {
        ASSERT_EQ(mkfifo("/tmp/hold", 0600), 0);
        std::atomic<bool> isDone{false};
        const FaultOf<&::waitpid> wait;
        Victim victim{[&isDone] {
            EXPECT_TRUE(RunCommandAndWait("cat /tmp/hold", "/opt", 0, false));
            isDone = true;
            pthread_testcancel();
        }};
        EXPECT_TRUE(HostProcess::WaitUntil([&wait] { return wait.Calls() > 0; }));
        victim.Cancel();
        EXPECT_TRUE(UniqueFd{open("/tmp/hold", O_WRONLY | O_CLOEXEC)});  // lets go
        EXPECT_TRUE(victim.EndedByCancellation());
        EXPECT_TRUE(isDone);
        EXPECT_EQ(GetCurrentDirectory(), "/");
    });
}

#include <pthread.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/failures.h"
#include "support/fake_host.h"
#include "support/leak_census.h"
#include "support/sanitizers.h"

using testing::HasSubstr;
using testing::Not;
using testing::TestPartResult;

TEST(FakeHostRun, IsAFreshProcessWithTheTestsMemory) {
    FakeHost host;
    int value = 1;
    const pid_t test = getpid();
    for (int i = 0; i < 2; ++i) {
        host.Run([&] {
            EXPECT_EQ(value, 1);
            EXPECT_NE(getpid(), test);
            value = 2;
        });
    }
    EXPECT_EQ(value, 1);
}

TEST(FakeHostRun, StartsInTheRootFolderAsRootWithThePathOfTheHost) {
    FakeHost host;
    host.Run([] {
        EXPECT_EQ(getuid(), 0u);
        EXPECT_EQ(geteuid(), 0u);
        char folder[8];
        EXPECT_STREQ(getcwd(folder, sizeof folder), "/");
        EXPECT_STREQ(getenv("PATH"),
                     "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin");
    });
}

TEST(FakeHostRun, RunsAsAnotherUser) {
    FakeHost host;
    host.File("/etc/secret", "", 0600);
    host.Run(
        [] {
            EXPECT_EQ(getuid(), 65534u);
            EXPECT_EQ(getgid(), 65534u);
            EXPECT_NE(chown("/etc/passwd", 0, 0), 0);
            EXPECT_EQ(access("/proc/self/status", R_OK), 0);
        },
        {.uid = 65534});
}

TEST(FakeHostRun, ReportsAFailureAtItsOwnPlace) {
    FakeHost host;
    const int line = __LINE__ + 1;
    const auto body = [] { EXPECT_EQ(1 + 1, 3) << "sums are hard"; };
    const auto failures = FailuresOf([&] { host.Run(body); });
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_EQ(failures[0].type, TestPartResult::kNonFatalFailure);
    EXPECT_EQ(failures[0].file, __FILE__);
    EXPECT_EQ(failures[0].line, line);
    EXPECT_EQ(failures[0].text,
              "Expected equality of these values:\n  1 + 1\n    Which is: 2\n  3\nsums are hard");
}

TEST(FakeHostRun, ReportsEachFailureInOrderAndGoesOn) {
    FakeHost host;
    const auto failures = FailuresOf([&] {
        host.Run([] {
            ADD_FAILURE() << "one";
            ADD_FAILURE_AT("elsewhere.cpp", 7)
                << std::string(100'000, 'x');  // more than a pipe holds
            std::thread{[] { ADD_FAILURE() << "of a thread"; }}.join();
            FAIL() << "last";
        });
    });
    ASSERT_EQ(failures.size(), 4u);
    EXPECT_THAT(failures[0].text, HasSubstr("one"));
    EXPECT_EQ(failures[1].file, "elsewhere.cpp");
    EXPECT_EQ(failures[1].line, 7);
    EXPECT_THAT(failures[1].text, HasSubstr(std::string(100'000, 'x')));
    EXPECT_THAT(failures[2].text, HasSubstr("of a thread"));
    EXPECT_EQ(failures[3].type, TestPartResult::kFatalFailure);
}

TEST(FakeHostRun, EndsTheBodyAtAFatalFailure) {
    FakeHost host;
    const auto failures = FailuresOf([&] {
        host.Run([] {
            ASSERT_TRUE(false) << "here";
            ADD_FAILURE() << "not reached";
        });
    });
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_EQ(failures[0].type, TestPartResult::kFatalFailure);
}

TEST(FakeHostRun, ShowsTheTracesOfBothSidesOnce) {
    FakeHost host;
    const auto failures = FailuresOf([&] {
        SCOPED_TRACE("outer");
        host.Run([] {
            SCOPED_TRACE("inner");
            ADD_FAILURE();
        });
        host.Run([] { ADD_FAILURE(); });
    });
    ASSERT_EQ(failures.size(), 2u);
    for (const auto& failure : failures) {
        const auto first = failure.text.find("outer");
        ASSERT_NE(first, failure.text.npos) << failure.text;
        EXPECT_EQ(failure.text.find("outer", first + 1), failure.text.npos) << failure.text;
    }
    EXPECT_THAT(failures[0].text, HasSubstr("inner"));
    EXPECT_THAT(failures[1].text, Not(HasSubstr("inner")));
}

TEST(FakeHostRun, KnowsInsideWhetherTheTestHasFailed) {
    FakeHost host;
    const auto failures = FailuresOf([&] {
        host.Run([] {
            if (testing::Test::HasFailure()) exit(9);
            ADD_FAILURE() << "one";
            if (!testing::Test::HasFailure()) exit(10);
        });
    });
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_THAT(failures[0].text, HasSubstr("one"));
}

TEST(FakeHostRun, PassesASkipOn) {
    FakeHost host;
    const auto results = FailuresOf([&] { host.Run([] { GTEST_SKIP() << "no such device"; }); });
    ASSERT_EQ(results.size(), 1u);
    EXPECT_EQ(results[0].type, TestPartResult::kSkip);
    EXPECT_THAT(results[0].text, HasSubstr("no such device"));
}

/// The one failure of a body, which must stand at the call of `Run`.
std::string FailureOfBody(const std::function<void()>& body) {
    FakeHost host;
    const auto failures = FailuresOf([&] { host.Run(body, {}, Where{"caller.cpp", 42}); });
    EXPECT_EQ(failures.size(), 1u);
    if (failures.empty()) return "";
    EXPECT_EQ(failures.back().file, "caller.cpp");
    EXPECT_EQ(failures.back().line, 42);
    return failures.back().text;
}

TEST(FakeHostRun, ReportsACrash) {
    // A sanitizer that takes the signal itself ends the process with its own exit status.
    EXPECT_THAT(FailureOfBody([] { (void)raise(SIGKILL); }),
                HasSubstr("did not come to its end: killed by signal 9 (Killed)"));
    if (kAddressSanitizer || kThreadSanitizer) return;
    EXPECT_THAT(FailureOfBody([] { (void)raise(SIGSEGV); }),
                HasSubstr("did not come to its end: killed by signal 11 (Segmentation fault)"));
}

TEST(FakeHostRun, ReportsAnExit) {
    EXPECT_THAT(FailureOfBody([] { _exit(3); }),
                HasSubstr("did not come to its end: exited with 3"));
    EXPECT_THAT(FailureOfBody([] { _exit(0); }),
                HasSubstr("did not come to its end: exited with 0"));
}

TEST(FakeHostRun, ReportsWhatABodyThrows) {
    EXPECT_THAT(FailureOfBody([] { throw std::out_of_range("too far"); }),
                HasSubstr("threw std::out_of_range: too far"));
    EXPECT_THAT(FailureOfBody([] { throw 1; }), HasSubstr("threw something"));
}

TEST(FakeHostRun, ReportsABodyThatEndsItsThread) {
    EXPECT_THAT(FailureOfBody([] { pthread_exit(nullptr); }), HasSubstr("ended its thread"));
}

TEST(FakeHostRun, KillsABodyThatTakesTooLong) {
    FakeHost host;
    const auto failures = FailuresOf([&] {
        host.Run(
            [] {
                for (;;) pause();
            },
            {.limit = std::chrono::seconds{0}});
    });
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_THAT(failures[0].text, HasSubstr("took longer than 0 s and was killed"));
}

TEST(FakeHostRun, ReportsWhatABodyLeavesBehind) {
    EXPECT_THAT(FailureOfBody([] { EXPECT_GE(dup(2), 0); }),
                HasSubstr("left behind:\n  descriptor "));
    EXPECT_THAT(FailureOfBody([] {
                    if (fork() == 0) {
                        for (;;) pause();
                    }
                }),
                HasSubstr("still running"));
}

TEST(FakeHostRun, DoesNotWaitForGrandchildrenThatHoldThePipe) {
    const LeakCensus census;
    std::vector<Failure> failures;
    {
        FakeHost host;
        failures = FailuresOf([&] {
            host.Run([] {
                if (fork() == 0) {
                    for (;;) pause();
                }
                _exit(5);
            });
        });
    }
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_THAT(failures[0].text, HasSubstr("exited with 5"));
    // The orphan is the test's now.
    EXPECT_THAT(census.Leaks(), testing::ElementsAre(HasSubstr("still running")));
}

// Many threads at one trace: lines stay whole, the lock is left free, the counters stay right.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <latch>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "support/fake_clock.h"
#include "support/libc_fault.h"
#include "support/sanitizers.h"
#include "trace/open_debug.h"

namespace {

constexpr int kThreads = 8;

class TraceThreads : public testing::Test {
  protected:
    TraceThreads() { host.Directory("/var/log/tolbrin"); }

    /// A trace at level 1 with the short prefix, and `limit` bytes of log file.
    void Run(const char* limit, const std::function<void(OpenDebug&)>& body) {
        host.Run([&] {
            setenv("QX_LOG_DEBUG_LEVEL", "1", 1);
            setenv("QX_LOG_FILE_MAX_SIZE", limit, 1);
            OpenDebug debug;
            debug.Init("zorn");
            debug.m_MemoryTraces = 0;
            body(debug);
        });
    }

    FakeHost host;
};

/// `count` lines from each of eight threads, with `meanwhile` beside them in this one.
void TraceFromAll(
    OpenDebug& debug, int count, const std::function<void()>& meanwhile = [] {}) {
    std::latch start{kThreads + 1};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&, thread] {
            start.arrive_and_wait();
            for (int line = 0; line < count; ++line) {
                if (!debug.IsEnabled()) continue;
                debug.Trace(1, "thread %d line %d %s", thread, line, std::string(60, '+').c_str());
            }
        });
    }
    start.arrive_and_wait();
    meanwhile();
    for (auto& thread : threads) thread.join();
}

bool IsWhole(std::string_view line) {
    int thread = 0;
    int number = 0;
    int length = 0;
    return sscanf(std::string{line}.c_str(), "thread %d line %d %n", &thread, &number, &length) ==
               2 &&
           line.substr(static_cast<size_t>(length)) == std::string(60, '+');
}

/// All lines of `text` but those that tell of a wrap are whole.
void ExpectWholeLines(std::string_view text) {
    EXPECT_FALSE(text.empty());
    for (size_t at = 0; at < text.size(); at = text.find('\n', at) + 1) {
        const auto line = CutTracePrefix(text.substr(at, text.find('\n', at) - at));
        EXPECT_TRUE(line.starts_with("------ WRAP -----") || IsWhole(line)) << line;
    }
}

TEST_F(TraceThreads, WriteEveryLineWholeAndOnce) {
    Run("100000000", [](OpenDebug& debug) {
        TraceFromAll(debug, 500);
        const Lines lines = FileLines(kLog);
        EXPECT_EQ(lines.size(), size_t{kThreads} * 500);
        for (const auto& line : lines) EXPECT_TRUE(IsWhole(line)) << line;
        EXPECT_EQ(debug.m_LogByteCount, FileText(kLog).size());
    });
}

TEST_F(TraceThreads, WrapTheLogFile) {
    Run("20000", [](OpenDebug& debug) {
        TraceFromAll(debug, 500);
        EXPECT_GT(debug.m_LogCycle, 10u);
        EXPECT_LE(FileText(kLog).size(), 20'400u);
        ExpectWholeLines(FileText(kLog).substr(0, debug.m_LogByteCount));  // this pass
    });
}

TEST_F(TraceThreads, WriteWhileInitializationEnds) {
    Run("20000", [](OpenDebug& debug) {
        TraceFromAll(debug, 500, [&] { debug.EndOfInitialization(); });
        EXPECT_LE(FileText(kLog).size(), 20'400u);
        EXPECT_EQ(debug.m_LogInitEndOffset, int64_t{debug.m_LogInitEndCount});
        EXPECT_LE(debug.m_LogInitEndOffset, 20'400);
    });
}

TEST_F(TraceThreads, WriteWhileTheTraceIsSwitched) {
    Run("100000000", [](OpenDebug& debug) {
        TraceFromAll(debug, 300, [&] {
            for (int i = 0; i < 200; ++i) debug.Enable(i % 2 == 0);
            debug.Enable(true);
        });
        debug.Trace(1, "thread 0 line 0 %s", std::string(60, '+').c_str());
        ExpectWholeLines(FileText(kLog));
    });
}

TEST_F(TraceThreads, WriteWhileTheRingsAreSwapped) {
    Run("100000000", [](OpenDebug& debug) {
        ASSERT_TRUE(debug.ArmRingBuffer());
        TraceFromAll(debug, 2000, [&] { debug.EndOfInitialization(); });
        EXPECT_TRUE(debug.IsEnabled());
        EXPECT_EQ(debug.m_RingSize, 262144u);
        debug.Trace(1, "the ring goes on");
        EXPECT_THAT(std::string(debug.m_RingBase, debug.m_RingSize),
                    testing::HasSubstr("the ring goes on\n## TRACE-END ##\n"));
    });
}

TEST_F(TraceThreads, WrapTheRing) {
    Run("100000000", [](OpenDebug& debug) {
        ASSERT_TRUE(debug.ArmRingBuffer());
        debug.EndOfInitialization();
        TraceFromAll(debug, 1000);
        EXPECT_GT(debug.m_RingWrapCount, 1u);
        EXPECT_LE(debug.m_RingPos + debug.m_EndMarkLength, debug.m_RingSize);
        ExpectWholeLines(
            {debug.m_RingBase + debug.m_RingStart, debug.m_RingPos - debug.m_RingStart});
    });
}

TEST_F(TraceThreads, LookAtTheSettingsOneAtATime) {
    host.File(std::string{kConfigDirectory} + "/global_trace.ini",
              "[GlobalDebugSettings]\nDynamicUpdate=1\n[zorn]\nFileDebugLevel=1\n[EndOfFile]\n");
    Run("100000000", [](OpenDebug& debug) {
        FakeClock clock{1'700'000'000};
        std::atomic<int> inside{0};
        time_t formerLook = 0;
        FaultOf<&::stat> stat;
        stat.Always([&](const char* path, struct stat* status) {
            EXPECT_EQ(++inside, 1) << "another thread looks too";
            if (stat.Calls() % 2 == 1) {  // the first of the two files
                // A thread that waited may hold an older time: that is one of another second too.
                EXPECT_NE(debug.m_LastUpdateCheck, formerLook) << "a second look in one second";
                formerLook = debug.m_LastUpdateCheck;
            }
            const int result = LibcFault::Real<&::stat>(path, status);
            status->st_mtime = LibcFault::Real<&::time>(nullptr) + stat.Calls();  // newer each time
            --inside;
            return result;
        });
        TraceFromAll(debug, 200, [&] {
            for (int i = 0; i < 100; ++i) clock.Advance(std::chrono::seconds{1});
        });
        EXPECT_GE(stat.Calls(), 2);
        EXPECT_EQ(stat.Calls() % 2, 0) << "two files a look";
        EXPECT_EQ(debug.m_TraceLevel, 1u);
    });
}

// --- Cancellation --------------------------------------------------------------------------------

/// Runs `body` in a thread of the C library's; true if it ended by its cancellation.
bool RunCancelled(const std::function<void()>& body) {
    pthread_t thread{};
    const auto start = [](void* argument) -> void* {
        (*static_cast<const std::function<void()>*>(argument))();
        return nullptr;
    };
    EXPECT_EQ(pthread_create(&thread, nullptr, start, const_cast<std::function<void()>*>(&body)),
              0);
    void* result = nullptr;
    EXPECT_EQ(pthread_join(thread, &result), 0);
    return result == PTHREAD_CANCELED;
}

class CancelledWriter : public TraceThreads {
  protected:
    void SetUp() override {
        if (kAddressSanitizer) GTEST_SKIP() << "it does not see the frames go that are unwound";
    }
};

TEST_F(CancelledWriter, LeavesTheLockFreeAndTheNextLineWhole) {
    Run("100000000", [](OpenDebug& debug) {
        EXPECT_TRUE(RunCancelled([&] {
            pthread_cancel(pthread_self());
            debug.Trace(1, "cancelled in write(2)");
        }));
        EXPECT_EQ(debug.m_LogByteCount, 0u);
        debug.Trace(1, "after it");
        EXPECT_THAT(FileLines(kLog), testing::ElementsAre("after it"));
        EXPECT_EQ(debug.m_LogByteCount, FileText(kLog).size());
    });
}

TEST_F(CancelledWriter, LeavesTheLockFreeHoweverOftenItHeldIt) {
    Run("100000000", [](OpenDebug& debug) {
        debug.m_MemoryTraces = 1;
        FaultOf<&::pread> figure;
        figure.Answer([](int, void*, size_t, off_t) {
            pthread_cancel(pthread_self());
            pthread_testcancel();
            return ssize_t{0};
        });
        EXPECT_TRUE(RunCancelled([&] {
            const RecursiveLockGuard outer{debug.Lock()};
            debug.Trace(1, "cancelled");
        }));
        debug.Trace(1, "free");
        EXPECT_THAT(FileLines(kLog), testing::ElementsAre("free"));
    });
}

TEST_F(CancelledWriter, FinishesAWrapBeforeItGoes) {
    Run("100", [](OpenDebug& debug) {
        FaultOf<&::fseek> seek;
        seek.Answer([](FILE* file, long offset, int whence) {
            pthread_cancel(pthread_self());
            pthread_testcancel();
            return LibcFault::Real<&::fseek>(file, offset, whence);
        });
        EXPECT_TRUE(RunCancelled([&] {
            debug.Trace(1, "%s", std::string(200, 'x').c_str());
            pthread_testcancel();
        }));
        EXPECT_EQ(debug.m_LogCycle, 1u);
        EXPECT_THAT(FileLines(kLog).at(0), testing::StartsWith("------ WRAP ----- Cycle=1"));
        debug.Trace(1, "free");
    });
}

TEST_F(CancelledWriter, FinishesAWrapOfTheRingBeforeItGoes) {
    Run("100000000", [](OpenDebug& debug) {
        ASSERT_TRUE(debug.ArmRingBuffer());
        debug.m_MemoryTraces = 1;  // each prefix reads a file: a cancellation point
        EXPECT_TRUE(RunCancelled([&] {
            FaultOf<&::pread> figure;
            figure.Always([&](int file, void* text, size_t size, off_t offset) {
                if (debug.m_RingWrapCount == 1) pthread_cancel(pthread_self());
                pthread_testcancel();
                return LibcFault::Real<&::pread>(file, text, size, offset);
            });
            for (;;) debug.Trace(1, "%s", std::string(1000, 'x').c_str());
        }));
        EXPECT_EQ(debug.m_RingWrapCount, 1u);
        EXPECT_GT(debug.m_RingPos, debug.m_RingStart);
        EXPECT_THAT(std::string(debug.m_RingBase, debug.m_RingStart),
                    testing::HasSubstr("# End of header.\n## TRACE-END ##\n"));
        const uint64_t before = debug.m_RingPos;
        debug.Trace(1, "free");
        EXPECT_GT(debug.m_RingPos, before);
    });
}

TEST_F(CancelledWriter, TakesOverNewSettingsBeforeItGoes) {
    host.File(std::string{kConfigDirectory} + "/global_trace.ini",
              "[GlobalDebugSettings]\nDynamicUpdate=1\n[zorn]\nFileDebugLevel=3\n[EndOfFile]\n");
    Run("100000000", [](OpenDebug& debug) {
        debug.m_GlobalIni.MTime = debug.m_ProgramIni.MTime = 0;  // the files are newer
        FaultOf<&::stat> stat;
        stat.Answer([](const char* path, struct stat* status) {
            pthread_cancel(pthread_self());
            return LibcFault::Real<&::stat>(path, status);
        });
        EXPECT_TRUE(RunCancelled([&] {
            const RecursiveLockGuard outer{debug.Lock()};
            debug.Trace(9, "looks");
            pthread_testcancel();
        }));
        EXPECT_NE(debug.m_ProgramIni.pSection, nullptr);
        EXPECT_EQ(debug.m_TraceLevel, 3u);
        debug.Trace(1, "free");
        EXPECT_THAT(FileLines(kLog), testing::ElementsAre("free"));
    });
}

TEST_F(CancelledWriter, LosesALineAndNothingElseToAnException) {
    Run("100000000", [](OpenDebug& debug) {
        debug.m_MemoryTraces = 1;
        FaultOf<&::pread> figure;
        figure.Answer([](int, void*, size_t, off_t) -> ssize_t { throw 7; });
        debug.Trace(1, "lost");
        std::thread{[&] { debug.Trace(1, "free"); }}.join();
        EXPECT_THAT(FileLines(kLog), testing::ElementsAre("free"));
    });
}

TEST_F(CancelledWriter, KeepsTheLineInTheFileIfTheRingThrows) {
    Run("100000000", [](OpenDebug& debug) {
        ASSERT_TRUE(debug.ArmRingBuffer());
        debug.m_MemoryTraces = 1;
        FaultOf<&::pread> figure;
        figure.Answer([](int, void*, size_t, off_t) -> ssize_t { throw 7; });
        debug.TraceAlways(0, "in the file at least");
        EXPECT_THAT(FileLines(kLog), testing::ElementsAre("in the file at least"));
    });
}

TEST_F(CancelledWriter, KeepsTheRingGoingIfAHeaderLineThrows) {
    Run("100000000", [](OpenDebug& debug) {
        ASSERT_TRUE(debug.ArmRingBuffer());
        debug.m_MemoryTraces = 1;
        FaultOf<&::pread> figure;
        figure.Always([&](int file, void* text, size_t size, off_t offset) {
            if (debug.m_RingWrapCount == 1 && debug.m_RingPos > 0 &&
                debug.m_RingPos < debug.m_RingStart) {
                throw 7;
            }
            return LibcFault::Real<&::pread>(file, text, size, offset);
        });
        for (int i = 0; i < 3000; ++i) debug.Trace(1, "%s", std::string(1000, 'x').c_str());
        EXPECT_GE(debug.m_RingWrapCount, 2u);
        EXPECT_GT(debug.m_RingPos, debug.m_RingStart);
    });
}

TEST_F(CancelledWriter, LetsNoExceptionOutOfTheOtherEntries) {
    Run("100000000", [](OpenDebug& debug) {
        debug.m_MemoryTraces = 1;
        FaultOf<&::pread> figure;
        figure.Always([](int, void*, size_t, off_t) -> ssize_t { throw 7; });
        char program[] = "zorn";
        char* argv[] = {program, nullptr};
        EXPECT_NO_THROW(debug.SetCommandLine(1, argv));
        EXPECT_NO_THROW((void)debug.ArmRingBuffer());
        EXPECT_NO_THROW(debug.EndOfInitialization());
        EXPECT_EQ(FileText(kLog), "");
    });
}

}  // namespace

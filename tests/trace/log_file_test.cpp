#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <utility>

#include "support/libc_fault.h"
#include "trace/open_debug.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/// The prefix that all lines here have: stamp, number, name and a blank.
constexpr size_t kPrefix = sizeof "2026-11-20 19:35:59.060 [0000004907] zorn          " - 1;

/// A fresh machine with a log directory, and a trace at level 1 whose lines have the short prefix.
class LogFile : public testing::Test {
  protected:
    LogFile() { host.Directory("/var/log/tolbrin"); }

    void Run(uint32_t limit, const std::function<void(OpenDebug&)>& body) {
        host.Run([&] {
            setenv("QX_LOG_DEBUG_LEVEL", "1", 1);
            setenv("QX_LOG_FILE_MAX_SIZE", std::to_string(limit).c_str(), 1);
            OpenDebug debug;
            debug.Init("zorn");
            debug.m_MemoryTraces = 0;
            body(debug);
        });
    }

    FakeHost host;
};

/// A line of `length` bytes in the file, newline included.
void Write(OpenDebug& debug, size_t length, char letter) {
    debug.Trace(1, "%s", std::string(length - kPrefix - 1, letter).c_str());
}

off_t FileSize(const char* path) {
    struct stat status {};
    EXPECT_EQ(stat(path, &status), 0);
    return status.st_size;
}

TEST_F(LogFile, CountsEveryByte) {
    Run(10'000, [](OpenDebug& debug) {
        Write(debug, 100, 'a');
        EXPECT_EQ(debug.m_LogByteCount, 100u);
        Write(debug, 150, 'b');
        EXPECT_EQ(debug.m_LogByteCount, 250u);
        EXPECT_EQ(FileSize(kLog), 250);
    });
}

TEST_F(LogFile, WrapsWithTheLineThatPassesTheLimitAndNotBefore) {
    Run(300, [](OpenDebug& debug) {
        Write(debug, 200, 'a');
        Write(debug, 100, 'b');
        EXPECT_EQ(debug.m_LogCycle, 0u) << "exactly the limit";
        Write(debug, 100, 'c');
        EXPECT_EQ(debug.m_LogCycle, 1u);
    });
}

TEST_F(LogFile, BeginsEachPassWithTheWrapLine) {
    Run(500, [](OpenDebug& debug) {
        Write(debug, 300, 'a');
        Write(debug, 300, 'b');
        const Lines lines = FileLines(kLog);
        EXPECT_EQ(lines.at(0),
                  "------ WRAP ----- Cycle=1, CntInitEnd=0, CurrentByteCnt=0 (MaxCnt=500)");
        const size_t wrapLine = kPrefix + lines.at(0).size() + 1;
        EXPECT_EQ(debug.m_LogByteCount, wrapLine);
        EXPECT_EQ(FileSize(kLog), 600) << "a wrap does not shorten the file";
        Write(debug, 100, 'c');
        EXPECT_EQ(FileLines(kLog).at(1), std::string(100 - kPrefix - 1, 'c'));
        EXPECT_EQ(debug.m_LogByteCount, wrapLine + 100);
    });
}

TEST_F(LogFile, PutsTheWrapLineBehindThePrefixOfTheLineBefore) {
    Run(100, [](OpenDebug& debug) {
        debug.CallTraceArgs("module", "%s", std::string(100, 'x').c_str());
        EXPECT_THAT(FileText(kLog), testing::ContainsRegex("\\] module        ------ WRAP -----"));
    });
}

TEST_F(LogFile, WrapsToTheStartDuringInitialization) {
    Run(400, [](OpenDebug& debug) {
        Write(debug, 401, 'a');
        EXPECT_EQ(debug.m_LogInitEndOffset, 0);
        EXPECT_THAT(FileLines(kLog).at(0), testing::StartsWith("------ WRAP ----- Cycle=1"));
    });
}

TEST_F(LogFile, WrapsToTheEndOfInitializationAfterIt) {
    Run(600, [](OpenDebug& debug) {
        Write(debug, 150, 'h');
        debug.EndOfInitialization();
        EXPECT_EQ(debug.m_LogInitEndOffset, 150);
        EXPECT_EQ(debug.m_LogInitEndCount, 150u);
        for (int pass = 1; pass <= 3; ++pass) {
            while (debug.m_LogCycle < static_cast<uint32_t>(pass)) Write(debug, 200, 'x');
            EXPECT_THAT(FileLines(kLog).at(0), testing::StartsWith("hhh"));
            EXPECT_EQ(FileLines(kLog).at(1),
                      "------ WRAP ----- Cycle=" + std::to_string(pass) +
                          ", CntInitEnd=150, CurrentByteCnt=150 (MaxCnt=600)");
        }
        EXPECT_FALSE(debug.m_InitDone) << "only the ring sets it";
    });
}

TEST_F(LogFile, NeverPassesItsLimitByMoreThanALineAndTheWrapLine) {
    Run(5000, [](OpenDebug& debug) {
        off_t largest = 0;
        for (int i = 0; i < 500; ++i) {
            Write(debug, kPrefix + 1 + static_cast<size_t>(i * 37 % 1024), 'x');
            largest = std::max(largest, FileSize(kLog));
        }
        EXPECT_GT(debug.m_LogCycle, 10u);
        EXPECT_LE(largest, 5000 + off_t{kPrefix} + 1025 + off_t{kPrefix} + 100);
    });
}

TEST_F(LogFile, WrapsWithEveryLineIfTheLimitIsBelowTheHead) {
    Run(0, [](OpenDebug& debug) {
        Write(debug, 100, 'a');
        debug.EndOfInitialization();
        Write(debug, 100, 'b');
        Write(debug, 100, 'c');
        EXPECT_EQ(debug.m_LogCycle, 3u);
        EXPECT_LE(FileSize(kLog), 1000);
    });
}

TEST_F(LogFile, RewindsIfItCannotGoToTheEndOfInitialization) {
    Run(300, [](OpenDebug& debug) {
        Write(debug, 150, 'h');
        debug.EndOfInitialization();
        SyslogCapture log;
        FaultOf<&::fseek> seek;
        seek.Fail(EIO);
        Write(debug, 200, 'a');
        EXPECT_THAT(log.Lines(),
                    ElementsAre("ERROR: fseek failed for /var/log/tolbrin/log.zorn (errno=5) --> "
                                "rewind it\n"));
        EXPECT_EQ(log.Entries().at(0).priority, LOG_ERR);
        EXPECT_THAT(FileLines(kLog).at(0), testing::StartsWith("------ WRAP ----- Cycle=1"));
        EXPECT_EQ(debug.m_LogCycle, 1u);
    });
}

TEST_F(LogFile, RewindsLaterIfItCannotTellWhereInitializationEnds) {
    Run(300, [](OpenDebug& debug) {
        Write(debug, 100, 'h');
        FaultOf<&::ftell> tell;
        tell.Fail(ESPIPE);
        debug.EndOfInitialization();
        EXPECT_EQ(debug.m_LogInitEndOffset, -1);
        EXPECT_EQ(debug.m_LogInitEndCount, 0xFFFFFFFF);
        SyslogCapture log;
        Write(debug, 300, 'a');
        EXPECT_THAT(log.Lines(),
                    ElementsAre("ERROR: fseek failed for /var/log/tolbrin/log.zorn (errno=22) --> "
                                "rewind it\n"));
        EXPECT_THAT(FileLines(kLog).at(0), testing::StartsWith("------ WRAP ----- Cycle=1"));
    });
}

// A ring line keeps what stands behind it.
TEST_F(LogFile, EndsALineAtANulAndWithoutItsNewline) {
    Run(1000, [](OpenDebug& debug) {
        debug.Trace(1, "ab%ccd\n", 0);
        EXPECT_EQ(FileText(kLog).substr(kPrefix), "ab");
        EXPECT_EQ(debug.m_LogByteCount, kPrefix + 2);
        debug.Trace(1, "next");
        EXPECT_EQ(FileText(kLog).substr(2 * kPrefix + 2), "next\n");
        EXPECT_EQ(debug.m_LogByteCount, 2 * kPrefix + 7);
    });
}

TEST_F(LogFile, WrapsAlsoByLinesOfThoseWhoHoldTheLock) {
    const std::pair<const char*, void (*)(OpenDebug&, const char*)> entries[] = {
        {"LogFilePrintf", [](OpenDebug& debug, const char* text)
                              NO_THREAD_SAFETY_ANALYSIS { debug.LogFilePrintf("%s", text); }},
        {"PrintToFile", [](OpenDebug& debug, const char* text)
                            NO_THREAD_SAFETY_ANALYSIS { debug.PrintToFile(7, "%s", text); }},
        {"PrintTo", [](OpenDebug& debug, const char* text)
                        NO_THREAD_SAFETY_ANALYSIS { debug.PrintTo(1, "%s", text); }},
    };
    for (const auto& entry : entries) {
        Run(300, [&](OpenDebug& debug) {
            debug.Trace(1, "head");
            debug.EndOfInitialization();
            const RecursiveLockGuard hold{debug.Lock()};
            entry.second(debug, std::string(300, 'x').c_str());
            const std::string count = std::to_string(kPrefix + 5);
            const Lines lines = FileLines(kLog);
            EXPECT_EQ(lines.at(0), "head") << entry.first;
            EXPECT_EQ(lines.at(1), "------ WRAP ----- Cycle=1, CntInitEnd=" + count +
                                       ", CurrentByteCnt=" + count + " (MaxCnt=300)")
                << entry.first;
            entry.second(debug, "behind it");
            EXPECT_EQ(FileLines(kLog).at(2), "behind it") << entry.first;
        });
    }
}

TEST_F(LogFile, BeginsAnewWithASecondInit) {
    Run(300, [](OpenDebug& debug) {
        Write(debug, 100, 'h');
        debug.EndOfInitialization();
        Write(debug, 250, 'x');
        EXPECT_EQ(debug.m_LogCycle, 1u);
        EXPECT_EQ(debug.Init("zorn"), 1);
        debug.m_MemoryTraces = 0;
        EXPECT_EQ(FileSize(kLog), 0);
        EXPECT_EQ(debug.m_LogCycle, 0u);
        EXPECT_EQ(debug.m_LogByteCount, 0u);
        EXPECT_EQ(debug.m_LogInitEndOffset, 0);
        EXPECT_EQ(debug.m_LogInitEndCount, 0u);
        Write(debug, 301, 'y');
        EXPECT_EQ(FileLines(kLog).at(0),
                  "------ WRAP ----- Cycle=1, CntInitEnd=0, CurrentByteCnt=0 (MaxCnt=300)");
    });
}

TEST_F(LogFile, FlushesEveryLine) {
    Run(1000, [](OpenDebug& debug) {
        for (int i = 1; i <= 3; ++i) {
            Write(debug, 100, 'x');
            EXPECT_EQ(FileSize(kLog), 100 * i);
        }
    });
}

TEST_F(LogFile, DoesNotCountALineThatTheFileDidNotTake) {
    host.Link(kLog, "/dev/full");
    Run(1000, [](OpenDebug& debug) {
        ASSERT_NE(debug.m_LogFile, nullptr);
        Write(debug, 100, 'x');
        EXPECT_EQ(debug.m_LogByteCount, 0u);
    });
}

TEST_F(LogFile, SaysInSyslogThatLinesAreLostOnceForEachTime) {
    host.Link(kLog, "/dev/full");
    Run(1000, [](OpenDebug& debug) {
        SyslogCapture log;
        Write(debug, 100, 'x');
        Write(debug, 100, 'x');
        const char* line =
            "ERROR: Error during writing /var/log/tolbrin/log.zorn (errno=28) --> lines are lost\n";
        EXPECT_THAT(log.Lines(), ElementsAre(line));
        FILE* full = debug.m_LogFile;
        debug.m_LogFile = fopen("/dev/null", "w");
        Write(debug, 100, 'x');
        EXPECT_EQ(debug.m_LogByteCount, 100u);
        (void)fclose(std::exchange(debug.m_LogFile, full));
        Write(debug, 100, 'x');
        EXPECT_THAT(log.Lines(), ElementsAre(line, line));
    });
}

TEST_F(LogFile, TakesNoPipeThatCouldStopIt) {
    host.Run([] {
        ASSERT_EQ(mkfifo(kLog, 0600), 0);
        setenv("QX_LOG_DEBUG_LEVEL", "1", 1);
        SyslogCapture log;
        OpenDebug debug;
        EXPECT_EQ(debug.Init("zorn"), 1);
        EXPECT_EQ(debug.m_LogFile, nullptr);
        EXPECT_EQ(log.Lines().size(), 1u);
    });
}

TEST_F(LogFile, WrapsAlsoIfTheCountPasses32Bits) {
    Run(0xFFFFFFFF, [](OpenDebug& debug) {
        debug.m_LogByteCount = 0xFFFFFFF0;
        Write(debug, 100, 'x');
        EXPECT_EQ(debug.m_LogCycle, 1u);
        EXPECT_THAT(FileText(kLog), HasSubstr("(MaxCnt=4294967295)\n"));
    });
}

TEST_F(LogFile, GoesOnWithoutAFileAndSaysSoInSyslog) {
    host.Remove("/var/log/tolbrin");
    host.Run([] {
        setenv("QX_LOG_DEBUG_LEVEL", "1", 1);
        SyslogCapture log;
        OpenDebug debug;
        EXPECT_EQ(debug.Init("zorn"), 1);
        EXPECT_EQ(debug.m_LogFile, nullptr);
        EXPECT_TRUE(debug.IsEnabled());
        EXPECT_THAT(log.Lines(), ElementsAre("ERROR: Error during opening "
                                             "/var/log/tolbrin/log.zorn --> proceed without it\n"));
        debug.Trace(1, "nowhere");
        debug.TraceAlways(1, "nowhere");
        debug.EndOfInitialization();
    });
}

TEST_F(LogFile, IsNotInheritedByPrograms) {
    Run(1000,
        [](OpenDebug& debug) { EXPECT_EQ(fcntl(fileno(debug.m_LogFile), F_GETFD), FD_CLOEXEC); });
}

}  // namespace

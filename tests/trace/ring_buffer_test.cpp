#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "support/fake_clock.h"
#include "support/libc_fault.h"
#include "trace/open_debug.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* kRing = "/var/log/tolbrin/test_ring";
constexpr std::string_view kMark = "## TRACE-END ##\n";
constexpr size_t kPrefix = sizeof "2026-11-20 19:35:59.060 [0000004907] zorn          " - 1;

/// A fresh machine with a log directory and a trace at level 1 with the short prefix.
class RingBuffer : public testing::Test {
  protected:
    RingBuffer() { host.Directory("/var/log/tolbrin"); }

    void Run(const std::function<void(OpenDebug&)>& body) {
        host.Run([&] {
            setenv("QX_LOG_DEBUG_LEVEL", "1", 1);
            OpenDebug debug;
            debug.Init("zorn");
            debug.m_MemoryTraces = 0;
            body(debug);
        });
    }

    /// The same with a ring of `size` bytes.
    void RunRing(size_t size, const std::function<void(OpenDebug&)>& body) {
        Run([&](OpenDebug& debug) {
            debug.m_RingSize = size;
            {
                const RecursiveLockGuard hold{debug.Lock()};
                ASSERT_TRUE(debug.InitRingBuffer(kRing, size));
            }
            body(debug);
        });
    }

    FakeHost host;
};

std::string_view Ring(const OpenDebug& debug) {
    return {debug.m_RingBase, debug.m_RingSize};
}

size_t CountMarks(std::string_view text) {
    size_t count = 0;
    for (size_t at = text.find(kMark); at != text.npos; at = text.find(kMark, at + 1)) ++count;
    return count;
}

/// Writes a line of `length` bytes in the ring, newline included.
void Write(OpenDebug& debug, size_t length, char letter) {
    debug.Trace(1, "%s", std::string(length - kPrefix - 1, letter).c_str());
}

/// Writes lines until the next one has exactly `room` bytes up to the end of the ring.
void FillUpTo(OpenDebug& debug, size_t room) {
    for (;;) {
        const size_t left = debug.m_RingSize - debug.m_RingPos - room;
        if (left == 0) return;
        Write(debug, left >= 400 ? 200 : left, 'f');
    }
}

TEST_F(RingBuffer, LaysOutHeaderBeginLineAndFirstLine) {
    RunRing(32768, [](OpenDebug& debug) {
        EXPECT_EQ(debug.m_TraceTarget, 2u);
        const std::string_view ring = Ring(debug);
        EXPECT_EQ(CutTracePrefix(ring.substr(0, ring.find('\n'))), "Tarnhollow Environment:");
        const size_t headerEnd = ring.find("# End of header.\n") + sizeof "# End of header.\n" - 1;
        EXPECT_EQ(ring.substr(headerEnd, kMark.size()), kMark);
        const size_t begin = (headerEnd + 2048) & ~size_t{1023};
        EXPECT_GE(begin - headerEnd, 1025u);
        EXPECT_LE(begin - headerEnd, 2048u);
        const std::string_view beginLine = ring.substr(begin, ring.find('\n', begin) - begin);
        EXPECT_EQ(CutTracePrefix(beginLine), "### Begin of RingBuffer. ###");
        EXPECT_EQ(debug.m_RingStart, begin + beginLine.size() + 1);
        const std::string_view first =
            ring.substr(debug.m_RingStart, debug.m_RingPos - debug.m_RingStart);
        EXPECT_EQ(CutTracePrefix(first.substr(0, first.size() - 1)),
                  "### Start of initialization. ###");
        EXPECT_EQ(ring.substr(debug.m_RingPos, kMark.size()), kMark);
        EXPECT_EQ(CountMarks(ring), 2u) << "behind the header and behind the newest line";
    });
}

/// The end of the header of a new ring, with a header that the environment makes longer by `size`
/// characters, and the place of its "Begin" line.
std::pair<size_t, size_t> HeaderEndAndBegin(size_t size) {
    setenv("QX_LOG_RINGBUF_WEIGHT_ZORN", std::string(size, 'w').c_str(), 1);
    OpenDebug debug;
    debug.Init("zorn");
    debug.m_MemoryTraces = 0;
    debug.m_RingSize = 32768;
    {
        const RecursiveLockGuard hold{debug.Lock()};
        EXPECT_TRUE(debug.InitRingBuffer(kRing, 32768));
    }
    constexpr std::string_view kLast = "# End of header.\n";
    const size_t begin = Ring(debug).find("### Begin of RingBuffer. ###\n");
    return {Ring(debug).find(kLast) + kLast.size(), begin - kPrefix};
}

TEST_F(RingBuffer, BeginsBetween1025And2048BytesBehindTheHeader) {
    host.Run([] {
        setenv("QX_LOG_DEBUG_LEVEL", "1", 1);
        const size_t toBlock = 1024 - HeaderEndAndBegin(0).first % 1024;
        const struct {
            size_t more, intoBlock, gap;
        } cases[] = {{toBlock, 0, 2048}, {toBlock + 1, 1, 2047}, {toBlock + 1023, 1023, 1025}};
        for (const auto& [more, intoBlock, gap] : cases) {
            const auto [end, begin] = HeaderEndAndBegin(more);
            EXPECT_EQ(end % 1024, intoBlock);
            EXPECT_EQ(begin - end, gap);
        }
    });
}

TEST_F(RingBuffer, IsPrefilledWithBlocksThatShowWhenTheFileWasMade) {
    RunRing(32768, [](OpenDebug& debug) {
        for (size_t at = (debug.m_RingPos + 2047) & ~size_t{1023}; at < 32768; at += 1024) {
            const std::string_view block = Ring(debug).substr(at, 1024);
            EXPECT_EQ(CutTracePrefix(block.substr(0, 1023)), std::string(1023 - kPrefix, '_'));
            EXPECT_EQ(block[1023], '\n');
        }
        const size_t header = Ring(debug).find("# End of header.\n## TRACE-END ##\n") + 33;
        const size_t next = (header + 1023) & ~size_t{1023};
        EXPECT_EQ(Ring(debug).substr(next - 2, 2), "_\n") << "what is left of the header's block";
    });
    EXPECT_EQ(host.Read(kRing).size(), 32768u);
}

TEST_F(RingBuffer, MakesAFileThatOnlyItsOwnerMayUse) {
    RunRing(16384, [](OpenDebug& debug) {
        struct stat status {};
        EXPECT_EQ(fstat(debug.m_RingFd, &status), 0);
        EXPECT_EQ(status.st_mode, mode_t{S_IFREG | 0700});
        EXPECT_EQ(fcntl(debug.m_RingFd, F_GETFD), FD_CLOEXEC);
    });
}

TEST_F(RingBuffer, MovesTheEndMarkBehindEachLine) {
    RunRing(32768, [](OpenDebug& debug) {
        for (int i = 0; i < 5; ++i) {
            Write(debug, 100, 'x');
            EXPECT_EQ(Ring(debug).substr(debug.m_RingPos, kMark.size()), kMark);
            EXPECT_EQ(CountMarks(Ring(debug)), 2u);
        }
    });
}

TEST_F(RingBuffer, TakesALineThatEnds16BytesBeforeTheEnd) {
    RunRing(32768, [](OpenDebug& debug) {
        FillUpTo(debug, 200);
        Write(debug, 200 - kMark.size(), 'x');
        EXPECT_EQ(debug.m_RingWrapCount, 0u);
        EXPECT_EQ(debug.m_RingPos, 32768 - kMark.size());
        EXPECT_TRUE(Ring(debug).ends_with("xxx\n## TRACE-END ##\n"));
    });
}

TEST_F(RingBuffer, WrapsWithALineThatIsOneByteLonger) {
    RunRing(32768, [](OpenDebug& debug) {
        FillUpTo(debug, 200);
        Write(debug, 200 - kMark.size() + 1, 'x');
        EXPECT_EQ(debug.m_RingWrapCount, 1u);
        EXPECT_EQ(debug.m_RingPos, debug.m_RingStart + 200 - kMark.size() + 1);
        EXPECT_TRUE(Ring(debug).ends_with("fff\n" + std::string(200, '.')));
        EXPECT_EQ(Ring(debug).substr(debug.m_RingPos, kMark.size()), kMark);
        EXPECT_EQ(CountMarks(Ring(debug)), 2u);
    });
}

TEST_F(RingBuffer, WritesNoDotsIfThePassEndsAtTheEndOfTheFile) {
    RunRing(32768, [](OpenDebug& debug) {
        FillUpTo(debug, 200);
        Write(debug, 200 - kMark.size(), 'x');
        debug.m_RingPos = debug.m_RingSize;  // no line ends here: the mark stands between
        memcpy(debug.m_RingBase + 32768 - kMark.size(), "0123456789abcde\n", kMark.size());
        Write(debug, 100, 'y');
        EXPECT_EQ(debug.m_RingWrapCount, 1u);
        EXPECT_TRUE(Ring(debug).ends_with("xxx\n0123456789abcde\n"));
    });
}

TEST_F(RingBuffer, WritesTheHeaderAnewAtEveryWrap) {
    RunRing(32768, [](OpenDebug& debug) {
        FakeClock clock{1'700'000'000};
        EXPECT_THAT(std::string{Ring(debug)}, testing::Not(StartsWith("2023-11-14 22:13:20.000")));
        const uint64_t start = debug.m_RingStart;
        while (debug.m_RingWrapCount == 0) Write(debug, 500, 'a');
        EXPECT_THAT(std::string{Ring(debug)}, StartsWith("2023-11-14 22:13:20.000"));
        EXPECT_EQ(debug.m_RingStart, start);
        clock.Set(1'700'000'100);
        setenv("QX_LOG_RINGBUF_WEIGHT_ZORN", "99", 1);
        setenv("QX_SYSTEM", "changed", 1);
        debug.m_RingWeight = 12345;
        while (debug.m_RingWrapCount == 1) Write(debug, 500, 'b');
        const std::string ring{Ring(debug)};
        EXPECT_THAT(ring, StartsWith("2023-11-14 22:15:00.000"));
        EXPECT_THAT(ring, HasSubstr("QX_LOG_RINGBUF_WEIGHT_ZORN=99\n"));
        EXPECT_THAT(ring, HasSubstr("QX_SYSTEM=NotSet\n")) << "as it was at Init";
        EXPECT_THAT(ring, HasSubstr("Ring Buffer Weight         : 12345\n"));
    });
}

TEST_F(RingBuffer, KeepsALineAboveTheBufferWholeUpToATenthOfTheRing) {
    RunRing(32768, [](OpenDebug& debug) {
        for (const size_t length : {1024u, 1025u, 3000u, 3276u}) {
            const uint64_t before = debug.m_RingPos;
            debug.Trace(1, "%s", std::string(length, 'l').c_str());
            EXPECT_EQ(debug.m_RingPos - before, kPrefix + length + 1);
            EXPECT_EQ(Ring(debug).substr(before + kPrefix, length + 1),
                      std::string(length, 'l') + "\n");
        }
    });
}

TEST_F(RingBuffer, CountsTheNewlineOfATextOf1024Characters) {
    RunRing(32768, [](OpenDebug& debug) {
        const uint64_t before = debug.m_RingPos;
        debug.Trace(1, "%s\n", std::string(1024, 'l').c_str());
        EXPECT_EQ(Ring(debug).substr(before + kPrefix, debug.m_RingPos - before - kPrefix),
                  std::string(1024, 'l') + "\n");
    });
    RunRing(10240, [](OpenDebug& debug) {  // a tenth of it is 1024
        const uint64_t before = debug.m_RingPos;
        debug.Trace(1, "%s\n", std::string(1024, 'l').c_str());
        EXPECT_EQ(debug.m_RingWrapCount, 0u);
        EXPECT_EQ(Ring(debug).substr(before + kPrefix, debug.m_RingPos - before - kPrefix),
                  std::string(1024, 'l') + "\n## WARNING: TRACE-SIZE TOO BIG: Output Truncated!\n");
    });
    RunRing(10240, [](OpenDebug& debug) {
        const uint64_t before = debug.m_RingPos;
        debug.Trace(1, "%s\n", std::string(1023, 'l').c_str());
        EXPECT_EQ(debug.m_RingWrapCount, 0u);
        EXPECT_EQ(Ring(debug).substr(before + kPrefix, debug.m_RingPos - before - kPrefix),
                  std::string(1023, 'l') + "\n");
    });
}

TEST_F(RingBuffer, RemovesLeadingNewlinesAndKeepsATextOfThem) {
    RunRing(32768, [](OpenDebug& debug) {
        const uint64_t before = debug.m_RingPos;
        debug.Trace(1, "\n\ntext");
        debug.Trace(1, "\n\n");
        const std::string_view written = Ring(debug).substr(before, debug.m_RingPos - before);
        EXPECT_EQ(written.substr(kPrefix, 5), "text\n");
        EXPECT_EQ(written.substr(kPrefix + 5 + kPrefix), "\n\n");
    });
}

TEST_F(RingBuffer, CutsALineAboveATenthOfTheRing) {
    RunRing(32768, [](OpenDebug& debug) {
        for (const size_t length : {3277u, 100'000u}) {
            const uint64_t before = debug.m_RingPos;
            debug.Trace(1, "%s", std::string(length, 'l').c_str());
            EXPECT_EQ(
                Ring(debug).substr(before + kPrefix, debug.m_RingPos - before - kPrefix),
                std::string(1024, 'l') + "\n## WARNING: TRACE-SIZE TOO BIG: Output Truncated!\n");
        }
    });
}

TEST_F(RingBuffer, CutsALineOf1025CharactersInARingOf8192Bytes) {
    RunRing(16384, [](OpenDebug& debug) {
        debug.m_RingSize = 8192 + 2048;  // a tenth of it is below 1025; the header needs the rest
        const uint64_t before = debug.m_RingPos;
        debug.Trace(1, "%s", std::string(1024, 'k').c_str());
        EXPECT_EQ(debug.m_RingPos - before, kPrefix + 1025);
        debug.m_RingSize = 8192;
        debug.m_RingPos = before - 1500;
        debug.Trace(1, "%s", std::string(1025, 'l').c_str());
        EXPECT_THAT(std::string{Ring(debug)},
                    HasSubstr("lll\n## WARNING: TRACE-SIZE TOO BIG: Output Truncated!\n"));
        debug.m_RingSize = 16384;
    });
}

TEST_F(RingBuffer, CutsALongLineThatThereIsNoMemoryFor) {
    if (!LibcFault::kHeapFaults) GTEST_SKIP() << LibcFault::kNoHeapFaults;
    RunRing(32768, [](OpenDebug& debug) {
        const std::string text(2000, 'l');
        const uint64_t before = debug.m_RingPos;
        {
            FaultOf<&::malloc> memory;
            memory.Fail(ENOMEM);
            debug.Trace(1, "%s", text.c_str());
        }
        EXPECT_EQ(Ring(debug).substr(before + kPrefix, debug.m_RingPos - before - kPrefix),
                  std::string(1024, 'l') + "\n## ERROR: No memory: Output Truncated!\n");
    });
}

TEST_F(RingBuffer, WritesThePrefixAloneIfTheTextCannotBeFormatted) {
    RunRing(32768, [](OpenDebug& debug) {
        const wchar_t bad[] = {static_cast<wchar_t>(0x7FFFFFFF), 0};
        const uint64_t before = debug.m_RingPos;
        debug.Trace(1, "text %ls", bad);
        EXPECT_EQ(debug.m_RingPos - before, kPrefix + 1);
    });
}

TEST_F(RingBuffer, WritesALongLineAfterAWrapToo) {
    RunRing(32768, [](OpenDebug& debug) {
        FillUpTo(debug, 200);
        debug.Trace(1, "%s", std::string(2000, 'l').c_str());
        EXPECT_EQ(debug.m_RingWrapCount, 1u);
        EXPECT_EQ(Ring(debug).substr(debug.m_RingStart + kPrefix, 2001),
                  std::string(2000, 'l') + "\n");
    });
}

TEST_F(RingBuffer, StandsInBothSinksWithAnUnconditionalLine) {
    RunRing(32768, [](OpenDebug& debug) {
        debug.TraceAlways(0, "both %d", 2);
        EXPECT_THAT(std::string{Ring(debug)}, HasSubstr("both 2\n## TRACE-END ##\n"));
        EXPECT_THAT(FileLines(kLog), ElementsAre("both 2"));
        debug.Trace(1, "ring only");
        EXPECT_THAT(FileLines(kLog), ElementsAre("both 2"));
    });
}

TEST_F(RingBuffer, EchoesTheCommandLineToBothSinks) {
    RunRing(32768, [](OpenDebug& debug) {
        char program[] = "zorn";
        char argument[] = "--x=\"1\"";
        char* argv[] = {program, argument, nullptr};
        debug.SetCommandLine(2, argv);
        EXPECT_THAT(FileLines(kLog), ElementsAre("zorn Command Line Options:", "argv[0] = \"zorn\"",
                                                 "argv[1] = \"--x=\"1\"\""));
        EXPECT_THAT(std::string{Ring(debug)}, HasSubstr("argv[1] = \"--x=\"1\"\"\n## TRACE-END"));
    });
}

TEST_F(RingBuffer, LeavesOutHeaderLinesThatWouldReachTheRingProper) {
    host.Run([] {
        setenv("QX_SYSTEM", std::string(1000, 's').c_str(), 1);
        setenv("QX_OS", std::string(1000, 'o').c_str(), 1);
        setenv("QX_LOG_DEBUG_LEVEL", "1", 1);
        OpenDebug debug;
        debug.Init("zorn");
        debug.m_MemoryTraces = 0;
        debug.m_RingSize = 4096;
        {
            const RecursiveLockGuard hold{debug.Lock()};
            ASSERT_TRUE(debug.InitRingBuffer(kRing, 4096));
        }
        EXPECT_LT(debug.m_RingStart, 4096u);
        for (int i = 0; i < 100; ++i) {
            Write(debug, 300, 'x');
            EXPECT_LE(debug.m_RingPos + kMark.size(), 4096u);
            EXPECT_GT(debug.m_RingPos, debug.m_RingStart);
        }
        EXPECT_GT(debug.m_RingWrapCount, 30u);
        EXPECT_THAT(std::string{Ring(debug)}, HasSubstr("### Begin of RingBuffer. ###\n"));
    });
}

TEST_F(RingBuffer, KeepsTheRingProperWhenALaterHeaderIsLonger) {
    RunRing(16384, [](OpenDebug& debug) {
        const std::string begin{Ring(debug).substr((debug.m_RingStart - 1) & ~uint64_t{1023}, 100)};
        setenv("QX_LOG_RINGBUF_WEIGHT_ZORN", std::string(1600, 'w').c_str(), 1);
        debug.m_MemoryTraces = 1;
        while (debug.m_RingWrapCount == 0) debug.Trace(1, "%s", std::string(300, 'x').c_str());
        const std::string again{Ring(debug).substr((debug.m_RingStart - 1) & ~uint64_t{1023}, 100)};
        EXPECT_EQ(again.substr(0, kPrefix + 28), begin.substr(0, kPrefix + 28));
    });
}

TEST_F(RingBuffer, CutsALineThatIsLongerThanTheRingProper) {
    RunRing(4096, [](OpenDebug& debug) {
        const uint64_t room = 4096 - debug.m_RingStart - kMark.size();
        ASSERT_LT(room, 1024u);
        Write(debug, 1024, 'x');
        EXPECT_EQ(debug.m_RingPos, 4096 - kMark.size());
        EXPECT_TRUE(Ring(debug).ends_with("xxx\n## TRACE-END ##\n"));
    });
}

// --- InitRingBuffer ------------------------------------------------------------------------------

/// Lets `InitRingBuffer` fail and expects the state that a failure leaves.
void ExpectNoRing(OpenDebug& debug, size_t size, const std::string& line) {
    const RecursiveLockGuard hold{debug.Lock()};
    debug.m_RingSize = size;
    EXPECT_FALSE(debug.InitRingBuffer(kRing, size));
    EXPECT_EQ(debug.m_RingFd, -1);
    EXPECT_EQ(debug.m_RingBase, nullptr);
    EXPECT_EQ(debug.m_TraceTarget, 1u);
    EXPECT_THAT(FileLines(kLog), ElementsAre(line));
}

TEST_F(RingBuffer, SaysThatItsFileCannotBeOpened) {
    host.Directory(kRing);
    Run([](OpenDebug& debug) {
        ExpectNoRing(
            debug, 16384,
            "### InitRingBuffer(): open of /var/log/tolbrin/test_ring failed (errno=21; Is a "
            "directory) ###");
    });
}

TEST_F(RingBuffer, SaysThatItsFileCannotBeFilled) {
    Run([](OpenDebug& debug) {
        FaultOf<&::write> write;
        write.PassThrough(3);
        write.Return(1023);
        ExpectNoRing(debug, 16384,
                     "### InitRingBuffer(): (2) write m_InternalDebugBuffer to "
                     "/var/log/tolbrin/test_ring failed ###");
    });
}

TEST_F(RingBuffer, SaysThatItsFileCannotBeMapped) {
    Run([](OpenDebug& debug) {
        FaultOf<&::mmap> map;
        map.Fail(ENOMEM);
        ExpectNoRing(
            debug, 16384,
            "### InitRingBuffer(): mmap of /var/log/tolbrin/test_ring failed (errno=12; Cannot "
            "allocate memory) ###");
    });
}

TEST_F(RingBuffer, CannotMapARingOfNoBytesAndWritesNoBlock) {
    Run([](OpenDebug& debug) {
        ExpectNoRing(
            debug, 0,
            "### InitRingBuffer(): mmap of /var/log/tolbrin/test_ring failed (errno=22; Invalid "
            "argument) ###");
    });
    EXPECT_EQ(host.Read(kRing), "");
}

TEST_F(RingBuffer, RefusesASizeThatCannotBeUsed) {
    for (const size_t size : {1024u, 2048u, 3071u, 3145u, 16383u, (1u << 30) + 1024u, 1u << 31}) {
        Run([&](OpenDebug& debug) {
            ExpectNoRing(debug, size,
                         "### InitRingBuffer(): /var/log/tolbrin/test_ring cannot be a ring of " +
                             std::to_string(size) + " bytes ###");
        });
        EXPECT_FALSE(host.Exists(kRing));
    }
}

TEST_F(RingBuffer, RefusesASizeThatIsNotTheOneItWasToldBefore) {
    Run([](OpenDebug& debug) {
        debug.m_RingSize = 262144;
        const RecursiveLockGuard hold{debug.Lock()};
        EXPECT_FALSE(debug.InitRingBuffer(kRing, 4096));
        EXPECT_EQ(debug.m_RingBase, nullptr);
    });
}

TEST_F(RingBuffer, HoldsAtEverySizeItTakes) {
    for (size_t size = 3072; size <= 20480; size += 1024) {
        RunRing(size, [&](OpenDebug& debug) {
            for (int i = 0; i < 200; ++i) {
                debug.Trace(1, "%s", std::string(static_cast<size_t>(i * 41 % 1500), 'x').c_str());
                ASSERT_LE(debug.m_RingPos + kMark.size(), size) << i;
                ASSERT_GE(debug.m_RingPos, debug.m_RingStart) << i;
            }
            EXPECT_GT(debug.m_RingWrapCount, 2u);
        });
    }
}

// --- Arming and the end of initialization --------------------------------------------------------

constexpr const char* kStartup = "/var/log/tolbrin/ring_startup_zorn";
constexpr const char* kRunning = "/var/log/tolbrin/ring_zorn";

TEST_F(RingBuffer, IsArmedWithTheSizeOfFactorTimesWeight) {
    const struct {
        int32_t factor, weight;
        uint64_t size;
    } cases[] = {
        {0, 0, 1 << 20}, {1, 1, 1 << 20}, {2, 3, 6 << 20}, {-5, 2, 2 << 20}, {3, -1, 3 << 20}};
    for (const auto& [factor, weight, size] : cases) {
        Run([&](OpenDebug& debug) {
            debug.m_RingFactor = factor;
            debug.m_RingWeight = weight;
            EXPECT_TRUE(debug.ArmRingBuffer());
            EXPECT_EQ(debug.m_RingSize, size);
            EXPECT_STREQ(debug.m_RingStartupPath, kStartup);
            EXPECT_STREQ(debug.m_RingPath, kRunning);
            EXPECT_EQ(debug.m_TraceTarget, 2u);
            EXPECT_TRUE(debug.IsEnabled());
        });
        EXPECT_EQ(host.Read(kStartup).size(), size);
    }
}

TEST_F(RingBuffer, IsArmedWithAGibibyteAtMost) {
    Run([](OpenDebug& debug) {
        debug.m_RingFactor = debug.m_RingWeight = 0x7FFFFFFF;
        FaultOf<&::mmap> map;
        FaultOf<&::write> write;  // not that much is to be written for the size's sake
        write.Always([](int, const void*, size_t size) { return static_cast<ssize_t>(size); });
        map.Answer([](void*, size_t length, int, int, int, off_t) -> void* {
            EXPECT_EQ(length, size_t{1} << 30);
            errno = ENOMEM;
            return MAP_FAILED;
        });
        EXPECT_FALSE(debug.ArmRingBuffer());
        EXPECT_EQ(debug.m_RingSize, 0u);
        EXPECT_EQ(debug.m_TraceTarget, 1u);
    });
}

TEST_F(RingBuffer, IsNotArmedTwice) {
    Run([](OpenDebug& debug) {
        EXPECT_TRUE(debug.ArmRingBuffer());
        const char* base = debug.m_RingBase;
        EXPECT_FALSE(debug.ArmRingBuffer());
        EXPECT_EQ(debug.m_RingBase, base);
        EXPECT_THAT(FileLines(kLog),
                    ElementsAre("### ArmRingBuffer(): the ring buffer runs already ###"));
    });
}

TEST_F(RingBuffer, IsNotArmedOnAPathThatAShellReadsOtherwise) {
    for (const char* directory :
         {"/var/log/a b", "/var/$HOME", "/var/`id`", "/x;reboot", "/x|y", "/x&y",
          "/x>y",         "/x*",        "/x?",       "/x'",       "/x\"", "/x\\y",
          "/x\ny",        "/x\ty",      "/x(y",      "~",         "-x",   "/x#y",
          "/x{y",         "/x!y",       "/x\x01y",   "/x\xC3\xA4"}) {
        Run([&](OpenDebug& debug) {
            snprintf(debug.m_LogDirectory, sizeof debug.m_LogDirectory, "%s", directory);
            EXPECT_FALSE(debug.ArmRingBuffer()) << directory;
            EXPECT_STREQ(debug.m_RingStartupPath, "") << "it must never reach the shell";
            EXPECT_STREQ(debug.m_RingPath, "");
            EXPECT_EQ(debug.m_TraceTarget, 1u);
            EXPECT_EQ(debug.m_RingFd, -1);
            EXPECT_THAT(FileText(kLog), HasSubstr("### ArmRingBuffer(): a path below \""));
        });
    }
}

TEST_F(RingBuffer, IsNotArmedOnAPathThatIsCut) {
    Run([](OpenDebug& debug) {
        snprintf(debug.m_LogDirectory, sizeof debug.m_LogDirectory, "%s",
                 ("/" + std::string(237, 'd')).c_str());
        EXPECT_FALSE(debug.ArmRingBuffer());
        EXPECT_THAT(FileText(kLog), HasSubstr("is too long or no plain word ###"));
    });
}

TEST_F(RingBuffer, LeavesTheTraceAsItWasIfItsFileCannotBeMade) {
    host.Directory(kStartup);
    Run([](OpenDebug& debug) {
        EXPECT_FALSE(debug.ArmRingBuffer());
        EXPECT_TRUE(debug.IsEnabled());
        EXPECT_EQ(debug.m_TraceTarget, 1u);
        EXPECT_EQ(debug.m_TraceLevel, 1u);
        EXPECT_EQ(debug.m_RingSize, 0u);
        EXPECT_STREQ(debug.m_RingStartupPath, "");
        debug.Trace(1, "goes on");
        debug.EndOfInitialization();
        EXPECT_FALSE(debug.m_InitDone);
        EXPECT_THAT(FileLines(kLog),
                    ElementsAre(HasSubstr("ring_startup_zorn failed (errno=21"), "goes on"));
    });
}

TEST_F(RingBuffer, RunsNoShellForARingThatWasNotArmed) {
    Run([](OpenDebug& debug) {
        FaultOf<&::popen> open;
        debug.SetTraceTarget(2);
        debug.EndOfInitialization();
        EXPECT_EQ(open.Calls(), 0);
        EXPECT_EQ(debug.m_TraceTarget, 0u);
        EXPECT_FALSE(debug.IsEnabled());
    });
}

TEST_F(RingBuffer, KeepsOtherThreadsWaitingWhileItIsHandedOver) {
    Run([](OpenDebug& debug) {
        EXPECT_TRUE(debug.ArmRingBuffer());
        FaultOf<&::popen> open;
        open.Answer([&](const char* command, const char* mode) {
            bool free = true;
            std::thread{[&] {
                auto* mutex = reinterpret_cast<pthread_mutex_t*>(&debug.Lock());  // its first field
                free = pthread_mutex_trylock(mutex) == 0;
            }}.join();
            EXPECT_FALSE(free);
            return LibcFault::Real<&::popen>(command, mode);
        });
        debug.EndOfInitialization();
    });
}

TEST_F(RingBuffer, FallsSilentIfTheRunningRingCannotBeFilledOrMapped) {
    for (const bool fill : {true, false}) {
        Run([&](OpenDebug& debug) {
            EXPECT_TRUE(debug.ArmRingBuffer());
            std::optional<FaultOf<&::write>> write;
            std::optional<FaultOf<&::mmap>> map;
            if (fill) write.emplace().Fail(ENOSPC);
            if (!fill) {
                map.emplace().Only([](void*, size_t, int, int flags, int, off_t) {
                    return (flags & MAP_SHARED) != 0;
                });
                map->Fail(ENOMEM);
            }
            debug.EndOfInitialization();
            EXPECT_EQ(debug.m_TraceTarget, 0u);
            EXPECT_EQ(debug.m_RingFd, -1);
            EXPECT_EQ(debug.m_RingBase, nullptr);
            EXPECT_FALSE(debug.IsEnabled());
            EXPECT_TRUE(debug.m_InitDone);
        });
    }
}

TEST_F(RingBuffer, HandsOverAtTheEndOfInitialization) {
    Run([](OpenDebug& debug) {
        EXPECT_TRUE(debug.ArmRingBuffer());
        debug.Trace(1, "while starting");
        debug.EndOfInitialization();
        EXPECT_TRUE(debug.m_InitDone);
        EXPECT_TRUE(debug.IsEnabled());
        EXPECT_EQ(debug.m_TraceTarget, 2u);
        EXPECT_EQ(debug.m_RingSize, 262144u);
        EXPECT_EQ(debug.m_RingWrapCount, 0u);
        debug.Trace(1, "while running");
        EXPECT_THAT(std::string{Ring(debug)}, HasSubstr("while running\n## TRACE-END ##\n"));
        EXPECT_THAT(std::string{Ring(debug)}, HasSubstr("Application Init Done      : 0\n"));
        EXPECT_EQ(system("gzip -dc /var/log/tolbrin/ring_startup_zorn.gz > /tmp/startup"), 0);
        EXPECT_THAT(FileText("/tmp/startup"), HasSubstr("while starting\n"));
        EXPECT_THAT(FileText("/tmp/startup"),
                    HasSubstr("### End of initialization. ###\n## TRACE"));
        EXPECT_EQ(FileText(kLog), "");
    });
    EXPECT_FALSE(host.Exists(kStartup));
    EXPECT_EQ(host.Read(kRunning).size(), 262144u);
}

TEST_F(RingBuffer, KeepsTheHeadOfTheLogToo) {
    Run([](OpenDebug& debug) {
        debug.Trace(1, "to the log");
        EXPECT_TRUE(debug.ArmRingBuffer());
        debug.TraceAlways(0, "to both");
        debug.EndOfInitialization();
        const size_t size = FileText(kLog).size();
        EXPECT_EQ(size, 2 * kPrefix + 19);
        EXPECT_EQ(debug.m_LogInitEndOffset, static_cast<int64_t>(size));
        EXPECT_EQ(debug.m_LogInitEndCount, size);
    });
}

// The running ring is a quarter of it, and asks for as much as any ring does.
TEST_F(RingBuffer, IsHandedOverFrom12KiBInStepsOf4096Bytes) {
    const std::pair<size_t, bool> cases[] = {{8192, false},  {11264, false}, {12288, true},
                                             {13312, false}, {14336, false}, {15360, false},
                                             {16384, true}};
    for (const auto& [size, isTaken] : cases) {
        RunRing(size, [size = size, isTaken = isTaken](OpenDebug& debug) {
            snprintf(debug.m_RingPath, sizeof debug.m_RingPath, "%s2", kRing);
            debug.EndOfInitialization();
            EXPECT_EQ(debug.m_RingBase != nullptr, isTaken) << size;
            EXPECT_EQ(debug.IsEnabled(), isTaken) << size;
            EXPECT_EQ(debug.m_TraceTarget, isTaken ? 2u : 0u) << size;
            if (isTaken) return;
            EXPECT_THAT(FileLines(kLog),
                        ElementsAre("### InitRingBuffer(): /var/log/tolbrin/test_ring2 cannot be a "
                                    "ring of " +
                                    std::to_string(size / 4) + " bytes ###"));
        });
    }
}

TEST_F(RingBuffer, KeepsANulOfItsText) {
    RunRing(16384, [](OpenDebug& debug) {
        const uint64_t before = debug.m_RingPos;
        debug.Trace(1, "ab%ccd", 0);
        EXPECT_EQ(Ring(debug).substr(before + kPrefix, debug.m_RingPos - before - kPrefix),
                  std::string_view("ab\0cd\n", 6));
    });
}

TEST_F(RingBuffer, WritesNoLineWithoutAFormat) {
    RunRing(32768, [](OpenDebug& debug) {
        const std::string before{Ring(debug)};
        const uint64_t position = debug.m_RingPos;
        const char* volatile null = nullptr;
        void (CDebug::*volatile trace)(unsigned, const char*, ...) = &CDebug::Trace;
        void (CDebug::*volatile printTo)(unsigned, const char*, ...) = &CDebug::PrintTo;
        const RecursiveLockGuard hold{debug.Lock()};
        for (const unsigned target : {0u, 2u}) (debug.*printTo)(target, null);
        (debug.*trace)(1, null);
        debug.TraceArgs(null, nullptr, nullptr);
        debug.TraceAlwaysArgs(null, nullptr, nullptr);
        EXPECT_EQ(debug.m_RingPos, position);
        EXPECT_EQ(Ring(debug), before);
    });
}

TEST_F(RingBuffer, IsHandedOverUnderTheLockBehindTheHeadOfTheLogThatNeedsNone) {
    for (const bool ring : {false, true}) {
        Run([ring](OpenDebug& debug) {
            if (ring && !debug.ArmRingBuffer()) FAIL();
            FaultOf<&::pthread_mutex_lock> lock;
            FaultOf<&::ftell> tell;
            tell.Answer([&lock](FILE* file) {
                EXPECT_EQ(lock.Calls(), 0);
                return LibcFault::Real<&::ftell>(file);
            });
            debug.EndOfInitialization();
            EXPECT_EQ(lock.Calls() > 0, ring);
        });
    }
}

TEST_F(RingBuffer, ShowsInLaterHeadersThatInitializationIsDone) {
    Run([](OpenDebug& debug) {
        EXPECT_TRUE(debug.ArmRingBuffer());
        debug.EndOfInitialization();
        while (debug.m_RingWrapCount == 0) Write(debug, 1000, 'x');
        EXPECT_THAT(std::string{Ring(debug)}, HasSubstr("Application Init Done      : 1\n"));
    });
}

TEST_F(RingBuffer, GoesOnIfGzipCannotBeStarted) {
    Run([](OpenDebug& debug) {
        EXPECT_TRUE(debug.ArmRingBuffer());
        FaultOf<&::popen> open;
        open.Answer([&](const char* command, const char* mode) -> FILE* {
            EXPECT_FALSE(debug.IsEnabled());
            EXPECT_EQ(debug.m_RingBase, nullptr);
            EXPECT_EQ(debug.m_RingFd, -1);
            EXPECT_EQ(debug.m_RingPos, 0u);
            EXPECT_EQ(debug.m_RingWrapCount, 0u);
            EXPECT_EQ(debug.m_RingSize, 1u << 20) << "not yet a quarter of it";
            EXPECT_FALSE(debug.m_InitDone);
            EXPECT_STREQ(command, "gzip -f /var/log/tolbrin/ring_startup_zorn 2>/dev/null");
            EXPECT_STREQ(mode, "r");
            return nullptr;
        });
        debug.EndOfInitialization();
        EXPECT_THAT(FileLines(kLog),
                    ElementsAre("### gziping of startup log file failed -> it doesn't matter ###"));
        EXPECT_TRUE(debug.IsEnabled());
    });
    EXPECT_TRUE(host.Exists(kStartup));
    EXPECT_TRUE(host.Exists(kRunning));
}

TEST_F(RingBuffer, FallsSilentIfTheRunningRingCannotBeMade) {
    host.Directory(kRunning);
    Run([](OpenDebug& debug) {
        EXPECT_TRUE(debug.ArmRingBuffer());
        debug.EndOfInitialization();
        EXPECT_EQ(debug.m_TraceTarget, 0u);
        EXPECT_EQ(debug.m_TraceLevel, 0u);
        EXPECT_EQ(debug.m_TraceLevelSaved, 0u);
        EXPECT_FALSE(debug.IsEnabled());
        EXPECT_TRUE(debug.m_InitDone);
        EXPECT_EQ(debug.m_RingBase, nullptr);
        debug.Trace(1, "nowhere");
        debug.TraceAlways(1, "to the file");
        EXPECT_THAT(FileLines(kLog),
                    ElementsAre(HasSubstr("open of /var/log/tolbrin/ring_zorn failed (errno=21"),
                                "to the file"));
    });
}

TEST_F(RingBuffer, KeepsItsContentWhenTheProcessIsKilled) {
    host.Run([this] {
        const pid_t child = fork();
        if (child == 0) {
            setenv("QX_LOG_DEBUG_LEVEL", "1", 1);
            OpenDebug debug;
            debug.Init("zorn");
            (void)debug.ArmRingBuffer();
            debug.Trace(1, "last words");
            kill(getpid(), SIGKILL);
        }
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_THAT(FileText(kStartup), HasSubstr("last words\n## TRACE-END ##\n"));
    });
}

}  // namespace

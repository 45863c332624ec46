#include "trace/debug.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <map>
#include <memory>
#include <new>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>

#include "support/fake_clock.h"
#include "support/libc_fault.h"
#include "support/sanitizers.h"
#include "support/system_call_stops.h"
#include "trace/open_debug.h"
#include "trace/proc_status.h"
#include "trace/trace.h"

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

/// A fresh machine with a log directory, and a trace called "zorn" on it at the level of the test.
class DebugTest : public testing::Test {
  protected:
    DebugTest() { host.Directory("/var/log/tolbrin"); }

    /// Runs `body` with a trace that was initialised at `level`.
    void Run(const char* level, const std::function<void(OpenDebug&)>& body) {
        host.Run([&] {
            if (level != nullptr) setenv("QX_LOG_DEBUG_LEVEL", level, 1);
            OpenDebug debug;
            EXPECT_EQ(debug.Init("zorn"), 1);
            body(debug);
        });
    }

    FakeHost host;
};

TEST_F(DebugTest, StartsWithTheBuiltInValues) {
    host.Run([] {
        OpenDebug debug;
        EXPECT_EQ(debug.m_TraceLevel, 0u);
        EXPECT_EQ(debug.m_TraceLevelSaved, 0u);
        EXPECT_EQ(debug.m_FileDebugLevel, 0xFFFFFFFF);
        EXPECT_FALSE(debug.IsEnabled());
        EXPECT_EQ(debug.m_TraceTarget, 0u);
        EXPECT_EQ(debug.m_RingFd, -1);
        EXPECT_EQ(debug.m_LogMaxSize, 0x1400000u);
        EXPECT_STREQ(debug.m_EndMark, "## TRACE-END ##\n");
        EXPECT_EQ(debug.m_EndMarkLength, 16u);
        EXPECT_EQ(debug.m_LogFile, nullptr);
        EXPECT_EQ(debug.IsTraceAvailable(), 1);
    });
}

TEST_F(DebugTest, TracesToTheFileFromInitOnIfTheLevelIsNotZero) {
    Run("3", [](OpenDebug& debug) {
        EXPECT_TRUE(debug.IsEnabled());
        EXPECT_EQ(debug.m_TraceTarget, 1u);
        EXPECT_EQ(debug.m_TraceLevel, 3u);
        EXPECT_EQ(debug.m_TraceLevelSaved, 3u);
        EXPECT_EQ(debug.m_Pid, getpid());
        EXPECT_THAT(debug.m_StartTime,
                    MatchesRegex("[A-Z][a-z][a-z] [A-Z][a-z][a-z] [ 0-9]+ [0-9:]+ [0-9]+\n"));
    });
}

TEST_F(DebugTest, IsSilentAtLevelZeroButForTheUnconditionalLines) {
    Run("0", [](OpenDebug& debug) {
        EXPECT_FALSE(debug.IsEnabled());
        EXPECT_EQ(debug.m_TraceTarget, 0u);
        debug.Trace(0, "not even level 0");
        debug.TraceAlways(7, "always");
        debug.TraceText("text");
        EXPECT_THAT(FileLines(kLog), ElementsAre("always", "text"));
    });
}

TEST_F(DebugTest, HasItsVirtualOperationsAtTheSlotsThatModulesCall) {
    Run("3", [](OpenDebug& debug) {
        CDebug& base = debug;
        void** const table = *reinterpret_cast<void***>(&base);
        using Plain = int (*)(CDebug*);
        using Init = int (*)(CDebug*, const char*);
        using Leveled = void (*)(CDebug*, unsigned, const char*, ...);
        using Text = void (*)(CDebug*, const char*, ...);
        EXPECT_EQ(reinterpret_cast<Plain>(table[2])(&base), 1);
        EXPECT_EQ(reinterpret_cast<Init>(table[3])(&base, "zorn"), 1);
        reinterpret_cast<Leveled>(table[4])(&base, 3, "Trace %d", 4);
        reinterpret_cast<Leveled>(table[4])(&base, 4, "above the level");
        reinterpret_cast<Text>(table[5])(&base, "TraceText %d", 5);
        reinterpret_cast<Leveled>(table[6])(&base, 4, "TraceAlways %d", 6);
        using Args = void (*)(CDebug*, const char*, va_list, const char*);
        const auto call = [&base](void* slot, const char* fmt, ...) {
            va_list args;
            va_start(args, fmt);
            reinterpret_cast<Args>(slot)(&base, fmt, args, "name");
            va_end(args);
        };
        call(table[7], "TraceAlwaysArgs %d", 7);
        base.SetTraceTarget(0);
        call(table[8], "TraceArgs to no target %d", 8);
        call(table[7], "TraceAlwaysArgs still %d", 7);
        base.SetTraceTarget(1);
        call(table[8], "TraceArgs %d", 8);
        EXPECT_THAT(FileLines(kLog),
                    ElementsAre("Trace 4", "TraceText 5", "TraceAlways 6", "TraceAlwaysArgs 7",
                                "TraceAlwaysArgs still 7", "TraceArgs 8"));
    });
}

// clang-format off

/// The fields: name, offset in the object, size. Modules were built with this layout.
#define FIELDS(X) \
    X(m_TraceLevel, 8, 4) X(m_TraceLevelSaved, 12, 4) X(m_FileDebugLevel, 16, 4) \
    X(m_TraceFlags, 20, 4) X(m_Enabled, 24, 1) X(m_ProgramName, 32, 8) X(m_GlobalIni, 40, 72) \
    X(m_ProgramIni, 112, 72) X(m_DynamicUpdate, 184, 4) X(m_LastUpdateCheck, 192, 8) \
    X(m_Lock, 200, 56) X(m_Pid, 256, 4) X(m_Argc, 260, 4) X(m_Argv, 264, 8) \
    X(m_StartTime, 272, 44) X(m_TraceTarget, 316, 4) X(m_InitDone, 320, 1) X(m_RingFd, 324, 4) \
    X(m_RingFactor, 328, 4) X(m_RingWeight, 332, 4) X(m_RingSize, 336, 8) X(m_RingPos, 344, 8) \
    X(m_RingStart, 352, 8) X(m_InternalDebugBuffer, 360, 1312) X(m_RingBase, 1672, 8) \
    X(m_RingWrapCount, 1680, 4) X(m_RingPath, 1684, 256) X(m_RingStartupPath, 1940, 256) \
    X(m_NoHeader, 2196, 4) X(m_IniRingFactor, 2200, 4) X(m_IniRingWeight, 2204, 4) \
    X(m_IniRingDirectory, 2208, 256) X(m_IniNoHeader, 2464, 4) X(m_IniDynamicUpdate, 2468, 4) \
    X(m_MemoryTraces, 2472, 4) X(m_LogDirectory, 2476, 256) X(m_EndMarkLength, 2736, 8) \
    X(m_EndMark, 2744, 64) X(m_LogPath, 2808, 256) X(m_LogFile, 3064, 8) \
    X(m_LogInitEndOffset, 3072, 8) X(m_LogMaxSize, 3080, 4) X(m_LogInitEndCount, 3084, 4) \
    X(m_LogByteCount, 3088, 4) X(m_LogCycle, 3092, 4)

// clang-format on

TEST_F(DebugTest, HasItsFieldsAtTheOffsetsThatModulesKnow) {
    static_assert(std::is_standard_layout_v<TraceIniFile>);
    static_assert(sizeof(TraceIniFile) == 72);
    EXPECT_EQ(offsetof(TraceIniFile, pBuffer), 0u);
    EXPECT_EQ(offsetof(TraceIniFile, pSection), 8u);
    EXPECT_EQ(offsetof(TraceIniFile, pSectionEnd), 16u);
    EXPECT_EQ(offsetof(TraceIniFile, Path), 24u);
    EXPECT_EQ(offsetof(TraceIniFile, Size), 56u);
    EXPECT_EQ(offsetof(TraceIniFile, MTime), 64u);
    OpenDebug debug;
    const auto* const begin = reinterpret_cast<const char*>(static_cast<const CDebug*>(&debug));
    const auto expect = [begin](const char* name, const auto& field, ptrdiff_t offset,
                                size_t size) {
        EXPECT_EQ(reinterpret_cast<const char*>(&field) - begin, offset) << name;
        EXPECT_EQ(sizeof field, size) << name;
    };
#define EXPECT_FIELD(field, offset, size) expect(#field, debug.field, offset, size);
    FIELDS(EXPECT_FIELD)
#undef EXPECT_FIELD
}

TEST_F(DebugTest, FiltersByLevelAsUnsignedNumbers) {
    Run("2", [](OpenDebug& debug) {
        for (unsigned level : {0u, 1u, 2u, 3u, 254u, 0xFFFFFFFFu}) {
            debug.Trace(level, "Trace %u", level);
            debug.CallTraceLevelArgs(level, "Args %u", level);
        }
        EXPECT_THAT(FileLines(kLog),
                    ElementsAre("Trace 0", "Args 0", "Trace 1", "Args 1", "Trace 2", "Args 2"));
    });
}

TEST_F(DebugTest, DropsALineAboveTheLevelWithoutFormattingIt) {
    Run("2", [](OpenDebug& debug) {
        int written = 7;
        debug.Trace(3, "%d%n", 1, &written);
        EXPECT_EQ(written, 7);
        debug.Trace(2, "%d%n", 1, &written);
        EXPECT_EQ(written, 1);
    });
}

TEST_F(DebugTest, EvaluatesNoArgumentWhileItIsDisabled) {
    Run("0", [](OpenDebug&) {
        int evaluated = 0;
        TRACE(1, "%d", ++evaluated);
        EXPECT_EQ(evaluated, 0);
        Debug.Enable(true);
        TRACE(1, "%d", ++evaluated);
        EXPECT_EQ(evaluated, 1);
        Debug.Enable(false);
    });
}

TEST_F(DebugTest, ReachesTheSinksThatEachEntryIsFor) {
    Run("3", [](OpenDebug& debug) {
        for (unsigned target : {0u, 1u, 2u, 3u}) {
            debug.SetTraceTarget(target);
            debug.Trace(1, "Trace %u", target);
            debug.CallTraceLevelArgs(1, "TraceLevelArgs %u", target);
            debug.CallTraceArgs("x", "TraceArgs %u", target);
            debug.TraceText("TraceText %u", target);
            debug.TraceAlways(9, "TraceAlways %u", target);
            debug.CallTraceAlwaysArgs("x", "TraceAlwaysArgs %u", target);
        }
        EXPECT_THAT(FileLines(kLog),
                    ElementsAre("TraceText 0", "TraceAlways 0", "TraceAlwaysArgs 0",  //
                                "Trace 1", "TraceLevelArgs 1", "TraceArgs 1", "TraceText 1",
                                "TraceAlways 1", "TraceAlwaysArgs 1",  //
                                "TraceText 2", "TraceAlways 2", "TraceAlwaysArgs 2", "TraceText 3",
                                "TraceAlways 3", "TraceAlwaysArgs 3"));
    });
}

TEST_F(DebugTest, WritesTraceArgsWhateverTheLevel) {
    Run("1", [](OpenDebug& debug) {
        debug.Enable(false);
        debug.CallTraceArgs("name", "still there");
        EXPECT_THAT(FileLines(kLog), ElementsAre("still there"));
    });
}

TEST_F(DebugTest, PrintsToTheSinkThatIsNamed) {
    Run("1", [](OpenDebug& debug) {
        const RecursiveLockGuard hold{debug.Lock()};
        debug.PrintTo(0, "current");
        debug.PrintTo(1, "file");
        debug.PrintTo(2, "ring");
        debug.SetTraceTarget(0);
        debug.PrintTo(0, "nowhere");
        debug.SetTraceTarget(3);
        debug.PrintTo(0, "nowhere");
        debug.PrintTo(3, "nowhere");
        debug.PrintTo(1, "file again");
        debug.PrintToFile(77, "to file");
        debug.LogFilePrintf("by printf");
        EXPECT_THAT(FileLines(kLog),
                    ElementsAre("current", "file", "file again", "to file", "by printf"));
    });
}

TEST_F(DebugTest, IgnoresANullFormat) {
    Run("3", [](OpenDebug& debug) {
        const char* volatile null = nullptr;
        debug.TraceLevelArgs(1, null, nullptr);
        debug.TraceAlwaysArgs(null, nullptr, nullptr);
        debug.TraceArgs(null, nullptr, nullptr);
        debug.SetTraceTarget(2);
        debug.TraceArgs(null, nullptr, nullptr);
        const RecursiveLockGuard hold{debug.Lock()};
        // The compiler knows that these take no null: call them as a module would, by pointer.
        void (CDebug::*volatile trace)(unsigned, const char*, ...) = &CDebug::Trace;
        void (CDebug::*volatile always)(unsigned, const char*, ...) = &CDebug::TraceAlways;
        void (CDebug::*volatile text)(const char*, ...) = &CDebug::TraceText;
        void (CDebug::*volatile printTo)(unsigned, const char*, ...) = &CDebug::PrintTo;
        void (CDebug::*volatile toFile)(unsigned, const char*, ...) = &CDebug::PrintToFile;
        void (CDebug::*volatile filePrintf)(const char*, ...) = &CDebug::LogFilePrintf;
        for (unsigned target : {1u, 2u}) {
            debug.SetTraceTarget(target);
            (debug.*trace)(1, null);
            (debug.*always)(1, null);
            (debug.*text)(null);
            (debug.*printTo)(target, null);
            (debug.*toFile)(1, null);
            (debug.*filePrintf)(null);
        }
        EXPECT_EQ(FileText(kLog), "");
    });
}

TEST_F(DebugTest, DoesNothingAtTargetRingWithoutARing) {
    Run("3", [](OpenDebug& debug) {
        debug.SetTraceTarget(2);
        debug.Trace(1, "nowhere to go");
        EXPECT_EQ(FileText(kLog), "");
    });
}

TEST_F(DebugTest, KeepsTheLevelForEnable) {
    Run("4", [](OpenDebug& debug) {
        EXPECT_EQ(debug.Enable(false), 1);
        EXPECT_FALSE(debug.IsEnabled());
        EXPECT_EQ(debug.m_TraceLevel, 0u);
        EXPECT_EQ(debug.m_TraceTarget, 1u);
        debug.Trace(1, "dropped");
        debug.TraceAlways(1, "still written");
        EXPECT_EQ(debug.Enable(true), 1);
        EXPECT_TRUE(debug.IsEnabled());
        EXPECT_EQ(debug.m_TraceLevel, 4u);
        debug.Trace(4, "back");
        EXPECT_THAT(FileLines(kLog), ElementsAre("still written", "back"));
    });
}

TEST_F(DebugTest, HasNoLevelToGoBackToIfInitFoundNone) {
    Run("0", [](OpenDebug& debug) {
        debug.Enable(true);
        EXPECT_TRUE(debug.IsEnabled());
        EXPECT_EQ(debug.m_TraceLevel, 0u);
        debug.Trace(1, "dropped");
        debug.Trace(0, "no target");
        debug.TraceAlways(0, "unconditional");
        EXPECT_THAT(FileLines(kLog), ElementsAre("unconditional"));
    });
}

// --- What a line costs ---------------------------------------------------------------------------

/// A line with a text of `length` characters.
void TraceText(OpenDebug& debug, size_t length) {
    static const std::string text(2000, 't');
    debug.Trace(1, "%.*s", static_cast<int>(length), text.c_str());
}

TEST_F(DebugTest, TakesMemoryForNoLineButALongOneOfTheRing) {
    if (!LibcFault::kHeapFaults) GTEST_SKIP() << LibcFault::kNoHeapFaults;
    Run("1", [](OpenDebug& debug) {
        TraceText(debug, 1);  // opens what a prefix keeps open
        const struct {
            bool ring;
            size_t length;
            int calls;
        } cases[] = {{false, 5, 0},   {false, 1024, 0}, {false, 2000, 0}, {true, 5, 0},
                     {true, 1024, 0}, {true, 1025, 1},  {true, 2000, 1}};
        for (const auto& [ring, length, calls] : cases) {
            if (ring && debug.m_RingBase == nullptr && !debug.ArmRingBuffer()) FAIL();
            const FaultOf<&::calloc> cleared;
            const FaultOf<&::realloc> moved;
            const FaultOf<&::malloc> memory;  // the last one: the others take some
            TraceText(debug, length);
            debug.Trace(2, "above the level %d", 1);
            EXPECT_EQ(memory.Calls(), calls) << length;
            EXPECT_EQ(cleared.Calls() + moved.Calls(), 0) << length;
        }
    });
}

/// How many system calls `body` makes behind `prepare`. Each has two stops, on its way in and out.
int CountSystemCalls(const std::function<void()>& prepare, const std::function<void()>& body) {
    int stops = 0;
    while (KilledAtStop(stops, prepare, body)) ++stops;
    EXPECT_EQ(stops % 2, 0);
    return stops / 2;
}

TEST_F(DebugTest, MakesOneSystemCallForALineInTheLogAndNoneForOneInTheRing) {
    if (kAddressSanitizer || kThreadSanitizer)
        GTEST_SKIP() << "the sanitizer makes calls of its own";
    for (const bool memoryFigure : {false, true}) {
        host.Run([memoryFigure] {
            const int figure = memoryFigure ? 1 : 0;
            setenv("QX_LOG_DEBUG_LEVEL", "1", 1);
            OpenDebug debug;
            const auto prepare = [&](bool ring) {
                debug.Init("zorn");
                debug.m_MemoryTraces = memoryFigure;
                if (ring && !debug.ArmRingBuffer()) FAIL();
                TraceText(debug, 1);
            };
            const auto prepareLog = [&] { prepare(false); };
            const auto prepareRing = [&] { prepare(true); };
            const auto dropped = [&] { debug.Trace(2, "above the level"); };
            EXPECT_EQ(CountSystemCalls(prepareLog, [&] { TraceText(debug, 5); }), 1 + figure);
            EXPECT_EQ(CountSystemCalls(prepareLog, [&] { TraceText(debug, 1024); }), 1 + figure);
            EXPECT_EQ(CountSystemCalls(prepareLog, dropped), 0);
            EXPECT_EQ(CountSystemCalls(prepareRing, [&] { TraceText(debug, 5); }), figure);
            EXPECT_EQ(CountSystemCalls(prepareRing, [&] { TraceText(debug, 1024); }), figure);
            EXPECT_EQ(CountSystemCalls(prepareRing, dropped), 0);
        });
    }
}

// --- The prefix ----------------------------------------------------------------------------------

TEST_F(DebugTest, PutsStampNumberMemoryAndNameInFrontOfALine) {
    Run("1", [](OpenDebug& debug) {
        debug.Trace(1, "text");
        EXPECT_THAT(FileText(kLog),
                    MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}[.][0-9]{3} "
                                 "\\[[0-9]{10}\\] +[0-9]+ KB !zorn          text\n"));
    });
}

TEST_F(DebugTest, ReadsTheMemoryFigureFromTheKernelsOwnCount) {
    const struct {
        const char* file;
        const char* text;
        const char* column;
    } cases[] = {
        {"statm", "9000 3 1 0 0 0 0\n", "[0000004711]       12 KB !zorn          text\n"},
        {"statm", "9000 24999999 1 0 0 0 0\n", "[0000004711] 99999996 KB !zorn          text\n"},
        {"statm", "9000 25000000 1 0\n", "[0000004711] 100000000 KB !zorn          text\n"},
        {"statm", "nonsense\n", "[0000004711]        0 KB !zorn          text\n"},
        {"status", "VmRSS:\t 123456789 kB\n", "[0000004711] 123456789 KB !zorn          text\n"},
        {"status", "VmRSS:\t 12 kB\n", "[0000004711]       12 KB !zorn          text\n"},
        {"other", "", "[0000004711]        0 KB !zorn          text\n"},
    };
    for (const auto& [file, text, column] : cases) {
        host.Remove("/proc/4711");
        host.File(std::string{"/proc/4711/"} + file, text);
        Run("1", [&](OpenDebug& debug) {
            FaultOf<&::getpid> number;
            number.Return(4711);
            debug.Trace(1, "text");
            debug.Trace(1, "text");
            const std::string log = FileText(kLog);
            EXPECT_THAT(log, HasSubstr(column));
            EXPECT_EQ(log.find(column), log.find('[')) << "the first line";
            EXPECT_EQ(log.rfind(column), log.rfind('[')) << "a later one of the same second";
        });
    }
}

TEST_F(DebugTest, ShowsTheSameMemoryFigureAsTheStatusOfTheProcess) {
    host.KernelProc();
    Run("1", [](OpenDebug& debug) {
        constexpr uint64_t kMore = 64 << 10;  // KiB: what kernels keep back in counters is far less
        uint64_t shown[2] = {};
        uint64_t told[2] = {};
        const std::unique_ptr<char[]> memory{new char[kMore << 10]};
        for (int i = 0; i < 2; ++i) {
            if (i == 1) memset(memory.get(), 1, kMore << 10);
            char prefix[kPrefixSize + 1] = {};
            const RecursiveLockGuard hold{debug.Lock()};
            debug.FormatPrefix(prefix, nullptr);
            shown[i] = strtoul(strchr(prefix, ']') + 1, nullptr, 10);
            GetProcStatusField(getpid(), &told[i], "VmRSS:", 1);
            EXPECT_NEAR(static_cast<double>(shown[i]), static_cast<double>(told[i]), 4096);
        }
        EXPECT_GE(shown[1], shown[0] + kMore - 4096);
    });
}

TEST_F(DebugTest, ShowsTheNumberOfTheProcessThatWritesAlsoAfterAFork) {
    host.KernelProc();
    Run("1", [](OpenDebug& debug) {
        debug.Trace(1, "parent");
        const pid_t child = fork();
        if (child == 0) {
            debug.Trace(1, "child");
            _exit(0);
        }
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        debug.Trace(1, "parent again");
        char numbers[2][16];
        snprintf(numbers[0], sizeof numbers[0], "[%010d] ", getpid());
        snprintf(numbers[1], sizeof numbers[1], "[%010d] ", child);
        const std::string log = FileText(kLog);
        EXPECT_THAT(log, testing::ContainsRegex(std::string{"\\"} + numbers[1] + ".*child\n"));
        EXPECT_THAT(log,
                    testing::ContainsRegex(std::string{"\\"} + numbers[0] + ".*parent again\n"));
    });
}

TEST_F(DebugTest, KeepsStepWithTheMillisecondsOfTheClock) {
    Run("1", [](OpenDebug& debug) {
        FakeClock clock{1'700'000'000};
        debug.m_MemoryTraces = 0;
        for (const int milliseconds : {0, 7, 50, 999, 1000}) {
            clock.Set(1'700'000'000);
            clock.Advance(std::chrono::milliseconds{milliseconds} + std::chrono::microseconds{999});
            debug.Trace(1, "x");
        }
        const std::string log = FileText(kLog);
        Lines stamps;
        for (size_t at = 0; at < log.size(); at = log.find('\n', at) + 1) {
            stamps.push_back(log.substr(at, log.find(' ', log.find(' ', at) + 1) - at));
        }
        EXPECT_THAT(stamps, ElementsAre("2023-11-14 22:13:20.000", "2023-11-14 22:13:20.007",
                                        "2023-11-14 22:13:20.050", "2023-11-14 22:13:20.999",
                                        "2023-11-14 22:13:21.000"));
    });
}

TEST_F(DebugTest, LeavesTheMemoryFigureOutIfItIsSwitchedOff) {
    Run("1", [](OpenDebug& debug) {
        debug.m_MemoryTraces = 0;
        debug.Trace(1, "text");
        EXPECT_THAT(FileText(kLog),
                    MatchesRegex("[-0-9]+ [0-9:.]+ \\[[0-9]{10}\\] zorn          text\n"));
    });
}

TEST_F(DebugTest, TakesTheNameColumnOfTheCallIfThereIsOne) {
    Run("1", [](OpenDebug& debug) {
        debug.m_MemoryTraces = 0;
        debug.CallTraceArgs("module", "a");
        debug.CallTraceAlwaysArgs("longer than thirteen", "b");
        debug.CallTraceArgs(nullptr, "c");
        EXPECT_THAT(FileText(kLog), testing::ContainsRegex("\\] module        a\n"));
        EXPECT_THAT(FileText(kLog), testing::ContainsRegex("\\] longer than thirteen b\n"));
        EXPECT_THAT(FileText(kLog), testing::ContainsRegex("\\] zorn          c\n"));
    });
}

TEST_F(DebugTest, LeavesTheNameColumnEmptyWithoutAName) {
    host.Run([] {
        setenv("QX_LOG_DEBUG_LEVEL", "1", 1);
        OpenDebug debug;
        debug.Init("");
        debug.m_MemoryTraces = 0;
        debug.Trace(1, "text");
        EXPECT_THAT(FileText("/var/log/tolbrin/log."),
                    testing::ContainsRegex("\\]               text\n"));
    });
}

TEST_F(DebugTest, CutsThePrefixAt128Bytes) {
    Run("1", [](OpenDebug& debug) {
        const std::string name(300, 'n');
        debug.CallTraceArgs(name.c_str(), "text");
        const std::string line = FileText(kLog);
        EXPECT_EQ(line.size(), 128 + sizeof "text\n" - 1);
        EXPECT_THAT(line, EndsWith("nnntext\n"));
        const RecursiveLockGuard hold{debug.Lock()};
        char buffer[129];
        EXPECT_EQ(debug.FormatPrefix(buffer, name.c_str()), 128u);
    });
}

TEST_F(DebugTest, ShowsAStampOfLettersIfTheDateCannotBeFormatted) {
    Run("1", [](OpenDebug& debug) {
        FaultOf<&::strftime> date;
        date.Return(0);
        debug.Trace(1, "no room");
        EXPECT_THAT(FileText(kLog), testing::StartsWith("yyyy-mm-dd hh:mm:ss.mmm ["));
    });
    Run("1", [](OpenDebug& debug) {
        FaultOf<&::localtime_r> local;
        local.Return(nullptr);
        debug.Trace(1, "no time");
        EXPECT_THAT(FileText(kLog), testing::StartsWith("yyyy-mm-dd hh:mm:ss.mmm ["));
    });
}

TEST_F(DebugTest, FollowsTheClockInLeapsOfTenYearsBothWays) {
    Run("1", [](OpenDebug& debug) {
        constexpr time_t kTenYears = 10 * 365 * 86400;
        FakeClock clock{1'700'000'000};
        debug.Trace(1, "now");
        clock.Set(1'700'000'000 + kTenYears);
        debug.Trace(1, "later");
        clock.Set(1'700'000'000 - kTenYears);
        debug.Trace(1, "earlier");
        const std::string text = FileText(kLog);
        EXPECT_THAT(text, testing::StartsWith("2023-11-14 22:13:20.000 ["));
        EXPECT_THAT(text, testing::HasSubstr("\n2033-11-11 22:13:20.000 ["));
        EXPECT_THAT(text, testing::HasSubstr("\n2013-11-16 22:13:20.000 ["));
    });
}

// --- The text ------------------------------------------------------------------------------------

TEST_F(DebugTest, RemovesLeadingNewlinesAndEndsEachLine) {
    Run("1", [](OpenDebug& debug) {
        debug.Trace(1, "\nboth ways\n");
        debug.Trace(1, "\n\n\ntwo\nlines");
        debug.Trace(1, "keeps its own\n\n");
        EXPECT_THAT(FileLines(kLog), ElementsAre("both ways", "two", "lines", "keeps its own", ""));
    });
}

TEST_F(DebugTest, WritesATextOfOnlyNewlinesWithThem) {
    Run("1", [](OpenDebug& debug) {
        debug.m_MemoryTraces = 0;
        debug.Trace(1, "\n\n\n");
        EXPECT_THAT(FileText(kLog), EndsWith("zorn          \n\n\n"));
    });
}

TEST_F(DebugTest, EndsAnEmptyTextWithANewline) {
    Run("1", [](OpenDebug& debug) {
        debug.Trace(1, "%s", "");
        EXPECT_THAT(FileText(kLog), EndsWith("zorn          \n"));
    });
}

TEST_F(DebugTest, TakesPercentSignsOfArgumentsAsTheyAre) {
    Run("1", [](OpenDebug& debug) {
        debug.Trace(1, "%s 100%%", "%s%n%d%");
        EXPECT_THAT(FileLines(kLog), ElementsAre("%s%n%d% 100%"));
    });
}

TEST_F(DebugTest, CutsATextInTheFileAt1024Characters) {
    Run("1", [](OpenDebug& debug) {
        const std::string text(100'000, 'x');
        for (int length : {0, 1023, 1024, 1025, 100'000}) {
            debug.Trace(1, "%.*s", length, text.c_str());
        }
        const Lines lines = FileLines(kLog);
        ASSERT_EQ(lines.size(), 5u);
        const size_t sizes[] = {0, 1023, 1024, 1024, 1024};
        for (size_t i = 0; i < lines.size(); ++i)
            EXPECT_EQ(lines[i], text.substr(0, sizes[i])) << i;
    });
}

TEST_F(DebugTest, KeepsTheNewlineOfATextOfExactly1024Characters) {
    Run("1", [](OpenDebug& debug) {
        debug.Trace(1, "%s\n", std::string(1023, 'x').c_str());
        debug.Trace(1, "%s\n", std::string(1024, 'y').c_str());
        debug.Trace(1, "end");
        EXPECT_THAT(FileLines(kLog),
                    ElementsAre(std::string(1023, 'x'), std::string(1024, 'y'), "end"));
    });
}

TEST_F(DebugTest, WritesThePrefixAloneIfTheTextCannotBeFormatted) {
    Run("1", [](OpenDebug& debug) {
        debug.m_MemoryTraces = 0;
        const wchar_t bad[] = {static_cast<wchar_t>(0x7FFFFFFF), 0};
        debug.Trace(1, "text %ls", bad);
        EXPECT_THAT(FileText(kLog), EndsWith("] zorn          \n"));
    });
}

// --- Init ----------------------------------------------------------------------------------------

TEST_F(DebugTest, NamesTheFileAfterTheProgramInSmallLetters) {
    host.Run([] {
        OpenDebug debug;
        debug.Init("ZoRn");
        EXPECT_STREQ(debug.m_LogPath, "/var/log/tolbrin/log.zorn");
        EXPECT_STREQ(debug.m_ProgramName, "ZoRn");
    });
    EXPECT_TRUE(host.Exists(kLog));
}

TEST_F(DebugTest, KeepsTheFormerNameIfInitGetsAnEmptyOne) {
    Run("1", [](OpenDebug& debug) {
        EXPECT_EQ(debug.Init(""), 1);
        EXPECT_STREQ(debug.m_ProgramName, "zorn");
        EXPECT_STREQ(debug.m_LogPath, "/var/log/tolbrin/log.");
        debug.Trace(1, "text");
        EXPECT_EQ(FileText(kLog), "");
        EXPECT_THAT(FileLines("/var/log/tolbrin/log."), ElementsAre("text"));
    });
}

TEST_F(DebugTest, TakesANullNameForAnEmptyOne) {
    Run("1", [](OpenDebug& debug) {
        EXPECT_EQ(debug.Init(nullptr), 1);
        EXPECT_STREQ(debug.m_ProgramName, "zorn");
        EXPECT_STREQ(debug.m_LogPath, "/var/log/tolbrin/log.");
    });
}

TEST_F(DebugTest, TakesACopyOfAnotherNameAndItsFileWithASecondInit) {
    Run("1", [](OpenDebug& debug) {
        char name[] = "Other";
        EXPECT_EQ(debug.Init(name), 1);
        memset(name, 'x', sizeof name - 1);
        EXPECT_STREQ(debug.m_ProgramName, "Other");
        EXPECT_STREQ(debug.m_LogPath, "/var/log/tolbrin/log.other");
        debug.Trace(1, "text");
        EXPECT_EQ(FileText(kLog), "");
        EXPECT_THAT(FileText("/var/log/tolbrin/log.other"), EndsWith(" KB !Other         text\n"));
    });
}

TEST_F(DebugTest, EmptiesTheFileOfTheRunBefore) {
    host.File(kLog, "old\n");
    Run("1", [](OpenDebug& debug) {
        EXPECT_EQ(FileText(kLog), "");
        debug.Trace(1, "first");
        EXPECT_THAT(FileLines(kLog), ElementsAre("first"));
    });
}

TEST_F(DebugTest, CutsThePathOfTheFileAt255Characters) {
    host.Run([] {
        OpenDebug debug;
        debug.Init(std::string(300, 'X').c_str());
        EXPECT_EQ(std::string{debug.m_LogPath}, "/var/log/tolbrin/log." + std::string(234, 'x'));
    });
    EXPECT_TRUE(host.Exists("/var/log/tolbrin/log." + std::string(234, 'x')));
}

TEST_F(DebugTest, InitialisesItselfIfItIsMadeWithAName) {
    host.Run([] {
        setenv("QX_LOG_DEBUG_LEVEL", "2", 1);
        OpenDebug named{"zorn"};
        EXPECT_TRUE(named.IsEnabled());
        EXPECT_STREQ(named.m_ProgramName, "zorn");
        OpenDebug null{static_cast<const char*>(nullptr)};
        OpenDebug empty{""};
        for (const OpenDebug* debug : {&null, &empty}) {
            EXPECT_FALSE(debug->IsEnabled());
            EXPECT_EQ(debug->m_ProgramName, nullptr);
            EXPECT_EQ(debug->m_LogFile, nullptr);
        }
    });
}

TEST_F(DebugTest, FallsSilentIfThereIsNoMemoryForTheSettings) {
    host.File(std::string{kConfigDirectory} + "/a.ini", "[zorn]\nFileDebugLevel=3\n[EndOfFile]\n");
    host.Run([] {
        setenv("QX_LOG_DEBUG_LEVEL", "3", 1);
        SyslogCapture log;
        FaultOf<&::fread> read;
        read.Answer([](void*, size_t, size_t, FILE*) -> size_t { throw std::bad_alloc{}; });
        OpenDebug debug{"zorn"};
        EXPECT_FALSE(debug.IsEnabled());
        EXPECT_EQ(debug.m_TraceTarget, 0u);
        EXPECT_EQ(debug.m_TraceLevel, 0u);
        EXPECT_EQ(debug.m_TraceLevelSaved, 0u);
        EXPECT_EQ(debug.m_LogFile, nullptr);
        EXPECT_THAT(log.Lines(),
                    ElementsAre("ERROR: Error during initialization of the CDebug instance.\n"));
        EXPECT_EQ(log.Entries().at(0).priority, LOG_ERR);
    });
}

TEST_F(DebugTest, ShowsAStartTimeOfLettersIfThereIsNone) {
    host.Run([] {
        OpenDebug debug;
        {
            FaultOf<&::asctime_r> text;
            text.Return(nullptr);
            debug.Init("zorn");
        }
        char expected[sizeof debug.m_StartTime] = "\nwww mmm dd hh:mm:ss yyyy";
        EXPECT_EQ(memcmp(debug.m_StartTime, expected, sizeof expected), 0);
        FaultOf<&::localtime_r> local;
        local.Return(nullptr);
        debug.Init("zorn");
        EXPECT_EQ(memcmp(debug.m_StartTime, expected, sizeof expected), 0);
    });
}

TEST_F(DebugTest, GoesBackToItsFirstStateWithResetMembers) {
    host.File(std::string{kConfigDirectory} + "/a.ini", "[zorn]\nFileDebugLevel=3\n[EndOfFile]\n");
    host.Run([] {
        OpenDebug debug;
        debug.Init("zorn");
        EXPECT_TRUE(debug.ArmRingBuffer());
        debug.ResetMembers();
        EXPECT_FALSE(debug.IsEnabled());
        EXPECT_EQ(debug.m_TraceLevel, 0u);
        EXPECT_EQ(debug.m_TraceTarget, 0u);
        EXPECT_EQ(debug.m_FileDebugLevel, 0xFFFFFFFF);
        EXPECT_EQ(debug.m_LogFile, nullptr);
        EXPECT_EQ(debug.m_RingBase, nullptr);
        EXPECT_EQ(debug.m_RingFd, -1);
        EXPECT_EQ(debug.m_ProgramName, nullptr);
        EXPECT_STREQ(debug.m_LogPath, "");
        EXPECT_STREQ(debug.m_RingPath, "");
        EXPECT_STREQ(debug.m_EndMark, "## TRACE-END ##\n");
        EXPECT_STREQ(debug.m_ProgramIni.pSection, "\nFileDebugLevel=3\n") << "the caches stay";
        EXPECT_EQ(debug.Init("zorn"), 1);
        EXPECT_EQ(debug.m_TraceLevel, 3u);
    });
}

/// The bytes of each field but the ini caches and the lock.
std::map<std::string, std::string> FieldBytes(OpenDebug& debug) {
    std::map<std::string, std::string> bytes;
#define TAKE_FIELD(field, offset, size) \
    bytes[#field].assign(reinterpret_cast<const char*>(&debug.field), size);
    FIELDS(TAKE_FIELD)
#undef TAKE_FIELD
    for (const char* kept : {"m_GlobalIni", "m_ProgramIni", "m_Lock"}) bytes.erase(kept);
    return bytes;
}

TEST_F(DebugTest, SetsEachFieldWithResetMembers) {
    Run("1", [](OpenDebug& debug) {
        OpenDebug fresh;
        const auto expected = FieldBytes(fresh);
        EXPECT_TRUE(debug.ArmRingBuffer());
        char* const begin = reinterpret_cast<char*>(static_cast<CDebug*>(&debug));
        const std::set<std::string> used{"m_GlobalIni",   "m_ProgramIni", "m_Lock",
                                         "m_ProgramName", "m_RingFd",     "m_RingSize",
                                         "m_RingBase",    "m_LogFile"};
#define SPOIL_FIELD(field, offset, size) \
    if (!used.contains(#field)) memset(begin + (offset), 1, size);
        FIELDS(SPOIL_FIELD)
#undef SPOIL_FIELD
        for (const auto& [name, bytes] : FieldBytes(debug))
            EXPECT_NE(bytes, expected.at(name)) << name;
        debug.ResetMembers();
        for (const auto& [name, bytes] : FieldBytes(debug))
            EXPECT_EQ(bytes, expected.at(name)) << name;
    });
}

TEST_F(DebugTest, IsHarmlessAfterItsDestructor) {
    host.Run([] {
        setenv("QX_LOG_DEBUG_LEVEL", "3", 1);
        alignas(OpenDebug) static unsigned char storage[sizeof(OpenDebug)];
        auto* debug = new (storage) OpenDebug;
        debug->Init("zorn");
        EXPECT_TRUE(debug->ArmRingBuffer());
        char program[] = "zorn";
        char* argv[] = {program, nullptr};
        debug->SetCommandLine(1, argv);
        debug->m_DynamicUpdate = 1;
        debug->~OpenDebug();
        EXPECT_TRUE(debug->IsEnabled()) << "callers pass the guard";
        EXPECT_EQ(debug->m_TraceLevel, 0u);
        EXPECT_EQ(debug->m_TraceTarget, 0u);
        EXPECT_EQ(debug->m_Argc, 0);
        EXPECT_EQ(debug->m_Argv, nullptr);
        EXPECT_EQ(debug->m_LogFile, nullptr);
        EXPECT_EQ(debug->m_RingBase, nullptr);
        EXPECT_EQ(debug->m_RingFd, -1);
        EXPECT_EQ(debug->m_RingSize, 0u);
        const std::string before = FileText(kLog);
        debug->CDebug::Trace(1, "late");
        debug->CDebug::TraceAlways(1, "late");
        debug->CDebug::TraceText("late");
        EXPECT_EQ(FileText(kLog), before);
    });
}

TEST_F(DebugTest, IsDestroyedWholeByAThreadThatIsToBeCancelled) {
    Run("1", [](OpenDebug& debug) {
        debug.Trace(1, "opens what a prefix keeps open");
        std::thread{[] {
            OpenDebug other;
            other.Init("other");
            other.TraceAlways(1, "text");
            pthread_cancel(pthread_self());
            other.~OpenDebug();
            new (&other) OpenDebug;
            int former = 0;
            pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &former);
            EXPECT_EQ(former, PTHREAD_CANCEL_ENABLE);
        }}.join();
    });
}

}  // namespace

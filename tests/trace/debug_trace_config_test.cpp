#include "trace/debug_trace_config.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <utime.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "support/fake_clock.h"
#include "support/libc_fault.h"
#include "trace/open_debug.h"

namespace {

using testing::ElementsAre;

/// A fresh machine with a configuration directory and a log directory.
class TraceConfig : public testing::Test {
  protected:
    TraceConfig() {
        host.Directory(kConfigDirectory);
        host.Directory("/var/log/tolbrin");
    }

    void Ini(const std::string& name, const std::string& text) {
        host.File(kConfigDirectory + ("/" + name), text);
    }

    /// The settings as a program called "zorn" finds them.
    void Read(const std::function<void(OpenDebug&)>& body) {
        host.Run([&] {
            OpenDebug debug;
            const RecursiveLockGuard hold{debug.Lock()};
            EXPECT_EQ(debug.ReadTraceConfig("zorn"), 1);
            body(debug);
        });
    }

    FakeHost host;
};

/// Gives a file of the configuration directory, seen from inside, another text and time stamp.
void Rewrite(const std::string& name, std::string_view text, time_t modified) {
    const std::string path = kConfigDirectory + ("/" + name);
    FILE* file = fopen(path.c_str(), "we");
    ASSERT_NE(file, nullptr) << path;
    EXPECT_EQ(fwrite(text.data(), 1, text.size(), file), text.size());
    EXPECT_EQ(fclose(file), 0);
    const utimbuf times{modified, modified};
    EXPECT_EQ(utime(path.c_str(), &times), 0);
}

TEST_F(TraceConfig, TakesAllDefaultsIfTheDirectoryDoesNotExist) {
    host.Remove(kConfigDirectory);
    Read([](OpenDebug& debug) {
        EXPECT_STREQ(debug.m_LogDirectory, "/var/log/tolbrin");
        EXPECT_EQ(debug.m_LogMaxSize, 0x1400000u);
        EXPECT_EQ(debug.m_TraceLevel, 0u);
        EXPECT_EQ(debug.m_RingFactor, 0);
        EXPECT_EQ(debug.m_RingWeight, 0);
        EXPECT_EQ(debug.m_NoHeader, 1);
        EXPECT_EQ(debug.m_DynamicUpdate, 0u);
        EXPECT_EQ(debug.m_IniRingFactor, 0xFFFFFFFF);
        EXPECT_EQ(debug.m_IniRingWeight, 0xFFFFFFFF);
        EXPECT_EQ(debug.m_IniNoHeader, 0xFFFFFFFF);
        EXPECT_EQ(debug.m_MemoryTraces, 0xFFFFFFFF);
    });
}

TEST_F(TraceConfig, ReadsTheGlobalSettingsAloneIfTheDirectoryCannotBeListed) {
    Ini("global_trace.ini",
        "[GlobalDebugSettings]\nDynamicUpdate=17\n[zorn]\nFileDebugLevel=4\nNoHeaderToStderr=0\n"
        "[EndOfFile]\n");
    host.Run([] {
        OpenDebug debug;
        const RecursiveLockGuard hold{debug.Lock()};
        FaultOf<&::scandir> scan;
        scan.Fail(EACCES);
        EXPECT_EQ(debug.ReadTraceConfig("zorn"), 1);
        EXPECT_EQ(debug.m_DynamicUpdate, 17u);
        EXPECT_NE(debug.m_GlobalIni.Path, "");
        EXPECT_EQ(debug.m_ProgramIni.Path, "");
        EXPECT_EQ(debug.m_TraceLevel, 0u);
        EXPECT_EQ(debug.m_NoHeader, 1);
        EXPECT_STREQ(debug.m_LogDirectory, "/var/log/tolbrin");
    });
}

TEST_F(TraceConfig, MakesNoSettingAtAllIfTheDirectoryHoldsNoIniFile) {
    host.File(std::string{kConfigDirectory} + "/README", "[zorn]FileDebugLevel=3\n[EndOfFile]");
    host.Run([] {
        setenv("QX_LOG_DEBUG_LEVEL", "5", 1);
        OpenDebug debug;
        EXPECT_EQ(debug.Init("zorn"), 1);
        EXPECT_STREQ(debug.m_LogDirectory, "");
        EXPECT_STREQ(debug.m_LogPath, "/log.zorn");
        EXPECT_EQ(debug.m_TraceLevel, 0u);
        EXPECT_EQ(debug.m_LogMaxSize, 0x1400000u);
        EXPECT_FALSE(debug.IsEnabled());
        debug.TraceAlways(0, "at the root");
    });
    EXPECT_THAT(host.Read("/log.zorn"), testing::HasSubstr("] zorn          # End of header.\n"));
    EXPECT_THAT(host.Read("/log.zorn"), testing::EndsWith("] zorn          at the root\n"));
}

TEST_F(TraceConfig, ReadsEveryKeyOfTheProgramsSection) {
    Ini("global_trace.ini",
        "[GlobalDebugSettings]\nDynamicUpdate=17\n[zorn]\nRingBufferDirectory=/var/ring\n"
        "FileDebugLevel=4\nTraceFlags=0x20\nRingBufferSizeFactor=6\nRingBufferSizeWeight=7\n"
        "NoHeaderToStderr=0\nMemoryTracesFlag=0\n[EndOfFile]\n");
    Read([](OpenDebug& debug) {
        EXPECT_EQ(debug.m_IniDynamicUpdate, 17u);
        EXPECT_EQ(debug.m_DynamicUpdate, 17u);
        EXPECT_STREQ(debug.m_IniRingDirectory, "/var/ring");
        EXPECT_STREQ(debug.m_LogDirectory, "/var/ring");
        EXPECT_EQ(debug.m_FileDebugLevel, 4u);
        EXPECT_EQ(debug.m_TraceLevel, 4u);
        EXPECT_EQ(debug.m_TraceLevelSaved, 4u);
        EXPECT_EQ(debug.m_TraceFlags, 0x20u);
        EXPECT_EQ(debug.m_IniRingFactor, 6u);
        EXPECT_EQ(debug.m_RingFactor, 6);
        EXPECT_EQ(debug.m_IniRingWeight, 7u);
        EXPECT_EQ(debug.m_RingWeight, 7);
        EXPECT_EQ(debug.m_IniNoHeader, 0u);
        EXPECT_EQ(debug.m_NoHeader, 0);
        EXPECT_EQ(debug.m_MemoryTraces, 0u);
    });
}

TEST_F(TraceConfig, LetsTheEnvironmentWin) {
    Ini("global_trace.ini",
        "[GlobalDebugSettings]\nDynamicUpdate=17\n[zorn]\nRingBufferDirectory=/var/ring\n"
        "FileDebugLevel=5\nRingBufferSizeFactor=6\nRingBufferSizeWeight=7\nNoHeaderToStderr=0\n"
        "[EndOfFile]\n");
    host.Run([] {
        const char* const variables[][2] = {
            {"QX_LOG_DYNAMIC_UPDATE", "3"},   {"QX_LOG_RINGBUF_DIR", "/env"},
            {"QX_LOG_FILE_MAX_SIZE", "4096"}, {"QX_LOG_DEBUG_LEVEL", "0"},
            {"TraceFileLimit", "2"},          {"QX_LOG_RINGBUF_WEIGHT", "-4"},
            {"QX_LOG_NOHDR_TOSDTERR", "1"}};
        for (const auto& [name, value] : variables) setenv(name, value, 1);
        OpenDebug debug;
        const RecursiveLockGuard hold{debug.Lock()};
        EXPECT_EQ(debug.ReadTraceConfig("zorn"), 1);
        EXPECT_EQ(debug.m_DynamicUpdate, 3u);
        EXPECT_EQ(debug.m_IniDynamicUpdate, 17u);
        EXPECT_STREQ(debug.m_LogDirectory, "/env");
        EXPECT_EQ(debug.m_LogMaxSize, 4096u);
        EXPECT_EQ(debug.m_TraceLevel, 0u);
        EXPECT_EQ(debug.m_FileDebugLevel, 5u);
        EXPECT_EQ(debug.m_RingFactor, 2);
        EXPECT_EQ(debug.m_RingWeight, -4);
        EXPECT_EQ(debug.m_NoHeader, 1);
    });
}

TEST_F(TraceConfig, NeverLooksAgainIfTheVariableIsAllOnes) {
    Ini("x.ini", "");
    host.Run([] {
        setenv("QX_LOG_DYNAMIC_UPDATE", "-1", 1);
        OpenDebug debug;
        const RecursiveLockGuard hold{debug.Lock()};
        debug.ReadTraceConfig("zorn");
        EXPECT_EQ(debug.m_DynamicUpdate, 0u);
    });
}

TEST_F(TraceConfig, CountsAnEmptyOrWordyVariableAsZero) {
    Ini("global_trace.ini",
        "[GlobalDebugSettings]\nDynamicUpdate=9\n[zorn]\nFileDebugLevel=5\nNoHeaderToStderr=1\n"
        "RingBufferSizeFactor=6\nRingBufferSizeWeight=7\n[EndOfFile]\n");
    for (const char* text : {"", "yes", "0x10"}) {  // base 10: the x ends the number
        host.Run([text] {
            for (const char* name :
                 {"QX_LOG_DEBUG_LEVEL", "QX_LOG_NOHDR_TOSDTERR", "QX_LOG_FILE_MAX_SIZE",
                  "QX_LOG_DYNAMIC_UPDATE", "TraceFileLimit", "QX_LOG_RINGBUF_WEIGHT"}) {
                setenv(name, text, 1);
            }
            OpenDebug debug;
            const RecursiveLockGuard hold{debug.Lock()};
            debug.ReadTraceConfig("zorn");
            EXPECT_EQ(debug.m_TraceLevel, 0u) << text;
            EXPECT_EQ(debug.m_NoHeader, 0) << text;
            EXPECT_EQ(debug.m_LogMaxSize, 0u) << text;
            EXPECT_EQ(debug.m_DynamicUpdate, 0u) << text;
            EXPECT_EQ(debug.m_RingFactor, 0) << text;
            EXPECT_EQ(debug.m_RingWeight, 0) << text;
            EXPECT_EQ(debug.m_FileDebugLevel, 5u) << "what the file said stays";
        });
    }
}

TEST_F(TraceConfig, HasOneDirectoryAndSoNoEffectOfTheFirstVariable) {
    host.Run([] {
        setenv("QX_LOG_FILE_DIR", "/file/dir", 1);
        OpenDebug debug;
        const RecursiveLockGuard hold{debug.Lock()};
        debug.ReadTraceConfig("zorn");
        EXPECT_STREQ(debug.m_LogDirectory, "");  // nothing: the directory is there and empty
    });
    Ini("x.ini", "");
    host.Run([] {
        setenv("QX_LOG_FILE_DIR", "/file/dir", 1);
        OpenDebug debug;
        const RecursiveLockGuard hold{debug.Lock()};
        debug.ReadTraceConfig("zorn");
        EXPECT_STREQ(debug.m_LogDirectory, "/var/log/tolbrin");
        setenv("QX_LOG_RINGBUF_DIR", "/ring/dir", 1);
        debug.ReadTraceConfig("zorn");
        EXPECT_STREQ(debug.m_LogDirectory, "/ring/dir");
        setenv("QX_LOG_RINGBUF_DIR", "", 1);
        debug.ReadTraceConfig("zorn");
        EXPECT_STREQ(debug.m_LogDirectory, "");
    });
}

TEST_F(TraceConfig, IgnoresTheVariablesThatAreNotQuiteItsOwn) {
    Ini("x.ini", "");
    host.Run([] {
        setenv("QX_LOG_NOHDR_TOSTDERR", "0", 1);
        setenv("QX_TraceFileLimit", "9", 1);
        OpenDebug debug;
        const RecursiveLockGuard hold{debug.Lock()};
        debug.ReadTraceConfig("zorn");
        EXPECT_EQ(debug.m_NoHeader, 1);
        EXPECT_EQ(debug.m_RingFactor, 0);
    });
}

TEST_F(TraceConfig, CutsDirectoriesAt255Characters) {
    Ini("a.ini", "[zorn]\nRingBufferDirectory=/" + std::string(300, 'i') + "\n[EndOfFile]\n");
    Read([](OpenDebug& debug) {
        EXPECT_EQ(std::string{debug.m_IniRingDirectory}, "/" + std::string(254, 'i'));
        EXPECT_EQ(std::string{debug.m_LogDirectory}, "/" + std::string(254, 'i'));
        setenv("QX_LOG_RINGBUF_DIR", std::string(300, 'e').c_str(), 1);
        debug.ReadTraceConfig("zorn");
        EXPECT_EQ(std::string{debug.m_LogDirectory}, std::string(255, 'e'));
    });
}

TEST_F(TraceConfig, IgnoresAFileWithoutTheTrailer) {
    Ini("global_trace.ini", "[GlobalDebugSettings]\nDynamicUpdate=5\n[zorn]\nFileDebugLevel=3\n");
    Read([](OpenDebug& debug) {
        EXPECT_EQ(debug.m_DynamicUpdate, 0u);
        EXPECT_EQ(debug.m_TraceLevel, 0u);
        EXPECT_EQ(debug.m_GlobalIni.Path, "");
        EXPECT_EQ(debug.m_ProgramIni.Path, "");
        EXPECT_EQ(debug.m_ProgramIni.pBuffer, nullptr);
    });
}

TEST_F(TraceConfig, ScansBackupsButNoEditorsLockFiles) {
    Ini(".#a.ini", "[zorn]\nFileDebugLevel=1\n[EndOfFile]\n");
    Ini("b.txt", "[zorn]\nFileDebugLevel=2\n[EndOfFile]\n");
    Ini("c.ini.bak", "[zorn]\nFileDebugLevel=3\n[EndOfFile]\n");
    Ini("d.ini", "[zorn]\nFileDebugLevel=4\n[EndOfFile]\n");
    Read([](OpenDebug& debug) {
        EXPECT_EQ(debug.m_TraceLevel, 3u);
        EXPECT_EQ(debug.m_ProgramIni.Path, kConfigDirectory + std::string{"/c.ini.bak"});
    });
}

TEST_F(TraceConfig, TakesTheFirstFileInAlphabeticOrderThatHasTheSection) {
    Ini("a.ini", "[other]\nFileDebugLevel=1\n[EndOfFile]\n");
    Ini("b.ini", "[ZORN]\nFileDebugLevel=2\n[EndOfFile]\n");
    Ini("c.ini", "[zorn]\nFileDebugLevel=3\n[EndOfFile]\n");
    Read([](OpenDebug& debug) { EXPECT_EQ(debug.m_TraceLevel, 2u); });
}

TEST_F(TraceConfig, TreatsAnIniValueOfAllOnesAsAbsent) {
    Ini("global_trace.ini",
        "[GlobalDebugSettings]\nDynamicUpdate=0xFFFFFFFF\n[zorn]\nFileDebugLevel=0xFFFFFFFF\n"
        "RingBufferSizeFactor=-1\nNoHeaderToStderr=4294967295\nRingBufferSizeWeight=0xFFFFFFFF\n"
        "MemoryTracesFlag=-1\n[EndOfFile]\n");
    Read([](OpenDebug& debug) {
        EXPECT_EQ(debug.m_IniRingWeight, 0xFFFFFFFF);
        EXPECT_EQ(debug.m_RingWeight, 0);
        EXPECT_EQ(debug.m_MemoryTraces, 0xFFFFFFFF);
        EXPECT_EQ(debug.m_DynamicUpdate, 0u);
        EXPECT_EQ(debug.m_TraceLevel, 0u);
        EXPECT_EQ(debug.m_RingFactor, 0);
        EXPECT_EQ(debug.m_NoHeader, 1);
    });
}

TEST_F(TraceConfig, LeavesTheHeaderOutForAnyNumberButZero) {
    for (const char* number : {"1", "2", "0x80000000"}) {
        Ini("a.ini", std::string{"[zorn]\nNoHeaderToStderr="} + number + "\n[EndOfFile]\n");
        host.Run([number] {
            OpenDebug debug;
            debug.Init("zorn");
            EXPECT_EQ(debug.m_NoHeader, static_cast<int32_t>(strtoul(number, nullptr, 0)));
            EXPECT_EQ(FileText(kLog), "");
        });
    }
}

TEST_F(TraceConfig, ReadsTheExampleOfTheFormatsPage) {
    Ini("global_trace.ini",
        "All of this is read, there are no comments: FileDebugLevel=0 here has no effect only\n"
        "because it stands in front of all heads.\n"
        "\n"
        "[GlobalDebugSettings]\n"
        "DynamicUpdate=60\n"
        "\n"
        "[ZORN]\n"
        "; FileDebugLevel=5\n"
        "FileDebugLevel=3\n"
        "MemoryTracesFlag\n"
        "NoHeaderToStderr=0\n"
        "RingBufferSizeFactor=0x10\n"
        "RingBufferSizeWeight=\n"
        "RingBufferDirectory=/var/log/ring\n"
        "TraceFlags=4294967295\n"
        "\n"
        "[zorn]\n"
        "FileDebugLevel=1\n"
        "\n"
        "[EndOfFile]\n");
    Read([](OpenDebug& debug) {
        EXPECT_EQ(debug.m_DynamicUpdate, 60u);
        EXPECT_EQ(debug.m_TraceLevel, 5u);
        EXPECT_EQ(debug.m_MemoryTraces, 0u);
        EXPECT_EQ(debug.m_NoHeader, 0);
        EXPECT_EQ(debug.m_RingFactor, 16);
        EXPECT_EQ(debug.m_RingWeight, 0);
        EXPECT_EQ(debug.m_IniRingWeight, 0u) << "it was there";
        EXPECT_STREQ(debug.m_LogDirectory, "/var/log/ring");
        EXPECT_EQ(debug.m_TraceFlags, 0u);
    });
}

TEST_F(TraceConfig, KeepsTheSectionAsAStringInTheBuffer) {
    Ini("a.ini", "[x]1\n[zorn]\nFileDebugLevel=2\n[EndOfFile]\n");
    Read([](OpenDebug& debug) {
        EXPECT_STREQ(debug.m_ProgramIni.pSection, "\nFileDebugLevel=2\n");
        EXPECT_EQ(debug.m_ProgramIni.pSectionEnd, debug.m_ProgramIni.pSection + 18);
        EXPECT_EQ(debug.m_ProgramIni.Size, 41);
        EXPECT_GT(debug.m_ProgramIni.MTime, 0);
    });
}

TEST_F(TraceConfig, TakesAFileThatCannotBeReadWholeForNone) {
    Ini("a.ini", "[zorn]\nFileDebugLevel=2\n[EndOfFile]\n");
    Ini("b.ini", "[zorn]\nFileDebugLevel=3\n[EndOfFile]\n");
    host.Directory(std::string{kConfigDirectory} + "/0.ini");
    host.Link(std::string{kConfigDirectory} + "/1.ini", "nowhere");
    Read([](OpenDebug& debug) { EXPECT_EQ(debug.m_TraceLevel, 2u); });
    host.Run([] {
        OpenDebug debug;
        const RecursiveLockGuard hold{debug.Lock()};
        FaultOf<&::fopen> open;
        open.PassThrough();  // 0.ini, a folder; 1.ini is not there
        open.Fail(EACCES);   // a.ini
        debug.ReadTraceConfig("zorn");
        EXPECT_EQ(debug.m_TraceLevel, 3u);
    });
}

TEST_F(TraceConfig, TakesAFileForNoneThatIsShorterThanItWas) {
    Ini("a.ini", "[zorn]\nFileDebugLevel=2\n[EndOfFile]\n");
    host.Run([] {
        FaultOf<&::stat> stat;
        stat.Only([](const char* path, struct stat*) { return strstr(path, "a.ini") != nullptr; });
        stat.Answer([](const char* path, struct stat* status) {
            const int result = LibcFault::Real<&::stat>(path, status);
            ++status->st_size;
            return result;
        });
        OpenDebug debug;
        const RecursiveLockGuard hold{debug.Lock()};
        debug.ReadTraceConfig("zorn");
        EXPECT_EQ(debug.m_TraceLevel, 0u);
        EXPECT_EQ(debug.m_ProgramIni.Path, "");
    });
}

TEST_F(TraceConfig, TakesAFileForNoneThatThereIsNoMemoryFor) {
    Ini("a.ini", "[zorn]\nFileDebugLevel=2\n[EndOfFile]\n");
    if (!LibcFault::kHeapFaults) GTEST_SKIP() << LibcFault::kNoHeapFaults;
    Read([](OpenDebug& debug) {
        FaultOf<&::calloc> memory;
        memory.Fail(ENOMEM);
        EXPECT_FALSE(debug.LoadIniSection(debug.m_GlobalIni, "zorn", "a.ini", kConfigDirectory));
        EXPECT_EQ(debug.m_GlobalIni.Path, "");
    });
}

// --- A second reading, with the files of the first one cached ------------------------------------

constexpr std::string_view kOfTwo = "[zorn]\nFileDebugLevel=2\n[EndOfFile]\n";
constexpr std::string_view kOfFour = "[zorn]\nFileDebugLevel=4\n[EndOfFile]\n";

TEST_F(TraceConfig, ReadsACachedFileAgainByTheSizeItHad) {
    const std::string behind = "and more, of which nothing is seen [zorn]FileDebugLevel=1";
    const struct {
        std::string text;
        uint32_t level;
        bool isKept;
    } cases[] = {
        {std::string{kOfTwo}, 2, true},
        {std::string{kOfFour}, 4, true},
        {std::string{kOfFour} + behind, 4, true},                       // grown behind
        {"[zorn]\nFileDebugLevel=4\n; more\n[EndOfFile]\n", 2, false},  // grown: cut
        {"[zorn]\nFileDebugLevel=4[EndOfFile]\n", 2, false},            // shorter
        {"[corn]\nFileDebugLevel=4\n[EndOfFile]\n", 2, false},          // another section
        {"[zorn]\nFileDebugLevel=4\n[EndOfFilm]\n", 2, false},          // no trailer
        {"", 2, false},
    };
    Ini("a.ini", std::string{kOfTwo});
    Ini("other", "");
    for (const auto& [text, level, isKept] : cases) {
        host.Run([&, text = text, level = level, isKept = isKept] {
            Rewrite("a.ini", kOfTwo, 1'700'000'000);
            OpenDebug debug;
            const RecursiveLockGuard hold{debug.Lock()};
            debug.ReadTraceConfig("zorn");
            EXPECT_EQ(debug.m_TraceLevel, 2u);
            Rewrite("a.ini", text, 1'700'000'100);
            FaultOf<&::stat> stat;
            EXPECT_EQ(debug.ReadTraceConfig("zorn"), 1);
            EXPECT_EQ(stat.Calls(), 1) << "the global file alone, which is not cached";
            EXPECT_EQ(debug.m_TraceLevel, level) << text;
            EXPECT_EQ(debug.m_ProgramIni.Path.empty(), !isKept) << text;
            EXPECT_EQ(debug.m_ProgramIni.pBuffer == nullptr, !isKept) << text;
            EXPECT_EQ(debug.m_ProgramIni.Size, isKept ? int64_t{kOfTwo.size()} : 0) << text;
            EXPECT_EQ(debug.m_ProgramIni.MTime, isKept ? 1'700'000'000 : 0) << text;
        });
    }
}

TEST_F(TraceConfig, SpendsTheTurnOfTheFirstFileOnTheCachedOne) {
    const std::string grown = "[zorn]\nFileDebugLevel=4\n; more\n[EndOfFile]\n";
    const std::string without = "[corn]\n[EndOfFile]\n";
    const struct {
        std::string first, second;
        uint32_t level;
        const char* path;  ///< null: none
    } cases[] = {
        {without, grown, 4, "/b.ini"},  // dropped in the turn of a.ini, found in its own
        {std::string{kOfFour}, without, 2, nullptr},  // the turn of a.ini is over
        {std::string{kOfFour}, std::string{kOfTwo}, 2,
         "/b.ini"},  // it is still good, so nothing comes in front of it
    };
    Ini("a.ini", "");
    Ini("b.ini", "");
    for (const auto& [first, second, level, path] : cases) {
        host.Run([&, first = first, second = second, level = level, path = path] {
            Rewrite("a.ini", without, 1'700'000'000);
            Rewrite("b.ini", kOfTwo, 1'700'000'000);
            OpenDebug debug;
            const RecursiveLockGuard hold{debug.Lock()};
            debug.ReadTraceConfig("zorn");
            Rewrite("a.ini", first, 1'700'000'100);
            Rewrite("b.ini", second, 1'700'000'100);
            debug.ReadTraceConfig("zorn");
            EXPECT_EQ(debug.m_TraceLevel, level);
            EXPECT_EQ(debug.m_ProgramIni.Path,
                      path != nullptr ? kConfigDirectory + std::string{path} : "");
        });
    }
}

TEST_F(TraceConfig, KeepsTheIntervalOfACachedGlobalFileThatIsDropped) {
    Ini("global_trace.ini", "[GlobalDebugSettings]\nDynamicUpdate=17\n[EndOfFile]\n");
    Read([](OpenDebug& debug) {
        EXPECT_EQ(debug.m_DynamicUpdate, 17u);
        Rewrite("global_trace.ini", "[GlobalDebugSettings]\nDynamicUpdate=100\n\n[EndOfFile]", 1);
        debug.ReadTraceConfig("zorn");
        EXPECT_EQ(debug.m_GlobalIni.Path, "");
        EXPECT_EQ(debug.m_DynamicUpdate, 17u);
        debug.ReadTraceConfig("zorn");
        EXPECT_EQ(debug.m_DynamicUpdate, 100u) << "not cached any more, so read as at first";
    });
}

// --- The dynamic update --------------------------------------------------------------------------

constexpr const char* kDynamic =
    "[GlobalDebugSettings]\nDynamicUpdate=10\n[zorn]\nFileDebugLevel=2\n[EndOfFile]\n";
constexpr const char* kDynamicRaised =
    "[GlobalDebugSettings]\nDynamicUpdate=20\n[zorn]\nFileDebugLevel=4\nTraceFlags=9\n"
    "MemoryTracesFlag=0\nNoHeaderToStderr=0\nRingBufferDirectory=/new\nRingBufferSizeFactor=6\n"
    "RingBufferSizeWeight=7\n[EndOfFile]\n";
constexpr time_t kNow = 1'700'000'000;

class DynamicUpdate : public TraceConfig {
  protected:
    /// A trace that has just looked at its files, whose time stamp is `kNow`.
    void Run(const std::function<void(OpenDebug&, FakeClock&)>& body) {
        Ini("global_trace.ini", "");
        host.Run([&] {
            Rewrite("global_trace.ini", kDynamic, kNow);
            FakeClock clock{kNow + 1000};
            OpenDebug debug;
            debug.Init("zorn");
            debug.Trace(5, "the first look");
            EXPECT_EQ(debug.m_LastUpdateCheck, kNow + 1000);
            body(debug, clock);
        });
    }
};

TEST_F(DynamicUpdate, TakesARaisedLevelWithinItsInterval) {
    Run([](OpenDebug& debug, FakeClock& clock) {
        Rewrite("global_trace.ini", kDynamicRaised, kNow + 1);
        clock.Advance(std::chrono::seconds{9});
        debug.Trace(4, "too early");
        EXPECT_EQ(debug.m_TraceLevel, 2u);
        clock.Advance(std::chrono::seconds{1});
        debug.Trace(4, "the line that looks is already written");
        EXPECT_EQ(debug.m_TraceLevel, 4u);
        EXPECT_EQ(debug.m_TraceLevelSaved, 4u);
        EXPECT_EQ(debug.m_FileDebugLevel, 4u);
        EXPECT_EQ(debug.m_TraceFlags, 9u);
        EXPECT_EQ(debug.m_MemoryTraces, 0u);
        EXPECT_EQ(debug.m_DynamicUpdate, 20u);
        EXPECT_EQ(debug.m_IniDynamicUpdate, 20u);
        // What follows is read once only.
        EXPECT_EQ(debug.m_NoHeader, 1);
        EXPECT_EQ(debug.m_IniNoHeader, 0xFFFFFFFF);
        EXPECT_STREQ(debug.m_IniRingDirectory, "");
        EXPECT_STREQ(debug.m_LogDirectory, "/var/log/tolbrin");
        EXPECT_EQ(debug.m_IniRingFactor, 0xFFFFFFFF);
        EXPECT_EQ(debug.m_RingFactor, 0);
        EXPECT_EQ(debug.m_IniRingWeight, 0xFFFFFFFF);
        EXPECT_EQ(debug.m_RingWeight, 0);
        EXPECT_THAT(FileLines(kLog), ElementsAre("the line that looks is already written"));
    });
}

TEST_F(DynamicUpdate, TakesNoFileThatIsNotNewer) {
    Run([](OpenDebug& debug, FakeClock& clock) {
        for (const time_t modified : {kNow, kNow - 1}) {
            Rewrite("global_trace.ini", kDynamicRaised, modified);
            clock.Advance(std::chrono::seconds{10});
            debug.CallTraceLevelArgs(4, "%s", "dropped");
            EXPECT_EQ(debug.m_TraceLevel, 2u);
        }
    });
}

TEST_F(DynamicUpdate, ReadsAFileOnceThatHasBecomeNewer) {
    Run([](OpenDebug& debug, FakeClock& clock) {
        Rewrite("global_trace.ini", kDynamicRaised, kNow + 1);
        FaultOf<&::fopen> open;
        for (int look = 0; look < 2; ++look) {
            clock.Advance(std::chrono::seconds{20});
            debug.Trace(9, "looks");
            EXPECT_EQ(open.Calls(), 2) << "once for each section";
            for (const TraceIniFile* ini : {&debug.m_GlobalIni, &debug.m_ProgramIni}) {
                EXPECT_EQ(ini->MTime, kNow + 1);
                EXPECT_EQ(ini->Size, static_cast<int64_t>(strlen(kDynamicRaised)));
            }
        }
    });
}

TEST_F(DynamicUpdate, LooksAtOnceIfTheClockWentBack) {
    Run([](OpenDebug& debug, FakeClock& clock) {
        Rewrite("global_trace.ini", kDynamicRaised, kNow + 1);
        clock.Set(kNow - 10 * 365 * 86400);
        debug.Trace(9, "looks");
        EXPECT_EQ(debug.m_TraceLevel, 4u);
        EXPECT_EQ(debug.m_LastUpdateCheck, kNow - 10 * 365 * 86400);
    });
}

TEST_F(DynamicUpdate, LooksOnceIfTheClockLeapsAhead) {
    Run([](OpenDebug& debug, FakeClock& clock) {
        clock.Set(kNow + 10 * 365 * 86400);
        FaultOf<&::stat> stat;
        debug.Trace(9, "looks");
        EXPECT_EQ(stat.Calls(), 2);
        debug.Trace(9, "does not look again");
        EXPECT_EQ(stat.Calls(), 2);
    });
}

TEST_F(DynamicUpdate, DropsAFileThatIsGoneUntilTheNextStart) {
    Run([](OpenDebug& debug, FakeClock& clock) {
        unlink((kConfigDirectory + std::string{"/global_trace.ini"}).c_str());
        clock.Advance(std::chrono::seconds{10});
        debug.Trace(9, "looks");
        EXPECT_EQ(debug.m_GlobalIni.Path, "");
        EXPECT_EQ(debug.m_GlobalIni.pBuffer, nullptr);
        EXPECT_EQ(debug.m_ProgramIni.Path, "");
        EXPECT_EQ(debug.m_TraceLevel, 2u);
        Rewrite("global_trace.ini", kDynamicRaised, kNow + 5000);
        clock.Advance(std::chrono::seconds{10});
        debug.Trace(9, "has nothing to look at");
        EXPECT_EQ(debug.m_TraceLevel, 2u);
    });
}

TEST_F(DynamicUpdate, KeepsTheLevelOfAFileThatLostItsTrailer) {
    Run([](OpenDebug& debug, FakeClock& clock) {
        Rewrite("global_trace.ini", "[zorn]\nFileDebugLevel=4\n", kNow + 1);
        clock.Advance(std::chrono::seconds{10});
        debug.Trace(9, "looks");
        EXPECT_EQ(debug.m_TraceLevel, 2u);
        EXPECT_EQ(debug.m_ProgramIni.Path, "");
    });
}

TEST_F(DynamicUpdate, LeavesTheTraceOffThatItsLevelRaises) {
    Run([](OpenDebug& debug, FakeClock& clock) {
        debug.Enable(false);
        Rewrite("global_trace.ini", kDynamicRaised, kNow + 1);
        clock.Advance(std::chrono::seconds{10});
        debug.Trace(4, "called without the guard");
        EXPECT_EQ(debug.m_TraceLevel, 4u);
        EXPECT_FALSE(debug.IsEnabled());
    });
}

TEST_F(DynamicUpdate, IsSwitchedOffByAnIntervalOfZero) {
    Run([](OpenDebug& debug, FakeClock& clock) {
        Rewrite("global_trace.ini",
                "[GlobalDebugSettings]\nDynamicUpdate=0\n[zorn]\nFileDebugLevel=3\n[EndOfFile]\n",
                kNow + 1);
        clock.Advance(std::chrono::seconds{10});
        debug.Trace(9, "looks");
        EXPECT_EQ(debug.m_TraceLevel, 3u);
        FaultOf<&::stat> stat;
        clock.Advance(std::chrono::seconds{100});
        debug.Trace(9, "never looks again");
        EXPECT_EQ(stat.Calls(), 0);
    });
}

TEST_F(DynamicUpdate, IgnoresTheEnvironment) {
    Run([](OpenDebug& debug, FakeClock& clock) {
        setenv("QX_LOG_DEBUG_LEVEL", "1", 1);
        setenv("QX_LOG_DYNAMIC_UPDATE", "3", 1);
        Rewrite("global_trace.ini", kDynamicRaised, kNow + 1);
        clock.Advance(std::chrono::seconds{10});
        debug.Trace(9, "looks");
        EXPECT_EQ(debug.m_TraceLevel, 4u);
        EXPECT_EQ(debug.m_DynamicUpdate, 20u);
    });
}

TEST_F(DynamicUpdate, KeepsWhatAFileDoesNotNameAnyMore) {
    Run([](OpenDebug& debug, FakeClock& clock) {
        Rewrite("global_trace.ini",
                "[GlobalDebugSettings]\nOther=1\n[zorn]\nTraceFlags=9\nMemoryTracesFlag=0\n"
                "[EndOfFile]\n",
                kNow + 1);
        debug.Enable(false);  // its level is not the one saved
        clock.Advance(std::chrono::seconds{10});
        debug.Trace(9, "looks");
        EXPECT_EQ(debug.m_TraceFlags, 9u);
        EXPECT_EQ(debug.m_MemoryTraces, 0u);
        EXPECT_EQ(debug.m_FileDebugLevel, 2u);
        EXPECT_EQ(debug.m_TraceLevel, 0u);
        EXPECT_EQ(debug.m_TraceLevelSaved, 2u);
        EXPECT_EQ(debug.m_DynamicUpdate, 10u);
        EXPECT_EQ(debug.m_IniDynamicUpdate, 10u);
    });
}

TEST_F(DynamicUpdate, IsLookedForByLinesWithALevelOnly) {
    Run([](OpenDebug& debug, FakeClock& clock) {
        clock.Advance(std::chrono::seconds{10});
        FaultOf<&::stat> stat;
        debug.TraceAlways(0, "always");
        debug.TraceText("text");
        debug.CallTraceArgs("x", "args");
        debug.CallTraceAlwaysArgs("x", "always args");
        const char* volatile null = nullptr;
        void (CDebug::*volatile trace)(unsigned, const char*, ...) = &CDebug::Trace;
        (debug.*trace)(1, null);
        debug.TraceLevelArgs(1, null, nullptr);
        EXPECT_EQ(stat.Calls(), 0);
        debug.Trace(9, "looks");
        EXPECT_EQ(stat.Calls(), 2);
    });
}

TEST_F(DynamicUpdate, KeepsWhatAnIniValueOfAllOnesWouldSet) {
    Run([](OpenDebug& debug, FakeClock& clock) {
        Rewrite("global_trace.ini",
                "[GlobalDebugSettings]\nDynamicUpdate=-1\n[zorn]\nFileDebugLevel=0xFFFFFFFF\n"
                "[EndOfFile]\n",
                kNow + 1);
        clock.Advance(std::chrono::seconds{10});
        debug.Trace(9, "looks");
        EXPECT_EQ(debug.m_DynamicUpdate, 10u);
        EXPECT_EQ(debug.m_TraceLevel, 2u);
    });
}

TEST_F(DynamicUpdate, FollowsAProgramFileOfItsOwn) {
    Ini("zorn.ini", "");
    Run([](OpenDebug&, FakeClock&) {});  // the combined file comes first in the alphabet
    Ini("global_trace.ini", "");
    host.Run([] {
        Rewrite("global_trace.ini", "[GlobalDebugSettings]\nDynamicUpdate=10\n[EndOfFile]\n", kNow);
        Rewrite("zorn.ini", "[zorn]\nFileDebugLevel=2\n[EndOfFile]\n", kNow);
        FakeClock clock{kNow};
        OpenDebug debug;
        debug.Init("zorn");
        EXPECT_EQ(debug.m_TraceLevel, 2u);
        Rewrite("zorn.ini", "[zorn]\nFileDebugLevel=3\n[EndOfFile]\n", kNow + 1);
        debug.Trace(9, "looks");
        EXPECT_EQ(debug.m_TraceLevel, 3u);
        Rewrite("zorn.ini", "[other]\nFileDebugLevel=4\n[EndOfFile]\n", kNow + 2);
        clock.Advance(std::chrono::seconds{10});
        debug.Trace(9, "looks");
        EXPECT_EQ(debug.m_TraceLevel, 3u) << "the section is gone, the level stays";
        EXPECT_EQ(debug.m_ProgramIni.Path, "");
        EXPECT_NE(debug.m_GlobalIni.Path, "");
    });
}

constexpr const char* kGlobalOfTen = "[GlobalDebugSettings]\nDynamicUpdate=10\n[EndOfFile]\n";
constexpr const char* kGlobalOfFive = "[GlobalDebugSettings]\nDynamicUpdate=5\n[EndOfFile]\n";

/// The two settings in a file each.
class TwoFiles : public DynamicUpdate {
  protected:
    void Run(const std::function<void(OpenDebug&, FakeClock&)>& body) {
        Ini("global_trace.ini", "");
        Ini("zorn.ini", "");
        host.Run([&] {
            Rewrite("global_trace.ini", kGlobalOfTen, kNow);
            Rewrite("zorn.ini", kOfTwo, kNow);
            FakeClock clock{kNow};
            OpenDebug debug;
            debug.Init("zorn");
            body(debug, clock);
        });
    }
};

TEST_F(TwoFiles, KeepTheIntervalWhenTheGlobalOneLosesItsTrailer) {
    Run([](OpenDebug& debug, FakeClock& clock) {
        Rewrite("global_trace.ini", "[GlobalDebugSettings]\nDynamicUpdate=5\n", kNow + 1);
        debug.Trace(9, "looks");
        EXPECT_EQ(debug.m_GlobalIni.Path, "");
        EXPECT_EQ(debug.m_GlobalIni.pBuffer, nullptr);
        EXPECT_EQ(debug.m_GlobalIni.MTime, 0);
        EXPECT_EQ(debug.m_DynamicUpdate, 10u);
        EXPECT_EQ(debug.m_IniDynamicUpdate, 10u);
        Rewrite("global_trace.ini", kGlobalOfFive, kNow + 2);
        Rewrite("zorn.ini", kOfFour, kNow + 2);
        clock.Advance(std::chrono::seconds{10});
        debug.Trace(9, "looks");
        EXPECT_EQ(debug.m_DynamicUpdate, 10u) << "out of the check until the next start";
        EXPECT_EQ(debug.m_TraceLevel, 4u) << "the other one is not";
    });
}

TEST_F(TwoFiles, AreLookedAtOneWithoutTheOther) {
    for (const bool globalGoes : {true, false}) {
        Run([globalGoes](OpenDebug& debug, FakeClock& clock) {
            const std::string gone = globalGoes ? "/global_trace.ini" : "/zorn.ini";
            unlink((kConfigDirectory + gone).c_str());
            debug.Trace(9, "looks");
            EXPECT_EQ(debug.m_GlobalIni.Path.empty(), globalGoes);
            EXPECT_EQ(debug.m_ProgramIni.Path.empty(), !globalGoes);
            Rewrite("global_trace.ini", kGlobalOfFive, kNow + 1);
            Rewrite("zorn.ini", kOfFour, kNow + 1);
            clock.Advance(std::chrono::seconds{10});
            debug.Trace(9, "looks");
            EXPECT_EQ(debug.m_DynamicUpdate, globalGoes ? 10u : 5u);
            EXPECT_EQ(debug.m_TraceLevel, globalGoes ? 4u : 2u);
        });
    }
}

TEST_F(DynamicUpdate, FindsNoSectionThatWasAddedLater) {
    Ini("late.ini", "[other]\n[EndOfFile]\n");
    Ini("global_trace.ini", "[GlobalDebugSettings]\nDynamicUpdate=10\n[EndOfFile]\n");
    host.Run([] {
        FakeClock clock{kNow};
        OpenDebug debug;
        debug.Init("zorn");
        Rewrite("late.ini", "[zorn]\nFileDebugLevel=5\n[EndOfFile]\n", kNow + 100);
        clock.Advance(std::chrono::seconds{10});
        debug.Trace(9, "looks");
        EXPECT_EQ(debug.m_TraceLevel, 0u);
    });
}

// --- The names -----------------------------------------------------------------------------------

TEST(AppendNameSuffix, AppendsTheNameInCapitals) {
    char text[16] = "ring";
    AppendNameSuffix(text, sizeof text, "zorN1_x");
    EXPECT_STREQ(text, "ring_ZORN1_X");
}

TEST(AppendNameSuffix, StopsAtTheSizeLessOneAndTerminates) {
    char text[8] = "ring";
    AppendNameSuffix(text, sizeof text, "zorn");
    EXPECT_STREQ(text, "ring_ZO");
    char full[5] = "ring";
    AppendNameSuffix(full, sizeof full, "zorn");
    EXPECT_STREQ(full, "ring");
    char one[1] = "";
    AppendNameSuffix(one, sizeof one, "zorn");
    EXPECT_STREQ(one, "");
}

TEST(ToLowerInPlace, MakesAsciiLettersSmall) {
    char text[] = "ABZ[az{\xC4";
    ToLowerInPlace(text);
    EXPECT_STREQ(text, "abz[az{\xC4");
}

}  // namespace

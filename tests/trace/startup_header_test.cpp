#include "trace/startup_header.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <new>
#include <string>

#include "support/libc_fault.h"
#include "trace/open_debug.h"

namespace {

using testing::Contains;
using testing::HasSubstr;

/// A fresh machine with a log directory; the header of a trace in its log file.
class StartupHeader : public testing::Test {
  protected:
    StartupHeader() { host.Directory("/var/log/tolbrin"); }

    /// The lines of the log after `Init` with the header switched on.
    void Run(const char* name, const std::function<void(const Lines&)>& body) {
        host.Run([&] {
            clearenv();
            setenv("QX_LOG_NOHDR_TOSDTERR", "0", 1);
            OpenDebug debug;
            debug.Init(name);
            body(FileLines(debug.m_LogPath));
        });
    }

    FakeHost host;
};

TEST_F(StartupHeader, IsWrittenWholeAndInOrder) {
    Run("zorn", [](const Lines& lines) {
        std::string text;
        for (const std::string& line : lines) text += line + "\n";
        const size_t pid = text.find("Process PID                : ") + 29;
        text.replace(pid, text.find('\n', pid) - pid, "<pid>");
        EXPECT_EQ(text, R"(Tarnhollow Environment:
LD_LIBRARY_PATH=NotSet
QX_SYSTEM=NotSet
QX_OS=NotSet
QX_OS_MAJOR=NotSet
QX_OS_MINOR=NotSet
QX_VVOS=NotSet
QX_RELEASE=NotSet
QX_VENDOR=NotSet
QX_HOSTNAME=NotSet
QX_HOSTOSREVMAJOR=NotSet
QX_HOSTOSREVMINOR=NotSet
QX_SYSNAME=NotSet
QX_VERSION=NotSet
QX_NICKNAME=NotSet
QX_HWPLATFORM=NotSet
QX_RUNNINGONVM=NotSet
QX_RUNNINGONPAN=NotSet
QX_VMREL=NotSet
QX_ARCH=NotSet
QX_REPO=NotSet
QX_RAID_EXISTS=NotSet
QX_RAID_READY=NotSet
QX_RAID_VERSION=NotSet
QX_INSTALL_DATE=NotSet
QX_USE_SG_IO_HDR_T=NotSet
QX_AGENT_X_SOCKET=NotSet
QX_ZORN_REPLY_TIME=NotSet
QX_DAEMON_COREFILE_LIMIT=NotSet
QX_VME_WAIT_TIME_FOR_VMSERVER=NotSet
QX_SCS_PROVIDER_TRACE=NotSet
QX_SCS_NOSIGNAL=NotSet
QX_LOG_DYNAMIC_UPDATE=NotSet
QX_SCS_DEBUG_LEVEL=NotSet
QX_LOG_FILE_DIR=NotSet
QX_LOG_FILE_MAX_SIZE=NotSet
QX_LOG_RINGBUF_DIR=NotSet
QX_LOG_DEBUG_LEVEL=NotSet
QX_LOG_RINGBUF_WEIGHT=NotSet
QX_LOG_NOHDR_TOSDTERR=0
LWD_QX_HOME=NotSet
LWD_SYSLOG_FIFO=NotSet
QX_LOG_RINGBUF_WEIGHT_ZORN=NotSet
Tarnhollow Configuration File:
AgentPermission=NotSet
AgentShut=NotSet
ShutdownDelay=NotSet
UserGroup=NotSet
ScanTapeDevices=NotSet
TraceFileLimit=NotSet
NoAccountCheck=NotSet
InventoryRescan=NotSet
CDPollInterval=NotSet
AgentsToBeStarted=NotSet
WaitForZornSockets=NotSet
WaitForZornTerm=NotSet
InvAgtPollNetUtilization=NotSet
Debug values from ini file :
DynamicUpdate              : 0
DebugLevel                 : -1
RingBufferSizeFactor       : -1
RingBufferSizeWeight       : -1
RingBufferDirectory        : 
No Header to LogFile       : -1
Internal Debug values      :
Process PID                : <pid>
Trace Target               : 0
Trace Level                : 0
Trace Level Saved          : 0
Application Init Done      : 0
LogFile Path               : /var/log/tolbrin/log.zorn
LogFile Max Size           : 20971520
Ring Buffer FD             : -1
Ring Buffer Factor         : 0
Ring Buffer Weight         : 0
Ring Buffer Size           : 0
Ring Buffer Directory      : /var/log/tolbrin
Ring Buffer Path           : 
No Header to LogFile       : 0
# End of header.
)");
    });
}

TEST_F(StartupHeader, ShowsAVariableThatIsSetAndOneThatIsEmpty) {
    host.Run([] {
        setenv("QX_LOG_NOHDR_TOSDTERR", "0", 1);
        setenv("QX_OS", "a value with blanks", 1);
        setenv("QX_REPO", "", 1);
        setenv("AgentShut", "50%", 1);
        OpenDebug debug;
        debug.Init("zorn");
        const Lines lines = FileLines(kLog);
        EXPECT_THAT(lines, Contains("QX_OS=a value with blanks"));
        EXPECT_THAT(lines, Contains("QX_REPO="));
        EXPECT_THAT(lines, Contains("AgentShut=50%"));
    });
}

TEST_F(StartupHeader, ShowsTheTraceAsItStandsWhenItIsEnabled) {
    host.Run([] {
        setenv("QX_LOG_NOHDR_TOSDTERR", "0", 1);
        setenv("QX_LOG_DEBUG_LEVEL", "3", 1);
        OpenDebug debug;
        debug.Init("zorn");
        const Lines lines = FileLines(kLog);
        EXPECT_THAT(lines, Contains("Trace Target               : 1"));
        EXPECT_THAT(lines, Contains("Trace Level                : 3"));
        EXPECT_THAT(lines, Contains("Trace Level Saved          : 3"));
    });
}

/// The lines of the header at the beginning of a ring.
Lines RingHeader(const OpenDebug& debug) {
    Lines lines;
    std::string_view rest{debug.m_RingBase, debug.m_RingSize};
    while (lines.empty() || lines.back() != "# End of header.") {
        const size_t end = rest.find('\n');
        if (end == rest.npos) break;
        lines.emplace_back(CutTracePrefix(rest.substr(0, end)));
        rest.remove_prefix(end + 1);
    }
    return lines;
}

/// What it shows behind the tables of names.
Lines ValuesOf(const Lines& header) {
    const auto begin = std::find(header.begin(), header.end(), "Debug values from ini file :");
    return {begin, header.end()};
}

TEST_F(StartupHeader, ShowsEachValueInItsOwnLine) {
    host.File(std::string{kConfigDirectory} + "/global_trace.ini",
              "[GlobalDebugSettings]\nDynamicUpdate=11\n[zorn]\nFileDebugLevel=12\n"
              "RingBufferSizeFactor=13\nRingBufferSizeWeight=14\nRingBufferDirectory=/of/the/ini\n"
              "NoHeaderToStderr=15\n[EndOfFile]\n");
    host.Run([] {
        const char* const variables[][2] = {
            {"QX_LOG_DYNAMIC_UPDATE", "600"}, {"QX_LOG_DEBUG_LEVEL", "16"},
            {"TraceFileLimit", "2"},          {"QX_LOG_RINGBUF_WEIGHT", "3"},
            {"QX_LOG_NOHDR_TOSDTERR", "17"},  {"QX_LOG_RINGBUF_DIR", "/var/log/tolbrin"},
            {"QX_LOG_FILE_MAX_SIZE", "54321"}};
        for (const auto& [name, value] : variables) setenv(name, value, 1);
        OpenDebug debug;
        debug.Init("zorn");
        debug.m_TraceLevelSaved = 18;
        debug.m_Pid = 4711;
        debug.m_InitDone = true;
        EXPECT_TRUE(debug.ArmRingBuffer());
        const Lines expected{"Debug values from ini file :",
                             "DynamicUpdate              : 11",
                             "DebugLevel                 : 12",
                             "RingBufferSizeFactor       : 13",
                             "RingBufferSizeWeight       : 14",
                             "RingBufferDirectory        : /of/the/ini",
                             "No Header to LogFile       : 15",
                             "Internal Debug values      :",
                             "Process PID                : 4711",
                             "Trace Target               : 2",
                             "Trace Level                : 16",
                             "Trace Level Saved          : 18",
                             "Application Init Done      : 1",
                             "LogFile Path               : /var/log/tolbrin/log.zorn",
                             "LogFile Max Size           : 54321",
                             "Ring Buffer FD             : " + std::to_string(debug.m_RingFd),
                             "Ring Buffer Factor         : 2",
                             "Ring Buffer Weight         : 3",
                             "Ring Buffer Size           : 6291456",
                             "Ring Buffer Directory      : /var/log/tolbrin",
                             "Ring Buffer Path           : /var/log/tolbrin/ring_zorn",
                             "No Header to LogFile       : 17",
                             "# End of header."};
        EXPECT_GT(debug.m_RingFd, 2);
        EXPECT_EQ(ValuesOf(RingHeader(debug)), expected);
        EXPECT_EQ(debug.m_DynamicUpdate, 600u) << "the one that counts, which is not shown";
    });
}

TEST_F(StartupHeader, HasTheCommandLineInTheRingAtItsBeginningAndAtEachWrap) {
    host.Run([] {
        setenv("QX_LOG_DEBUG_LEVEL", "1", 1);
        OpenDebug debug;
        debug.Init("zorn");
        char program[] = "/usr/bin/zorn";
        char option[] = "--old";
        char* argv[] = {program, option, nullptr};
        debug.SetCommandLine(2, argv);
        EXPECT_TRUE(debug.ArmRingBuffer());
        const auto begin = [&debug] {
            const Lines header = RingHeader(debug);
            EXPECT_EQ(header.back(), "# End of header.");
            return Lines{header.begin(), header.begin() + 4};
        };
        EXPECT_EQ(begin(), (Lines{"zorn Command Line Options:", "argv[0] = \"/usr/bin/zorn\"",
                                  "argv[1] = \"--old\"", "Tarnhollow Environment:"}));
        char changed[] = "--new";
        argv[1] = changed;  // kept by reference
        const std::string line(1000, 'x');
        while (debug.m_RingWrapCount == 0) debug.Trace(1, "%s", line.c_str());
        EXPECT_EQ(begin(), (Lines{"zorn Command Line Options:", "argv[0] = \"/usr/bin/zorn\"",
                                  "argv[1] = \"--new\"", "Tarnhollow Environment:"}));
    });
}

TEST_F(StartupHeader, BeginsWithTheCommandLineOnceThereIsOne) {
    host.Run([] {
        OpenDebug debug;
        debug.Init("zorn");
        char program[] = "/usr/bin/zorn";
        char* argv[] = {program, nullptr};
        debug.SetCommandLine(1, argv);
        const size_t before = FileLines(kLog).size();
        {
            const RecursiveLockGuard hold{debug.Lock()};
            debug.PrintHeader(1);
        }
        const Lines lines = FileLines(kLog);
        EXPECT_EQ(lines.at(before), "zorn Command Line Options:");
        EXPECT_EQ(lines.at(before + 1), "argv[0] = \"/usr/bin/zorn\"");
        EXPECT_EQ(lines.at(before + 2), "Tarnhollow Environment:");
    });
}

TEST_F(StartupHeader, HasACommandLineWithoutANameToo) {
    host.Run([] {
        OpenDebug debug;
        debug.Init("");
        char program[] = "x";
        char* argv[] = {program, nullptr};
        debug.SetTraceTarget(0);
        debug.SetCommandLine(1, argv);
        EXPECT_THAT(FileLines("/var/log/tolbrin/log."),
                    testing::ElementsAre(" Command Line Options:", "argv[0] = \"x\""));
    });
}

TEST_F(StartupHeader, BeginsWithTheEnvironmentIfThereIsNoCommandLine) {
    for (const int count : {0, -1, INT32_MIN}) {
        host.Run([count] {
            OpenDebug debug;
            debug.Init("zorn");
            debug.SetCommandLine(count, nullptr);
            EXPECT_EQ(debug.m_Argc, count);
            EXPECT_EQ(FileText(kLog), "");
            const RecursiveLockGuard hold{debug.Lock()};
            debug.PrintHeader(1);
            EXPECT_EQ(FileLines(kLog).at(0), "Tarnhollow Environment:");
        });
    }
}

TEST_F(StartupHeader, CutsALongNameInTheVariableThatItLooksUp) {
    host.Run([] {
        const std::string name = "abcdefghijklmnopqrstuvwxyz";
        setenv("QX_LOG_RINGBUF_WEIGHT_ABCDEFGHIJKLMNOPQRSTUVWXY", "7", 1);
        setenv("QX_LOG_NOHDR_TOSDTERR", "0", 1);
        OpenDebug debug;
        debug.Init(name.c_str());
        EXPECT_THAT(FileLines(debug.m_LogPath),
                    Contains("QX_LOG_RINGBUF_WEIGHT_ABCDEFGHIJKLMNOPQRSTUVWXY=7"));
    });
}

TEST_F(StartupHeader, TakesANameOf25CharactersWhole) {
    host.Run([] {
        setenv("QX_LOG_RINGBUF_WEIGHT_ABCDEFGHIJKLMNOPQRSTUVWXY", "8", 1);
        setenv("QX_LOG_NOHDR_TOSDTERR", "0", 1);
        OpenDebug debug;
        debug.Init("abcdefghijklmnopqrstuvwxy");
        EXPECT_THAT(FileLines(debug.m_LogPath),
                    Contains("QX_LOG_RINGBUF_WEIGHT_ABCDEFGHIJKLMNOPQRSTUVWXY=8"));
    });
}

TEST_F(StartupHeader, LooksUpThePlainVariableWithoutAName) {
    Run("", [](const Lines& lines) {
        EXPECT_EQ(std::count(lines.begin(), lines.end(), "QX_LOG_RINGBUF_WEIGHT=NotSet"), 2);
    });
}

TEST_F(StartupHeader, GoesToTheCurrentTargetIfNoneIsNamed) {
    host.Run([] {
        setenv("QX_LOG_DEBUG_LEVEL", "1", 1);
        OpenDebug debug;
        debug.Init("zorn");
        const RecursiveLockGuard hold{debug.Lock()};
        debug.PrintHeader(0);
        EXPECT_THAT(FileText(kLog), HasSubstr("# End of header.\n"));
        const std::string before = FileText(kLog);
        debug.SetTraceTarget(0);
        debug.PrintHeader(0);
        EXPECT_EQ(FileText(kLog), before);
    });
}

TEST_F(StartupHeader, GoesToTheLogThatIsOpenIfTheSettingsCannotBeRead) {
    host.File(std::string{kConfigDirectory} + "/a.ini", "[zorn]\n[EndOfFile]\n");
    for (const bool wanted : {true, false}) {
        host.Run([wanted] {
            setenv("QX_LOG_DEBUG_LEVEL", "3", 1);
            setenv("QX_LOG_NOHDR_TOSDTERR", wanted ? "0" : "1", 1);
            OpenDebug debug;
            debug.Init("zorn");
            const size_t before = FileLines(kLog).size();
            FaultOf<&::fread> read;
            read.Answer([](void*, size_t, size_t, FILE*) -> size_t { throw std::bad_alloc{}; });
            EXPECT_EQ(debug.Init("zorn"), 0);
            for (const uint32_t value : {debug.m_TraceTarget.load(), debug.m_TraceLevel.load(),
                                         debug.m_TraceLevelSaved.load()}) {
                EXPECT_EQ(value, 0u);
            }
            EXPECT_FALSE(debug.IsEnabled());
            debug.TraceAlways(0, "behind it");
            Lines lines = FileLines(kLog);
            lines.erase(lines.begin(), lines.begin() + static_cast<ptrdiff_t>(before));
            ASSERT_EQ(lines.size(), before + 1) << "as long as the first";
            EXPECT_EQ(lines.back(), "behind it");
            if (!wanted) return;
            EXPECT_EQ(lines.front(), "Tarnhollow Environment:");
            EXPECT_THAT(lines, Contains("Trace Target               : 1"));
            EXPECT_THAT(lines, Contains("Trace Level Saved          : 3"));
            EXPECT_EQ(lines.at(before - 1), "# End of header.");
        });
    }
}

TEST_F(StartupHeader, IsLeftOutByDefault) {
    host.Run([] {
        OpenDebug debug;
        debug.Init("zorn");
        EXPECT_EQ(FileText(kLog), "");
    });
}

TEST(HeaderNames, EndWithANullName) {
    EXPECT_EQ(std::size(g_EnvironmentNames), 42u);
    EXPECT_EQ(g_EnvironmentNames[41].name, nullptr);
    EXPECT_EQ(std::size(g_ConfigurationNames), 14u);
    EXPECT_EQ(g_ConfigurationNames[13].name, nullptr);
}

}  // namespace

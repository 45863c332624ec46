// zornctl log: what it shows of a file, and what it follows.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

#include "trace/open_debug.h"
#include "zornctl/trace_samples.h"
#include "zornctl/zornctl_run.h"

using testing::HasSubstr;
using testing::Not;

namespace {

std::string Wrap(int second, int cycle, size_t head, size_t limit) {
    return Line(second, "------ WRAP ----- Cycle=" + std::to_string(cycle) + ", CntInitEnd=" +
                            std::to_string(head) + ", CurrentByteCnt=" + std::to_string(head) +
                            " (MaxCnt=" + std::to_string(limit) + ")");
}

const std::string kHead = Line(1, "head");
const std::string kOlder = Line(3, "older");

std::string WrappedLog() {
    return kHead + Wrap(5, 1, kHead.size(), 400) + Line(6, "newest") + "cut line\n" + kOlder +
           Line(5, std::string(400, 'l'));
}

std::string WrappedLogInOrder() {
    return kHead + "[...] cut line\n" + kOlder + Line(5, std::string(400, 'l')) +
           Wrap(5, 1, kHead.size(), 400) + Line(6, "newest");
}

// --- Showing -------------------------------------------------------------------------------------

TEST(Log, IsShownInTheOrderOfTime) {
    FakeHost host;
    host.File("/log", WrappedLog());
    const auto run = RunZornctl(host, {"log", "/log"});
    EXPECT_EQ(run.end, Exited(0));
    EXPECT_EQ(run.output, WrappedLogInOrder());
    EXPECT_EQ(run.error, "");
}

TEST(Log, IsTheOneThatTheServiceWrites) {
    FakeHost host;
    host.File(kLog, "default\n");
    host.File("/var/log/a/log.zorn", "of the environment\n");
    host.File("/var/log/b/log.zorn", "of the configuration\n");
    EXPECT_EQ(RunZornctl(host, {"log"}).output, "default\n");
    EXPECT_EQ(
        RunZornctl(host, {"log"}, {.environment = {{"QX_LOG_RINGBUF_DIR", "/var/log/a"}}}).output,
        "of the environment\n");
    host.File(std::string{kConfigDirectory} + "/zorn.ini",
              "[zorn]\nRingBufferDirectory=/var/log/b\n[EndOfFile]\n");
    EXPECT_EQ(RunZornctl(host, {"log"}).output, "of the configuration\n");
}

/// The note on standard error where the ini files are not read.
std::string NoteOnIniFiles(const std::string& reason) {
    return std::string{"zornctl: "} + kConfigDirectory + ": " + reason +
           ": without its ini files, the log is " + kLog + "\n";
}

TEST(Log, IsTheDefaultOneWhereOneMayNotReadTheIniFiles) {
    FakeHost host;
    host.File(kLog, "default\n");
    host.File("/var/log/a/log.zorn", "of the environment\n");
    host.Directory(kConfigDirectory, 0);
    auto run = RunZornctl(host, {"log"}, {.uid = 1000});
    EXPECT_EQ(run.end, Exited(0));
    EXPECT_EQ(run.output, "default\n");
    EXPECT_EQ(run.error, NoteOnIniFiles("Permission denied"));
    run = RunZornctl(host, {"log"},
                     {.environment = {{"QX_LOG_RINGBUF_DIR", "/var/log/a"}}, .uid = 1000});
    EXPECT_EQ(run.output, "of the environment\n");
}

TEST(Log, IsTheDefaultOneWhereNobodyCanReadTheIniFiles) {
    FakeHost host;
    host.File(kLog, "default\n");
    host.Link(kConfigDirectory, "TraceConfig");
    const auto run = RunZornctl(host, {"log", "--json"});
    EXPECT_EQ(run.Json()["lines"][0]["text"], "default");
    EXPECT_EQ(run.error, NoteOnIniFiles("Too many levels of symbolic links"));
}

TEST(Log, IsShownFromTheLastLinesOn) {
    FakeHost host;
    host.File("/log", Line(1, "a") + Line(2, "b\n  more") + Line(3, "c"));
    EXPECT_EQ(RunZornctl(host, {"log", "-n", "2", "/log"}).output,
              Line(2, "b\n  more") + Line(3, "c"));
    EXPECT_EQ(RunZornctl(host, {"log", "--lines=1", "/log"}).output, Line(3, "c"));
    EXPECT_EQ(RunZornctl(host, {"log", "-n0", "/log"}).output, "");
    EXPECT_EQ(RunZornctl(host, {"log", "-n9", "/log"}).output,
              Line(1, "a") + Line(2, "b\n  more") + Line(3, "c"));
}

TEST(Log, MayBeEmpty) {
    FakeHost host;
    host.File("/log", "");
    const auto run = RunZornctl(host, {"log", "/log"});
    EXPECT_EQ(run.end, Exited(0));
    EXPECT_EQ(run.output, "");
    EXPECT_EQ(RunZornctl(host, {"log", "--json", "/log"}).Json()["lines"].size(), 0u);
}

TEST(Log, NeverReachesATerminalAsItIs) {
    FakeHost host;
    host.File("/log", Line(1, "\x1b]0;title\x07\tx\r\xC2\x9B\x9B\xE2\x80\xAE") + Line(2, "b"));
    EXPECT_EQ(RunZornctl(host, {"log", "/log"}).output,
              Line(1, "\\x1b]0;title\\x07\\tx\\r\\xc2\\x9b\\x9b\\xe2\\x80\\xae") + Line(2, "b"));
}

TEST(Log, IsJsonForPrograms) {
    FakeHost host;
    host.File("/log", WrappedLog());
    const auto json = RunZornctl(host, {"log", "--json", "/log"}).Json();
    EXPECT_EQ(json["format_version"], 1);
    EXPECT_EQ(json["command"], "log");
    EXPECT_EQ(json["path"], "/log");
    EXPECT_EQ(json["note"], "");
    ASSERT_EQ(json["lines"].size(), 6u);
    EXPECT_EQ(json["lines"][0], (nlohmann::json{{"part", "head"},
                                                {"time", "2026-11-20 00:00:01.000"},
                                                {"pid", 4907},
                                                {"memory_kib", nullptr},
                                                {"name", "zorn"},
                                                {"text", "head"},
                                                {"cut", false},
                                                {"escaped", false}}));
    EXPECT_EQ(json["lines"][1], (nlohmann::json{{"part", "older"},
                                                {"time", nullptr},
                                                {"pid", nullptr},
                                                {"memory_kib", nullptr},
                                                {"name", nullptr},
                                                {"text", "cut line"},
                                                {"cut", true},
                                                {"escaped", false}}));
    EXPECT_EQ(json["lines"][5]["part"], "newest");
}

TEST(Log, HasItsMemoryFigureAndUnknownTimesInJson) {
    FakeHost host;
    host.File("/log", "yyyy-mm-dd hh:mm:ss.mmm [0000000012]     9400 KB !zorn          a\n  b\n");
    const auto line = RunZornctl(host, {"log", "--json", "/log"}).Json()["lines"][0];
    EXPECT_EQ(line["time"], nullptr);
    EXPECT_EQ(line["pid"], 12);
    EXPECT_EQ(line["memory_kib"], 9400);
    EXPECT_EQ(line["text"], "a\n  b");
}

TEST(Log, IsAsciiInJsonWhateverItHolds) {
    FakeHost host;
    host.File("/log", Line(1, "\x1b[2J \xC3\xA4 \xC2\x9B \x7f") + Line(2, "\xFF \\ \x1b"));
    const auto run = RunZornctl(host, {"log", "--json", "/log"});
    for (const char c : run.output) ASSERT_TRUE(c == '\n' || (c >= ' ' && c < '\x7f'));
    const auto lines = run.Json()["lines"];
    EXPECT_EQ(lines[0]["text"], "\x1b[2J \xC3\xA4 \xC2\x9B \x7f");
    EXPECT_EQ(lines[0]["escaped"], false);
    EXPECT_EQ(lines[1]["text"], "\\xff \\\\ \\x1b") << "bytes that are no UTF-8 can be had back";
    EXPECT_EQ(lines[1]["escaped"], true);
}

// --- Following -----------------------------------------------------------------------------------

/// A host with a log that the test writes, and a follower of it.
class FollowedLog : public testing::Test {
  protected:
    FollowedLog() { m_Host.Directory("/var/log/tolbrin"); }

    void Start(const std::vector<std::string>& options = {}) {
        std::vector<std::string> arguments{"log", "--follow"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        m_Follower.emplace(StartZornctl(m_Host, arguments));
    }

    /// Writes over what the file holds at `at`.
    void WriteAt(size_t at, const std::string& text) {
        std::fstream file{m_Host.Path(kLog), std::ios::in | std::ios::out | std::ios::binary};
        file.seekp(static_cast<std::streamoff>(at));
        file << text;
    }

    [[nodiscard]] testing::AssertionResult Shows(const std::string& text) {
        return m_Follower->WaitForStandardOutput(text);
    }
    [[nodiscard]] std::string Output() const { return m_Follower->StandardOutput(); }

    FakeHost m_Host;
    std::optional<HostProcess> m_Follower;
};

TEST_F(FollowedLog, ShowsNewLinesAtItsEnd) {
    m_Host.File(kLog, Line(1, "a"));
    Start();
    ASSERT_TRUE(Shows(Line(1, "a")));
    WriteAt(Line(1, "a").size(), Line(2, "b"));
    ASSERT_TRUE(Shows(Line(2, "b")));
    EXPECT_EQ(Output(), Line(1, "a") + Line(2, "b"));
}

TEST_F(FollowedLog, BeginsWithTheLastLines) {
    m_Host.File(kLog, Line(1, "a") + Line(2, "b"));
    Start({"-n", "1"});
    ASSERT_TRUE(Shows(Line(2, "b")));
    WriteAt(2 * Line(1, "a").size(), Line(3, "c"));
    ASSERT_TRUE(Shows(Line(3, "c")));
    EXPECT_EQ(Output(), Line(2, "b") + Line(3, "c"));
}

TEST_F(FollowedLog, ShowsNewLinesOverAWrap) {
    const std::string whole = kHead + Line(2, std::string(200, 'a')) + Line(3, "b") + Line(4, "c");
    m_Host.File(kLog, whole.substr(0, whole.size() - Line(4, "c").size()));
    Start();
    ASSERT_TRUE(Shows(Line(3, "b")));
    const std::string wrap = Wrap(4, 1, kHead.size(), whole.size() - 1);
    WriteAt(whole.size() - Line(4, "c").size(), Line(4, "c"));
    WriteAt(kHead.size(), wrap + Line(5, "d"));
    ASSERT_TRUE(Shows(Line(5, "d")));
    EXPECT_EQ(Output(), whole + wrap + Line(5, "d"));
    EXPECT_EQ(m_Follower->StandardError(), "");
}

TEST_F(FollowedLog, SaysWhereLinesWereLost) {
    m_Host.File(kLog, kHead + Line(2, "a") + Line(3, "b"));
    Start();
    ASSERT_TRUE(Shows(Line(3, "b")));
    WriteAt(kHead.size(), Wrap(50, 7, kHead.size(), 10'000) + Line(51, "much later"));
    ASSERT_TRUE(Shows(Line(51, "much later")));
    EXPECT_THAT(m_Follower->StandardError(), HasSubstr("lines are missing here"));
    EXPECT_THAT(Output().substr(kHead.size()), Not(HasSubstr("head"))) << "that was shown";
}

TEST_F(FollowedLog, GoesOnWithARestartedService) {
    m_Host.File(kLog, Line(1, "former service"));
    Start();
    ASSERT_TRUE(Shows(Line(1, "former service")));
    std::ofstream{m_Host.Path(kLog), std::ios::trunc} << Line(9, "new service");
    ASSERT_TRUE(Shows(Line(9, "new service")));
    EXPECT_TRUE(m_Follower->WaitForStandardError("begins anew: the service was started again"));
}

TEST_F(FollowedLog, WaitsForAFileThatIsAwayForAWhile) {
    m_Host.File(kLog, Line(1, "a"));
    Start();
    ASSERT_TRUE(Shows(Line(1, "a")));
    m_Host.Remove(kLog);
    m_Host.File(kLog, Line(9, "replaced"));
    ASSERT_TRUE(Shows(Line(9, "replaced")));
}

TEST_F(FollowedLog, IsOneJsonObjectALine) {
    m_Host.File(kLog, Line(1, "a"));
    Start({"--json"});
    ASSERT_TRUE(Shows("\"text\":\"a\""));
    WriteAt(Line(1, "a").size(), Line(2, "b"));
    ASSERT_TRUE(Shows("\"text\":\"b\""));
    std::istringstream lines{Output()};
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        const auto json = nlohmann::json::parse(line);
        EXPECT_EQ(json["format_version"], 1);
        EXPECT_EQ(json["command"], "log");
        EXPECT_EQ(json["part"], "newest");
    }
    EXPECT_EQ(count, 2);
}

TEST_F(FollowedLog, EndsWhenNobodyReadsAnyMore) {
    m_Host.KernelProc();  // sanitizers look at themselves there
    m_Host.File(kLog, Line(1, "a"));
    auto shell = m_Host.Start(
        {"/bin/bash", "-c", ZornctlExecutable() + " log -f | head -n 1; echo ${PIPESTATUS[0]}"});
    EXPECT_EQ(shell.Wait(), Exited(0)) << "though nothing more is written";
    EXPECT_EQ(shell.StandardOutput(), Line(1, "a") + "0\n");
}

TEST_F(FollowedLog, ShowsEachLineThatTheTraceWritesOverManyWraps) {
    setenv("QX_LOG_RINGBUF_DIR", m_Host.Path("/var/log/tolbrin").c_str(), 1);
    setenv("QX_LOG_FILE_MAX_SIZE", "2000", 1);
    setenv("QX_LOG_DEBUG_LEVEL", "1", 1);
    OpenDebug debug;
    debug.Init("zorn");
    for (const char* name : {"QX_LOG_RINGBUF_DIR", "QX_LOG_FILE_MAX_SIZE", "QX_LOG_DEBUG_LEVEL"}) {
        (void)unsetenv(name);
    }
    debug.Trace(1, "head");
    debug.EndOfInitialization();
    Start();
    std::string expected = "head\n";
    for (int i = 0; i < 60; ++i) {
        const std::string text = "#" + std::to_string(i) + std::string(100, '.') + "\n";
        const uint32_t cycle = debug.m_LogCycle;
        debug.Trace(1, "%s", text.c_str());
        ASSERT_TRUE(Shows(text));
        expected += text;
        if (debug.m_LogCycle != cycle) expected += "WRAP\n";
    }
    EXPECT_GT(debug.m_LogCycle, 2u);
    const auto isComplete = [&] {
        std::string texts;
        std::istringstream lines{Output()};
        for (std::string line; std::getline(lines, line);) {
            const auto text = CutTracePrefix(line);
            texts.append(text.starts_with("------ WRAP") ? "WRAP" : text).append("\n");
        }
        return texts == expected;
    };
    EXPECT_TRUE(HostProcess::WaitUntil(isComplete)) << Output() << "\n" << expected;
    EXPECT_EQ(m_Follower->StandardError(), "");
}

TEST_F(FollowedLog, IsThatOfTheServiceAcrossItsRestart) {
    const auto runService = [&] {
        auto service = m_Host.Start({FakeHost::Executable()});
        EXPECT_EQ(service.Wait(), Exited(1)) << "there is no module host";
    };
    runService();
    Start();
    ASSERT_TRUE(Shows("FATAL ERROR! Server Control SWITCH could not be loaded!"));
    const auto before = Output();
    runService();
    EXPECT_TRUE(HostProcess::WaitUntil(
        [&] { return Output().substr(before.size()).find("FATAL ERROR!") != std::string::npos; }));
    EXPECT_TRUE(m_Follower->WaitForStandardError("begins anew"));
}

}  // namespace

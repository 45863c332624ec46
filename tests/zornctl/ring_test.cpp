// zornctl ring: what it shows of a file, and what it follows.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "trace/open_debug.h"
#include "zornctl/zornctl_run.h"

using testing::HasSubstr;
using testing::Not;

namespace {

constexpr const char* kRing = "/var/log/tolbrin/ring_zorn";

/// A host, and a ring on it that this process writes.
class Ring : public testing::Test {
  protected:
    Ring() { m_Host.Directory("/var/log/tolbrin"); }

    void Open(OpenDebug& debug, size_t size = 16384) {
        debug.m_TraceLevel = 1;
        debug.m_RingSize = size;
        debug.m_RingPos = 0;
        const RecursiveLockGuard hold{debug.Lock()};
        ASSERT_TRUE(debug.InitRingBuffer(m_Host.Path(kRing).c_str(), size));
    }

    /// The texts of what zornctl has written, from the begin line on.
    static Lines TextsOf(const std::string& output) {
        Lines texts;
        for (size_t begin = 0; begin < output.size();) {
            const size_t end = output.find('\n', begin);
            texts.emplace_back(CutTracePrefix(std::string_view{output}.substr(begin, end - begin)));
            if (texts.back() == "### Begin of RingBuffer. ###") texts.clear();
            begin = end + 1;
        }
        return texts;
    }

    FakeHost m_Host;
};

TEST_F(Ring, IsShownInTheOrderOfTime) {
    OpenDebug debug;
    Open(debug);
    int i = 0;
    while (debug.m_RingWrapCount < 2) debug.Trace(1, "line %d", i++);
    for (int more = 0; more < 10; ++more) debug.Trace(1, "line %d", i++);
    const auto run = RunZornctl(m_Host, {"ring", kRing});
    EXPECT_EQ(run.end, Exited(0));
    EXPECT_EQ(run.error, "");
    EXPECT_THAT(run.output, HasSubstr("Tarnhollow Environment:\n"));
    EXPECT_THAT(run.output, HasSubstr("# End of header.\n"));
    EXPECT_THAT(run.output, Not(HasSubstr("TRACE-END")));
    EXPECT_THAT(run.output, Not(HasSubstr("____")));
    auto texts = TextsOf(run.output);
    EXPECT_THAT(texts.at(0), testing::StartsWith("[...] "));
    for (size_t back = 1; back < texts.size(); ++back) {
        EXPECT_EQ(texts[texts.size() - back], "line " + std::to_string(i - static_cast<int>(back)));
    }
}

TEST_F(Ring, IsShownFromTheLastLinesOn) {
    OpenDebug debug;
    Open(debug);
    debug.Trace(1, "a");
    debug.Trace(1, "b");
    const auto output = RunZornctl(m_Host, {"ring", "-n", "1", kRing}).output;
    EXPECT_EQ(CutTracePrefix(output.substr(0, output.size() - 1)), "b");
}

TEST_F(Ring, IsShownWithANoteWhereItHasNoMark) {
    OpenDebug debug;
    Open(debug);
    debug.Trace(1, "a");
    memset(debug.m_RingBase + debug.m_RingPos, '_', debug.m_EndMarkLength);
    const auto run = RunZornctl(m_Host, {"ring", kRing});
    EXPECT_EQ(run.end, Exited(0));
    EXPECT_EQ(run.error, "zornctl: " + std::string{kRing} +
                             ": no end mark: the order comes from the time stamps, and the newest "
                             "line may be mixed with an older one\n");
    EXPECT_EQ(TextsOf(run.output).back(), "a");
    const auto json = RunZornctl(m_Host, {"ring", "--json", kRing}).Json();
    EXPECT_THAT(json["note"], testing::StartsWith("no end mark"));
}

TEST_F(Ring, IsJsonForPrograms) {
    OpenDebug debug;
    Open(debug);
    debug.Trace(1, "a");
    const auto json = RunZornctl(m_Host, {"ring", "--json", kRing}).Json();
    EXPECT_EQ(json["command"], "ring");
    EXPECT_EQ(json["path"], kRing);
    EXPECT_EQ(json["lines"].front()["part"], "header");
    EXPECT_EQ(json["lines"].back()["part"], "newest");
    EXPECT_EQ(json["lines"].back()["text"], "a");
    EXPECT_EQ(json["lines"].back()["pid"], getpid());
}

TEST_F(Ring, MayBeCompressedAsTheServiceLeavesIt) {
    m_Host.Run([] {
        setenv("QX_LOG_DEBUG_LEVEL", "1", 1);
        OpenDebug debug;
        debug.Init("zorn");
        ASSERT_TRUE(debug.ArmRingBuffer());
        debug.Trace(1, "while it started");
        debug.EndOfInitialization();
        debug.Trace(1, "while it ran");
    });
    const auto startup = RunZornctl(m_Host, {"ring", "/var/log/tolbrin/ring_startup_zorn.gz"});
    EXPECT_EQ(startup.end, Exited(0)) << startup.error;
    EXPECT_EQ(TextsOf(startup.output),
              (Lines{"### Start of initialization. ###", "while it started",
                     "### End of initialization. ###"}));
    const auto running = RunZornctl(m_Host, {"ring", kRing});
    EXPECT_EQ(TextsOf(running.output), (Lines{"### Start of initialization. ###", "while it ran"}));
    const auto follow = RunZornctl(m_Host, {"ring", "-f", "/var/log/tolbrin/ring_startup_zorn.gz"});
    EXPECT_EQ(follow.end, Exited(2));
    EXPECT_THAT(follow.error, HasSubstr("is compressed: nothing more will follow"));
}

TEST_F(Ring, IsRefusedWhereItIsNone) {
    m_Host.File("/text", "text\n");
    const auto text = RunZornctl(m_Host, {"ring", "/text"});
    EXPECT_EQ(text.end, Exited(3));
    EXPECT_EQ(text.error, "zornctl: /text: is no ring file (name one that the service wrote)\n");
    m_Host.File("/damaged.gz", "\x1F\x8B\x08 damaged");
    const auto damaged = RunZornctl(m_Host, {"ring", "/damaged.gz"});
    EXPECT_EQ(damaged.end, Exited(3));
    EXPECT_THAT(damaged.error, HasSubstr("gzip: "));
    m_Host.Remove("/usr/bin/gzip");
    const auto without = RunZornctl(m_Host, {"ring", "/damaged.gz"});
    EXPECT_EQ(without.end, Exited(3));
    EXPECT_THAT(without.error, HasSubstr("zornctl: gzip: No such file or directory"));
}

TEST_F(Ring, IsRefusedWhereItIsLargerThanAnyRing) {
    m_Host.Memory("/huge", {}, (uint64_t{1} << 30U) + 1);
    const auto huge = RunZornctl(m_Host, {"ring", "/huge"});
    EXPECT_EQ(huge.end, Exited(3));
    EXPECT_THAT(huge.error, HasSubstr("holds more than 1073741824 bytes"));
}

TEST_F(Ring, IsFollowedOverWrapsAndARestart) {
    auto debug = std::make_unique<OpenDebug>();
    Open(*debug);
    debug->Trace(1, "before");
    auto follower = StartZornctl(m_Host, {"ring", "--follow", "-n1", kRing});
    ASSERT_TRUE(follower.WaitForStandardOutput("before\n"));
    Lines expected{"before"};
    for (int i = 0; i < 12; ++i) {
        expected.push_back("line " + std::to_string(i) + std::string(1500, 'x'));
        debug->Trace(1, "%s", expected.back().c_str());
        ASSERT_TRUE(follower.WaitForStandardOutput(expected.back() + "\n"));
    }
    EXPECT_GT(debug->m_RingWrapCount, 0u);
    EXPECT_EQ(TextsOf(follower.StandardOutput()), expected);
    EXPECT_EQ(follower.StandardError(), "");
    debug = std::make_unique<OpenDebug>();
    Open(*debug);
    debug->Trace(1, "another service");
    ASSERT_TRUE(follower.WaitForStandardOutput("another service\n"));
    EXPECT_TRUE(follower.WaitForStandardError("begins anew"));
}

TEST_F(Ring, IsFollowedWhereItsFileIsRemovedAndMadeAnew) {
    auto debug = std::make_unique<OpenDebug>();
    Open(*debug);
    debug->Trace(1, "before");
    auto follower = StartZornctl(m_Host, {"ring", "-f", kRing});
    ASSERT_TRUE(follower.WaitForStandardOutput("before\n"));
    m_Host.Remove(kRing);
    debug = std::make_unique<OpenDebug>();
    Open(*debug);
    debug->Trace(1, "behind");
    ASSERT_TRUE(follower.WaitForStandardOutput("behind\n"));
    EXPECT_TRUE(follower.WaitForStandardError("begins anew"));
    EXPECT_EQ(follower.StandardOutput().find("before\n"),
              follower.StandardOutput().rfind("before\n"));
}

TEST_F(Ring, IsWhatAServiceThatWasKilledHasWritten) {
    const auto hosts = FakeHost::LibraryDirectory() + "/system_hosts/";
    auto zorn = m_Host.Start({FakeHost::Executable()},
                             {.environment = {{"LD_LIBRARY_PATH", hosts + "beating"},
                                              {"QX_LOG_DEBUG_LEVEL", "1"},
                                              {"HOST_RING", ""}}});
    ASSERT_TRUE(zorn.WaitForFileText(kRing, "Waiting for signals..."));
    ASSERT_TRUE(zorn.WaitForFileText(kRing, "HOST: beat "));
    zorn.Signal(SIGKILL);
    EXPECT_EQ(zorn.Wait(), Killed(SIGKILL));
    const auto running = RunZornctl(m_Host, {"ring", kRing});
    EXPECT_EQ(running.end, Exited(0));
    EXPECT_EQ(running.error, "");
    EXPECT_THAT(running.output, HasSubstr("ZORN-MAIN:  Waiting for signals...\n"));
    EXPECT_THAT(running.output, HasSubstr("HOST: beat "));
    const auto startup = RunZornctl(m_Host, {"ring", "/var/log/tolbrin/ring_startup_zorn.gz"});
    EXPECT_EQ(startup.end, Exited(0));
    EXPECT_THAT(startup.output, HasSubstr("HOST: StartModules()\n"));
    EXPECT_THAT(TextsOf(startup.output).back(), "### End of initialization. ###");
    const auto log = RunZornctl(m_Host, {"log"});
    EXPECT_EQ(log.end, Exited(0));
    EXPECT_THAT(log.output, testing::EndsWith("ZORN-MAIN:  Waiting for signals...\n"));
}

}  // namespace

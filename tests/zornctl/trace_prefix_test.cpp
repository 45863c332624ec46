#include "zornctl/order/trace_prefix.h"

#include <gtest/gtest.h>

#include <string>

#include "support/every_prefix.h"
#include "support/fake_host.h"
#include "trace/open_debug.h"

using namespace zornctl;

namespace {

TEST(ParseTracePrefix, ReadsThePrefixWithAMemoryFigure) {
    const std::string line =
        "2026-11-20 19:35:59.060 [0000004907]     9400 KB !zorn          ZORN-MAIN:  Waiting";
    const auto prefix = ParseTracePrefix(line);
    ASSERT_TRUE(prefix);
    EXPECT_EQ(prefix->stamp, "2026-11-20 19:35:59.060");
    EXPECT_TRUE(prefix->hasTime);
    EXPECT_EQ(prefix->pid, 4907u);
    EXPECT_EQ(prefix->memoryKiB, 9400u);
    EXPECT_EQ(prefix->name, "zorn");
    EXPECT_EQ(line.substr(prefix->length), "ZORN-MAIN:  Waiting");
}

TEST(ParseTracePrefix, ReadsThePrefixWithoutOne) {
    const std::string line = "2026-11-20 19:35:59.060 [0000004907] zorn            text";
    const auto prefix = ParseTracePrefix(line);
    ASSERT_TRUE(prefix);
    EXPECT_EQ(prefix->memoryKiB, std::nullopt);
    EXPECT_EQ(prefix->name, "zorn");
    EXPECT_EQ(line.substr(prefix->length), "  text") << "blanks in front of a text belong to it";
}

TEST(ParseTracePrefix, LetsALongNameWidenTheColumn) {
    const std::string line = "2026-11-20 19:35:59.060 [0000000001] a-very-long-module-name text";
    const auto prefix = ParseTracePrefix(line);
    ASSERT_TRUE(prefix);
    EXPECT_EQ(prefix->name, "a-very-long-module-name");
    EXPECT_EQ(line.substr(prefix->length), "text");
}

TEST(ParseTracePrefix, KnowsAStampThatTellsNoTime) {
    const auto prefix = ParseTracePrefix("yyyy-mm-dd hh:mm:ss.mmm [0000000001] zorn          text");
    ASSERT_TRUE(prefix);
    EXPECT_FALSE(prefix->hasTime);
    EXPECT_EQ(StampMilliseconds(prefix->stamp), std::nullopt);
}

TEST(ParseTracePrefix, RefusesWhatIsNone) {
    for (const char* line :
         {"", "text", "2026-11-20", "2026-11-20 19:35:59.060 [000000490] zorn          text",
          "2026-11-20 19:35:59,060 [0000004907] zorn          text",
          "x026-11-20 19:35:59.060 [0000004907] zorn          text",
          "2026-11-20 19:35:59.060 [00000049x7] zorn          text"}) {
        EXPECT_FALSE(ParseTracePrefix(line)) << line;
        EXPECT_EQ(StampOf(line), "") << line;
    }
}

TEST(ParseTracePrefix, ReadsWhatTheTraceWrites) {
    FakeHost host;
    host.Directory("/var/log/tolbrin");
    host.Run([] {
        OpenDebug debug;
        debug.Init("zorn");
        for (const int withMemory : {0, 1}) {
            debug.m_MemoryTraces = static_cast<uint32_t>(withMemory);
            for (const char* name : {"zorn", "thirteenchars", "fourteen-chars", "with blank"}) {
                char line[kPrefixSize + 1];
                const RecursiveLockGuard hold{debug.Lock()};
                const size_t length = debug.FormatPrefix(line, name);
                const std::string text = std::string{line, length} + "text";
                const auto prefix = ParseTracePrefix(text);
                ASSERT_TRUE(prefix) << text;
                EXPECT_EQ(prefix->length, length);
                EXPECT_EQ(prefix->name, name);
                EXPECT_EQ(prefix->pid, static_cast<uint64_t>(getpid()));
                EXPECT_EQ(prefix->memoryKiB.has_value(), withMemory != 0);
            }
        }
    });
}

TEST(ParseTracePrefix, NeverLooksBehindTheLine) {
    EveryPrefix("2026-11-20 19:35:59.060 [0000004907]     9400 KB !zorn          text",
                [](std::string_view line) {
                    const auto prefix = ParseTracePrefix(line);
                    EXPECT_EQ(prefix.has_value(), line.size() >= 37);
                    EXPECT_TRUE(!prefix || prefix->length <= line.size());
                    (void)IsRestOfPrefix(line);
                });
}

TEST(StampMilliseconds, CountsSince1970) {
    EXPECT_EQ(StampMilliseconds("1970-01-01 00:00:00.000"), 0);
    EXPECT_EQ(StampMilliseconds("1970-01-02 01:01:01.001"), 90061001);
    EXPECT_EQ(StampMilliseconds("2024-02-29 23:59:59.999"), 1709251199999);
}

TEST(StampMilliseconds, RefusesADayThatIsNone) {
    EXPECT_EQ(StampMilliseconds("2023-02-29 00:00:00.000"), std::nullopt);
    EXPECT_EQ(StampMilliseconds("2023-13-01 00:00:00.000"), std::nullopt);
    EXPECT_EQ(StampMilliseconds("2023-01-01"), std::nullopt);
}

TEST(IsRestOfPrefix, KnowsEachCutInFrontOfTheNameColumn) {
    const std::string line = "2026-11-20 19:35:59.060 [0000004907] zorn          text";
    EXPECT_FALSE(IsRestOfPrefix(line)) << "that is a whole one";
    for (size_t at = 1; at <= 24; ++at) EXPECT_TRUE(IsRestOfPrefix(line.substr(at))) << at;
    for (size_t at = 25; at < line.size(); ++at) EXPECT_FALSE(IsRestOfPrefix(line.substr(at)));
}

TEST(BareLine, CutsTheNewlineAndTheHoleInFront) {
    EXPECT_EQ(BareLine("text\n"), "text");
    EXPECT_EQ(BareLine("text"), "text");
    EXPECT_EQ(BareLine(std::string_view{"\0\0text\0x\n", 9}), (std::string_view{"text\0x", 6}));
    EXPECT_EQ(BareLine(std::string_view{"\0\0\n", 3}), "");
}

}  // namespace

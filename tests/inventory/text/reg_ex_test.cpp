#include "inventory/text/reg_ex.h"

#include <sys/resource.h>

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/fake_host.h"
#include "support/libc_fault.h"
#include "support/trace_capture.h"

using testing::ElementsAre;

namespace {

/// The last match; "false" if there was no answer.
std::string Match(const std::string& text, const std::string& pattern) {
    std::string match = "former";
    return CRegEx::GetRegexFromString(match, text, pattern) ? match : "false";
}

}  // namespace

TEST(RegEx, GivesTheLastOfThreeAddresses) {
    EXPECT_EQ(Match("../0000:00:01.0/0000:01:00.0/0000:02:1c.3/host0",
                    "[a-f0-9][a-f0-9][a-f0-9][a-f0-9]:[a-f0-9][a-f0-9]:[a-f0-9][a-f0-9].[a-f0-9]"),
              "0000:02:1c.3");
}

TEST(RegEx, TakesExtendedExpressions) {
    EXPECT_EQ(Match("xaby", "(a|b)+"), "b");
    EXPECT_EQ(Match("a1 b22", "[0-9]{2}"), "22");
}

// Each search begins one byte behind the start of the match before.
TEST(RegEx, LetsMatchesOverlap) {
    EXPECT_EQ(Match("aaaa", "aa"), "aa");
    EXPECT_EQ(Match("xabc", "[a-c]+"), "c");
}

TEST(RegEx, IsTrueWithAnEmptyTextIfNothingMatches) {
    EXPECT_EQ(Match("abc", "x"), "");
    EXPECT_EQ(Match("", "x"), "");
}

TEST(RegEx, TakesTheStartOfEachSearchForAStartOfTheText) {
    EXPECT_EQ(Match("ab", "^[ab]"), "b");
}

TEST(RegEx, SearchesToTheEndForAnExpressionThatMatchesNothing) {
    EXPECT_EQ(Match("abc", "x*"), "");
    EXPECT_EQ(Match("", ""), "");
}

TEST(RegEx, MakesAtMost256Searches) {
    std::string text;
    for (int i = 0; i < 300; ++i) text += static_cast<char>('a' + i % 26);
    const std::string last{text[255]};
    EXPECT_EQ(Match(text, "[a-z]"), last);
    FaultOf<&::regexec> searches;
    EXPECT_EQ(Match(text, "[a-z]"), last);
    EXPECT_EQ(searches.Calls(), 256);
}

TEST(RegEx, TracesWhatIsNoExpression) {
    TraceCapture trace{1};
    EXPECT_EQ(Match("abc", "("), "false");
    EXPECT_EQ(Match("abc", "[a"), "false");
    EXPECT_THAT(trace.Lines(),
                ElementsAre("CRegEx::GetRegexFromString  : Cannot get regex from string! Error "
                            "message: Unmatched ( or \\(.",
                            "CRegEx::GetRegexFromString  : Cannot get regex from string! Error "
                            "message: Unmatched [, [^, [:, [., or [=."));
}

TEST(RegEx, TracesAMatchBehindTheText) {
    TraceCapture trace{1};
    FaultOf<&::regexec> fault;
    fault.Answer([](const regex_t*, const char*, size_t, regmatch_t* match, int) {
        *match = {10, 12};
        return 0;
    });
    EXPECT_EQ(Match("abc", "b"), "false");
    EXPECT_THAT(
        trace.Lines(),
        ElementsAre("CRegEx::GetRegexFromString  : Cannot get substring from string: 'abc'! "
                    "Start index: 10. End index: 12."));
}

TEST(RegEx, TracesAMatchThatFindsNoMemory) {
    if (!LibcFault::kHeapFaults) GTEST_SKIP() << LibcFault::kNoHeapFaults;
    FakeHost host;
    host.Run([] {
        constexpr size_t kSize = 256 << 20;
        std::string text(kSize, '\0');  // traced as an empty text
        text[1] = 'a';
        FaultOf<&::regexec> fault;
        fault.Answer([](const regex_t*, const char*, size_t, regmatch_t* match, int) {
            *match = {0, kSize};
            return 0;
        });
        fault.Return(int{REG_NOMATCH});
        TraceCapture trace{1};
        const rlimit none{kSize, RLIM_INFINITY};
        ASSERT_EQ(setrlimit(RLIMIT_AS, &none), 0);
        const std::string match = Match(text, "a");
        const rlimit all{RLIM_INFINITY, RLIM_INFINITY};
        ASSERT_EQ(setrlimit(RLIMIT_AS, &all), 0);
        EXPECT_EQ(match, "false");
        EXPECT_THAT(
            trace.Lines(),
            ElementsAre("CRegEx::GetRegexFromString  : Cannot get substring from string: : ''!"));
    });
}

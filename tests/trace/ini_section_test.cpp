#include "trace/ini_section.h"

#include <gtest/gtest.h>

#include <string>

#include "support/every_prefix.h"

namespace {

constexpr std::string_view kSample =
    "[GlobalDebugSettings]\nDynamicUpdate=5\n[zorn]\nFileDebugLevel=0x10\nTraceFlags = "
    "7\n[EndOfFile]\n";

TEST(FindIniSection, GivesTheBodyUpToTheNextSection) {
    EXPECT_EQ(FindIniSection(kSample, "GlobalDebugSettings"), "\nDynamicUpdate=5\n");
}

TEST(FindIniSection, GivesTheLastBodyUpToTheTrailer) {
    EXPECT_EQ(FindIniSection(kSample, "zorn"), "\nFileDebugLevel=0x10\nTraceFlags = 7\n");
}

TEST(FindIniSection, ComparesTheNameWithoutCase) {
    EXPECT_TRUE(FindIniSection(kSample, "ZORN"));
    EXPECT_TRUE(FindIniSection("[ZoRn]\nx\n[EndOfFile]", "zorn"));
}

TEST(FindIniSection, TakesTheFirstSectionOfThatName) {
    EXPECT_EQ(FindIniSection("[a]1[a]2[EndOfFile]", "a"), "1");
}

TEST(FindIniSection, RefusesAFileWithoutTheTrailer) {
    for (const char* bad :
         {"", "[zorn]\nFileDebugLevel=3\n", "[zorn]x[EndOfFile", "[zorn]xEndOfFile]",
          "[zorn]x[EndOfFile ]", "[zorn]x[ EndOfFile]", "[zorn]x[EndOfFiles]",
          "[zorn]x[EndOfFile][more]", "]", "[", "no bracket"}) {
        EXPECT_FALSE(FindIniSection(bad, "zorn")) << '"' << bad << '"';
    }
}

TEST(FindIniSection, AcceptsTheTrailerInAnyCase) {
    EXPECT_EQ(FindIniSection("[zorn]x[endoffile]", "zorn"), "x");
    EXPECT_EQ(FindIniSection("[zorn]x[ENDOFFILE] and what follows", "zorn"), "x");
}

TEST(FindIniSection, EndsTheTrailersWordAtANul) {
    using namespace std::string_literals;
    EXPECT_EQ(FindIniSection("[zorn]x[EndOfFile\0x]"s, "zorn"), "x");
    EXPECT_EQ(FindIniSection("[zorn]x[eNDoFfILE\0]"s, "zorn"), "x");
    EXPECT_FALSE(FindIniSection("[zorn]x[EndOf\0File]"s, "zorn"));
    EXPECT_FALSE(FindIniSection("[zorn]x[\0EndOfFile]"s, "zorn"));
}

TEST(FindIniSection, TakesNoBracketInTheFirstByteForTheTrailers) {
    EXPECT_FALSE(FindIniSection("[EndOfFile]", "EndOfFile"));
    EXPECT_FALSE(FindIniSection("]", ""));
    EXPECT_EQ(FindIniSection("[]x[EndOfFile]", ""), "x");
}

TEST(FindIniSection, RefusesASectionHeadThatIsNotClosedBeforeTheTrailer) {
    EXPECT_FALSE(FindIniSection("[a]1[b 2[EndOfFile]", "c"));
    EXPECT_EQ(FindIniSection("[a]1[b 2[EndOfFile]", "a"), "1");
}

TEST(FindIniSection, FindsNoSectionOfAnotherName) {
    EXPECT_FALSE(FindIniSection(kSample, "zor"));
    EXPECT_FALSE(FindIniSection(kSample, "zornx"));
    EXPECT_FALSE(FindIniSection(kSample, "EndOfFile"));
}

TEST(FindIniSection, EndsTheSectionsAtANul) {
    const std::string text("[a]1\0[b]2[EndOfFile]", 20);
    EXPECT_EQ(FindIniSection(text, "a"), "1");
    EXPECT_FALSE(FindIniSection(text, "b"));
}

TEST(FindIniSection, NeverLooksBehindTheText) {
    EveryPrefix(kSample, [](std::string_view text) {
        EXPECT_EQ(FindIniSection(text, "zorn").has_value(), text.find("[EndOfFile]") != text.npos);
    });
}

TEST(FindIniText, TakesTheFirstOccurrenceOfTheKeyAnywhere) {
    EXPECT_EQ(FindIniText("# the Key in a comment\nKey=1\n", "Key", 64), "1");
    EXPECT_EQ(FindIniText("MyKeyring=1\nKey=2\n", "Key", 64), "1");
}

TEST(FindIniText, TakesTheNextEqualsSignWhereverItStands) {
    EXPECT_EQ(FindIniText("Key\nOther=5\n", "Key", 64), "5");
}

TEST(FindIniText, SkipsWhiteSpaceAndLineEndsInFrontOfTheValue) {
    EXPECT_EQ(FindIniText("Key= \t\v\f\r 1 2 \nOther=3", "Key", 64), "1 2 ");
    EXPECT_EQ(FindIniText("Key=\nOther=3\n", "Key", 64), "Other=3");
}

TEST(FindIniText, CutsAtTheLimit) {
    EXPECT_EQ(FindIniText("Key=12345678", "Key", 4), "1234");
    EXPECT_EQ(FindIniText("Key=1234\n", "Key", 4), "1234");
}

TEST(FindIniText, IsEmptyHandedWithoutKeyOrEqualsSign) {
    EXPECT_FALSE(FindIniText("Other=1", "Key", 64));
    EXPECT_FALSE(FindIniText("=1 Key", "Key", 64));
    EXPECT_FALSE(FindIniText("", "Key", 64));
    EXPECT_EQ(FindIniText("Key=", "Key", 64), "");
}

TEST(FindIniNumber, TakesNumbersAsTheyLook) {
    const struct {
        const char* text;
        uint32_t number;
    } cases[] = {{"0x10", 16},      {"010", 8}, {"10", 10},         {"10 apples", 10},
                 {"apples", 0},     {"", 0},    {"-2", 0xFFFFFFFE}, {"4294967294", 4294967294},
                 {"0x100000005", 5}};
    for (const auto& [text, number] : cases) {
        EXPECT_EQ(FindIniNumber(std::string{"Key="} + text, "Key"), number) << text;
    }
}

TEST(FindIniNumber, TreatsAllOnesAsAbsent) {
    for (const char* text : {"0xFFFFFFFF", "4294967295", "-1", "99999999999999999999999"}) {
        EXPECT_FALSE(FindIniNumber(std::string{"Key="} + text, "Key")) << text;
    }
}

TEST(FindIniNumber, CutsTheTextAt64CharactersBeforeItConverts) {
    const std::string zeros(63, '0');
    EXPECT_EQ(FindIniNumber("Key=" + zeros + "12", "Key"), 1u);
    EXPECT_EQ(FindIniNumber("Key=" + zeros + "1", "Key"), 1u);
    EXPECT_EQ(FindIniNumber("Key=" + zeros + "01", "Key"), 0u);
}

TEST(FindIniNumber, NeverLooksBehindTheText) {
    EveryPrefix("Key = 0x12\n", [](std::string_view text) {
        EXPECT_EQ(FindIniNumber(text, "Key").has_value(), text.size() >= 5);
    });
}

}  // namespace

#include "zornctl/output/escape.h"

#include <gtest/gtest.h>

#include <string>

#include "support/every_prefix.h"

using namespace zornctl;

namespace {

struct Case {
    std::string text;
    std::string escaped;
};

TEST(Escape, LeavesReadableTextAsItIs) {
    for (const std::string text : {"", "plain text ~!", "back\\slash", "\xC3\xA4\xE2\x82\xAC",
                                   "\xF0\x9F\x98\x80", "\xEF\xBF\xBD"}) {
        EXPECT_EQ(Escape(text), text);
    }
}

TEST(Escape, LeavesNothingThatATerminalActsUpon) {
    const Case cases[] = {
        {"a\tb\nc\rd", "a\\tb\\nc\\rd"},
        {"\x1b[31mred", "\\x1b[31mred"},
        {std::string{"\0\x07\x7f", 3}, "\\x00\\x07\\x7f"},
        {"\xC2\x9B"
         "31m",
         "\\xc2\\x9b31m"},
        {"\x9B"
         "31m",
         "\\x9b31m"},
    };
    for (const auto& [text, escaped] : cases) EXPECT_EQ(Escape(text), escaped);
}

TEST(Escape, LeavesNothingThatTurnsTheDirectionOfText) {
    EXPECT_EQ(Escape("\xE2\x80\xAE"), "\\xe2\\x80\\xae");
    EXPECT_EQ(Escape("\xE2\x81\xA6"), "\\xe2\\x81\\xa6");
    EXPECT_EQ(Escape("\xE2\x80\xA8"), "\\xe2\\x80\\xa8");
    EXPECT_EQ(Escape("\xD8\x9C"), "\\xd8\\x9c");
}

TEST(Escape, TakesNoBytesForUtf8ThatAreNone) {
    const Case cases[] = {
        {"\xC0\x80", "\\xc0\\x80"},                    // NUL in two bytes
        {"\xE0\x80\xAF", "\\xe0\\x80\\xaf"},           // overlong
        {"\xED\xA0\x80", "\\xed\\xa0\\x80"},           // surrogate
        {"\xF4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"},  // above U+10FFFF
        {"\xF8\x88\x80\x80\x80", "\\xf8\\x88\\x80\\x80\\x80"},
        {"\xC3(", "\\xc3("},  // the byte behind it is not eaten
        {"\xE2\x82", "\\xe2\\x82"},
    };
    for (const auto& [text, escaped] : cases) {
        EXPECT_EQ(Escape(text), escaped);
        EXPECT_FALSE(IsUtf8(text)) << escaped;
    }
}

TEST(Escape, KeepsEveryByteOfEveryValueHarmless) {
    for (int first = 0; first < 256; ++first) {
        for (int second = 0; second < 256; ++second) {
            const std::string text{static_cast<char>(first), static_cast<char>(second)};
            const std::string escaped = Escape(text);
            ASSERT_TRUE(IsUtf8(escaped));
            for (const char c : escaped) ASSERT_TRUE(c < 0 || (c >= ' ' && c != '\x7f'));
        }
    }
}

TEST(Escape, NeverLooksBehindTheText) {
    EveryPrefix("a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80\x1b\x9B", [](std::string_view text) {
        (void)Escape(text);
        (void)IsUtf8(text);
    });
}

TEST(EscapeReversibly, DoublesBackslashesSoThatTheTextCanBeHadBack) {
    EXPECT_EQ(EscapeReversibly("a\\n\n\xFF"), "a\\\\n\\n\\xff");
    EXPECT_EQ(EscapeReversibly("plain"), "plain");
}

TEST(Columns, CountsCharactersAndNotBytes) {
    EXPECT_EQ(Columns(""), 0u);
    EXPECT_EQ(Columns("abc"), 3u);
    EXPECT_EQ(Columns("\xC3\xA4\xE2\x82\xAC"), 2u);
}

}  // namespace

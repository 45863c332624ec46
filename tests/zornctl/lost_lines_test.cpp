// What the reader of registry files passes over: each reason, and that there are no others, against the
// reader itself.

#include "zornctl/registry/lost_lines.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "support/every_prefix.h"
#include "zornctl/registry/registry_tree.h"

using namespace zornctl;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// "3 holds no number"
std::vector<std::string> Lost(std::string_view text) {
    std::vector<std::string> lines;
    for (const auto& line : FindLostLines(text)) {
        lines.push_back(std::to_string(line.number) + " " + line.reason);
    }
    return lines;
}

TEST(LostLines, AreNoneInAFileAsItIsWritten) {
    EXPECT_THAT(Lost(""), IsEmpty());
    EXPECT_THAT(Lost("\n"), IsEmpty());
    EXPECT_THAT(Lost("a=s=1\n[k]\na=d=-1\nb=b=0a ff \nc=b=\nd=es=\n\n[l]\n\n\n\n\n"), IsEmpty())
        << "empty lines behind the end hold nothing";
    EXPECT_THAT(Lost("a=s=x=y=z\n\n"), IsEmpty());
    EXPECT_THAT(Lost("a=d=2147483647\nb=d=4294967295\nc=d=-2147483648\n\n"), IsEmpty());
}

TEST(LostLines, HaveAReasonEach) {
    const std::pair<std::string, std::string> rows[] = {
        {"text\n", "holds neither a key nor a value"},
        {"a=x=1\n", "holds neither a key nor a value"},
        {"[key\n", "holds neither a key nor a value"},
        {"[k]tail\n", "has text behind its ]"},
        {"a=d=\n", "holds no number"},
        {"a=d=x\n", "holds no number"},
        {"a=d=1x\n", "has text behind its number"},
        {"a=d=4294967296\n", "has a number of more than 32 bits"},
        {"a=d=-2147483649\n", "has a number of more than 32 bits"},
        {"a=b=100 \n", "has a number that is no byte"},
        {"a=b=0aff\n", "has a number that is no byte"},
        {"a=b=-1\n", "has a number that is no byte"},
        {"a=b=0a xx\n", "has text behind its bytes"},
        {std::string{"a=s=x\0y\n", 8}, "holds a NUL"},
        {"a=s=1\na=d=2\n", "is overridden by line 2"},
        {"a=s=1\n[a]\n\n", "is overridden by line 2"},
        {"[a]\n\n[a]\n\n", "is overridden by line 3"},
        {"a=s=" + std::string(1019, 'x') + "\n", "is longer than 1,022 characters"},
    };
    for (const auto& [text, reason] : rows) {
        EXPECT_THAT(Lost(text + "\n\n"), ElementsAre("1 " + reason)) << text;
    }
    EXPECT_THAT(Lost("a=s=" + std::string(1018, 'x') + "\n\n"), IsEmpty());
    EXPECT_THAT(
        Lost("[k]\na=s=1\n\n\n\nx\n\n[l]\n"),
        ElementsAre("6 stands behind the end of the tree", "8 stands behind the end of the tree"));
}

TEST(LostLines, AreWhatAFileBreaksOffWith) {
    const std::string text = "a=s=1\n[k]\nb=d=42\n[l]\nc=s=3\n\n\n\n";
    EXPECT_THAT(Lost(text), IsEmpty());
    EveryPrefix(text, [&](std::string_view prefix) {
        if (prefix.empty() || prefix == text) return;
        EXPECT_EQ(Lost(prefix).empty(), false) << prefix;
    });
    EXPECT_THAT(Lost("[k]\na=s=go"), ElementsAre("2 has no newline at its end"));
    EXPECT_THAT(Lost("[k]\na=s=1\n"), ElementsAre("2 is the last one, and does not end the tree"));
    EXPECT_THAT(Lost("a=s=1\n"), ElementsAre("1 is the last one, and does not end the tree"));
    EXPECT_THAT(Lost("x\na=d="),
                ElementsAre("1 holds neither a key nor a value", "2 holds no number"));
}

TEST(LostLines, TellIfWhatIsInAKeyWouldGetIntoTheOneAbove) {
    const std::pair<std::string, bool> rows[] = {
        {"[key\n", true},
        {"[k" + std::string(1022, 'x') + "]\n", true},
        {std::string{"[k\0]\n", 5}, true},
        {std::string{"[k]\0\n", 5}, true},
        {"[k]tail\n", false},
        {"[a=d=x\n", false},
        {"text\n", false},
        {"a=s=" + std::string(1020, '[') + "\n", false},
        {"a=s=" + std::string(1019, 'x') + "[k\n", false},
    };
    for (const auto& [text, isKey] : rows) {
        const auto lines = FindLostLines(text + "\n\n");
        ASSERT_FALSE(lines.empty()) << text;
        EXPECT_EQ(lines[0].number, 1U) << text;
        EXPECT_EQ(lines[0].isKey, isKey) << text;
    }
}

TEST(LostLines, CountTheLinesOfTheFileNotThePiecesOfALine) {
    const std::string text = "a=s=" + std::string(5000, 'x') + "\nno tag\n\n";
    EXPECT_THAT(Lost(text), ElementsAre("1 is longer than 1,022 characters",
                                        "2 holds neither a key nor a value"));
    EXPECT_THAT(
        Lost("[k]\na=s=" + std::string(1019, 'x') + "\nb=s=1\n\n\nc=s=2\n"),
        ElementsAre("2 is longer than 1,022 characters", "6 stands behind the end of the tree"))
        << "its newline is a piece of its own, which ends the key";
}

TEST(LostLines, AreReplacedWhereTheyAreBroken) {
    const std::string longest(1022, 'x');
    EXPECT_EQ(WithoutBrokenLines(longest + "\n" + longest + "y\n\na"), longest + "\n-\n\n-\n");
    EXPECT_EQ(WithoutBrokenLines(std::string_view{"a\n\0b\nc\n", 7}), "a\n-\nc\n");
    EXPECT_EQ(WithoutBrokenLines("a\n\n"), "a\n\n");
    EXPECT_EQ(WithoutBrokenLines(""), "");
}

TEST(LostLines, AreToldBriefly) {
    EXPECT_EQ(FormatLostLines({{3, "is a"}, {7, "is b"}}), "line 3 is a, line 7 is b");
    const std::vector<LostLine> many(8, LostLine{1, "x"});
    EXPECT_EQ(FormatLostLines(many),
              "line 1 x, line 1 x, line 1 x, line 1 x, line 1 x, and 3 more");
}

/// Lines that are not empty.
std::vector<std::string> SortedLines(const std::string& text) {
    std::vector<std::string> lines;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        if (end != at) lines.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

/// Numbers and bytes stand there as they are written, and no line has 1,023 characters: that one is read,
/// but ends its key too.
std::string RandomText(std::mt19937& random) {
    static const std::string kLines[] = {"[a]",
                                         "[b]",
                                         "[c]x",
                                         "",
                                         "",
                                         "",
                                         "v=s=",
                                         "w=es=t=u",
                                         "x=d=7",
                                         "y=b=0a ",
                                         "y=d=z",
                                         "text",
                                         "z=s=]",
                                         "[=s=1",
                                         "[=s=]",
                                         "v=d=-1",
                                         std::string(1022, '['),
                                         "l=s=" + std::string(1018, 'x'),
                                         "m=s=" + std::string(1020, 'x')};
    std::string text;
    for (auto count = random() % 12; count > 0; --count) {
        text += kLines[random() % std::size(kLines)] + "\n";
    }
    return text + std::string(13, '\n');  // which ends all that is open
}

TEST(LostLines, AreNoneExactlyIfAllComesBack) {
    std::mt19937 random{20261120};
    int whole = 0;
    for (int i = 0; i < 5000; ++i) {
        const auto text = RandomText(random);
        CRegistryNode tree;
        ReadText(tree, text);
        const bool isAllThere = SortedLines(TextOf(tree)) == SortedLines(text);
        EXPECT_EQ(FindLostLines(text).empty(), isAllThere) << text;
        whole += isAllThere ? 1 : 0;
    }
    EXPECT_GT(whole, 250);
    EXPECT_LT(whole, 4750);
}

}  // namespace

#include "zornctl/output/table.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace zornctl;
using testing::ElementsAre;

namespace {

constexpr TextStyle kPlain{};

TEST(FormatTable, MakesColumnsAsWideAsTheirWidestCell) {
    EXPECT_EQ(
        FormatTable({"A", "LONG TITLE", "C"}, {{"1", "2", "3"}, {"wide cell", "", "x"}}, kPlain),
        "A          LONG TITLE  C\n"
        "1          2           3\n"
        "wide cell              x\n");
}

TEST(FormatTable, CountsCharactersAndNotBytes) {
    EXPECT_EQ(FormatTable({"A", "B"}, {{"\xC3\xA4", "x"}, {"bb", "y"}}, kPlain),
              "A   B\n\xC3\xA4   x\nbb  y\n");
}

TEST(FormatTable, EscapesWhatATerminalWouldActUpon) {
    EXPECT_EQ(FormatTable({"A", "B"}, {{"\x1b[2J", "a\nb"}}, kPlain),
              "A        B\n\\x1b[2J  a\\nb\n");
}

TEST(FormatTable, BreaksTheLastColumnAtTheWidth) {
    EXPECT_EQ(FormatTable({"A", "B"}, {{"x", "one two three four five six seven"}}, {30, false}),
              "A  B\n"
              "x  one two three four five six\n"
              "   seven\n");
}

TEST(FormatTable, StacksTheCellsWhereTheLastColumnWouldBeNarrowerThan20) {
    const std::vector<std::vector<Cell>> rows{{"first cell", "", "one two three four five six"},
                                              {"second cell", "x", "seven"}};
    EXPECT_EQ(FormatTable({"A", "B", "C"}, rows, {36, false}),
              "A            B  C\n"
              "first cell      one two three four\n"
              "                five six\n"
              "second cell  x  seven\n");
    EXPECT_EQ(FormatTable({"A", "B", "C"}, rows, {35, false}),
              "A\n    B\n    C\n"
              "first cell\n    one two three four five six\n"
              "second cell\n    x\n    seven\n");
    EXPECT_EQ(FormatTable({"A", "B"}, {{"a b", "c d"}}, {1, false}),
              "A\n    B\na\nb\n    c\n    d\n");
}

TEST(FormatTable, ColoursCellsWhereThereAreColours) {
    const std::vector<std::vector<Cell>> rows{{Cell{"ok", Emphasis::kGood}, "x"}};
    EXPECT_EQ(FormatTable({"A", "B"}, rows, {0, true}),
              "\x1b[2mA\x1b[0m   \x1b[2mB\x1b[0m\n\x1b[32mok\x1b[0m  x\n");
    EXPECT_EQ(FormatTable({"A", "B"}, rows, kPlain), "A   B\nok  x\n");
}

TEST(BreakLines, BreaksAtBlanks) {
    EXPECT_THAT(BreakLines("", 10), ElementsAre(""));
    EXPECT_THAT(BreakLines("aa bb cc", 5), ElementsAre("aa bb", "cc"));
    EXPECT_THAT(BreakLines("aa bb cc", 4), ElementsAre("aa", "bb", "cc"));
    EXPECT_THAT(BreakLines("aaaaaaaa bb", 4), ElementsAre("aaaaaaaa", "bb"));
    EXPECT_THAT(BreakLines("aa bb cc", 0), ElementsAre("aa bb cc"));
}

}  // namespace

#include "zornctl/order/ordered_trace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "zornctl/trace_samples.h"

using namespace zornctl;
using testing::ElementsAre;

namespace {

TEST(SplitEntries, JoinsTheLinesOfOneText) {
    const std::string text = Line(1, "a\n  more\n\nend") + Line(2, "b");
    EXPECT_THAT(Texts({{TracePart::kNewest, text}}), ElementsAre("a\n  more\n\nend", "b"));
}

TEST(SplitEntries, MarksTheFirstLineOfACutPieceAlone) {
    const std::string text = "rest\n" + Line(1, "a") + "more\n";
    const auto entries = SplitEntries({{TracePart::kOlder, text, true}});
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_TRUE(entries[0].isCut);
    EXPECT_FALSE(entries[0].prefix);
    EXPECT_EQ(entries[0].part, TracePart::kOlder);
    EXPECT_FALSE(entries[1].isCut);
    ASSERT_TRUE(entries[1].prefix);
    EXPECT_EQ(entries[1].prefix->stamp, "2026-11-20 00:00:01.000");
}

TEST(SplitEntries, DoesNotMarkAPieceThatIsCutBetweenTwoLines) {
    const std::string text = Line(1, "a");
    EXPECT_FALSE(SplitEntries({{TracePart::kOlder, text, true}}).at(0).isCut);
}

TEST(SplitEntries, LeavesOutEmptyLinesAtACutAndHoles) {
    const std::string hole(100, '\0');
    EXPECT_THAT(Texts({{TracePart::kOlder, "\n", true}}), ElementsAre());
    const std::string text = hole + "\n" + hole + Line(1, "a") + hole + "\n" + Line(2, "b");
    EXPECT_THAT(Texts({{TracePart::kNewest, text}}), ElementsAre("a", "b"));
}

TEST(SplitEntries, NeverJoinsAcrossPieces) {
    EXPECT_THAT(Texts({{TracePart::kHead, "head\n"}, {TracePart::kNewest, "loose\n"}}),
                ElementsAre("head", "loose"));
}

}  // namespace

#include "zornctl/order/pass_end.h"

#include <gtest/gtest.h>

#include "support/every_prefix.h"
#include "zornctl/trace_samples.h"

using namespace zornctl;

namespace {

TEST(FindPassEnd, IsTheEndOfTheTextWithoutASignOfAnOlderLine) {
    for (const std::string& text : {std::string{}, Line(1, "a"), Line(1, "a") + Line(1, "b"),
                                    Line(1, "a\nfurther\n") + Line(2, "b") + "loose\n"}) {
        EXPECT_EQ(FindPassEnd(text), (PassEnd{text.size(), false})) << text;
    }
}

TEST(FindPassEnd, IsWhereTheTimeStepsBack) {
    const std::string newest = Line(7, "a") + Line(8, "b");
    EXPECT_EQ(FindPassEnd(newest + Line(5, "c") + Line(6, "d")), (PassEnd{newest.size(), false}));
}

TEST(FindPassEnd, IsTheLooseLineInFrontOfTheStep) {
    const std::string newest = Line(7, "a") + Line(8, "b");
    EXPECT_EQ(FindPassEnd(newest + "rest\n" + Line(5, "c")), (PassEnd{newest.size(), true}));
    EXPECT_EQ(FindPassEnd(newest + "further\nrest\n" + Line(5, "c")),
              (PassEnd{newest.size() + sizeof "further\n" - 1, true}));
}

TEST(FindPassEnd, IsTheRestOfAPrefixBeforeAllElse) {
    const std::string newest = Line(7, "a") + Line(8, "b");
    const std::string text = newest + Line(9, "rest").substr(12) + Line(9, "c") + Line(3, "d");
    EXPECT_EQ(FindPassEnd(text), (PassEnd{newest.size(), true}));
}

TEST(FindPassEnd, PrefersAStepWithALooseLineToALargerOne) {
    const std::string newest = Line(9000, "a") + Line(5000, "clock set back");
    EXPECT_EQ(FindPassEnd(newest + "rest\n" + Line(4999, "b") + Line(8999, "c")),
              (PassEnd{newest.size(), true}));
}

TEST(FindPassEnd, PrefersTheLargerOfTwoSteps) {
    const std::string newest = Line(500, "a") + Line(499, "clock set back");
    EXPECT_EQ(FindPassEnd(newest + Line(100, "b") + Line(450, "c")),
              (PassEnd{newest.size(), false}));
}

TEST(FindPassEnd, NeverLooksBehindTheText) {
    const std::string text = Line(7, "a") + Line(8, "b") + "rest\n" + Line(5, "c");
    EveryPrefix(text,
                [](std::string_view prefix) { EXPECT_LE(FindPassEnd(prefix).at, prefix.size()); });
}

}  // namespace

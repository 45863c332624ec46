#include "markup/markup_path.h"

#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "support/at_page_end.h"
#include "support/every_prefix.h"

using Type = MarkupPath::Type;

namespace {

/// Type and segments of a path: NAME, [INDEX], [@ATTRIBUTE], [@ATTRIBUTE=VALUE]; then /@ATTRIBUTE.
std::string Shown(const char* text) {
    const MarkupPath path{text};
    std::string shown = std::to_string(static_cast<int>(path.GetType()));
    if (path.GetType() == Type::kInvalid) return shown;
    for (int place = 0; place < path.Size(); ++place) {
        const PathSegment segment = path.Segment(place);
        shown.append(" ").append(segment.name);
        EXPECT_EQ(segment.IsAny(), segment.name == "*");
        if (segment.index != 0) shown += "[" + std::to_string(segment.index) + "]";
        if (segment.attribute.empty()) {
            EXPECT_FALSE(segment.hasValue);
            EXPECT_EQ(segment.value, "");
            continue;
        }
        shown.append("[@").append(segment.attribute);
        if (segment.hasValue) shown.append("=").append(segment.value);
        shown += "]";
    }
    if (!path.Attribute().empty()) shown.append(" /@").append(path.Attribute());
    return shown;
}

}  // namespace

TEST(MarkupPath, LeadsToAnyElementWhenItIsEmpty) {
    EXPECT_EQ(Shown(nullptr), "0");
    EXPECT_EQ(Shown(""), "0");
    EXPECT_EQ(MarkupPath{""}.Size(), 0);
}

TEST(MarkupPath, TellsItsTypeAndNames) {
    const std::pair<const char*, const char*> rows[] = {
        {"a", "1 a"},
        {"*", "1 *"},
        {"a/b", "1 a b"},
        {"a/*/c", "1 a * c"},
        {"/a", "2 a"},
        {"/a/b", "2 a b"},
        {"/*", "2 *"},
        {"/a/b/c/d", "2 a b c d"},
        {"//a", "3 a"},
        {"//*", "3 *"},
        {"x:a-b.1", "1 x:a-b.1"},
        {"a*", "1 a*"},
        {"a@b", "1 a@b"},
        {"\xC3\xA9", "1 \xC3\xA9"},
        {"a\tb", "1 a\tb"},
    };
    for (const auto& [text, shown] : rows) EXPECT_EQ(Shown(text), shown) << text;
}

TEST(MarkupPath, TellsTheConditionOfAName) {
    const std::pair<const char*, const char*> rows[] = {
        {"a[1]", "1 a[1]"},
        {"a[9]", "1 a[9]"},
        {"a[10]", "1 a[10]"},
        {"a[4294967295]", "1 a[4294967295]"},
        {"*[2]", "1 *[2]"},
        {"//a[2]", "3 a[2]"},
        {"/a[2]/b[3]", "2 a[2] b[3]"},
        {"a[@b]", "1 a[@b]"},
        {"//*[@b]", "3 *[@b]"},
        {"a[@b=c]", "1 a[@b=c]"},
        {"a[@b='c']", "1 a[@b=c]"},
        {"a[@b=\"c\"]", "1 a[@b=c]"},
        {"a[@b=]", "1 a[@b=]"},
        {"a[@b='']", "1 a[@b=]"},
        {"a[@b=\"\"]", "1 a[@b=]"},
        {"a[@b='c]d/e f=\"']", "1 a[@b=c]d/e f=\"]"},
        {"a[@b=\"c]d/e f='\"]", "1 a[@b=c]d/e f=']"},
        {"a[@b=c d/e='f\"[]", "1 a[@b=c d/e='f\"[]"},
        {"a[@b='&amp;']", "1 a[@b=&amp;]"},
        {"/a[@b='/x']/c[@d=e]/f", "2 a[@b=/x] c[@d=e] f"},
        {"a[@1]", "1 a[@1]"},
    };
    for (const auto& [text, shown] : rows) EXPECT_EQ(Shown(text), shown) << text;
}

TEST(MarkupPath, TakesAnIndexThatNoNumberHoldsForTheLargest) {
    EXPECT_EQ(Shown("a[4294967296]"), "1 a[4294967295]");
    EXPECT_EQ(Shown("a[99999999999999999999999999]"), "1 a[4294967295]");
}

TEST(MarkupPath, MayEndInAnAttribute) {
    const std::pair<const char*, const char*> rows[] = {
        {"a/@b", "1 a /@b"},        {"/a/b/@c", "2 a b /@c"}, {"//a/@b", "3 a /@b"},
        {"/a[2]/@b", "2 a[2] /@b"}, {"*/@x:y", "1 * /@x:y"},
    };
    for (const auto& [text, shown] : rows) EXPECT_EQ(Shown(text), shown) << text;
}

TEST(MarkupPath, NeverLooksBeyondTheText) {
    EveryPrefix("/a[2]/*[@b='c']/d[@e=\"f\"]/g[@h]/i[@j=k]/@l", [](std::string_view text) {
        const AtPageEnd path{std::string{text} + '\0'};
        const MarkupPath read{path.Text().data()};
        for (int place = 0; place < read.Size(); ++place) (void)read.Segment(place);
    });
}

TEST(MarkupPath, IsInvalidInAllOtherForms) {
    const char* const invalid[] = {
        // names
        "/",
        "//",
        "///",
        "///a",
        "a/",
        "/a/",
        "//a/",
        "a//b",
        "/a//b",
        " a",
        "a ",
        "a b",
        "a=b",
        "=",
        "]",
        "a]",
        "[1]",
        "/[1]",
        "//a/b",
        "//a/*",
        "//a[1]/b",
        "//a/b/@c",
        // numbers
        "a[]",
        "a[0]",
        "a[x]",
        "a[00]",
        "a[01]",
        "a[-1]",
        "a[+1]",
        "a[ 1]",
        "a[1 ]",
        "a[1x]",
        "a[1",
        "a[",
        "a[1]]",
        "a[1]x",
        "a[1][2]",
        "a[1][@b]",
        "a[1] ",
        "a[1.0]",
        "a['1']",
        // attributes
        "a[@]",
        "a[@",
        "a[@b",
        "a[@=c]",
        "a[@b c]",
        "a[@b/c]",
        "a[@b[c]]",
        "a[@b=c",
        "a[@b='c",
        "a[@b='c]",
        "a[@b=\"c]",
        "a[@b='c'",
        "a[@b='c' ]",
        "a[@b='c'd]",
        "a[@b=\"c\"d]",
        "a[@b=c]d",
        "a[@b][@c]",
        "a[b]",
        "a[b=c]",
        // attributes at the end
        "a/@",
        "a/@b/c",
        "a/@b/@c",
        "a/@b[1]",
        "a/@b=c",
        "a/@b ",
        "/a/@",
        "a/@/b",
    };
    for (const char* const text : invalid) EXPECT_EQ(Shown(text), "-1") << text;
}

#include "markup/tag_stack.h"

#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace {

/// Elements that are open, the first one outermost, and the stack of them.
class OpenTags {
  public:
    explicit OpenTags(const std::vector<std::string>& tags, bool ignoresCase = false)
        : m_Text(Joined(tags)), m_Stack(m_Text, ignoresCase, m_Positions, 0) {
        m_Positions.Grow(static_cast<int32_t>(tags.size()) + 1);
        m_Positions[0] = {};
        int32_t start = 0;
        for (const std::string& tag : tags) {
            m_Positions[m_Top + 1] = {};
            m_Positions[m_Top + 1].start = start;
            m_Positions[m_Top + 1].parent = m_Top;
            start += static_cast<int32_t>(tag.size());
            ++m_Top;
        }
    }

    [[nodiscard]] int32_t Find(std::string_view name) { return m_Stack.Find(m_Top, name); }
    [[nodiscard]] TagStack& Stack() { return m_Stack; }
    [[nodiscard]] int32_t Top() const { return m_Top; }
    void Pop() {
        if (m_Stack.IsCounting()) m_Stack.Count(m_Top, -1);
        --m_Top;
    }

  private:
    std::string m_Text;
    SegmentedPositions m_Positions;
    TagStack m_Stack;
    int32_t m_Top = 0;

    static std::string Joined(const std::vector<std::string>& tags) {
        std::string text;
        for (const std::string& tag : tags) text += tag;
        return text;
    }
};

/// A stack too deep to be looked through each time, with one tag at its bottom.
std::vector<std::string> Deep(const std::string& bottom, size_t count = 100) {
    std::vector<std::string> tags(count, "<deep>");
    tags.front() = bottom;
    return tags;
}

}  // namespace

TEST(TagStack, FindsNothingWhenNothingIsOpen) {
    OpenTags open{{}};
    EXPECT_EQ(open.Find("a"), 0);
    EXPECT_EQ(open.Find(""), 0);
    EXPECT_FALSE(open.Stack().IsCounting());
}

TEST(TagStack, FindsTheUppermostOfAName) {
    OpenTags open{{"<a>", "<b>", "<a c>", "<d/e>"}};
    EXPECT_EQ(open.Find("a"), 3);
    EXPECT_EQ(open.Find("b"), 2);
    EXPECT_EQ(open.Find("d"), 4);
    EXPECT_EQ(open.Find("c"), 0);
    EXPECT_EQ(open.Find("e"), 0);
    EXPECT_EQ(open.Find(""), 0);
    open.Pop();
    EXPECT_EQ(open.Find("d"), 0);
    open.Pop();
    EXPECT_EQ(open.Find("a"), 1);
}

TEST(TagStack, TakesANameThatGoesOnAsAPathEndsForTheSame) {
    const std::pair<const char*, bool> rows[] = {
        {"<a>", true},    {"<a b>", true},  {"<a/b>", true}, {"<a=b>", true},  {"<a[1]>", true},
        {"<a]b>", true},  {"<a\tb>", true}, {"<ab>", false}, {"<a:b>", false}, {"<a-b>", false},
        {"<a'b>", false}, {"<A>", false},   {"<b>", false},  {"<a?>", false},
    };
    for (const auto& [tag, isFound] : rows) {
        EXPECT_EQ(OpenTags{{tag}}.Find("a"), isFound ? 1 : 0) << tag;
        // The same where names are counted.
        EXPECT_EQ(OpenTags{Deep(tag)}.Find("a"), isFound ? 1 : 0) << tag;
    }
    EXPECT_EQ(OpenTags{{"<a>"}}.Find("a=b"), 0);
    EXPECT_EQ(OpenTags{{"<a=b>"}}.Find("a=b"), 1);
    EXPECT_EQ(OpenTags{Deep("<a=b[c]>")}.Find("a=b"), 1);
    EXPECT_EQ(OpenTags{Deep("<a=b[c]>")}.Find("a=b[c]"), 1);
    EXPECT_EQ(OpenTags{Deep("<a=b[c]>")}.Find("a=b["), 0);
}

TEST(TagStack, IgnoresCaseWhenTold) {
    for (const size_t depth : {1, 100}) {
        EXPECT_EQ(OpenTags(Deep("<aZ>", depth), true).Find("Az"), 1);
        EXPECT_EQ(OpenTags(Deep("<aZ>", depth), false).Find("Az"), 0);
        EXPECT_EQ(OpenTags(Deep("<\xC3\x84>", depth), true).Find("\xC3\xA4"), 0);
    }
}

TEST(TagStack, CountsNamesOnceItHadToLookDeep) {
    OpenTags open{Deep("<a>")};
    EXPECT_EQ(open.Find("deep"), 100);
    EXPECT_FALSE(open.Stack().IsCounting());
    EXPECT_EQ(open.Find("none"), 0);
    EXPECT_TRUE(open.Stack().IsCounting());
    EXPECT_EQ(open.Find("a"), 1);
    EXPECT_EQ(open.Find("deep"), 100);
    EXPECT_EQ(open.Find(""), 0);
    while (open.Top() > 1) open.Pop();
    EXPECT_EQ(open.Find("deep"), 0);
    EXPECT_EQ(open.Find("a"), 1);
    open.Pop();
    EXPECT_EQ(open.Find("a"), 0);
}

TEST(TagStack, TellsTheWholeName) {
    OpenTags open{{"<a>", "<bc d='e'>", "<f=g/>", "<h\n>"}};
    EXPECT_EQ(open.Stack().NameOf(1), "a");
    EXPECT_EQ(open.Stack().NameOf(2), "bc");
    EXPECT_EQ(open.Stack().NameOf(3), "f=g");
    EXPECT_EQ(open.Stack().NameOf(4), "h");
}

// Moving in a document, and what it tells of where one is.

#include "markup/markup_document.h"

#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace {

constexpr const char* kShop =
    "<shop><item id='1'>ink</item><item id='2' kind=\"a&amp;b\"><part/><part n='2'/></item>"
    "<note id='3'/><item id='4'><part n='1'/></item></shop>";

/// Parent, main and child position.
using Positions = std::tuple<int32_t, int32_t, int32_t>;

Positions PositionsOf(const MarkupDocument& document) {
    return {document.MainParent(), document.MainPosition(), document.ChildPosition()};
}

/// In `kShop`, by the order of the start tags.
constexpr int32_t kRoot = 1;
constexpr int32_t kItem1 = 2;
constexpr int32_t kItem2 = 3;
constexpr int32_t kPart1 = 4;
constexpr int32_t kPart2 = 5;
constexpr int32_t kNote = 6;
constexpr int32_t kItem4 = 7;
constexpr int32_t kPart3 = 8;

/// The element that each find of a child leads to, until there is none.
std::vector<int32_t> Children(MarkupDocument& document, const char* path) {
    std::vector<int32_t> found;
    while (found.size() < 100 && document.FindChild(path))
        found.push_back(document.ChildPosition());
    return found;
}

using Found = std::vector<int32_t>;

/// The nodes of some types from where one is, as TYPE NAME [TEXT].
std::string Nodes(MarkupDocument& document, int32_t mask) {
    std::string nodes;
    while (const int32_t type = document.FindNextNode(mask)) {
        EXPECT_EQ(document.GetNodeType(), type);
        nodes += (nodes.empty() ? "" : ", ") + std::to_string(type) + " " + document.GetNodeName();
        nodes.append(" [").append(document.GetMarkup()).append("]");
    }
    return nodes;
}

/// Expects that a find fails and moves nothing.
void ExpectNoFind(MarkupDocument& document, const char* path) {
    const Positions before = PositionsOf(document);
    const int32_t type = document.GetNodeType();
    const std::string markup{document.GetMarkup()};
    EXPECT_FALSE(document.FindSibling(path)) << path;
    EXPECT_EQ(PositionsOf(document), before) << path;
    if (document.MainPosition() != 0) {
        EXPECT_FALSE(document.FindChild(path)) << path;
        EXPECT_EQ(PositionsOf(document), before) << path;
    }
    EXPECT_EQ(document.GetNodeType(), type);
    EXPECT_EQ(document.GetMarkup(), markup);
}

}  // namespace

// --- The document --------------------------------------------------------------------------------

TEST(MarkupDocument, IsEmptyAtFirst) {
    MarkupDocument document;
    EXPECT_EQ(document.GetDocumentText(), "");
    EXPECT_EQ(document.Result(), "");
    EXPECT_TRUE(document.IsWellFormed());
    EXPECT_EQ(document.GetElementCount(), 0);
    EXPECT_EQ(document.GetFileSize(), 0);
    EXPECT_EQ(document.GetFilePosition(), 0);
    EXPECT_EQ(PositionsOf(document), Positions(0, 0, 0));
    EXPECT_EQ(document.GetNodeType(), 0);
    EXPECT_EQ(document.GetNodeName(), "");
    EXPECT_EQ(document.GetData(), "");
    EXPECT_EQ(document.GetMarkup(), "");
    EXPECT_EQ(document.GetElementDepth(), 0);
    EXPECT_EQ(document.GetElementFlags(), 0U);
    EXPECT_FALSE(document.FindSibling());
    EXPECT_FALSE(document.FindChild());
    EXPECT_EQ(document.FindNextNode(255), 0);
    EXPECT_FALSE(document.EnterChild());
    EXPECT_FALSE(document.LeaveToParent());
    EXPECT_FALSE(document.SavePosition("a"));
    EXPECT_FALSE(document.RestorePosition("a"));
}

TEST(MarkupDocument, FindsNothingInADocumentWithoutElements) {
    for (const char* const text : {"", " ", "x", "<!-- a -->", "</a>"}) {
        MarkupDocument document;
        document.SetDocumentText(text);
        EXPECT_FALSE(document.FindSibling()) << text;
        EXPECT_FALSE(document.FindSibling("a")) << text;
        EXPECT_FALSE(document.FindSibling("/a")) << text;
        EXPECT_FALSE(document.FindSibling("//a")) << text;
        EXPECT_FALSE(document.FindChild()) << text;
        EXPECT_EQ(PositionsOf(document), Positions(0, 0, 0)) << text;
    }
}

TEST(MarkupDocument, IsEmptiedByNull) {
    MarkupDocument document{"<a></b>"};
    document.FindSibling();
    document.SavePosition("a");
    EXPECT_TRUE(document.SetDocumentText(nullptr));
    EXPECT_EQ(document.GetDocumentText(), "");
    EXPECT_EQ(document.Result(), "");
    EXPECT_EQ(document.GetElementCount(), 0);
    EXPECT_TRUE(document.IsWellFormed());
    EXPECT_FALSE(document.FindSibling());
    EXPECT_FALSE(document.RestorePosition("a"));
    EXPECT_TRUE(document.SetDocumentText("<c/>"));
    EXPECT_TRUE(document.FindSibling("c"));
}

TEST(MarkupDocument, ForgetsAllPositionsWhenItIsParsed) {
    MarkupDocument document{"<a><b/>x</a>"};
    for (const bool isSet : {false, true}) {
        ASSERT_TRUE(document.FindChild("b"));
        ASSERT_TRUE(document.SavePosition("saved"));
        ASSERT_TRUE(document.EnterChild());
        ASSERT_EQ(document.FindNextNode(kNodeText), kNodeText);
        if (isSet) {
            document.SetDocumentText("<a><b/>x</a>");
        } else {
            document.ParseDocument();
        }
        EXPECT_EQ(PositionsOf(document), Positions(0, 0, 0));
        EXPECT_EQ(document.GetNodeType(), 0);
        EXPECT_EQ(document.GetMarkup(), "");
        EXPECT_FALSE(document.RestorePosition("saved"));
        EXPECT_EQ(document.GetElementCount(), 2);
    }
}

TEST(MarkupDocument, KeepsTheOptionsAndNoOtherFlags) {
    MarkupDocument document;
    EXPECT_EQ(document.GetDocumentFlags(), 0U);
    document.SetDocumentFlags(0xFFFFFFFF);
    EXPECT_EQ(document.GetDocumentFlags(), 0x0308U);
    document.SetDocumentText("<a/>");
    EXPECT_EQ(document.GetDocumentFlags(), 0x0308U);
    document.SetDocumentFlags(kMarkupTrim);
    EXPECT_EQ(document.GetDocumentFlags(), 0x0100U);
    document.SetDocumentFlags(0);
    EXPECT_EQ(document.GetDocumentFlags(), 0U);
}

TEST(MarkupDocument, HasTheseBitsForItsFlags) {
    EXPECT_EQ(kMarkupChanged, 0x0002U);
    EXPECT_EQ(kMarkupIgnoreCase, 0x0008U);
    EXPECT_EQ(kMarkupReadMode, 0x0010U);
    EXPECT_EQ(kMarkupWriteMode, 0x0020U);
    EXPECT_EQ(kMarkupTrim, 0x0100U);
    EXPECT_EQ(kMarkupCollapse, 0x0200U);
    EXPECT_EQ(kCursorQuoted, 0x8000U);
    EXPECT_EQ(kTokenEmpty, 0x10000U);
}

TEST(MarkupDocument, MovesWithItsPositions) {
    MarkupDocument document;
    document.SetDocumentFlags(kMarkupTrim);
    document.SetDocumentText(std::string{kShop} + "<x/>");
    ASSERT_TRUE(document.FindChild("note"));
    document.SavePosition("note");
    const std::string result = document.Result();
    EXPECT_NE(result, "");
    MarkupDocument other{std::move(document)};
    EXPECT_EQ(other.Result(), result);
    EXPECT_EQ(other.GetDocumentText(), std::string{kShop} + "<x/>");
    EXPECT_EQ(other.GetDocumentFlags(), kMarkupTrim);
    EXPECT_EQ(PositionsOf(other), Positions(0, kRoot, kNote));
    other.ResetPosition();
    EXPECT_TRUE(other.RestorePosition("note"));
    std::vector<MarkupDocument> all;
    all.push_back(std::move(other));
    all.emplace_back("<a/>");
    EXPECT_EQ(all[0].GetChildAttribute("id"), "3");
    all[1].SetDocumentText("<a>text</a>");
    all[1].SetPositions(1, 0, 0);
    ASSERT_EQ(all[1].FindNextNode(kNodeText), kNodeText);
    all[0] = std::move(all[1]);
    EXPECT_EQ(all[0].GetMarkup(), "text");
    all[0].SetDocumentText("<a/>");
    EXPECT_EQ(all[0].GetDocumentText(), "<a/>");
    EXPECT_TRUE(all[0].FindSibling("a"));
    EXPECT_FALSE(all[0].RestorePosition("note"));
}

TEST(MarkupDocument, IsEmptyWhenItWasMoved) {
    MarkupDocument document{kShop};
    document.SetDocumentFlags(kMarkupTrim);
    ASSERT_TRUE(document.FindChild("note"));
    const MarkupDocument other{std::move(document)};
    // NOLINTBEGIN(bugprone-use-after-move): what is left is told.
    EXPECT_EQ(document.GetDocumentText(), "");
    EXPECT_EQ(document.GetElementCount(), 0);
    EXPECT_EQ(document.GetDocumentFlags(), 0U);
    EXPECT_EQ(PositionsOf(document), Positions(0, 0, 0));
    EXPECT_FALSE(document.EnterChild());
    EXPECT_TRUE(document.SetDocumentText("<a/>"));
    // NOLINTEND(bugprone-use-after-move)
}

// --- Siblings and children -----------------------------------------------------------------------

TEST(FindSibling, GoesFromElementToElement) {
    MarkupDocument document{kShop};
    ASSERT_TRUE(document.FindSibling());
    EXPECT_EQ(PositionsOf(document), Positions(0, kRoot, 0));
    EXPECT_EQ(document.GetNodeType(), kNodeElement);
    EXPECT_FALSE(document.FindSibling());
    EXPECT_EQ(PositionsOf(document), Positions(0, kRoot, 0));
    ASSERT_TRUE(document.FindChild());
    ASSERT_TRUE(document.EnterChild());
    for (const int32_t item : {kItem2, kNote, kItem4}) {
        ASSERT_TRUE(document.FindSibling());
        EXPECT_EQ(PositionsOf(document), Positions(kRoot, item, 0));
    }
    EXPECT_FALSE(document.FindSibling());
}

TEST(FindSibling, LeavesNoChildPositionAndNoNode) {
    MarkupDocument document{"<r><a><c/></a>x<b/></r>"};
    ASSERT_TRUE(document.FindChild("a/c"));
    ASSERT_EQ(PositionsOf(document), Positions(1, 2, 3));
    ASSERT_EQ(document.FindNextNode(kNodeText), kNodeText);
    ASSERT_TRUE(document.FindSibling("b"));
    EXPECT_EQ(PositionsOf(document), Positions(1, 4, 0));
    EXPECT_EQ(document.GetNodeType(), kNodeElement);
    EXPECT_EQ(document.GetMarkup(), "<b/>");
}

TEST(FindChild, GoesFromChildToChild) {
    MarkupDocument document{kShop};
    for (const int32_t child : {kItem1, kItem2, kNote, kItem4}) {
        ASSERT_TRUE(document.FindChild());
        EXPECT_EQ(PositionsOf(document), Positions(0, kRoot, child));
        EXPECT_EQ(document.GetNodeType(), kNodeElement);
    }
    EXPECT_FALSE(document.FindChild());
    EXPECT_EQ(PositionsOf(document), Positions(0, kRoot, kItem4));
    document.ResetChildPosition();
    ASSERT_TRUE(document.FindChild());
    EXPECT_EQ(document.ChildPosition(), kItem1);
}

TEST(FindChild, FindsTheFirstElementBeforeWhenThereIsNoMainPosition) {
    MarkupDocument document{kShop};
    EXPECT_FALSE(document.FindChild("none"));
    EXPECT_EQ(PositionsOf(document), Positions(0, kRoot, 0));
    document.ResetPosition();
    EXPECT_TRUE(document.FindChild("note"));
    EXPECT_EQ(PositionsOf(document), Positions(0, kRoot, kNote));
}

TEST(EnterChild, AndItsOppositeChangeTheLevel) {
    MarkupDocument document{kShop};
    EXPECT_FALSE(document.EnterChild());
    EXPECT_FALSE(document.LeaveToParent());
    ASSERT_TRUE(document.FindChild("item[2]/part"));
    EXPECT_EQ(PositionsOf(document), Positions(kRoot, kItem2, kPart1));
    ASSERT_TRUE(document.EnterChild());
    EXPECT_EQ(PositionsOf(document), Positions(kItem2, kPart1, 0));
    EXPECT_FALSE(document.EnterChild());
    ASSERT_TRUE(document.LeaveToParent());
    EXPECT_EQ(PositionsOf(document), Positions(kRoot, kItem2, kPart1));
    ASSERT_TRUE(document.LeaveToParent());
    EXPECT_EQ(PositionsOf(document), Positions(0, kRoot, kItem2));
    EXPECT_FALSE(document.LeaveToParent());
    EXPECT_EQ(PositionsOf(document), Positions(0, kRoot, kItem2));
}

// --- Paths ---------------------------------------------------------------------------------------

TEST(FindChild, FollowsEachFormOfAPath) {
    const std::pair<const char*, Found> rows[] = {
        {"item", {kItem1, kItem2, kItem4}},
        {"*", {kItem1, kItem2, kNote, kItem4}},
        {"note", {kNote}},
        {"part", {}},
        {"item[1]", {kItem1, kItem2, kItem4}},
        {"item[2]", {kItem2}},
        {"item[3]", {kItem4}},
        {"item[4]", {}},
        {"*[3]", {kNote}},
        {"item[@id]", {kItem1, kItem2, kItem4}},
        {"*[@kind]", {kItem2}},
        {"*[@none]", {}},
        {"*[@id=3]", {kNote}},
        {"*[@id='3']", {kNote}},
        {"*[@id=\"3\"]", {kNote}},
        {"item[@id='3']", {}},
        {"*[@id='03']", {}},
        {"*[@kind='a&amp;b']", {kItem2}},
        {"*[@kind='a&b']", {kItem2}},
        {"*[@kind='a&#x26;b']", {kItem2}},
        {"*/@kind", {kItem2}},
        {"item/@id", {kItem1, kItem2, kItem4}},
        {"item/@none", {}},
        {"*[3]/@id", {kNote}},
        {"*[3]/@kind", {}},
    };
    for (const auto& [path, found] : rows) {
        MarkupDocument document{kShop};
        EXPECT_EQ(Children(document, path), found) << path;
    }
}

TEST(FindChild, FollowsAPathOfSeveralNamesByGoingBackWhereItFails) {
    const std::pair<const char*, int32_t> rows[] = {
        {"item/part", kPart1},
        {"item/part[2]", kPart2},
        {"item[2]/part[2]", kPart2},
        {"item[3]/part", kPart3},
        {"*/part[@n]", kPart2},
        {"*/part[@n='1']", kPart3},
        {"item/part/@n", kPart2},
        {"item/*[@n='2']", kPart2},
        {"item[1]/part", 0},
        {"note/part", 0},
        {"item/note", 0},
        {"item/part/part", 0},
        {"item[3]/part[2]", 0},
        {"item[2]/part[@n='1']", 0},
    };
    for (const auto& [path, found] : rows) {
        MarkupDocument document{kShop};
        ASSERT_TRUE(document.FindSibling());
        EXPECT_EQ(document.FindChild(path), found != 0) << path;
        EXPECT_EQ(document.ChildPosition(), found) << path;
        EXPECT_EQ(document.MainPosition(), found != 0 ? document.GetParentOf(found) : kRoot)
            << path;
    }
}

TEST(FindSibling, FollowsAbsolutePathsFromAnywhere) {
    const std::pair<const char*, int32_t> rows[] = {
        {"/shop", kRoot},
        {"/*", kRoot},
        {"/shop[1]", kRoot},
        {"/shop/note", kNote},
        {"/shop/item", kItem1},
        {"/shop/item[3]", kItem4},
        {"/shop/item/part", kPart1},
        {"/*/*/*[@n='1']", kPart3},
        {"/shop/item[@id='2']/part[2]", kPart2},
        {"/shop/item/@kind", kItem2},
    };
    for (const auto& [path, found] : rows) {
        MarkupDocument document{kShop};
        for (const char* const from : {"", "/shop", "/shop/item[3]/part"}) {
            if (*from != '\0') {
                ASSERT_TRUE(document.FindSibling(from));
            }
            ASSERT_TRUE(document.FindSibling(path)) << path << " from " << from;
            EXPECT_EQ(PositionsOf(document), Positions(document.GetParentOf(found), found, 0))
                << path;
            document.ResetPosition();
            if (*from != '\0') {
                ASSERT_TRUE(document.FindSibling(from));
            }
            ASSERT_TRUE(document.FindChild(path)) << path << " from " << from;
            EXPECT_EQ(document.ChildPosition(), found) << path;
            EXPECT_EQ(document.MainPosition(), document.GetParentOf(found)) << path;
            document.ResetPosition();
        }
    }
}

TEST(FindSibling, FindsAnElementAnywhereBehindThePosition) {
    MarkupDocument document{kShop};
    for (const int32_t part : {kPart1, kPart2, kPart3}) {
        ASSERT_TRUE(document.FindSibling("//part"));
        EXPECT_EQ(PositionsOf(document), Positions(document.GetParentOf(part), part, 0));
    }
    EXPECT_FALSE(document.FindSibling("//part"));
    EXPECT_EQ(document.MainPosition(), kPart3);
    document.ResetPosition();
    for (int32_t any = kRoot; any <= kPart3; ++any) {
        ASSERT_TRUE(document.FindSibling("//*"));
        EXPECT_EQ(document.MainPosition(), any);
    }
    EXPECT_FALSE(document.FindSibling("//*"));
}

TEST(FindSibling, TakesOneConditionOfAnElementAnywhere) {
    const std::pair<const char*, int32_t> rows[] = {
        {"//part[2]", kPart2},      {"//part[3]", kPart3},  {"//part[4]", 0},
        {"//part[@n='1']", kPart3}, {"//*[@kind]", kItem2}, {"//part/@n", kPart2},
        {"//*[4]", kPart1},         {"//part[1]/@n", 0},
    };
    for (const auto& [path, found] : rows) {
        MarkupDocument document{kShop};
        EXPECT_EQ(document.FindSibling(path), found != 0) << path;
        EXPECT_EQ(document.MainPosition(), found) << path;
    }
}

TEST(FindChild, FindsAnElementAnywhereBehindTheChild) {
    MarkupDocument document{kShop};
    ASSERT_TRUE(document.FindChild("//part"));
    EXPECT_EQ(PositionsOf(document), Positions(kRoot, kItem2, kPart1));
    ASSERT_TRUE(document.FindChild("//part"));
    EXPECT_EQ(PositionsOf(document), Positions(kRoot, kItem2, kPart2));
    ASSERT_TRUE(document.FindChild("//part"));
    EXPECT_EQ(PositionsOf(document), Positions(kRoot, kItem4, kPart3));
    EXPECT_FALSE(document.FindChild("//part"));
    EXPECT_EQ(PositionsOf(document), Positions(kRoot, kItem4, kPart3));
}

TEST(FindChild, GoesOnAnywhereBehindAChildAtTheTop) {
    MarkupDocument document{"<a/><b/><c><b/></c><b/>"};
    EXPECT_EQ(Children(document, "//b"), Found({2, 4, 5}));
    EXPECT_EQ(PositionsOf(document), Positions(0, 0, 5));
}

TEST(FindChild, FindsFromElsewhereWhereNoElementIs) {
    MarkupDocument document{"<r><a>text</a><x/></r>"};
    for (const char* const path : {"/r/x", "//x"}) {
        document.SetPositions(2, 0, 0);
        ASSERT_TRUE(document.FindChild(path)) << path;
        EXPECT_EQ(PositionsOf(document), Positions(0, 1, 3)) << path;
    }
    for (const char* const path : {"", "x", "*"}) {
        document.SetPositions(2, 0, 0);
        EXPECT_FALSE(document.FindChild(path)) << path;
    }
}

TEST(Find, ComparesNamesNoFurtherThanTheyGo) {
    for (const char* const text : {"<a>b </a>", "<a>x</a>y <b/>", "<a\tb ></a>", "<a\nb></a>"}) {
        for (const char* const path : {"a>b", "a>x<", "a\tb", "a\nb", "//a>b", "/a\tb", "a\rb"}) {
            MarkupDocument document{text};
            EXPECT_FALSE(document.FindSibling(path)) << text << " " << path;
        }
    }
}

TEST(FindChild, BeginsInTheFirstElementBehindAnAbsolutePathToTheTop) {
    MarkupDocument document{"<a><x/></a><b><y/></b>"};
    ASSERT_TRUE(document.FindChild("/b"));
    EXPECT_EQ(PositionsOf(document), Positions(0, 0, 3));
    ASSERT_TRUE(document.FindChild());
    EXPECT_EQ(PositionsOf(document), Positions(0, 1, 2));
}

TEST(Find, LeavesANodeThatIsNoElement) {
    MarkupDocument document{"<a>x<b/></a>"};
    document.SetPositions(0, 1, 0);
    document.SavePosition("a");
    const auto goToText = [&document] {
        document.SetPositions(1, 0, 0);
        ASSERT_EQ(document.FindNextNode(kNodeText), kNodeText);
    };
    const auto expectElement = [&document](std::string_view markup) {
        EXPECT_EQ(document.GetNodeType(), kNodeElement);
        EXPECT_EQ(document.GetMarkup(), markup);
    };
    goToText();
    ASSERT_TRUE(document.FindSibling("b"));
    expectElement("<b/>");
    goToText();
    ASSERT_TRUE(document.FindChild("/a/b"));
    expectElement("<a>x<b/></a>");
    goToText();
    ASSERT_TRUE(document.RestorePosition("a"));
    expectElement("<a>x<b/></a>");
}

TEST(Find, FailsWithoutAnyMovement) {
    MarkupDocument document{kShop};
    const char* const paths[] = {"none",    "/none",   "/shop/none", "//none", "/",    "a b",
                                 "item[0]", "item[x]", "//a/b",      "*[@id",  "item/"};
    for (const char* const path : paths) ExpectNoFind(document, path);
    ASSERT_TRUE(document.FindChild("item[2]/part"));
    for (const char* const path : paths) ExpectNoFind(document, path);
    ASSERT_TRUE(document.FindSibling("/shop/item"));
    ASSERT_NE(document.FindNextNode(kNodeElement), 0);
    for (const char* const path : paths) ExpectNoFind(document, path);
}

TEST(FindChild, DoesNotEvenGoToTheFirstElementByAnInvalidPath) {
    MarkupDocument document{kShop};
    for (const char* const path : {"/", "item[0]", "item[x]", "//a/b"}) {
        EXPECT_FALSE(document.FindChild(path)) << path;
        EXPECT_EQ(PositionsOf(document), Positions(0, 0, 0)) << path;
    }
}

TEST(Find, ComparesWholeNames) {
    MarkupDocument document{"<r><ab/><a b='1'/><a:b/><a-b/><A/></r>"};
    const std::pair<const char*, int32_t> rows[] = {
        {"a", 3}, {"ab", 2}, {"a:b", 4}, {"a-b", 5}, {"A", 6}, {"abc", 0}, {"b", 0}, {"a-", 0},
    };
    for (const auto& [path, found] : rows) {
        document.ResetPosition();
        EXPECT_EQ(document.FindChild(path), found != 0) << path;
        EXPECT_EQ(document.ChildPosition(), found) << path;
    }
}

TEST(Find, IgnoresCaseOfLettersWhenTold) {
    MarkupDocument document;
    document.SetDocumentFlags(kMarkupIgnoreCase);
    document.SetDocumentText("<R><Item ID='x'/><\xC3\x84/></r>");
    EXPECT_TRUE(document.IsWellFormed());
    EXPECT_TRUE(document.FindSibling("/r/iTEM"));
    EXPECT_EQ(document.GetAttribute("id"), "x");
    EXPECT_TRUE(document.FindSibling("/r/item[@Id='x']"));
    EXPECT_FALSE(document.FindSibling("/r/item[@Id='X']"));
    EXPECT_TRUE(document.FindSibling("/r/\xC3\x84"));
    EXPECT_FALSE(document.FindSibling("/r/\xC3\xA4"));
    document.SetDocumentFlags(0);
    EXPECT_FALSE(document.FindSibling("/r"));
    EXPECT_TRUE(document.FindSibling("/R/Item"));
    EXPECT_EQ(document.GetAttribute("id"), "");
}

TEST(Find, ComparesValuesByTheOptionsOfTheDocument) {
    MarkupDocument document{"<r><a b=' x  y '/></r>"};
    EXPECT_TRUE(document.FindSibling("/r/a[@b=' x  y ']"));
    EXPECT_FALSE(document.FindSibling("/r/a[@b='x  y']"));
    document.SetDocumentFlags(kMarkupTrim);
    EXPECT_TRUE(document.FindSibling("/r/a[@b='x  y']"));
    EXPECT_FALSE(document.FindSibling("/r/a[@b=' x  y ']"));
    document.SetDocumentFlags(kMarkupCollapse);
    EXPECT_TRUE(document.FindSibling("/r/a[@b='x y']"));
}

TEST(Find, DistinguishesAnEmptyValueFromNoAttribute) {
    MarkupDocument document{"<r><a/><a b=''/><a b/></r>"};
    EXPECT_EQ(Children(document, "a[@b='']"), (Found{3, 4}));
    document.ResetPosition();
    EXPECT_EQ(Children(document, "a[@b]"), (Found{3, 4}));
}

TEST(Find, TakesElementsAtTheTopForSiblings) {
    MarkupDocument document{"<a/><b/><a/>"};
    ASSERT_TRUE(document.FindSibling("b"));
    ASSERT_TRUE(document.FindSibling("a"));
    EXPECT_EQ(document.MainPosition(), 3);
    EXPECT_TRUE(document.FindSibling("/a"));
    EXPECT_EQ(document.MainPosition(), 1);
    EXPECT_TRUE(document.FindSibling("/a[2]"));
    EXPECT_EQ(document.MainPosition(), 3);
}

// --- Positions -----------------------------------------------------------------------------------

TEST(SetPositions, SetsThemAndTheTypeOfTheNode) {
    MarkupDocument document{kShop};
    document.SetPositions(kRoot, kItem2, kPart1);
    EXPECT_EQ(PositionsOf(document), Positions(kRoot, kItem2, kPart1));
    EXPECT_EQ(document.GetNodeType(), kNodeElement);
    EXPECT_TRUE(document.FindChild());
    EXPECT_EQ(document.ChildPosition(), kPart2);
    document.SetPositions(kItem2, 0, 0);
    EXPECT_EQ(PositionsOf(document), Positions(kItem2, 0, 0));
    EXPECT_EQ(document.GetNodeType(), 0);
    EXPECT_TRUE(document.FindSibling());
    EXPECT_EQ(document.MainPosition(), kPart1);
}

TEST(SetPositions, ForgetsTheCurrentNode) {
    MarkupDocument document{"x<a/>"};
    ASSERT_EQ(document.FindNextNode(kNodeText), kNodeText);
    EXPECT_EQ(document.GetMarkup(), "x");
    document.SetPositions(0, 1, 0);
    EXPECT_EQ(document.GetMarkup(), "<a/>");
    ASSERT_EQ(document.FindNextNode(kNodeText), 0);
    document.ResetPosition();
    EXPECT_EQ(document.GetMarkup(), "");
    EXPECT_EQ(document.FindNextNode(kNodeText), kNodeText);
}

TEST(SavePosition, KeepsEachKindOfPosition) {
    MarkupDocument document{kShop};
    EXPECT_FALSE(document.SavePosition("none"));
    document.SetPositions(kItem2, 0, 0);
    EXPECT_TRUE(document.SavePosition("parent"));
    document.SetPositions(kRoot, kItem2, 0);
    EXPECT_TRUE(document.SavePosition("main"));
    document.SetPositions(kRoot, kItem2, kPart1);
    EXPECT_TRUE(document.SavePosition("child"));
    document.ResetPosition();
    EXPECT_TRUE(document.RestorePosition("child"));
    EXPECT_EQ(PositionsOf(document), Positions(kRoot, kItem2, kPart1));
    EXPECT_TRUE(document.RestorePosition("main"));
    EXPECT_EQ(PositionsOf(document), Positions(kRoot, kItem2, 0));
    EXPECT_TRUE(document.RestorePosition("parent"));
    EXPECT_EQ(PositionsOf(document), Positions(kItem2, 0, 0));
    EXPECT_FALSE(document.RestorePosition("none"));
    EXPECT_EQ(PositionsOf(document), Positions(kItem2, 0, 0));
}

TEST(SavePosition, KeepsNamesOfEachMapApart) {
    MarkupDocument document{kShop};
    document.SetPositions(0, kRoot, 0);
    EXPECT_TRUE(document.SavePosition("a"));
    document.SetPositions(kRoot, kNote, 0);
    EXPECT_TRUE(document.SavePosition("a", 5));
    EXPECT_FALSE(document.SavePosition("a", -1));
    EXPECT_TRUE(document.RestorePosition("a"));
    EXPECT_EQ(document.MainPosition(), kRoot);
    EXPECT_TRUE(document.RestorePosition("a", 5));
    EXPECT_EQ(document.MainPosition(), kNote);
    EXPECT_FALSE(document.RestorePosition("a", 4));
    EXPECT_FALSE(document.RestorePosition("a", 6));
    EXPECT_FALSE(document.RestorePosition("a", -1));
    EXPECT_FALSE(document.RestorePosition("A", 5));
    EXPECT_EQ(document.MainPosition(), kNote);
}

TEST(SavePosition, ReplacesWhatANameStoodFor) {
    MarkupDocument document{kShop};
    for (const int32_t main : {kItem1, kItem4}) {
        document.SetPositions(kRoot, main, 0);
        EXPECT_TRUE(document.SavePosition("a"));
    }
    document.ResetPosition();
    EXPECT_TRUE(document.RestorePosition("a"));
    EXPECT_EQ(document.MainPosition(), kItem4);
}

// --- Nodes ---------------------------------------------------------------------------------------

TEST(FindNextNode, WalksTheNodesOfEachType) {
    constexpr const char* kNodes =
        "<r> <?p a?>t1<!-- c --><a>in</a></x><![CDATA[d]]>t2>t3<!D e><b/>\n</r>";
    const std::pair<int32_t, const char*> rows[] = {
        {255,
         "4 #text [ ], 16 p [<?p a?>], 2 #text [t1], 32 #comment [<!-- c -->], 1 a [<a>in</a>], "
         "128 x [</x>], 8 #cdata-section [<![CDATA[d]]>], 2 #text [t2>], 2 #text [t3], 64 D [<!D "
         "e>], "
         "1 b [<b/>], 4 #text [\n]"},
        {1, "1 a [<a>in</a>], 1 b [<b/>]"},
        {2, "2 #text [t1], 2 #text [t2>], 2 #text [t3]"},
        {4, "4 #text [ ], 4 #text [\n]"},
        {8, "8 #cdata-section [<![CDATA[d]]>]"},
        {16, "16 p [<?p a?>]"},
        {32, "32 #comment [<!-- c -->]"},
        {64, "64 D [<!D e>]"},
        {128, "128 x [</x>]"},
        {3, "2 #text [t1], 1 a [<a>in</a>], 2 #text [t2>], 2 #text [t3], 1 b [<b/>]"},
        {0, ""},
        {256, ""},
    };
    for (const auto& [mask, nodes] : rows) {
        MarkupDocument document{kNodes};
        document.SetPositions(1, 0, 0);
        EXPECT_EQ(Nodes(document, mask), nodes) << mask;
        EXPECT_EQ(document.MainParent(), 1) << mask;
    }
}

TEST(FindNextNode, BeginsInFrontOfTheFirstElement) {
    MarkupDocument document{"<?xml version='1.0'?><!DOCTYPE r><r>in</r><!-- end -->"};
    EXPECT_EQ(Nodes(document, 255),
              "16 xml [<?xml version='1.0'?>], 64 DOCTYPE [<!DOCTYPE r>], 1 r [<r>in</r>], "
              "32 #comment [<!-- end -->]");
    document.ResetPosition();
    EXPECT_EQ(document.FindNextNode(kNodeInstruction), kNodeInstruction);
    EXPECT_EQ(document.GetAttribute("version"), "1.0");
    EXPECT_EQ(PositionsOf(document), Positions(0, 0, 0));
}

TEST(FindNextNode, BeginsBehindTheMainElement) {
    MarkupDocument document{"<r>0<a>1</a>2<b/>3</r>"};
    ASSERT_TRUE(document.FindSibling("/r/a"));
    EXPECT_EQ(Nodes(document, kNodeText), "2 #text [2], 2 #text [3]");
    EXPECT_EQ(document.MainPosition(), 3);  // b was passed over
    ASSERT_TRUE(document.LeaveToParent());
    EXPECT_EQ(document.FindNextNode(255), 0);
}

TEST(FindNextNode, MovesNothingWhenThereIsNone) {
    MarkupDocument document{"<r><a/>x<b/></r>"};
    ASSERT_TRUE(document.FindChild("a"));
    ASSERT_TRUE(document.EnterChild());
    EXPECT_EQ(document.FindNextNode(kNodeComment), 0);
    EXPECT_EQ(PositionsOf(document), Positions(1, 2, 0));
    EXPECT_EQ(document.GetNodeType(), kNodeElement);
    EXPECT_EQ(document.FindNextNode(kNodeText), kNodeText);
    EXPECT_EQ(document.FindNextNode(kNodeComment), 0);
    EXPECT_EQ(document.GetNodeType(), kNodeText);
    EXPECT_EQ(document.GetMarkup(), "x");
    EXPECT_EQ(PositionsOf(document), Positions(1, 2, 0));
}

TEST(FindNextNode, PassesOverFaults) {
    MarkupDocument document{"<r>a<1>b<!x>c<a/><2</r>"};
    document.SetPositions(1, 0, 0);
    EXPECT_EQ(Nodes(document, 255), "2 #text [a], 2 #text [b], 2 #text [c], 1 a [<a/>]");
}

TEST(FindNextNode, StaysWithinTheParent) {
    MarkupDocument document{"<r><a>1</a>2<b>3</b></r>4"};
    document.SetPositions(2, 0, 0);
    EXPECT_EQ(Nodes(document, 255), "2 #text [1]");
    document.SetPositions(1, 2, 0);
    EXPECT_EQ(Nodes(document, 255), "2 #text [2], 1 b [<b>3</b>]");
    document.SetPositions(3, 0, 0);
    EXPECT_EQ(Nodes(document, 255), "2 #text [3]");
}

TEST(FindNextNode, FindsNothingInAnElementWithoutContent) {
    MarkupDocument document{"<r><a/>x<b>y</r>"};
    document.SetPositions(2, 0, 0);
    EXPECT_EQ(document.FindNextNode(255), 0);
    document.SetPositions(3, 0, 0);
    EXPECT_EQ(document.FindNextNode(255), 0);
    document.SetPositions(1, 0, 0);
    EXPECT_EQ(Nodes(document, 255), "1 a [<a/>], 2 #text [x], 1 b [<b>], 2 #text [y]");
}

TEST(FindNextNode, CanBeMixedWithFinds) {
    MarkupDocument document{"<r>1<a/>2<b/>3<a/>4</r>"};
    ASSERT_TRUE(document.FindSibling("/r/a"));
    ASSERT_EQ(document.FindNextNode(kNodeText), kNodeText);
    EXPECT_EQ(document.GetData(), "2");
    ASSERT_TRUE(document.FindSibling("a"));
    EXPECT_EQ(document.MainPosition(), 4);
    ASSERT_EQ(document.FindNextNode(kNodeText), kNodeText);
    EXPECT_EQ(document.GetData(), "4");
}

// --- What a node is ------------------------------------------------------------------------------

TEST(GetNodeName, IsTheFirstWordOfTheNode) {
    const std::pair<const char*, const char*> rows[] = {
        {"<a b='c'/>", "a"},
        {"<a/>", "a"},
        {"<a\n>", "a"},
        {"x", "#text"},
        {" ", "#text"},
        {"<!-- a -->", "#comment"},
        {"<![CDATA[a]]>", "#cdata-section"},
        {"<?a b?>", "a"},
        {"<?a?>", "a"},
        {"<!DOCTYPE a>", "DOCTYPE"},
        {"<!D>", "D"},
        {"<!D\"x\">", "D"},
        {"<!D!x>", "D"},
        {"<?a=b?>", "a"},
        {"<?a;b?>", "a"},
        {"<?a\\b?>", "a"},
        // An element's name is what its end tag has too.
        {"<a;b=c/>", "a;b=c"},
        {"</a >", "a"},
        {"</>", ""},
        {"<?>", ""},
        {"<?\?>", ""},
    };
    for (const auto& [text, name] : rows) {
        MarkupDocument document;
        document.SetDocumentText(text);
        ASSERT_NE(document.FindNextNode(255), 0) << text;
        EXPECT_EQ(document.GetNodeName(), name) << text;
    }
}

TEST(GetMarkup, IsTheTextOfTheNode) {
    MarkupDocument document{"<a><b>x</b></a>"};
    ASSERT_TRUE(document.FindChild());
    EXPECT_EQ(document.GetMarkup(), "<a><b>x</b></a>");
    EXPECT_EQ(document.GetMarkup().data(), document.GetDocumentText().data());
    ASSERT_TRUE(document.EnterChild());
    EXPECT_EQ(document.GetMarkup(), "<b>x</b>");
}

TEST(GetData, IsWhatStandsBetweenTheMarksOfANode) {
    const std::pair<const char*, const char*> rows[] = {
        {"a&lt;b", "a<b"},
        {" \n", " \n"},
        {"<![CDATA[a&lt;]]>", "a&lt;"},
        {"<![CDATA[]]>", ""},
        {"<![C]]>", ""},
        {"<!-- a&lt; -->", " a&lt; "},
        {"<!---->", ""},
        {"<!-->", ""},
        {"<?a b?>", "a b"},
        {"<?>", ""},
        {"<!DOCTYPE a>", "<!DOCTYPE a>"},
        {"</a>", "</a>"},
    };
    for (const auto& [text, data] : rows) {
        MarkupDocument document;
        document.SetDocumentText(text);
        ASSERT_NE(document.FindNextNode(255), 0) << text;
        EXPECT_EQ(document.GetData(), data) << text;
    }
}

TEST(GetData, JoinsTheTextOfAnElement) {
    const std::pair<const char*, const char*> rows[] = {
        {"<a/>", ""},
        {"<a></a>", ""},
        {"<a>x</a>", "x"},
        {"<a> &amp; </a>", " & "},
        {"<a>1<b>2</b>3</a>", "13"},
        {"<a>1<!-- 2 -->3<?4?>5</a>", "135"},
        {"<a>1&lt;<![CDATA[&lt;]]>2</a>", "1<&lt;2"},
        {"<a>x>y</a>", "x>y"},
        {"<a>", ""},
    };
    for (const auto& [text, data] : rows) {
        MarkupDocument document;
        document.SetDocumentText(text);
        ASSERT_TRUE(document.FindSibling()) << text;
        EXPECT_EQ(document.GetData(), data) << text;
    }
}

TEST(GetChildData, IsThatOfTheChild) {
    MarkupDocument document{"<r><a>1</a><b>2</b></r>"};
    EXPECT_EQ(document.GetChildData(), "");
    ASSERT_TRUE(document.FindChild("b"));
    EXPECT_EQ(document.GetChildData(), "2");
    EXPECT_EQ(document.GetData(), "");
}

TEST(GetAttribute, IsTheDecodedValue) {
    MarkupDocument document{"<r a='1' b=\"&lt;\" c=d e f=g/><x h=i/>"};
    ASSERT_TRUE(document.FindSibling());
    const std::pair<const char*, const char*> rows[] = {
        {"a", "1"}, {"b", "<"}, {"c", "d"}, {"e", ""}, {"f", "g/"}, {"g", ""}, {"r", ""}, {"", ""}};
    for (const auto& [name, value] : rows) EXPECT_EQ(document.GetAttribute(name), value) << name;
    EXPECT_TRUE(document.HasAttribute(1, "e"));
    EXPECT_FALSE(document.HasAttribute(1, "g"));
    EXPECT_FALSE(document.HasAttribute(0, "a"));
    EXPECT_EQ(document.GetAttribute(2, "h"), "i/");
    EXPECT_EQ(document.GetAttribute(0, "h"), "");
    EXPECT_EQ(document.GetChildAttribute("a"), "");
}

TEST(GetAttribute, FollowsTheOptionsOfTheDocument) {
    MarkupDocument document{"<?i a=' x\t y '?><r a=' x\t y '><s a=' x\t y '/></r>"};
    const std::pair<uint32_t, const char*> rows[] = {
        {0, " x\t y "}, {kMarkupTrim, "x\t y"}, {kMarkupCollapse, "x y"}};
    for (const auto& [options, value] : rows) {
        document.SetDocumentFlags(options);
        document.ResetPosition();
        ASSERT_EQ(document.FindNextNode(255), kNodeInstruction);
        EXPECT_EQ(document.GetAttribute("a"), value);
        ASSERT_TRUE(document.FindChild("s"));
        EXPECT_EQ(document.GetAttribute("a"), value);
        EXPECT_EQ(document.GetChildAttribute("a"), value);
        std::string name, found;
        ASSERT_TRUE(document.GetAttributeAt(2, 0, name, found));
        EXPECT_EQ(found, value);
    }
}

TEST(HasAttribute, IsOfTheCurrentElementOrInstruction) {
    MarkupDocument document{"<?i a='1'?><r b='2'>x</r>"};
    EXPECT_FALSE(document.HasAttribute("a"));
    ASSERT_EQ(document.FindNextNode(255), kNodeInstruction);
    EXPECT_TRUE(document.HasAttribute("a"));
    EXPECT_FALSE(document.HasAttribute("b"));
    ASSERT_EQ(document.FindNextNode(kNodeElement), kNodeElement);
    EXPECT_TRUE(document.HasAttribute("b"));
    EXPECT_FALSE(document.HasAttribute("a"));
}

TEST(GetAttribute, OfTheChildIsThatOfTheChild) {
    MarkupDocument document{"<r a='1'><b a='2'/></r>"};
    ASSERT_TRUE(document.FindChild());
    EXPECT_EQ(document.GetAttribute("a"), "1");
    EXPECT_EQ(document.GetChildAttribute("a"), "2");
}

TEST(GetAttributeAt, GivesOneAfterTheOther) {
    MarkupDocument document{"<r a='1' b=\"&lt;\" c/>"};
    std::string name = "unchanged";
    std::string value;
    EXPECT_FALSE(document.GetAttributeAt(0, 0, name, value));
    EXPECT_FALSE(document.GetAttributeAt(1, -1, name, value));
    EXPECT_FALSE(document.GetAttributeAt(1, 3, name, value));
    EXPECT_EQ(name, "unchanged");
    ASSERT_TRUE(document.GetAttributeAt(1, 0, name, value));
    EXPECT_EQ(name + value, "a1");
    ASSERT_TRUE(document.GetAttributeAt(1, 1, name, value));
    EXPECT_EQ(name + value, "b<");
    ASSERT_TRUE(document.GetAttributeAt(1, 2, name, value));
    EXPECT_EQ(name + value, "c");
}

TEST(GetElementDepth, IsThatOfTheMainPosition) {
    MarkupDocument document{"<a><b><c/></b></a>"};
    EXPECT_EQ(document.GetElementDepth(), 0);
    for (int depth = 1; depth <= 3; ++depth) {
        ASSERT_TRUE(document.FindSibling("//*"));
        EXPECT_EQ(document.GetElementDepth(), depth);
    }
}

TEST(GetElementFlags, AreThoseThatACallerMayKnow) {
    MarkupDocument document{"<a><b></x></b><c></a>"};
    EXPECT_EQ(document.GetElementFlags(), 0U);
    ASSERT_TRUE(document.FindSibling("/a/b"));
    EXPECT_EQ(document.GetElementFlags(), 0x00200000U);
    ASSERT_TRUE(document.FindSibling("c"));
    EXPECT_EQ(document.GetElementFlags(), 0x00100000U);
    ASSERT_TRUE(document.LeaveToParent());
    EXPECT_EQ(document.GetElementFlags(), 0U);
}

TEST(SetElementFlags, SetsTheFourBitsOfTheCallerAndNoOthers) {
    MarkupDocument document{"<a><b>x</a>"};
    document.SetElementFlags(0xFFFFFFFF);  // no element: nothing happens
    EXPECT_EQ(document.PositionOf(0).levelFlags & 0x0F000000, 0U);
    ASSERT_TRUE(document.FindSibling("/a/b"));
    const uint32_t before = document.PositionOf(2).levelFlags;
    document.SetElementFlags(0xFFFFFFFF);
    EXPECT_EQ(document.PositionOf(2).levelFlags, before | 0x0F000000);
    EXPECT_EQ(document.GetElementFlags(), 0x0F100000U);
    document.SetElementFlags(0x05000001);
    EXPECT_EQ(document.PositionOf(2).levelFlags, before | 0x05000000);
    document.SetElementFlags(0);
    EXPECT_EQ(document.PositionOf(2).levelFlags, before);
}

TEST(HasChildren, CountsElementsOnly) {
    MarkupDocument document{"<a><b>x</b><c/></a>"};
    EXPECT_FALSE(document.HasChildren());
    ASSERT_TRUE(document.FindSibling());
    EXPECT_TRUE(document.HasChildren());
    ASSERT_TRUE(document.FindSibling("//b"));
    EXPECT_FALSE(document.HasChildren());
}

TEST(GetNameOf, IsThatOfAnyElement) {
    const MarkupDocument document{"<a><b c='d'/></a>"};
    EXPECT_EQ(document.GetNameOf(0), "");
    EXPECT_EQ(document.GetNameOf(1), "a");
    EXPECT_EQ(document.GetNameOf(2), "b");
    EXPECT_EQ(document.GetParentOf(2), 1);
    EXPECT_EQ(document.GetParentOf(1), 0);
    EXPECT_EQ(document.GetParentOf(0), 0);
    EXPECT_EQ(MarkupDocument{}.GetParentOf(0), 0);
    EXPECT_EQ(MarkupDocument{}.GetAttribute("a"), "");
    EXPECT_EQ(MarkupDocument{}.GetChildAttribute("a"), "");
    EXPECT_FALSE(MarkupDocument{}.HasAttribute("a"));
}

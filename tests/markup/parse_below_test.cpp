// Parses below an element of a document, and free records.

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "markup/free_records.h"
#include "markup/markup_document.h"
#include "markup/parse.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

ElementPosition& RecordOf(MarkupDocument& document, int32_t position) {
    return const_cast<ElementPosition&>(document.PositionOf(position));
}

/// The children of an element, if the links agree with each other.
std::vector<int32_t> ChildrenOf(const MarkupDocument& document, int32_t parent) {
    std::vector<int32_t> children;
    const int32_t first = document.PositionOf(parent).firstChild;
    for (int32_t at = first; at != 0; at = document.PositionOf(at).nextSibling) {
        const ElementPosition& child = document.PositionOf(at);
        EXPECT_EQ(child.parent, parent);
        EXPECT_EQ((child.levelFlags & kElementFirstSibling) != 0, at == first);
        if (at != first) {
            EXPECT_EQ(child.previousSibling, children.back());
        }
        children.push_back(at);
    }
    if (first != 0) {
        EXPECT_EQ(document.PositionOf(first).previousSibling, children.back());
    }
    return children;
}

/// Parses what stands from `begin` to `end` in the document as what is in `parent` too.
int32_t ParseBelow(MarkupDocument& document, int32_t parent, size_t begin, size_t end,
                   TagScan scan) {
    TokenCursor cursor;
    cursor.text = std::string_view{document.GetDocumentText()}.substr(0, end);
    cursor.next = static_cast<int32_t>(begin);
    return MarkupParse{document, parent, cursor}.Run(scan);
}

class EachScan : public testing::TestWithParam<TagScan> {};
INSTANTIATE_TEST_SUITE_P(InstructionSets, EachScan,
                         testing::Values(ScanTagsBySse2, FastestTagScan()));

/// Takes an element out of the tree, with what is in it. REQUIRES: it is the first of its parent.
void RemoveFirst(MarkupDocument& document, int32_t position) {
    const ElementPosition element = document.PositionOf(position);
    RecordOf(document, element.parent).firstChild = element.nextSibling;
    if (element.nextSibling != 0) {
        RecordOf(document, element.nextSibling).previousSibling = element.previousSibling;
        RecordOf(document, element.nextSibling).levelFlags |= kElementFirstSibling;
    }
    FreeRecords{document}.AddSubtree(position);
}

}  // namespace

TEST_P(EachScan, ParsesBehindTheElementsOfTheParent) {
    MarkupDocument document{"<a><b/><c/></a><d><e/></d><f/>"};
    EXPECT_EQ(ParseBelow(document, 1, 15, 30, GetParam()), 7);
    EXPECT_THAT(ChildrenOf(document, 1), ElementsAre(2, 3, 7, 9));
    EXPECT_THAT(ChildrenOf(document, 7), ElementsAre(8));
    EXPECT_EQ(document.PositionOf(7).levelFlags & kElementDepth, 2U);
    EXPECT_EQ(document.PositionOf(8).levelFlags & kElementDepth, 3U);
    EXPECT_EQ(document.GetElementCount(), 9);
}

TEST_P(EachScan, ParsesBelowAnElementWithoutAny) {
    MarkupDocument document{"<a></a><b><c/></b>"};
    EXPECT_EQ(ParseBelow(document, 1, 7, 18, GetParam()), 4);
    EXPECT_THAT(ChildrenOf(document, 1), ElementsAre(4));
    EXPECT_THAT(ChildrenOf(document, 4), ElementsAre(5));
    EXPECT_THAT(ChildrenOf(document, 0), ElementsAre(1, 2));
}

TEST_P(EachScan, GivesNoneAndLinksNothingWhereThereIsNoElement) {
    MarkupDocument document{"<a><b/></a>text"};
    EXPECT_EQ(ParseBelow(document, 1, 11, 15, GetParam()), 0);
    EXPECT_THAT(ChildrenOf(document, 1), ElementsAre(2));
    EXPECT_EQ(document.GetElementCount(), 2);
}

TEST_P(EachScan, PutsWhatHasNoEndBehindTheElementsOfTheParent) {
    MarkupDocument document{"<a><b/></a><c><d/>text"};
    EXPECT_EQ(ParseBelow(document, 1, 11, 18, GetParam()), 5);
    EXPECT_THAT(ChildrenOf(document, 1), ElementsAre(2, 5, 6));
    EXPECT_THAT(ChildrenOf(document, 5), IsEmpty());
    // It has no end by the end of the document, as told at the first time.
    const std::string record = "<unended_start_tag tagname=\"c\" offset=\"11\" offset2=\"22\"/>";
    EXPECT_EQ(document.Result(), record + "<root_has_sibling/>" + record);
    EXPECT_NE(document.GetDocumentFlags() & kMarkupChanged, 0U);
    EXPECT_EQ(document.PositionOf(6).levelFlags & kElementDepth, 3U) << "that of its start tag";
    document.SetDocumentText(nullptr);
    EXPECT_EQ(document.GetDocumentFlags(), 0U);
}

TEST_P(EachScan, DoesNotEndTheParentByAnEndTag) {
    MarkupDocument document{"<a><b/></a><c/>"};
    EXPECT_EQ(ParseBelow(document, 1, 7, 15, GetParam()), 4);
    EXPECT_EQ(document.Result(), "<root_has_sibling/><lone_end_tag tagname=\"a\" offset=\"7\"/>");
    EXPECT_THAT(ChildrenOf(document, 1), ElementsAre(2, 4));
}

TEST_P(EachScan, GrowsBehindADocumentWithoutElements) {
    MarkupDocument document{"text"};
    const std::string all = "<a/><a/><a/><a/><a/><a/><a/><a/><a/>";
    TokenCursor cursor{.text = all};
    EXPECT_EQ((MarkupParse{document, 0, cursor}.Run(GetParam())), 1);
    EXPECT_EQ(document.GetElementCount(), 9);
}

TEST_P(EachScan, TakesTheRecordsThatWereFreedLastFirst) {
    MarkupDocument document{"<a><b><c/><d/></b><e/></a><f><g/></f><h/><i/>"};
    RemoveFirst(document, 2);
    EXPECT_EQ(document.GetElementCount(), 6);
    EXPECT_EQ(document.GetFollowing(1), 5);
    EXPECT_EQ(ParseBelow(document, 1, 26, 45, GetParam()), 2);
    // Those of <b>, <d> and <c>, then a new one.
    EXPECT_THAT(ChildrenOf(document, 1), ElementsAre(5, 2, 3, 10));
    EXPECT_THAT(ChildrenOf(document, 2), ElementsAre(4));
    EXPECT_EQ(document.GetElementCount(), 10);
    EXPECT_EQ(document.GetFollowing(5), 2);
    EXPECT_EQ(document.GetFollowing(2), 4);
    EXPECT_EQ(document.GetFollowing(4), 3);
}

TEST_P(EachScan, LeavesFreeRecordsThatItDoesNotNeed) {
    MarkupDocument document{"<a><b><c/><d/></b></a><e/>"};
    RemoveFirst(document, 2);
    EXPECT_EQ(ParseBelow(document, 1, 22, 26, GetParam()), 2);
    EXPECT_EQ(document.GetElementCount(), 3);
    EXPECT_EQ(ParseBelow(document, 1, 22, 26, GetParam()), 4);
    EXPECT_EQ(ParseBelow(document, 1, 22, 26, GetParam()), 3);
    EXPECT_EQ(ParseBelow(document, 1, 22, 26, GetParam()), 6);
    EXPECT_THAT(ChildrenOf(document, 1), ElementsAre(2, 4, 3, 6));
}

TEST_P(EachScan, TakesFreeRecordsAroundElementsWithoutEnd) {
    MarkupDocument document{"<a><b><c/><d/></b></a><e><f><g></e><h/>"};
    RemoveFirst(document, 2);
    const int32_t before = document.GetElementCount();
    EXPECT_EQ(ParseBelow(document, 1, 22, 39, GetParam()), 2);
    EXPECT_THAT(ChildrenOf(document, 1), ElementsAre(2, 9));
    EXPECT_THAT(ChildrenOf(document, 2), ElementsAre(4, 3));
    EXPECT_EQ(document.GetElementCount(), before + 4);
}

TEST(FreeRecords, AreAChainWithTheTopOfTheSubtreeFirst) {
    MarkupDocument document{"<a><b><c><d/></c><e><f/></e></b><g/></a>"};
    const ElementPosition former = document.PositionOf(3);
    RemoveFirst(document, 2);
    FreeRecords records{document};
    for (const int32_t position : {2, 5, 6, 3, 4}) {
        const ElementPosition& record = document.PositionOf(position);
        EXPECT_EQ(record.levelFlags, 0x00020000U);
        EXPECT_EQ(records.Take(), position);
    }
    EXPECT_EQ(records.Take(), 0);
    EXPECT_EQ(document.PositionOf(3).start, former.start);
    EXPECT_EQ(document.PositionOf(3).firstChild, former.firstChild);
    EXPECT_EQ(document.PositionOf(4).nextSibling, 0);
}

TEST(FreeRecords, ForgetTheNamesOfTheirPositions) {
    MarkupDocument document{"<a><b><c/></b><d/></a>"};
    document.SetPositions(0, 1, 2);
    document.SavePosition("b");
    document.SetPositions(1, 2, 3);
    document.SavePosition("c", 5);
    document.SetPositions(0, 1, 4);
    document.SavePosition("d", 5);
    RemoveFirst(document, 2);
    EXPECT_FALSE(document.RestorePosition("b"));
    EXPECT_FALSE(document.RestorePosition("c", 5));
    EXPECT_TRUE(document.RestorePosition("d", 5));
    EXPECT_EQ(document.ChildPosition(), 4);
    EXPECT_EQ(ParseBelow(document, 1, 14, 18, FastestTagScan()), 2);
    EXPECT_FALSE(document.RestorePosition("b"));
}

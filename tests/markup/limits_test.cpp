// What is too large for the fields of a record, and for a document.

#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "markup/markup_document.h"
#include "support/sanitizers.h"

namespace {

constexpr size_t kMebibyte = size_t{1} << 20;
constexpr size_t kGibibyte = size_t{1} << 30;

/// A start tag of that many bytes.
std::string StartTag(size_t size) {
    return "<a b=\"" + std::string(size - 8, 'x') + "\">";
}

/// An end tag of that many bytes.
std::string EndTag(size_t size) {
    return "</a" + std::string(size - 4, ' ') + ">";
}

/// What the kernel could give, in bytes.
size_t FreeMemory() {
    std::ifstream file{"/proc/meminfo"};
    for (std::string name; file >> name;) {
        size_t kilobytes = 0;
        if (name == "MemAvailable:" && file >> kilobytes) return kilobytes * 1024;
    }
    return 0;
}

}  // namespace

TEST(Limits, TheLengthOfAStartTagIsCutAtTwentyTwoBits) {
    for (const size_t size : {4 * kMebibyte - 1, 4 * kMebibyte, 4 * kMebibyte + 1}) {
        SCOPED_TRACE(size);
        MarkupDocument document{StartTag(size) + "<c/></a>"};
        EXPECT_TRUE(document.IsWellFormed());
        EXPECT_EQ(document.Result(), "");
        const ElementPosition& element = document.PositionOf(1);
        EXPECT_EQ(element.StartTagLength(), static_cast<int32_t>(size % (4 * kMebibyte)));
        EXPECT_EQ(element.EndTagLength(), 4);
        EXPECT_EQ(element.length, static_cast<int32_t>(size + 8));
        EXPECT_EQ(document.PositionOf(2).start, static_cast<int32_t>(size));
        EXPECT_TRUE(document.FindSibling("/a/c"));
        // What the field does not tell is not looked at.
        const bool isWhole = size < 4 * kMebibyte;
        EXPECT_EQ(document.GetAttribute(1, "b").size(), isWhole ? size - 8 : 0);
        EXPECT_EQ(document.HasAttribute(1, "b"), isWhole);
    }
}

TEST(Limits, AnUnendedElementIsAsLongAsItsTagWhateverTheFieldHolds) {
    const MarkupDocument document{StartTag(4 * kMebibyte + 1)};
    EXPECT_EQ(document.PositionOf(1).length, static_cast<int32_t>(4 * kMebibyte + 1));
    EXPECT_EQ(document.PositionOf(1).tagLengths, 1U);
}

TEST(Limits, TheLengthOfAnEndTagIsCutAtTenBits) {
    for (const size_t size : {1022, 1023, 1024, 1025, 2048}) {
        SCOPED_TRACE(size);
        MarkupDocument document{"<r><a>" + EndTag(size) + "<c/></r>"};
        EXPECT_TRUE(document.IsWellFormed());
        const ElementPosition& element = document.PositionOf(2);
        EXPECT_EQ(element.StartTagLength(), 3);
        EXPECT_EQ(element.EndTagLength(), static_cast<int32_t>(size % 1024));
        EXPECT_EQ(element.length, static_cast<int32_t>(size + 3));
        EXPECT_TRUE(document.FindSibling("/r/c"));
    }
}

TEST(Limits, WalksComeToAnEndWhereFieldsAreCut) {
    const std::string tag = "<a b=\"<x><y>" + std::string(4 * kMebibyte, '<') + "<z>\">";
    MarkupDocument document{tag + "<c/>t<d/>" + EndTag(1500)};
    ASSERT_TRUE(document.IsWellFormed());
    document.SetPositions(1, 0, 0);
    int nodes = 0;
    while (document.FindNextNode(255) != 0) ASSERT_LT(++nodes, 10'000'000);
    ASSERT_TRUE(document.FindSibling("/a"));
    EXPECT_LE(document.GetData().size(), document.GetDocumentText().size());
    EXPECT_TRUE(document.FindSibling("/a/d"));
}

TEST(Limits, AWalkFindsNoElementInATagWhoseLengthIsCut) {
    for (const size_t more : {0, 1, 9}) {
        std::string tag = StartTag(4 * kMebibyte + more);
        tag.replace(6, 3, "<y>");
        MarkupDocument document{tag + "</a>"};
        document.SetPositions(1, 0, 0);
        int nodes = 0;
        while (document.FindNextNode(255) != 0) {
            ASSERT_NE(document.GetNodeType(), kNodeElement);
            ASSERT_LT(++nodes, 10);
        }
    }
}

TEST(Limits, TheDepthOfAnElementIsCutAtSixteenBits) {
    std::string text;
    for (int depth = 1; depth <= 65'537; ++depth) text += "<a>";
    for (int depth = 1; depth <= 65'537; ++depth) text += "</a>";
    MarkupDocument document{std::move(text)};
    EXPECT_TRUE(document.IsWellFormed());
    for (const int32_t depth : {65'534, 65'535, 65'536, 65'537}) {
        document.SetPositions(document.GetParentOf(depth), depth, 0);
        EXPECT_EQ(document.GetElementDepth(), depth % 65'536);
        EXPECT_EQ(document.GetElementFlags(), 0U);
        EXPECT_EQ(document.PositionOf(depth).levelFlags >> 16, kElementFirstSibling >> 16);
    }
    EXPECT_TRUE(document.LeaveToParent());
    EXPECT_EQ(document.MainPosition(), 65'536);
}

TEST(Limits, TheDepthGoesThroughItsLimitAndBack) {
    constexpr int kDepth = 65'540;
    std::string text = "<c/>";  // so that no segment begins at the limit
    for (int i = 0; i < kDepth; ++i) text += "<a>";
    for (int i = 0; i < kDepth - 1; ++i) text += "</a><b/>";
    const MarkupDocument document{text + "</a>"};
    ASSERT_TRUE(document.IsWellFormed());
    ASSERT_EQ(document.GetElementCount(), 2 * kDepth);
    const auto flagsOf = [&document](int position) {
        return document.PositionOf(position + 1).levelFlags;
    };
    for (const int depth : {1, 2, 65'534, 65'535, 65'536, 65'537, kDepth}) {
        const auto shown = static_cast<uint32_t>(depth) & 0xFFFF;
        if (depth == 1) continue;
        EXPECT_EQ(flagsOf(depth), shown | kElementFirstSibling) << depth;
        // What follows it: those of the innermost come first.
        EXPECT_EQ(flagsOf(2 * kDepth - depth + 1), shown | kElementEmpty) << depth;
    }
}

TEST(Limits, ADocumentOfTwoGibibytesIsRefusedAndOneOfAByteLessIsTaken) {
    if (kAddressSanitizer || kThreadSanitizer)
        GTEST_SKIP() << "a sanitizer needs several times as much";
    if (FreeMemory() < 4 * kGibibyte) GTEST_SKIP() << "less than 4 GiB of memory are free";
    MarkupDocument document{"<before/>"};
    std::string text(2 * kGibibyte, 'x');
    EXPECT_FALSE(document.SetDocumentText(std::move(text)));
    EXPECT_EQ(document.Result(), "<document_too_large length=\"2147483648\"/>");
    EXPECT_EQ(document.GetDocumentText(), "");
    EXPECT_EQ(document.GetElementCount(), 0);
    EXPECT_FALSE(document.FindSibling());

    text.clear();
    text.reserve(2 * kGibibyte);
    text = "<a><b/>";
    text.resize(2 * kGibibyte - 1 - 8, 'x');
    text += "<c/></a>";
    ASSERT_EQ(text.size(), 0x7FFFFFFFU);
    EXPECT_TRUE(document.SetDocumentText(std::move(text)));
    EXPECT_EQ(document.Result(), "");
    EXPECT_EQ(document.GetElementCount(), 3);
    EXPECT_EQ(document.PositionOf(1).End(), 0x7FFFFFFF);
    EXPECT_EQ(document.PositionOf(3).start, 0x7FFFFFFF - 8);
    ASSERT_TRUE(document.FindSibling("/a/c"));
    EXPECT_EQ(document.GetMarkup(), "<c/>");
    document.SetPositions(1, 2, 0);
    ASSERT_EQ(document.FindNextNode(kNodeText), kNodeText);
    EXPECT_EQ(document.GetMarkup().size(), 0x7FFFFFFFU - 7 - 8);
    EXPECT_EQ(document.FindNextNode(kNodeElement), kNodeElement);
    EXPECT_EQ(document.FindNextNode(255), 0);
}

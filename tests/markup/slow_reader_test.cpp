// The reader against a slow second one, on documents made at random, most of them broken.

#include "markup/slow_reader.h"

#include <random>

#include <gtest/gtest.h>

#include "markup/parse.h"
#include "markup/result_records.h"
#include "support/sanitizers.h"

namespace {

constexpr int kDocuments = kAddressSanitizer || kThreadSanitizer ? 10'000 : 100'000;

constexpr std::string_view kPieces[] = {
    "<a>",
    "</a>",
    "<b>",
    "</b>",
    "<a b=\"x>y\">",
    "<c/>",
    "</c>",
    "<B>",
    "</B>",
    "<a=b>",
    "</a=b>",
    "<a[1]>",
    "</a",
    "<b",
    "<",
    ">",
    "/>",
    "/",
    "=",
    "\"",
    "'",
    " ",
    "\n",
    "\t",
    "x",
    "a",
    "!",
    "-",
    "?",
    "<!--",
    "-->",
    "<!-",
    "<![CDATA[",
    "]]>",
    "<![",
    "]",
    "<!DOCTYPE a [",
    "<!D",
    "<!E",
    "<!A",
    "<!N",
    "<!X",
    "<?xml",
    "?>",
    "<?",
    "</>",
    "<1",
    "\xC3\xA9",
    " b=x/>",
    " b=x />",
    " b='>'",
    " b = \"'",
    "&amp;",
    "<\xC3>",
    "<a/b>",
    "]>",
    "</ a>",
    "<!>",
    "<!-->",
    "<?>",
    "<![C]]>",
    "<a b=/>",
    "<a b='/>",
    "<a b==\">",
};
const std::string kPadding(100, 'p');

/// Pieces at random; few in most documents, and now and then padding, so that tags stand at all
/// places of the bytes that are looked at at a time.
std::string RandomDocument(std::mt19937& random) {
    const size_t count = random() % 8 == 0 ? random() % 120 : random() % 16;
    std::string text;
    for (size_t i = 0; i < count; ++i) {
        if (random() % 8 == 0) text.append(kPadding, 0, random() % kPadding.size());
        text += kPieces[random() % std::size(kPieces)];
    }
    return text;
}

constexpr bool HasName(int32_t type) {
    return type == kNodeElement || type == kTokenEndTag || type == kNodeInstruction;
}

void ExpectSameTokens(std::string_view text) {
    TokenCursor cursor;
    cursor.text = text;
    NodeToken token;
    SlowTokenizer slow{text};
    for (SlowToken wanted; slow.Next(wanted);) {
        ASSERT_EQ(NextToken(cursor, token), wanted.type);
        ASSERT_EQ(token.start, wanted.start);
        ASSERT_EQ(token.length, wanted.length);
        ASSERT_EQ(token.nodeFlags, wanted.isEmpty ? kTokenEmpty : 0);
        ASSERT_EQ(token.errorText, wanted.errors);
        ASSERT_EQ(cursor.next, wanted.start + wanted.length);
        if (!HasName(wanted.type)) continue;
        ASSERT_EQ(cursor.Word(), wanted.name);
    }
    ASSERT_EQ(NextToken(cursor, token), kTokenEndOfText);
}

void ExpectSameElements(const std::string& text, bool ignoresCase) {
    const SlowDocument slow{text, ignoresCase};
    MarkupDocument document;
    if (ignoresCase) document.SetDocumentFlags(kMarkupIgnoreCase);
    document.SetDocumentText(text);
    ASSERT_EQ(slow.DifferenceTo(document), "");
    ASSERT_EQ(document.GetElementCount(), static_cast<int>(slow.elements.size()) - 1);
    ASSERT_EQ(document.Result(), slow.result);
    if (text.empty()) return;

    const int32_t count = document.GetElementCount();
    TokenCursor cursor;
    cursor.text = document.GetDocumentText();
    cursor.flags = document.GetDocumentFlags();
    // Above all elements again, as if there were none yet.
    const_cast<ElementPosition&>(document.PositionOf(0)).firstChild = 0;
    const int32_t first = MarkupParse{document, 0, cursor}.Run(ScanTagsBySse2);
    ASSERT_EQ(first, count == 0 ? 0 : count + 1);
    ASSERT_EQ(document.GetElementCount(), 2 * count);
    ASSERT_EQ(slow.DifferenceTo(document, count), "");
    const std::string both =
        slow.result.size() < kResultLimit ? slow.result + slow.faults : slow.result;
    ASSERT_TRUE(both.starts_with(document.Result())) << document.Result();
    ASSERT_GE(document.Result().size(), std::min(both.size(), kResultLimit));
}

}  // namespace

TEST(SlowReader, GivesTheSameTokens) {
    std::mt19937 random{1};
    for (int i = 0; i < kDocuments; ++i) {
        const std::string text = RandomDocument(random);
        ASSERT_NO_FATAL_FAILURE(ExpectSameTokens(text)) << "[" << text << "]";
    }
}

TEST(SlowReader, GivesTheSameElementsByEitherInstructionSet) {
    std::mt19937 random{2};
    for (int i = 0; i < kDocuments; ++i) {
        const std::string text = RandomDocument(random);
        ASSERT_NO_FATAL_FAILURE(ExpectSameElements(text, i % 2 == 1)) << "[" << text << "]";
    }
}

TEST(SlowReader, GivesTheSameElementsOfTagsAtEachPlaceOfABlock) {
    for (size_t padding = 0; padding < 130; ++padding) {
        for (size_t inside = 0; inside < 130; ++inside) {
            const std::string text = "<r>" + std::string(padding, 'x') + "<a b=\"" +
                                     std::string(inside, '>') + "\" c=d/></a><e/></r>";
            ASSERT_NO_FATAL_FAILURE(ExpectSameElements(text, false)) << padding << " " << inside;
        }
    }
}

// How a text is taken apart.

#include "markup/tokenizer.h"

#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/every_prefix.h"
#include "support/sanitizers.h"

namespace {

using Pieces = std::vector<std::string>;

std::string NameOfType(int32_t type) {
    switch (type) {
        case kNodeElement:
            return "element";
        case kNodeText:
            return "text";
        case kNodeWhiteSpace:
            return "white";
        case kNodeCdata:
            return "cdata";
        case kNodeInstruction:
            return "instruction";
        case kNodeComment:
            return "comment";
        case kNodeDocumentType:
            return "doctype";
        case kTokenEndTag:
            return "end";
        case kTokenError:
            return "fault";
        default:
            return "type " + std::to_string(type);
    }
}

/// The pieces of a text: type, offset and length, the name of those that have one, "empty", records.
Pieces PiecesOf(std::string_view text) {
    TokenCursor cursor;
    cursor.text = text;
    Pieces pieces;
    for (NodeToken token; NextToken(cursor, token) != kTokenEndOfText;) {
        std::string piece = NameOfType(token.type) + " " + std::to_string(token.start) + "+" +
                            std::to_string(token.length);
        if (token.type <= kNodeElement && token.type >= kTokenEndTag) {
            piece.append(" ").append(cursor.Word());
        }
        if (token.type == kNodeInstruction) piece.append(" ").append(cursor.Word());
        if (token.nodeFlags != 0) piece += token.nodeFlags == kTokenEmpty ? " empty" : " flags?";
        if (!token.errorText.empty()) piece += " " + token.errorText;
        pieces.push_back(piece);
    }
    return pieces;
}

struct Row {
    std::string_view text;
    Pieces pieces;
};

void ExpectPieces(const std::vector<Row>& rows) {
    for (const Row& row : rows) EXPECT_EQ(PiecesOf(row.text), row.pieces) << row.text;
}

std::string Unterminated(const std::string& type, int offset = 0) {
    return "<unterminated_tag_syntax type=\"" + type + "\" offset=\"" + std::to_string(offset) +
           "\"/>";
}
std::string Fault(const std::string& name, int offset) {
    return "<" + name + " offset=\"" + std::to_string(offset) + "\"/>";
}

constexpr std::string_view kEverything =
    "\xEF\xBB\xBF<?xml version=\"1.0\"?>\n<!DOCTYPE a [ <!ELEMENT a ANY> <!-- > ' --> <?p >?>\n"
    "<!ENTITY b \"<c>'\"> ]>\n<a b=\"1>2\" c='\"' d = e f/g h=i/>\t<j k=/l>m > n</j><!-- -> -->"
    "<![CDATA[ ]> ]]><o/><p q=r /></a b='>'/><1 s=\">\" <t><!x><!-y><![z><!DOCTYPE [ <!X ><</u>";

/// Pieces without a gap, with a type each, and nothing but the end behind them.
void ExpectNoGaps(std::string_view text) {
    TokenCursor cursor;
    cursor.text = text;
    NodeToken token;
    int32_t end = 0;
    while (NextToken(cursor, token) != kTokenEndOfText) {
        ASSERT_EQ(token.start, end);
        ASSERT_GT(token.length, 0);
        ASSERT_EQ(cursor.next, token.End());
        ASSERT_EQ(token.type == kTokenError, !token.errorText.empty());
        end = token.End();
    }
    ASSERT_EQ(end, static_cast<int32_t>(text.size()));
}

}  // namespace

// --- The end -------------------------------------------------------------------------------------

TEST(NextToken, TellsTheEndByItsResultAndLeavesTypeAndLengthAtZero) {
    TokenCursor cursor;
    cursor.text = "<a/>";
    NodeToken token;
    ASSERT_EQ(NextToken(cursor, token), kNodeElement);
    for (int again = 0; again < 2; ++again) {
        EXPECT_EQ(NextToken(cursor, token), kTokenEndOfText);
        EXPECT_EQ(token.type, 0);
        EXPECT_EQ(token.start, 4);
        EXPECT_EQ(token.length, 0);
        EXPECT_EQ(token.nodeFlags, 0U);
        EXPECT_EQ(token.errorText, "");
        EXPECT_EQ(cursor.next, 4);
    }
}

TEST(NextToken, ForgetsTheRecordsOfTheTokenBefore) {
    TokenCursor cursor;
    cursor.text = "<1><a/>";
    NodeToken token;
    ASSERT_EQ(NextToken(cursor, token), kTokenError);
    EXPECT_EQ(token.errorText, Fault("first_tag_syntax", 1));
    ASSERT_EQ(NextToken(cursor, token), kNodeElement);
    EXPECT_EQ(token.errorText, "");
}

TEST(NextToken, GoesOnWhereTheCursorStands) {
    TokenCursor cursor;
    cursor.text = "<a><b/>";
    cursor.next = 3;
    NodeToken token;
    EXPECT_EQ(NextToken(cursor, token), kNodeElement);
    EXPECT_EQ(token.start, 3);
    EXPECT_EQ(cursor.tokenStart, 4);
    EXPECT_EQ(cursor.tokenEnd, 4);
    EXPECT_EQ(cursor.Word(), "b");
}

// --- Text ----------------------------------------------------------------------------------------

TEST(NextToken, TakesTextAndWhiteSpaceUpToATag) {
    ExpectPieces({
        {"", {}},
        {"x", {"text 0+1"}},
        {" \t\r\n", {"white 0+4"}},
        {" <a>", {"white 0+1", "element 1+3 a"}},
        {" x <a>", {"text 0+3", "element 3+3 a"}},
        {"x&y;\"'=/<a>", {"text 0+8", "element 8+3 a"}},
        {"\v", {"text 0+1"}},
        {"\f", {"text 0+1"}},
        {"\xA0", {"text 0+1"}},
        {std::string_view{"\0x", 2}, {"text 0+2"}},
    });
}

TEST(NextToken, EndsTextBehindAGreaterSign) {
    ExpectPieces({
        {"x>y", {"text 0+2", "text 2+1"}},
        {"x> <a>", {"text 0+2", "white 2+1", "element 3+3 a"}},
        {">", {"text 0+1"}},
        {" >x", {"text 0+2", "text 2+1"}},
        {">>", {"text 0+1", "text 1+1"}},
        {"x=\">\"", {"text 0+4", "text 4+1"}},
    });
}

// --- Start tags ----------------------------------------------------------------------------------

TEST(NextToken, TakesAStartTagWithItsName) {
    ExpectPieces({
        {"<a>", {"element 0+3 a"}},
        {"<a >", {"element 0+4 a"}},
        {"<a\tb>", {"element 0+5 a"}},
        {"<a\rb>", {"element 0+5 a"}},
        {"<a\nb>", {"element 0+5 a"}},
        {"<a/b>", {"element 0+5 a"}},
        {"<x:a-b.c1>", {"element 0+10 x:a-b.c1"}},
        {"<a=b>", {"element 0+5 a=b"}},
        {"<a<b>", {"element 0+5 a<b"}},
        {"<a?!\">", {"element 0+6 a?!\""}},
        {"<:>", {"element 0+3 :"}},
        {"<_>", {"element 0+3 _"}},
        {"<{>", {"element 0+3 {"}},
        {"<\x7F>", {"element 0+3 \x7F"}},
        {"<\xC3\xA9>", {"element 0+4 \xC3\xA9"}},
        {"<\xFF>", {"element 0+3 \xFF"}},
    });
}

TEST(NextToken, TakesATagOfAllBytesThatBeginAName) {
    for (int byte = 0; byte < 256; ++byte) {
        const auto first = static_cast<char>(byte);
        const bool isStart =
            first == ':' || first == '_' || (first >= 'A' && first <= 'Z') || byte > '`';
        const Pieces pieces = PiecesOf(std::string{'<', first, 'x', '>'});
        ASSERT_FALSE(pieces.empty());
        EXPECT_EQ(pieces[0].starts_with("element"), isStart) << byte;
    }
}

TEST(NextToken, TakesATagWithASlashAtItsEndForAnEmptyElement) {
    ExpectPieces({
        {"<a/>", {"element 0+4 a empty"}},
        {"<a />", {"element 0+5 a empty"}},
        {"<a//>", {"element 0+5 a empty"}},
        {"<a b=\"x>y\"/>", {"element 0+12 a empty"}},
        {"<a b='c'/>", {"element 0+10 a empty"}},
        {"<a b/>", {"element 0+6 a empty"}},
        {"<a b=\"c\"d/>", {"element 0+11 a empty"}},
        {"<a / >", {"element 0+6 a"}},
        {"<a/ >", {"element 0+5 a"}},
        {"<a b=\"/\">", {"element 0+9 a"}},
    });
}

TEST(NextToken, TakesASlashAtTheEndOfAnUnquotedValueForAPartOfIt) {
    ExpectPieces({
        {"<a b=x/>", {"element 0+8 a"}},
        {"<a b=/>", {"element 0+7 a"}},
        {"<a b=x//>", {"element 0+9 a"}},
        {"<a b=x=/>", {"element 0+9 a"}},
        {"<a=/>", {"element 0+5 a="}},
    });
}

TEST(NextToken, TakesASlashBehindWhiteSpaceOrAQuoteForTheEndOfTheTag) {
    ExpectPieces({
        {"<a b=x />", {"element 0+9 a empty"}},
        {"<a b=x\t/>", {"element 0+9 a empty"}},
        {"<a b=x\n/>", {"element 0+9 a empty"}},
        {"<a b=x\r/>", {"element 0+9 a empty"}},
        {"<a b= />", {"element 0+8 a empty"}},
        {"<a b=x\"/>", {"element 0+9 a empty"}},
        {"<a b=x'/>", {"element 0+9 a empty"}},
    });
}

TEST(NextToken, LetsQuotesCountBehindAnEqualsSignOnly) {
    ExpectPieces({
        {"<a=\"1>2\">", {"element 0+9 a=\"1"}},
        {"<a b=\"1>2\">", {"element 0+11 a"}},
        {"<a b='1>2'>", {"element 0+11 a"}},
        {"<a b=1>2>", {"element 0+7 a", "text 7+2"}},
        {"<a b \">\"", {"element 0+7 a", "text 7+1"}},
        {"<a '>'", {"element 0+5 a", "text 5+1"}},
        {"<a b= \t\r\n\"1>2\">", {"element 0+15 a"}},
        {"<a b=1\">\"", {"element 0+8 a", "text 8+1"}},
        {"<a b=c=\">\"", {"element 0+9 a", "text 9+1"}},
        {"<a b==\">\"", {"element 0+8 a", "text 8+1"}},
        {"<a b=c d=\">\">", {"element 0+13 a"}},
        {"<a b=\"'>\" c='\">'>", {"element 0+17 a"}},
        {"<a b=\"c\"\">", {"element 0+10 a"}},
        {"<a b=>\"", {"element 0+6 a", "text 6+1"}},
        {"<a b=\"<c>\">", {"element 0+11 a"}},
        {"<a b=\"=\" '>'", {"element 0+11 a", "text 11+1"}},
    });
}

// --- Other tags ----------------------------------------------------------------------------------

TEST(NextToken, EndsAnEndTagAtTheFirstGreaterSign) {
    ExpectPieces({
        {"</a>", {"end 0+4 a"}},
        {"</a >", {"end 0+5 a"}},
        {"</a b=\">\"", {"end 0+8 a", "text 8+1"}},
        {"</a=\">\"", {"end 0+6 a=\"", "text 6+1"}},
        {"</a/>", {"end 0+5 a"}},
        {"</>", {"end 0+3 "}},
        {"</ a>", {"end 0+5 "}},
        {"</1>", {"end 0+4 1"}},
        {"</a<b>", {"end 0+6 a<b"}},
    });
}

TEST(NextToken, EndsACommentAtItsThreeCharacters) {
    ExpectPieces({
        {"<!---->", {"comment 0+7"}},
        {"<!-- a -- > -> b --> -->", {"comment 0+20", "text 20+4"}},
        {"<!--<a b=\"-->\"", {"comment 0+13", "text 13+1"}},
        {"<!-->", {"comment 0+5"}},
        {"<!--->", {"comment 0+6"}},
        {"<!--x--->", {"comment 0+9"}},
    });
}

TEST(NextToken, EndsASectionAtItsThreeCharacters) {
    ExpectPieces({
        {"<![CDATA[]]>", {"cdata 0+12"}},
        {"<![CDATA[<a>]]]>x", {"cdata 0+16", "text 16+1"}},
        {"<![CDATA[ ]> ]] > \"]]>", {"cdata 0+22"}},
        {"<![C]]>", {"cdata 0+7"}},
        {"<![Cxyz]]>", {"cdata 0+10"}},
    });
}

TEST(NextToken, EndsAnInstructionAtItsTwoCharacters) {
    ExpectPieces({
        {"<?xml a=\"?>\"", {"instruction 0+11 xml", "text 11+1"}},
        {"<?a > ? > ?>", {"instruction 0+12 a"}},
        {"<?a?>", {"instruction 0+5 a?"}},
        {"<?>", {"instruction 0+3 "}},
        {"<?\?>", {"instruction 0+4 ?"}},
        {"<? a?>", {"instruction 0+6 "}},
        {"<?1?>", {"instruction 0+5 1?"}},
    });
}

// --- Document types ------------------------------------------------------------------------------

TEST(NextToken, ComparesOneLetterOfADocumentTypeOnly) {
    ExpectPieces({
        {"<!DOCTYPE a>", {"doctype 0+12"}},
        {"<!D>", {"doctype 0+4"}},
        {"<!Dingo>", {"doctype 0+8"}},
        {"<!d>", {"fault 0+4 " + Fault("exclamation_tag_syntax", 2)}},
    });
}

TEST(NextToken, PassesOverTheDeclarationsOfADocumentType) {
    ExpectPieces({
        {"<!DOCTYPE a [<!ELEMENT b ANY>]>x", {"doctype 0+31", "text 31+1"}},
        {"<!D[<!A><!E><!N>]>", {"doctype 0+18"}},
        {"<!D[<!E a><!E b>]", {"fault 0+17 " + Unterminated("document_type")}},
        {"<!D[<!E <a <b>]>", {"doctype 0+16"}},
        {"<!D[<!-- > ' \" <!x -->]>", {"doctype 0+24"}},
        {"<!D[<!-->]>", {"doctype 0+11"}},
        {"<!D[<?p > ' <!x?>]>", {"doctype 0+19"}},
        {"<!D[<?>]>", {"doctype 0+9"}},
        {"<!D[%e;]>", {"doctype 0+9"}},
    });
}

TEST(NextToken, LetsQuotesCountEverywhereInADocumentType) {
    ExpectPieces({
        {"<!DOCTYPE a \">\">", {"doctype 0+16"}},
        {"<!DOCTYPE a '>'>", {"doctype 0+16"}},
        {"<!D[<!E b \">\"]]>]>", {"doctype 0+18"}},
        {"<!D[<!E b '\">']]>]>", {"doctype 0+19"}},
        {"<!D[<!E b \"'>\"]]>]>", {"doctype 0+19"}},
        {"<!D \"<a>\">", {"doctype 0+10"}},
        {"<!D ' \" >", {"fault 0+9 " + Unterminated("document_type")}},
    });
}

TEST(NextToken, RefusesOtherTagsInADocumentType) {
    ExpectPieces({
        {"<!D[<a>]>", {"fault 0+7 " + Fault("doctype_tag_syntax", 5), "text 7+2"}},
        {"<!D[</a>", {"fault 0+8 " + Fault("doctype_tag_syntax", 5)}},
        {"<!D[<1>", {"fault 0+7 " + Fault("doctype_tag_syntax", 5)}},
        {"<!D[<!X>]>", {"fault 0+8 " + Fault("doctype_tag_syntax", 6), "text 8+2"}},
        {"<!D[<!D>", {"fault 0+8 " + Fault("doctype_tag_syntax", 6)}},
        {"<!D[<![C>", {"fault 0+9 " + Fault("doctype_tag_syntax", 6)}},
        {"<!D[<!e>", {"fault 0+8 " + Fault("doctype_tag_syntax", 6)}},
        {"<!D[<!-x>", {"fault 0+9 " + Fault("comment_tag_syntax", 7)}},
        {"<!D[<!X <a>", {"fault 0+8 " + Fault("doctype_tag_syntax", 6), "element 8+3 a"}},
        {"<!D[<<a>", {"fault 0+5 " + Fault("doctype_tag_syntax", 5), "element 5+3 a"}},
    });
}

// --- Faults --------------------------------------------------------------------------------------

TEST(NextToken, TellsWhereABadCharacterStands) {
    ExpectPieces({
        {"<1a>", {"fault 0+4 " + Fault("first_tag_syntax", 1)}},
        {"x<1a>", {"text 0+1", "fault 1+4 " + Fault("first_tag_syntax", 2)}},
        {"< a>", {"fault 0+4 " + Fault("first_tag_syntax", 1)}},
        {"<`>", {"fault 0+3 " + Fault("first_tag_syntax", 1)}},
        {"<>", {"fault 0+2 " + Fault("first_tag_syntax", 1)}},
        {"<!x>", {"fault 0+4 " + Fault("exclamation_tag_syntax", 2)}},
        {"<!>", {"fault 0+3 " + Fault("exclamation_tag_syntax", 2)}},
        {"<! D>", {"fault 0+5 " + Fault("exclamation_tag_syntax", 2)}},
        {"<!ELEMENT>", {"fault 0+10 " + Fault("exclamation_tag_syntax", 2)}},
        {"<!-x>", {"fault 0+5 " + Fault("comment_tag_syntax", 3)}},
        {"<!->", {"fault 0+4 " + Fault("comment_tag_syntax", 3)}},
        {"<![x>", {"fault 0+5 " + Fault("cdata_section_syntax", 3)}},
        {"<![>", {"fault 0+4 " + Fault("cdata_section_syntax", 3)}},
        {"<![c>", {"fault 0+5 " + Fault("cdata_section_syntax", 3)}},
    });
}

TEST(NextToken, GoesOnAtTheNextTagBehindAFault) {
    ExpectPieces({
        {"<1 <a>", {"fault 0+3 " + Fault("first_tag_syntax", 1), "element 3+3 a"}},
        {"<<a>", {"fault 0+1 " + Fault("first_tag_syntax", 1), "element 1+3 a"}},
        {"<!<a>", {"fault 0+2 " + Fault("exclamation_tag_syntax", 2), "element 2+3 a"}},
        {"<!-<a>", {"fault 0+3 " + Fault("comment_tag_syntax", 3), "element 3+3 a"}},
        {"<![<a>", {"fault 0+3 " + Fault("cdata_section_syntax", 3), "element 3+3 a"}},
        {"<1>x", {"fault 0+3 " + Fault("first_tag_syntax", 1), "text 3+1"}},
        {"<1/>", {"fault 0+4 " + Fault("first_tag_syntax", 1)}},
        {"<1?>", {"fault 0+4 " + Fault("first_tag_syntax", 1)}},
    });
}

TEST(NextToken, LetsQuotesCountBehindAFaultButNotHideATag) {
    ExpectPieces({
        {"<1 b=\">\">x", {"fault 0+9 " + Fault("first_tag_syntax", 1), "text 9+1"}},
        {"<1 b='>'>x", {"fault 0+9 " + Fault("first_tag_syntax", 1), "text 9+1"}},
        {"<1 \">\"", {"fault 0+5 " + Fault("first_tag_syntax", 1), "text 5+1"}},
        {"<1 b=\"<a>", {"fault 0+6 " + Fault("first_tag_syntax", 1), "element 6+3 a"}},
        {"<1 b=\"<a>\">",
         {"fault 0+6 " + Fault("first_tag_syntax", 1), "element 6+3 a", "text 9+2"}},
        {"<1 b=<a>", {"fault 0+5 " + Fault("first_tag_syntax", 1), "element 5+3 a"}},
        {"<1 b=c<a>", {"fault 0+6 " + Fault("first_tag_syntax", 1), "element 6+3 a"}},
        {"<1 b= <a>", {"fault 0+6 " + Fault("first_tag_syntax", 1), "element 6+3 a"}},
        {"<=\">\">", {"fault 0+6 " + Fault("first_tag_syntax", 1)}},
        {"<1 b=\"c\" <a>", {"fault 0+9 " + Fault("first_tag_syntax", 1), "element 9+3 a"}},
    });
}

TEST(NextToken, TellsWhatWasOpenAtTheEndOfTheText) {
    ExpectPieces({
        {"<", {"fault 0+1 " + Unterminated("tag")}},
        {"x<", {"text 0+1", "fault 1+1 " + Unterminated("tag", 1)}},
        {"<!", {"fault 0+2 " + Unterminated("tag")}},
        {"<!-", {"fault 0+3 " + Unterminated("tag")}},
        {"<![", {"fault 0+3 " + Unterminated("tag")}},
        {"<a", {"fault 0+2 " + Unterminated("start_tag")}},
        {"<a b", {"fault 0+4 " + Unterminated("start_tag")}},
        {"<a b=", {"fault 0+5 " + Unterminated("start_tag")}},
        {"<a b= ", {"fault 0+6 " + Unterminated("start_tag")}},
        {"<a b=c", {"fault 0+6 " + Unterminated("start_tag")}},
        {"<a b=\"><c>", {"fault 0+10 " + Unterminated("start_tag")}},
        {"</", {"fault 0+2 " + Unterminated("end_tag")}},
        {"</a ", {"fault 0+4 " + Unterminated("end_tag")}},
        {"<?", {"fault 0+2 " + Unterminated("processing_instruction")}},
        {"<?a >", {"fault 0+5 " + Unterminated("processing_instruction")}},
        {"<!--", {"fault 0+4 " + Unterminated("comment")}},
        {"<!-- x", {"fault 0+6 " + Unterminated("comment")}},
        {"<!-- ->", {"fault 0+7 " + Unterminated("comment")}},
        {"<![C", {"fault 0+4 " + Unterminated("cdata_section")}},
        {"<![CDATA[ ]>", {"fault 0+12 " + Unterminated("cdata_section")}},
        {"<!D", {"fault 0+3 " + Unterminated("document_type")}},
        {"<!DOCTYPE a [<!ELEMENT b>", {"fault 0+25 " + Unterminated("document_type")}},
        {"<!D[<", {"fault 0+5 " + Unterminated("document_type")}},
        {"<!D[<!", {"fault 0+6 " + Unterminated("document_type")}},
        {"<!D[<!-", {"fault 0+7 " + Unterminated("document_type")}},
        {"<!D[<!-- ]>", {"fault 0+11 " + Unterminated("document_type")}},
        {"<!D[<!E ", {"fault 0+8 " + Unterminated("document_type")}},
        {"<!D[<? ]>", {"fault 0+9 " + Unterminated("document_type")}},
    });
}

TEST(NextToken, GivesTwoRecordsForAFaultThatHasNoEnd) {
    ExpectPieces({
        {"<1", {"fault 0+2 " + Fault("first_tag_syntax", 1) + Unterminated("tag")}},
        {"<1 b=\"", {"fault 0+6 " + Fault("first_tag_syntax", 1) + Unterminated("tag")}},
        {"<1 b= ", {"fault 0+6 " + Fault("first_tag_syntax", 1) + Unterminated("tag")}},
        {"x<!x",
         {"text 0+1", "fault 1+3 " + Fault("exclamation_tag_syntax", 3) + Unterminated("tag", 1)}},
        {"<!D[<!X", {"fault 0+7 " + Fault("doctype_tag_syntax", 6) + Unterminated("tag")}},
    });
}

TEST(NextToken, TakesANulForABadCharacterAndNotForTheEnd) {
    EXPECT_EQ(PiecesOf({"<\0>", 3}), Pieces{"fault 0+3 " + Fault("first_tag_syntax", 1)});
    EXPECT_EQ(PiecesOf({"<!\0>", 4}), Pieces{"fault 0+4 " + Fault("exclamation_tag_syntax", 2)});
    EXPECT_EQ(PiecesOf({"<!D[<!\0>", 8}), Pieces{"fault 0+8 " + Fault("doctype_tag_syntax", 6)});
    EXPECT_EQ(PiecesOf({"<!D[<\0>", 7}), Pieces{"fault 0+7 " + Fault("doctype_tag_syntax", 5)});
}

// --- All texts -----------------------------------------------------------------------------------

TEST(NextToken, TakesApartADocumentWithEverythingInIt) {
    EveryPrefix(kEverything, [](std::string_view text) { ExpectNoGaps(text); });
}

TEST(NextToken, LeavesNoGapInAnyText) {
    constexpr std::string_view kLetters = "<<<>>>///!!!---[[]]???\"\"''== \n\tCDAENax1;&\xC3";
    std::mt19937 random{3};
    std::string text;
    const int rounds = kAddressSanitizer || kThreadSanitizer ? 20'000 : 200'000;
    for (int round = 0; round < rounds; ++round) {
        text.resize(random() % 40);
        for (char& character : text) character = kLetters[random() % kLetters.size()];
        ASSERT_NO_FATAL_FAILURE(ExpectNoGaps(text)) << text;
    }
}

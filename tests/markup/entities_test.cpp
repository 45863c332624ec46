#include "markup/entities.h"

#include <array>
#include <climits>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "markup/characters.h"
#include "markup/slow_decode.h"
#include "markup/tokenizer.h"
#include "support/every_prefix.h"

using namespace std::string_literals;

namespace {

struct TextCase {
    std::string text;
    std::string expected;
};

/// Texts in which each kind of reference, broken ones too, is frequent.
class RandomText {
  public:
    std::string Next() {
        std::string text;
        const unsigned count = m_Random() % 12;
        for (unsigned i = 0; i < count; ++i) text += kPieces[m_Random() % std::size(kPieces)];
        return text;
    }

  private:
    static inline const std::string kPieces[] = {
        "&",     ";",    "#",        "x",       "X",       "0",           "1",        "4",
        "9",     "f",    "a",        "amp",     "lt",      "&lt;",        "&Oslash;", "&oslash;",
        "&#",    "&#x",  "&#32;",    "&#9;",    "&nbsp;",  "&#x41;",      "&#8364;",  "&#128512;",
        " ",     "  ",   "\t",       "\n",      "\r",      "\v",          "\0"s,      "\xC3\xA9",
        "<",     ">",    "\"",       "'",       "]",       "]]>",         "-",        "+",
        "&#-5;", "&amp", "thetasym", "&upsih;", "&#x0x4;", "&#99999999;", "\xFF",     "&# 65;",
    };
    std::mt19937 m_Random{20250419};
};

std::string Encoded(uint32_t codePoint) {
    std::array<char, 4> bytes{};
    int count = 0;
    EncodeUtf8(codePoint, bytes.data(), count);
    return {bytes.data(), static_cast<size_t>(count)};
}

std::string ByteRange(int first, int last) {
    std::string bytes;
    for (int byte = first; byte <= last; ++byte) bytes += static_cast<char>(byte);
    return bytes;
}

}  // namespace

// --- EscapeText ----------------------------------------------------------------------------------

TEST(EscapeText, EscapesWhatBeginsAndEndsMarkup) {
    EXPECT_EQ(EscapeText("a<b & c>d", 0), "a&lt;b &amp; c&gt;d");
    EXPECT_EQ(EscapeText("", 0), "");
    EXPECT_EQ(EscapeText("&", 0), "&amp;");
    EXPECT_EQ(EscapeText("<<>>", 0), "&lt;&lt;&gt;&gt;");
}

TEST(EscapeText, HasTheseFlags) {
    EXPECT_EQ(kEscapeQuotes, 0x0100U);
    EXPECT_EQ(kEscapeKeepReferences, 0x0008U);
}

TEST(EscapeText, EscapesQuotesOnlyWithTheFlag) {
    EXPECT_EQ(EscapeText("'\"<", 0), "'\"&lt;");
    EXPECT_EQ(EscapeText("'\"<&>", kEscapeQuotes), "&apos;&quot;&lt;&amp;&gt;");
}

TEST(EscapeText, EscapesReferencesWithoutTheFlag) {
    EXPECT_EQ(EscapeText("&amp;&#65;", 0), "&amp;amp;&amp;#65;");
    EXPECT_EQ(EscapeText("&amp;", kEscapeQuotes), "&amp;amp;");
}

TEST(EscapeText, KeepsWhatLooksLikeAReferenceWithTheFlag) {
    for (const std::string reference :
         {"&amp;", "&#65;", "&#x41;", "&#;", "&_;", "&:a;", "&a-b.c:1;", "&Unknown;", "&\xC3\xA9;",
          "&averyveryverylongname;"}) {
        EXPECT_EQ(EscapeText(reference, kEscapeKeepReferences), reference);
        EXPECT_EQ(EscapeText("<" + reference + "&", kEscapeKeepReferences),
                  "&lt;" + reference + "&amp;");
    }
}

TEST(EscapeText, EscapesWhatIsNoReferenceWithTheFlag) {
    const TextCase cases[] = {
        {"&", "&amp;"},           {"&;", "&amp;;"},          {"&a b;", "&amp;a b;"},
        {"&amp", "&amp;amp"},     {"&1a;", "&amp;1a;"},      {"&-a;", "&amp;-a;"},
        {"&.;", "&amp;.;"},       {"&a#;", "&amp;a#;"},      {"&#x4#;", "&amp;#x4#;"},
        {"&&amp;", "&amp;&amp;"}, {"&a<b;", "&amp;a&lt;b;"}, {"&a&b;", "&amp;a&b;"},
        {"&a\0;"s, "&amp;a\0;"s},
    };
    for (const TextCase& entry : cases) {
        EXPECT_EQ(EscapeText(entry.text, kEscapeKeepReferences), entry.expected) << entry.text;
    }
}

TEST(EscapeText, TakesMemoryOnceForATextThatNeedsLittle) {
    const std::string text(1000, 'x');
    EXPECT_EQ(EscapeText(text, 0).capacity(), 1107U);
    EXPECT_EQ(DecodeText("&lt;" + text, 0).capacity(), 1004U);
}

TEST(EscapeText, TakesBothFlags) {
    EXPECT_EQ(EscapeText("\"&lt;&'", kEscapeQuotes | kEscapeKeepReferences),
              "&quot;&lt;&amp;&apos;");
}

TEST(EscapeText, LeavesAllOtherBytesAsTheyAre) {
    const std::string others =
        ByteRange(0, 0x21) + ByteRange(0x28, 0x3B) + "=" + ByteRange(0x3F, 255);
    EXPECT_EQ(EscapeText(others, kEscapeQuotes), others);
}

TEST(EscapeText, NeverLooksBeyondTheText) {
    EveryPrefix("<a>&amp;&#x41;&lang;&\xC3\xA9;\"'", [](std::string_view text) {
        for (const uint32_t flags : {0x0000U, 0x0008U, 0x0100U, 0x0108U})
            (void)EscapeText(text, flags);
    });
}

TEST(EscapeText, IsLinearWhateverTheText) {
    const size_t size = size_t{4} << 20;
    EXPECT_EQ(EscapeText(std::string(size, '&'), kEscapeKeepReferences).size(), 5 * size);
    EXPECT_EQ(EscapeText("&" + std::string(size, 'a'), kEscapeKeepReferences).size(), size + 5);
    std::string runs;
    while (runs.size() < size)
        runs += "&aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa";
    EXPECT_EQ(EscapeText(runs, kEscapeKeepReferences).size(), runs.size() / 64 * 68);
}

// --- DecodeText ----------------------------------------------------------------------------------

TEST(DecodeText, GivesTheCharactersOfTheFiveEscapes) {
    EXPECT_EQ(DecodeText("&lt;&amp;&gt;&quot;&apos;", 0), "<&>\"'");
    EXPECT_EQ(DecodeText("&LT;&Amp;", 0), "<&");
    EXPECT_EQ(DecodeText("", 0), "");
}

TEST(DecodeText, GivesTheCharactersOfNumbers) {
    const TextCase cases[] = {
        {"&#65;", "A"},
        {"&#x41;", "A"},
        {"&#X41;", "A"},
        {"&#x4a;&#x4A;", "JJ"},
        {"&#127;", "\x7F"},
        {"&#128;", "\xC2\x80"},
        {"&#0065;", "A"},
        {"&#8364;", "\xE2\x82\xAC"},
        {"&#128512;", "\xF0\x9F\x98\x80"},
        {"&#xD800;", "\xED\xA0\x80"},
    };
    for (const TextCase& entry : cases)
        EXPECT_EQ(DecodeText(entry.text, 0), entry.expected) << entry.text;
}

TEST(DecodeText, ReadsNumbersAsStrtolDoes) {
    const TextCase cases[] = {
        {"&#65abc;", "A"}, {"&# 65;", "A"},  {"&#+65;", "A"},
        {"&#x0x41;", "A"}, {"&#x41g;", "A"}, {"&#65\0;"s, "A"},
    };
    for (const TextCase& entry : cases)
        EXPECT_EQ(DecodeText(entry.text, 0), entry.expected) << entry.text;
}

TEST(DecodeText, TakesTheLowByteOfANegativeNumber) {
    EXPECT_EQ(DecodeText("&#-5;", 0), "\xFB");
    EXPECT_EQ(DecodeText("&#x-41;", 0), "\xBF");
    EXPECT_EQ(DecodeText("&#-256;", 0), "\0"s);
}

TEST(DecodeText, TakesTheLowBitsOfANumberAboveFourBytes) {
    EXPECT_EQ(DecodeText("&#x1FFFFF;", 0), "\xF7\xBF\xBF\xBF");
    EXPECT_EQ(DecodeText("&#x200000;", 0), "\xF0\x80\x80\x80");
    EXPECT_EQ(DecodeText("&#99999999;", 0), Encoded(99999999));
    EXPECT_EQ(DecodeText("&#xFFFFFFF;", 0), "\xF7\xBF\xBF\xBF");
}

TEST(DecodeText, LeavesWhatIsNoKnownReference) {
    for (const std::string& text : {"&amp"s, "&"s, "&;"s, "&&"s, "&#0;"s, "&#x0;"s, "&#;"s, "&#x;"s,
                                    "&#g;"s, "&# ;"s, "&#xg;"s, "&unknown;"s, "& amp;"s, "&amp ;"s,
                                    "&am p;"s, "&a\0mp;"s, "&\xC3\xA9;"s, "&lt\xFF;"s, "&\0;"s}) {
        EXPECT_EQ(DecodeText(text, 0), text);
    }
}

TEST(DecodeText, TakesNoNameWithAByteThatIsNotAscii) {
    EXPECT_EQ(DecodeText("&#65\x80;", 0), "&#65\x80;");
    EXPECT_EQ(DecodeText("&#65\xFF;", 0), "&#65\xFF;");
    EXPECT_EQ(DecodeText("&#65\x7F;", 0), "A");
}

TEST(DecodeText, GoesOnBehindTheAmpersandOfWhatIsNoReference) {
    EXPECT_EQ(DecodeText("&&lt;", 0), "&<");
    EXPECT_EQ(DecodeText("&a&lt;", 0), "&a<");
    EXPECT_EQ(DecodeText("&#&#65;", 0), "&#A");
    EXPECT_EQ(DecodeText("&#0&#65;", 0), "&#0A");
    EXPECT_EQ(DecodeText("&\xFF&lt;", 0), "&\xFF<");
}

TEST(DecodeText, DecodesOnlyOnce) {
    EXPECT_EQ(DecodeText("&amp;lt;", 0), "&lt;");
    EXPECT_EQ(DecodeText("&#38;#65;", 0), "&#65;");
}

TEST(DecodeText, TakesNamesOfUpToNineCharacters) {
    EXPECT_EQ(DecodeText("&thetasym;", 0), "\xCF\x91");
    EXPECT_EQ(DecodeText("&#00000065;", 0), "A");
    EXPECT_EQ(DecodeText("&#000000065;", 0), "&#000000065;");
    EXPECT_EQ(DecodeText("&#x0000041;", 0), "A");
    EXPECT_EQ(DecodeText("&#x00000041;", 0), "&#x00000041;");
    EXPECT_EQ(DecodeText("&thetasymxx;", 0), "&thetasymxx;");
}

TEST(DecodeText, KnowsAllEntities) {
    const auto found = FoundEntities();
    for (const auto& [name, codePoint] : ListedEntities()) {
        EXPECT_EQ(DecodeText("&" + name + ";", 0), SlowUtf8(found.at(InLowerCase(name)))) << name;
    }
}

TEST(DecodeText, GivesTheUpperCaseLetterForBothEntitiesThatDifferInCase) {
    EXPECT_EQ(DecodeText("&Oslash;&oslash;", 0), Encoded(216) + Encoded(216));
    EXPECT_EQ(DecodeText("&Delta;&delta;", 0), Encoded(916) + Encoded(916));
    EXPECT_EQ(DecodeText("&Yuml;&yuml;", 0), Encoded(376) + Encoded(376));
    EXPECT_EQ(DecodeText("&Dagger;&dagger;", 0), Encoded(8225) + Encoded(8225));
    EXPECT_EQ(DecodeText("&Prime;&prime;", 0), Encoded(8243) + Encoded(8243));
    EXPECT_EQ(DecodeText("&lArr;&larr;", 0), Encoded(8656) + Encoded(8656));
}

TEST(DecodeText, LeavesOtherBytesAndWhiteSpaceAsTheyAre) {
    const std::string bytes = ByteRange(0, '&' - 1) + ByteRange('&' + 1, 255);
    EXPECT_EQ(DecodeText(bytes, 0), bytes);
    EXPECT_EQ(DecodeText(" \t a \n ", 0), " \t a \n ");
    EXPECT_EQ(DecodeText(" a ", kMarkupIgnoreCase | kCursorQuoted), " a ");
}

TEST(DecodeText, TrimsWhiteSpaceAtBothEnds) {
    const TextCase cases[] = {
        {"  a  b  ", "a  b"},
        {"\t\n\r a\t\n\r b\t\n\r ", "a\t\n\r b"},
        {"a", "a"},
        {"a ", "a"},
        {" a", "a"},
        {"   ", ""},
        {"", ""},
        {"\va\f ", "\va\f"},
    };
    for (const TextCase& entry : cases) {
        EXPECT_EQ(DecodeText(entry.text, kMarkupTrim), entry.expected) << entry.text;
    }
}

TEST(DecodeText, CollapsesEachRunOfWhiteSpace) {
    const TextCase cases[] = {
        {"  a  b  ", "a b"}, {"\ta\tb\n\nc\r\n", "a b c"}, {"a b", "a b"}, {" \t ", ""}, {"", ""},
    };
    for (const uint32_t flags : {kMarkupCollapse, kMarkupCollapse | kMarkupTrim}) {
        for (const TextCase& entry : cases) {
            EXPECT_EQ(DecodeText(entry.text, flags), entry.expected) << entry.text;
        }
    }
}

TEST(DecodeText, KeepsWhiteSpaceThatIsWrittenAsAReference) {
    EXPECT_EQ(DecodeText(" &#32; a &#9;&#10; ", kMarkupTrim), "  a \t\n");
    EXPECT_EQ(DecodeText(" &#32;  &#32; a&#32;&#32;", kMarkupCollapse), "    a  ");
    EXPECT_EQ(DecodeText("&#32;", kMarkupTrim | kMarkupCollapse), " ");
}

TEST(DecodeText, CountsWhatIsNoReferenceAsText) {
    EXPECT_EQ(DecodeText(" & ", kMarkupTrim), "&");
    EXPECT_EQ(DecodeText("  &  b ", kMarkupCollapse), "& b");
}

TEST(DecodeText, GivesBackWhatWasEscaped) {
    RandomText random;
    for (int i = 0; i < 20'000; ++i) {
        const std::string text = random.Next();
        ASSERT_EQ(DecodeText(EscapeText(text, 0), 0), text);
        ASSERT_EQ(DecodeText(EscapeText(text, kEscapeQuotes), 0), text);
    }
}

TEST(DecodeText, IsAsTheSlowVersion) {
    RandomText random;
    for (int i = 0; i < 100'000; ++i) {
        const std::string text = random.Next();
        ASSERT_EQ(DecodeText(text, 0), SlowDecode(text, false, false)) << text;
        ASSERT_EQ(DecodeText(text, kMarkupTrim), SlowDecode(text, true, false)) << text;
        ASSERT_EQ(DecodeText(text, kMarkupCollapse), SlowDecode(text, false, true)) << text;
        ASSERT_EQ(DecodeText(text, kMarkupTrim | kMarkupCollapse), SlowDecode(text, true, true))
            << text;
    }
}

TEST(DecodeText, NeverLooksBeyondTheText) {
    EveryPrefix(" a &amp; &#x41;&thetasym;&#128512; &\xC3\xA9;& ", [](std::string_view text) {
        for (const uint32_t flags : {0U, kMarkupTrim, kMarkupCollapse})
            (void)DecodeText(text, flags);
    });
}

TEST(DecodeText, IsLinearWhateverTheText) {
    const size_t size = size_t{4} << 20;
    for (const std::string& text : {std::string(size, '&'), "&" + std::string(size, 'a')}) {
        for (const uint32_t flags : {0U, kMarkupTrim, kMarkupCollapse}) {
            EXPECT_TRUE(DecodeText(text, flags) == text);
        }
    }
    EXPECT_EQ(DecodeText("a" + std::string(size, ' '), kMarkupTrim), "a");
    EXPECT_EQ(DecodeText(std::string(size, ' ') + "a", kMarkupCollapse), "a");
}

// --- EscapeNonPrintable --------------------------------------------------------------------------

TEST(EscapeNonPrintable, WritesEachByteThatIsNotPrintableAsANumber) {
    EXPECT_EQ(EscapeNonPrintable("a\tb\n", 0), "a&#x09;b&#x0A;");
    EXPECT_EQ(EscapeNonPrintable("\0\x1F ~\x7F\x80\xFF"s, 0), "&#x00;&#x1F; ~&#x7F;&#x80;&#xFF;");
    EXPECT_EQ(EscapeNonPrintable("\xC3\xA9", 0), "&#xC3;&#xA9;");
    EXPECT_EQ(EscapeNonPrintable("", 0), "");
}

TEST(EscapeNonPrintable, EscapesNothingElseWithoutFlags) {
    const std::string printable = ByteRange(0x20, 0x7E);
    EXPECT_EQ(EscapeNonPrintable(printable, 0), printable);
}

TEST(EscapeNonPrintable, EscapesThePrintableBytesWithFlags) {
    EXPECT_EQ(EscapeNonPrintable("<\n'&amp;", kEscapeQuotes), "&lt;&#x0A;&apos;&amp;amp;");
    EXPECT_EQ(EscapeNonPrintable("<\n'&amp;", kEscapeKeepReferences), "&lt;&#x0A;'&amp;");
    EXPECT_EQ(EscapeNonPrintable("<'\n", 0x0001), "&lt;'&#x0A;");
}

TEST(EscapeNonPrintable, LooksForReferencesBetweenTheBytesThatAreNotPrintable) {
    EXPECT_EQ(EscapeNonPrintable("&a\n;", kEscapeKeepReferences), "&amp;a&#x0A;;");
    EXPECT_EQ(EscapeNonPrintable("&\xC3\xA9;", kEscapeKeepReferences), "&amp;&#xC3;&#xA9;;");
}

TEST(EscapeNonPrintable, HoldsForEachByte) {
    for (int byte = 0; byte < 256; ++byte) {
        const bool isPrintable = byte >= 0x20 && byte <= 0x7E;
        std::array<char, 8> number{};
        (void)snprintf(number.data(), number.size(), "&#x%02X;", static_cast<unsigned>(byte));
        const std::string text = ByteRange(byte, byte);
        EXPECT_EQ(EscapeNonPrintable(text, 0), isPrintable ? text : number.data());
    }
}

TEST(EscapeNonPrintable, CanBeHadBackForAsciiWithoutNul) {
    const std::string text = ByteRange(1, 127);
    EXPECT_EQ(DecodeText(EscapeNonPrintable(text, kEscapeQuotes), 0), text);
}

TEST(EscapeNonPrintable, NeverLooksBeyondTheText) {
    EveryPrefix("&a\x01;<\xFF&amp;", [](std::string_view text) {
        for (const uint32_t flags : {0x0000U, 0x0008U, 0x0100U})
            (void)EscapeNonPrintable(text, flags);
    });
}

// --- MakeCdata -----------------------------------------------------------------------------------

TEST(MakeCdata, PutsTheTextIntoASection) {
    EXPECT_EQ(MakeCdata(""), "<![CDATA[]]>");
    EXPECT_EQ(MakeCdata("a < b & c"), "<![CDATA[a < b & c]]>");
    EXPECT_EQ(MakeCdata("]]"), "<![CDATA[]]]]>");
}

TEST(MakeCdata, OpensANewSectionWithinTheEndOfOne) {
    EXPECT_EQ(MakeCdata("]]>"), "<![CDATA[]]]]><![CDATA[>]]>");
    EXPECT_EQ(MakeCdata("a]]>b]]>"), "<![CDATA[a]]]]><![CDATA[>b]]]]><![CDATA[>]]>");
    EXPECT_EQ(MakeCdata("]]]>"), "<![CDATA[]]]]]><![CDATA[>]]>");
}

TEST(MakeCdata, CanBeHadBackFromAnyText) {
    RandomText random;
    for (int i = 0; i < 20'000; ++i) {
        const std::string text = random.Next();
        ASSERT_EQ(TextOfSections(MakeCdata(text)), text);
    }
    EXPECT_EQ(TextOfSections(MakeCdata("<![CDATA[x]]>")), "<![CDATA[x]]>");
}

TEST(MakeCdata, NeverLooksBeyondTheText) {
    EveryPrefix("a]]>]]]>]", [](std::string_view text) { (void)MakeCdata(text); });
}

// --- EncodeUtf8 ----------------------------------------------------------------------------------

TEST(EncodeUtf8, WritesTwoToFourBytes) {
    EXPECT_EQ(Encoded(0x80), "\xC2\x80");
    EXPECT_EQ(Encoded(0x7FF), "\xDF\xBF");
    EXPECT_EQ(Encoded(0x800), "\xE0\xA0\x80");
    EXPECT_EQ(Encoded(0xFFFF), "\xEF\xBF\xBF");
    EXPECT_EQ(Encoded(0x10000), "\xF0\x90\x80\x80");
    EXPECT_EQ(Encoded(0x10FFFF), "\xF4\x8F\xBF\xBF");
}

TEST(EncodeUtf8, WritesTwoBytesForAscii) {
    EXPECT_EQ(Encoded(0), "\xC0\x80");
    EXPECT_EQ(Encoded('A'), "\xC1\x81");
}

TEST(EncodeUtf8, TakesSurrogatesAndTheLow21BitsOfWhatIsHigher) {
    EXPECT_EQ(Encoded(0xDFFF), "\xED\xBF\xBF");
    EXPECT_EQ(Encoded(0x1FFFFF), "\xF7\xBF\xBF\xBF");
    EXPECT_EQ(Encoded(UINT_MAX), "\xF7\xBF\xBF\xBF");
    EXPECT_EQ(Encoded(0x200041), "\xF0\x80\x81\x81");
}

TEST(EncodeUtf8, OnlyAddsTheLengthWithoutABuffer) {
    int count = 5;
    EncodeUtf8(0x7FF, nullptr, count);
    EXPECT_EQ(count, 7);
    EncodeUtf8(0x800, nullptr, count);
    EXPECT_EQ(count, 10);
    EncodeUtf8(0x10000, nullptr, count);
    EXPECT_EQ(count, 14);
    EncodeUtf8(0, nullptr, count);
    EXPECT_EQ(count, 16);
}

TEST(EncodeUtf8, WritesBehindWhatIsThere) {
    std::string buffer(9, '#');
    int count = 1;
    EncodeUtf8(0x20AC, buffer.data(), count);
    EncodeUtf8(0x1F600, buffer.data(), count);
    EXPECT_EQ(count, 8);
    EXPECT_EQ(buffer, "#\xE2\x82\xAC\xF0\x9F\x98\x80#");
}

// --- LookUpEncoding ------------------------------------------------------------------------------

TEST(LookUpEncoding, GivesTheCodePageInAnyLetterCase) {
    EXPECT_EQ(LookUpEncoding("UTF-8"), 65001);
    EXPECT_EQ(LookUpEncoding("utf8"), 65001);
    EXPECT_EQ(LookUpEncoding("utf-16"), 1200);
    EXPECT_EQ(LookUpEncoding("ISO-8859-1"), 28591);
    EXPECT_EQ(LookUpEncoding("ksc_5601"), 949);
    EXPECT_EQ(LookUpEncoding("PT154"), 154);
    EXPECT_EQ(LookUpEncoding("shifft_jis"), 932);
    EXPECT_EQ(LookUpEncoding("cp1256"), 1256);
}

TEST(LookUpEncoding, GivesOneNumberForAllThatBeginsWithUtf32InUpperCase) {
    EXPECT_EQ(LookUpEncoding("UTF-32"), 65005);
    EXPECT_EQ(LookUpEncoding("UTF-32BE"), 65005);
    EXPECT_EQ(LookUpEncoding("UTF-32 of no kind" + std::string(200, 'x')), 65005);
    EXPECT_EQ(LookUpEncoding("utf-32"), 12000);
    EXPECT_EQ(LookUpEncoding("Utf-32BE"), 12001);
    EXPECT_EQ(LookUpEncoding("UTF32"), 12000);
}

TEST(LookUpEncoding, GivesNoneForOtherNames) {
    for (const std::string& name :
         {""s, "utf"s, "utf-9"s, "utf-8 "s, " utf-8"s, "8-utf"s, "utf-8\0"s, "\xC3\xA9"s, "u"s,
          std::string(99, 'a'), std::string(100, 'a'), std::string(100'000, 'a')}) {
        EXPECT_EQ(LookUpEncoding(name), -1) << name.substr(0, 20);
    }
}

TEST(LookUpEncoding, NeverLooksBeyondTheName) {
    EveryPrefix("UTF-32BE", [](std::string_view name) { (void)LookUpEncoding(name); });
    EveryPrefix("Extended_UNIX_Code_Packed_Format_for_Japanese",
                [](std::string_view name) { (void)LookUpEncoding(name); });
}

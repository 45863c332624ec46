#include "markup/attribute_scan.h"

#include <optional>
#include <random>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "markup/attribute_by_walk.h"
#include "support/every_prefix.h"

using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::string_literals;

namespace {

/// A cursor on what stands behind "<name".
TokenCursor CursorOn(std::string_view text, uint32_t flags = 0) {
    TokenCursor cursor;
    cursor.text = text;
    cursor.flags = flags;
    return cursor;
}

/// The value of an attribute; none if there is no such attribute.
std::optional<std::string> ValueOf(std::string_view text, const char* name, uint32_t flags = 0) {
    TokenCursor cursor = CursorOn(text, flags);
    AttributeText attribute;
    if (!FindAttribute(cursor, name, 0, &attribute)) return std::nullopt;
    EXPECT_EQ(attribute.value.data(), cursor.Word().data());
    EXPECT_EQ(attribute.value, cursor.Word());
    return std::string{attribute.value};
}

/// "name=value" of each attribute, one behind the other.
std::vector<std::string> AttributesOf(std::string_view text) {
    std::vector<std::string> attributes;
    TokenCursor cursor = CursorOn(text);
    AttributeText attribute;
    while (FindAttribute(cursor, nullptr, 0, &attribute)) {
        attributes.push_back(std::string{attribute.name} + "=" + std::string{attribute.value});
    }
    return attributes;
}

}  // namespace

TEST(FindAttribute, GivesTheValueOfANameInEitherQuotes) {
    constexpr std::string_view kText = " a=\"1\" b='2' c=\"it's\" d='\"'";
    EXPECT_EQ(ValueOf(kText, "a"), "1");
    EXPECT_EQ(ValueOf(kText, "b"), "2");
    EXPECT_EQ(ValueOf(kText, "c"), "it's");
    EXPECT_EQ(ValueOf(kText, "d"), "\"");
    EXPECT_EQ(ValueOf(kText, "e"), std::nullopt);
}

TEST(FindAttribute, PassesOverWhiteSpace) {
    EXPECT_EQ(ValueOf("\t\r\n a \n=\r\t '1'\n", "a"), "1");
    EXPECT_THAT(AttributesOf("a='1'b=\"2\"c=3\td"), ElementsAre("a=1", "b=2", "c=3", "d="));
}

TEST(FindAttribute, FindsNothingInATextWithoutAttributes) {
    for (const std::string text :
         {"", " ", "/", ">", "?", " / >", "/>", "?>", "=", "= ", "=x", "==", "=\"a"}) {
        EXPECT_THAT(AttributesOf(text), IsEmpty()) << text;
    }
}

TEST(FindAttribute, GivesValuesAsTheyStand) {
    EXPECT_EQ(ValueOf("a=' &lt; \n>&amp; '", "a"), " &lt; \n>&amp; ");
    EXPECT_EQ(ValueOf("a='b=\"x\"' b='y'", "b"), "y");
}

TEST(FindAttribute, TakesAValueWithoutQuotesUpToWhiteSpaceOrTheEnd) {
    EXPECT_EQ(ValueOf("a=1 b=2", "a"), "1");
    EXPECT_EQ(ValueOf("a=1 b=2", "b"), "2");
    EXPECT_EQ(ValueOf("a=x/y?z=1\tb", "a"), "x/y?z=1");
    EXPECT_EQ(ValueOf("a=x/", "a"), "x/");
    EXPECT_EQ(ValueOf("a=/", "a"), "/");
    EXPECT_EQ(ValueOf("a=1'2'", "a"), "1'2'");
    EXPECT_EQ(ValueOf("a=1>", "a"), "1");
    EXPECT_EQ(ValueOf("a==", "a"), "=");
    EXPECT_EQ(ValueOf("a= =", "a"), "=");
}

TEST(FindAttribute, TakesOneCharacterForAnEmptyWord) {
    EXPECT_EQ(ValueOf("a=>", "a"), ">");
    EXPECT_EQ(ValueOf("a= >b=1", "b"), "1");
}

TEST(FindAttribute, GivesAnEmptyValueToANameWithoutOne) {
    EXPECT_EQ(ValueOf("a", "a"), "");
    EXPECT_EQ(ValueOf("a  ", "a"), "");
    EXPECT_EQ(ValueOf("a b='1'", "a"), "");
    EXPECT_EQ(ValueOf("a 'b' = '1'", "a"), "");
    EXPECT_EQ(ValueOf("a/", "a"), "");
    EXPECT_EQ(ValueOf("a >", "a"), "");
    EXPECT_EQ(ValueOf("a?>", "a"), "");
    EXPECT_EQ(ValueOf("a=", "a"), "");
    EXPECT_EQ(ValueOf("a= ", "a"), "");
    EXPECT_EQ(ValueOf("a=''", "a"), "");
    EXPECT_EQ(ValueOf("a=\"\" b='1'", "a"), "");
}

TEST(FindAttribute, TellsWhereAnEmptyValueStands) {
    const auto PlaceOf = [](std::string_view text) {
        TokenCursor cursor = CursorOn(text);
        AttributeText attribute;
        EXPECT_TRUE(FindAttribute(cursor, "a", 0, &attribute));
        return attribute.value.data() - text.data();
    };
    EXPECT_EQ(PlaceOf("a"), 1);
    EXPECT_EQ(PlaceOf("a b"), 1);
    EXPECT_EQ(PlaceOf("a  "), 1);
    EXPECT_EQ(PlaceOf("a ="), 3);
    EXPECT_EQ(PlaceOf("a = ''"), 5);
}

TEST(FindAttribute, SetsTheFlagOfACursorWhoseValueIsQuoted) {
    struct FlagCase {
        const char* text;
        bool isQuoted;
    };
    for (const FlagCase& entry :
         {FlagCase{"a='1'", true}, FlagCase{"a=\"\"", true}, FlagCase{"a=\"", true},
          FlagCase{"a=1", false}, FlagCase{"a=", false}, FlagCase{"a", false},
          FlagCase{"a 'b'", false}, FlagCase{"b='1' a=2", false}, FlagCase{"'a'", false}}) {
        TokenCursor cursor = CursorOn(entry.text, kMarkupTrim | kCursorQuoted);
        EXPECT_TRUE(FindAttribute(cursor, "a", 0, nullptr)) << entry.text;
        EXPECT_EQ(cursor.flags, kMarkupTrim | (entry.isQuoted ? kCursorQuoted : 0)) << entry.text;
    }
}

TEST(FindAttribute, LeavesTheCursorBehindTheAttribute) {
    struct PlaceCase {
        const char* text;
        int32_t next;
    };
    for (const PlaceCase& entry :
         {PlaceCase{"a='1' b", 5}, PlaceCase{"a=1 b", 3}, PlaceCase{"a b", 1}, PlaceCase{"a  ", 1},
          PlaceCase{"a='1", 4}, PlaceCase{"a= ", 3}}) {
        TokenCursor cursor = CursorOn(entry.text);
        EXPECT_TRUE(FindAttribute(cursor, "a", 0, nullptr)) << entry.text;
        EXPECT_EQ(cursor.next, entry.next) << entry.text;
    }
}

TEST(FindAttribute, StartsWhereTheCursorStands) {
    TokenCursor cursor = CursorOn("<a a='1' b='2'>");
    cursor.next = 2;
    AttributeText attribute;
    ASSERT_TRUE(FindAttribute(cursor, "a", 0, &attribute));
    EXPECT_EQ(attribute.name, "a");
    EXPECT_EQ(attribute.value, "1");
    EXPECT_FALSE(FindAttribute(cursor, "a", 0, &attribute));
}

TEST(FindAttribute, LeavesTheResultAndEndsTheCursorIfThereIsNone) {
    TokenCursor cursor = CursorOn("a='1' ", kCursorQuoted);
    AttributeText attribute{"name", "value"};
    EXPECT_FALSE(FindAttribute(cursor, "b", 0, &attribute));
    EXPECT_EQ(attribute.name, "name");
    EXPECT_EQ(attribute.value, "value");
    EXPECT_EQ(cursor.next, 6);
    EXPECT_EQ(cursor.Word(), "");
    EXPECT_EQ(cursor.flags, 0U);
}

TEST(FindAttribute, TakesAQuoteThatIsNotClosedUpToTheEnd) {
    EXPECT_EQ(ValueOf("a='1 b=\"2\"", "a"), "1 b=\"2\"");
    EXPECT_EQ(ValueOf("a='", "a"), "");
    EXPECT_EQ(ValueOf("'a", "a"), "");
    EXPECT_EQ(ValueOf("\"a b='1'", "b"), std::nullopt);
}

TEST(FindAttribute, TakesAQuotedWordForAName) {
    EXPECT_EQ(ValueOf("'a'='1'", "a"), "1");
    EXPECT_THAT(AttributesOf(" html PUBLIC \"-//W3C//DTD\" \"\""),
                ElementsAre("html=", "PUBLIC=", "-//W3C//DTD=", "="));
    EXPECT_THAT(AttributesOf("'=' '/' \">\" '?'"), ElementsAre("==", "/=", ">=", "?="));
}

TEST(FindAttribute, DoesNotTakeAValueForAName) {
    EXPECT_EQ(ValueOf("a=b b=1", "b"), "1");
    EXPECT_EQ(ValueOf("a='b'", "b"), std::nullopt);
    EXPECT_EQ(ValueOf("=b c=1", "b"), std::nullopt);
}

TEST(FindAttribute, DoesNotTakeTheEndOfATagForAName) {
    for (const char* const name : {"/", ">", "?"})
        EXPECT_EQ(ValueOf("a='1' / > ? ", name), std::nullopt);
    EXPECT_THAT(AttributesOf("a='1'/>"), ElementsAre("a=1"));
    EXPECT_THAT(AttributesOf(" version=\"1.0\" standalone?>"),
                ElementsAre("version=1.0", "standalone="));
    EXPECT_THAT(AttributesOf("a / b > c ? d"), ElementsAre("a=", "b=", "c=", "d="));
}

TEST(FindAttribute, TakesTheFirstOfEqualNames) {
    EXPECT_EQ(ValueOf("a='1' a='2'", "a"), "1");
}

TEST(FindAttribute, ComparesNamesByCaseUnlessToldNotTo) {
    EXPECT_EQ(ValueOf("ID='1'", "id"), std::nullopt);
    EXPECT_EQ(ValueOf("ID='1'", "id", kMarkupIgnoreCase), "1");
    EXPECT_EQ(ValueOf("id='1'", "Id", kMarkupIgnoreCase), "1");
    EXPECT_EQ(ValueOf("\xC3\x84='1'", "\xC3\xA4", kMarkupIgnoreCase), std::nullopt);
}

TEST(FindAttribute, TakesANameThatGoesOnAsInAPath) {
    for (const char* const name : {"id", "id]", "id=7]", "id='7'", "id/x", "id x", "id[1]"}) {
        EXPECT_EQ(ValueOf("i='0' idx='1' id='2'", name), "2") << name;
    }
    for (const char* const name : {"", "i d", "idy", "id.", "]", "=id"}) {
        EXPECT_EQ(ValueOf("idx='1' id='2'", name), std::nullopt) << name;
    }
}

TEST(FindAttribute, DoesNotTakeTheEndOfTheNameForANul) {
    EXPECT_EQ(ValueOf("a\0b='1' c='2'"s, "a"), std::nullopt);
    EXPECT_EQ(ValueOf("a\0b='1' c='2'"s, "c"), "2");
}

TEST(FindAttribute, FindsByNameWhatAWalkOverAllMeetsFirst) {
    constexpr std::string_view kPieces[] = {
        "NA",    "n",     "na",         "a",           "value", " ",        "\n",      "=",
        "\"",    "'",     "/",          ">",           "?",     " n=\"1\"", " na='2'", "[",
        " a=n ", "=\"\"", " n=\"n n\"", " a='=\" n='", "=na",   " a=\"=\"", "\x80"};
    constexpr std::string_view kNames[] = {"n", "N", "na", "nA", "a", "value", "\x80", "x"};
    std::mt19937 random{20261121};
    int found = 0;
    for (int i = 0; i < 100'000; ++i) {
        std::string text;
        for (size_t left = random() % 24; left != 0; --left) {
            text += kPieces[random() % std::size(kPieces)];
        }
        for (const std::string_view name : kNames) {
            const auto begin = static_cast<int32_t>(random() % (text.size() / 2 + 1));
            ASSERT_TRUE(FindsAsAWalk(text, name)) << text << "|" << name;
            ASSERT_TRUE(FindsAsAWalk(text, name, begin)) << text << "|" << name << "|" << begin;
            ASSERT_TRUE(FindsAsAWalk(text, name, begin, kMarkupIgnoreCase)) << text << "|" << name;
            found += ValueOf(text, name.data()).has_value();
        }
    }
    EXPECT_GT(found, 10'000);
}

TEST(FindAttribute, TellsNamesApartThatDifferInOneByte) {
    for (size_t length = 1; length < 40; ++length) {
        const std::string name(length, 'n');
        for (size_t place = 0; place < length; ++place) {
            std::string other = name;
            other[place] = 'm';
            const std::string text = " a=\"1\" " + other + "=\"2\" " + name + "=\"3\"";
            EXPECT_EQ(ValueOf(text, name.c_str()), "3") << other;
            EXPECT_EQ(ValueOf(text, other.c_str()), "2") << other;
            EXPECT_EQ(ValueOf(" a=\"1\" " + name + "=\"3\"", other.c_str()), std::nullopt) << other;
        }
    }
}

TEST(FindAttribute, FindsNoNameOfSeveralWords) {
    // Each stands in the text as it is asked for, but not as one word.
    for (const std::string name : {"b\tc", "b\nc", "b\rc", "b>c", "b?c"}) {
        const std::string text = " a=\"1\" " + name + "=\"2\"" + std::string(64, ' ');
        EXPECT_EQ(ValueOf(text, name.c_str()), std::nullopt) << name;
    }
    EXPECT_EQ(ValueOf(" a=\"1\" b\"c=\"2\"", "b\"c"), "2");
    EXPECT_EQ(ValueOf(" a=\"1\" 'b c'=\"2\"", "'b c'"), std::nullopt);
    // These go on as in a path.
    EXPECT_EQ(ValueOf(" a=\"1\" b/c=\"2\"", "b/c"), "");
    EXPECT_EQ(ValueOf(" a=\"1\" b='x'c=\"2\"", "b='x'c"), "x");
    for (const char* const name : {"b c", "b=c", "b[c", "b]c"}) {
        EXPECT_EQ(ValueOf(" a=\"1\" b=\"2\"", name), "2") << name;
    }
    EXPECT_EQ(ValueOf(" a=\"1\" b=\"2\"", ""), std::nullopt);
}

TEST(FindAttribute, FindsEachOfManyNames) {
    std::string text;
    for (int i = 0; i < 40; ++i) {
        const std::string number = std::to_string(i);
        text += " " + std::string(static_cast<size_t>(i % 7), 'x') + "name" + number + "=\"name7 " +
                number + "\"";
    }
    for (int i = 0; i < 40; ++i) {
        const std::string name =
            std::string(static_cast<size_t>(i % 7), 'x') + "name" + std::to_string(i);
        EXPECT_EQ(ValueOf(text, name.c_str()), "name7 " + std::to_string(i));
        EXPECT_TRUE(FindsAsAWalk(text, name)) << name;
        EXPECT_TRUE(FindsAsAWalk(text, name.substr(1))) << name;
    }
}

TEST(FindAttribute, CountsAttributesFromZeroWithoutAName) {
    constexpr std::string_view kText = " a='1' b c=3 = x / d=\"\" >";
    const std::vector<std::pair<std::string, std::string>> expected = {
        {"a", "1"}, {"b", ""}, {"c", "3"}, {"d", ""}};
    for (size_t i = 0; i < expected.size(); ++i) {
        TokenCursor cursor = CursorOn(kText);
        AttributeText attribute;
        ASSERT_TRUE(FindAttribute(cursor, nullptr, static_cast<int>(i), &attribute));
        EXPECT_EQ(attribute.name, expected[i].first);
        EXPECT_EQ(attribute.value, expected[i].second);
    }
    for (const int index : {4, 5, -1, -2'147'483'647 - 1}) {
        TokenCursor cursor = CursorOn(kText);
        EXPECT_FALSE(FindAttribute(cursor, nullptr, index, nullptr)) << index;
    }
}

TEST(FindAttribute, GivesViewsIntoTheTextAndNeverLooksBeyondIt) {
    EveryPrefix(" a='1' b = \"x>y\" c=z/ d / 'e' = f ?>", [](std::string_view text) {
        TokenCursor cursor = CursorOn(text);
        AttributeText attribute;
        const char* behind = text.data();
        while (FindAttribute(cursor, nullptr, 0, &attribute)) {
            EXPECT_GE(attribute.name.data(), behind);
            EXPECT_GE(attribute.value.data(), attribute.name.data() + attribute.name.size());
            behind = attribute.value.data() + attribute.value.size();
            EXPECT_LE(behind, text.data() + text.size());
        }
        for (const char* const name : {"a", "b", "c", "d", "e", "f"}) {
            TokenCursor other = CursorOn(text);
            (void)FindAttribute(other, name, 0, nullptr);
        }
    });
}

TEST(FindAttribute, IsLinearWhateverTheText) {
    const size_t size = size_t{2} << 20;
    for (const std::string piece : {"=", "\"", "'\" ", "a ", "/", "a", " ", "a='' "}) {
        std::string text;
        while (text.size() < size) text += piece;
        EXPECT_EQ(ValueOf(text, "b"), std::nullopt) << piece;
        TokenCursor cursor = CursorOn(text);
        size_t count = 0;
        while (FindAttribute(cursor, nullptr, 0, nullptr)) ++count;
        EXPECT_LE(count, size) << piece;
    }
}

#include "platform/profile_text.h"

#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/slow_profile.h"
#include "support/at_page_end.h"
#include "support/every_prefix.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using namespace std::string_literals;

constexpr std::string_view kSample =
    "; names\n"
    "[first]\n"
    "  a = 1  ; one\n"
    "\n"
    "nothing\n"
    "\tb=two words\r\n"
    "[second] trailing\n"
    "a=other\n"
    "=unnamed\n"
    "[]\n"
    "a=nameless section\n"
    "[last]\n"
    "z=end";

std::optional<std::string> Value(std::string_view text, std::string_view section,
                                 std::string_view key) {
    const auto lines = FindProfileSection(text, section);
    if (!lines) return std::nullopt;
    const auto value = FindProfileValue(*lines, key);
    if (!value) return std::nullopt;
    return std::string{*value};
}

/// The cleaned lines of a text that have something.
std::vector<std::string> CleanLines(std::string_view text) {
    std::vector<std::string> lines;
    for (size_t at = 0; at < text.size();) {
        const ProfileLine line = ProfileLineAt(text, at);
        EXPECT_EQ(line.begin, at);
        EXPECT_GT(line.end, at);
        if (!line.text.empty()) lines.emplace_back(line.text);
        at = line.end;
    }
    return lines;
}

/// What a list or value of that question looks like in a buffer of `size` bytes: all that counts,
/// the NUL behind it, and that nothing more was touched.
struct Answer {
    size_t count = 0;
    std::string bytes;
    bool operator==(const Answer&) const = default;
};

Answer Ask(std::string_view text, const char* section, const char* key, size_t size) {
    AtPageEnd buffer{std::string(size, '#')};
    const size_t count = ReadProfileText(text, section, key, buffer.Buffer());
    const size_t shown = count == 0 ? 0 : std::min(count + 1, size);
    return {count, std::string{buffer.data(), shown}};
}

/// A file such as no person writes: made of what the format is made of.
std::string RandomProfile(std::mt19937& random) {
    static const std::vector<std::string> kPieces = {"[",
                                                     "]",
                                                     "[a]",
                                                     "[ab]",
                                                     "[b]",
                                                     "=",
                                                     "=",
                                                     ";",
                                                     " ",
                                                     "\t",
                                                     "\r",
                                                     "\n",
                                                     "\n",
                                                     "\n",
                                                     "a",
                                                     "b",
                                                     "ab",
                                                     "a=1\n",
                                                     "b = 2\n",
                                                     "a=;\n",
                                                     "x",
                                                     std::string(1, '\0'),
                                                     std::string(1022, 'x'),
                                                     std::string(1023, ' '),
                                                     std::string(511, 'y'),
                                                     "\v",
                                                     "\f"};
    std::string text;
    const size_t count = random() % 40;
    for (size_t i = 0; i < count; ++i) text += kPieces[random() % kPieces.size()];
    return text;
}

}  // namespace

// Lines

TEST(ProfileLine, LosesWhiteSpaceAndCommentsAndIsEmptyIfNothingIsLeft) {
    EXPECT_THAT(CleanLines("  a b\t\r\n;all\n \t; all too\n\n x ; rest ; more\n"),
                ElementsAre("a b", "x"));
    EXPECT_THAT(CleanLines("\v\f a\v\f\n"), ElementsAre("a"));
    EXPECT_THAT(CleanLines(""), IsEmpty());
}

TEST(ProfileLine, EndsAtANul) {
    EXPECT_THAT(CleanLines("a \0b\nc\n"s), ElementsAre("a", "c"));
    EXPECT_THAT(CleanLines("\0a\n"s), IsEmpty());
}

TEST(ProfileLine, IsAtMost1023BytesLong) {
    const std::string longest(1022, 'x');
    EXPECT_THAT(CleanLines(longest + "\ny\n"), ElementsAre(longest, "y"));
    EXPECT_THAT(CleanLines(longest + "xy\n"), ElementsAre(longest + "x", "y"));
    EXPECT_THAT(CleanLines(longest + "x\ny\n"), ElementsAre(longest + "x", "y"));
    EXPECT_THAT(CleanLines(std::string(3 * 1023, 'x')),
                ElementsAre(longest + "x", longest + "x", longest + "x"));
}

TEST(ProfileLine, OfACommentEndsTheCommentAtItsLimit) {
    EXPECT_THAT(CleanLines(";" + std::string(1022, 'c') + "a=1\n"), ElementsAre("a=1"));
}

TEST(FindProfileLine, FindsOnlyWhatBeginsACleanedLine) {
    const std::string text = "xab\n ab1\n\tab2 ; c\n;ab3\nab;4\nab";
    size_t from = 0;
    std::vector<std::string> found;
    while (const auto line = FindProfileLine(text, "ab", from)) {
        found.emplace_back(line->text);
        from = line->end;
    }
    EXPECT_THAT(found, ElementsAre("ab1", "ab2", "ab", "ab"));
    EXPECT_FALSE(FindProfileLine(text, "ab", text.size()));
}

TEST(FindProfileLine, FindsWhatBeginsAPieceOfALongLine) {
    const std::string text = std::string(1023, 'x') + "  ab=1\n";
    const auto line = FindProfileLine(text, "ab", 0);
    ASSERT_TRUE(line);
    EXPECT_EQ(line->begin, 1023U);
    EXPECT_EQ(line->end, text.size());
    EXPECT_EQ(line->text, "ab=1");
    EXPECT_FALSE(FindProfileLine("x" + text, "ab", 0));
}

TEST(FindProfileLine, FindsNothingThatACleanedLineCannotHold) {
    for (const char* start : {" a", "a\nb", "a;b", "\n", ";"}) {
        EXPECT_FALSE(FindProfileLine(" a\nb\na;b\n\n;\n", start, 0)) << start;
    }
}

// Sections

TEST(ProfileSection, IsFoundByItsWholeName) {
    EXPECT_EQ(Value(kSample, "first", "a"), "1");
    EXPECT_EQ(Value(kSample, "second", "a"), "other");
    EXPECT_EQ(Value(kSample, "", "a"), "nameless section");
}

// The `]` must follow directly.
TEST(ProfileSection, OfANameThatOnlyBeginsLikeThatIsNotFound) {
    EXPECT_EQ(Value("[Name]\na=1\n", "Nam", "a"), std::nullopt);
    EXPECT_EQ(Value("[Name]\na=1\n", "Names", "a"), std::nullopt);
    EXPECT_EQ(Value("[Name ]\na=1\n", "Name", "a"), std::nullopt);
    EXPECT_EQ(Value("[Name ]\na=1\n", "Name ", "a"), "1");
    EXPECT_EQ(Value("[ Name]\na=1\n", "Name", "a"), std::nullopt);
}

TEST(ProfileSection, IsComparedByLetterCase) {
    EXPECT_EQ(Value("[Name]\na=1\n", "name", "a"), std::nullopt);
    EXPECT_EQ(Value("[Name]\nKey=1\n", "Name", "key"), std::nullopt);
}

TEST(ProfileSection, MayHaveWhiteSpaceInFrontOfItsHeadAndAnythingBehindIt) {
    EXPECT_EQ(Value("  \t[Name] x=y\na=1\n", "Name", "a"), "1");
    EXPECT_EQ(Value("[Name] x=y\na=1\n", "Name", "x"), std::nullopt);
    EXPECT_EQ(Value("[Name];c\na=1\n", "Name", "a"), "1");
}

TEST(ProfileSection, CannotHaveItsHeadInAComment) {
    EXPECT_EQ(Value(";[Name]\na=1\n", "Name", "a"), std::nullopt);
    EXPECT_EQ(Value("[Na;me]\na=1\n", "Na;me", "a"), std::nullopt);
}

TEST(ProfileSection, EndsAtTheNextHeadAlsoIfThatHasTheSameName) {
    EXPECT_EQ(Value("[a]\nx=1\n[b]\ny=2\n", "a", "y"), std::nullopt);
    EXPECT_EQ(Value("[a]\nx=1\n[a]\ny=2\n", "a", "y"), std::nullopt);
}

TEST(ProfileSection, DoesNotEndAtALineThatIsNotClosed) {
    EXPECT_EQ(Value("[a]\n[b\ny=2\n", "a", "y"), "2");
    EXPECT_EQ(Value("[a]\n[b ; ]\ny=2\n", "a", "y"), "2");
    EXPECT_EQ(Value("[a]\n[b=3\ny=2\n", "a", "[b"), "3");
}

TEST(ProfileSection, OfANameWithABracketIsFoundByTheWholeNameAndByItsStart) {
    EXPECT_EQ(Value("[a]b]\nx=1\n", "a]b", "x"), "1");
    EXPECT_EQ(Value("[a]b]\nx=1\n", "a", "x"), "1");
}

TEST(ProfileSection, AtTheVeryEndWithoutALineFeedIsFoundLikeAnyOther) {
    EXPECT_EQ(Value(kSample, "last", "z"), "end");
    EXPECT_TRUE(FindProfileSection("[a]\n[b]", "b"));
}

TEST(ProfileSection, BehindALongHeadBeginsAtItsPiece) {
    const std::string text = "[a]" + std::string(1020, 'x') + "k=1\n";
    EXPECT_EQ(Value(text, "a", "k"), "1");
    EXPECT_EQ(Value(" " + text, "a", "k"), std::nullopt);
}

// Entries

TEST(ProfileEntry, LosesWhiteSpaceAroundItsNameAndValue) {
    EXPECT_EQ(Value("[s]\n \t a b \t=\t c d \t\r\n", "s", "a b"), "c d");
}

TEST(ProfileEntry, IsCutAtASemicolon) {
    EXPECT_EQ(Value("[s]\na=b;c\n", "s", "a"), "b");
    EXPECT_EQ(Value("[s]\na= b ;c\n", "s", "a"), "b");
    EXPECT_EQ(Value("[s]\na;=b\n", "s", "a"), std::nullopt);
}

TEST(ProfileEntry, KeepsFurtherEqualSigns) {
    EXPECT_EQ(Value("[s]\na=b=c\n", "s", "a"), "b=c");
    EXPECT_EQ(Value("[s]\na=b=c\n", "s", "a=b"), std::nullopt);
}

TEST(ProfileEntry, MayBeEmptyOrHaveNoName) {
    EXPECT_EQ(Value("[s]\na=\n", "s", "a"), "");
    EXPECT_EQ(Value("[s]\n = 1\n", "s", ""), "1");
}

TEST(ProfileEntry, WithoutAnEqualSignIsIgnored) {
    EXPECT_EQ(Value("[s]\na\na=1\n", "s", "a"), "1");
}

TEST(ProfileEntry, OfANameThatOnlyBeginsOrEndsLikeThatIsPassedOver) {
    EXPECT_EQ(Value("[s]\nab=1\nba=2\na b=3\na=4\n", "s", "a"), "4");
    EXPECT_EQ(Value("[s]\nx=a=1\na=4\n", "s", "a"), "4");
}

TEST(ProfileEntry, FirstOfANameCounts) {
    EXPECT_EQ(Value("[s]\na=1\na=2\n", "s", "a"), "1");
}

TEST(ProfileEntry, IsNotFoundByANameThatNoEntryCanHave) {
    for (const char* key : {" a", "a ", "a\n", "a=", "a;", "a=1"}) {
        EXPECT_EQ(Value("[s]\n a =1\na;=2\n", "s", key), std::nullopt) << key;
    }
}

TEST(ProfileEntry, OfALineOf1023BytesIsWhole) {
    const std::string value(1023 - 3, 'v');
    EXPECT_EQ(Value("[s]\na=" + value + "\n", "s", "a"), value);
    EXPECT_EQ(Value("[s]\na=" + value + "wx=1\n", "s", "a"), value + "w");
    EXPECT_EQ(Value("[s]\na=" + value + "wx=1\n", "s", "x"), "1");
}

// Answers in a buffer

TEST(ReadProfileText, GivesAValueWithItsLength) {
    EXPECT_EQ(Ask(kSample, "first", "b", 64), (Answer{9, "two words\0"s}));
    EXPECT_EQ(Ask(kSample, "first", "b", 10), (Answer{9, "two words\0"s}));
}

TEST(ReadProfileText, CutsAValueToTheBufferLessOne) {
    EXPECT_EQ(Ask(kSample, "first", "b", 9), (Answer{8, "two word\0"s}));
    EXPECT_EQ(Ask(kSample, "first", "b", 3), (Answer{2, "tw\0"s}));
}

TEST(ReadProfileText, DoesNotLookIntoTheTextForABufferOfLessThanThreeBytes) {
    for (const size_t size : {0, 1, 2}) {
        EXPECT_EQ(Ask(kSample, "first", "a", size), Answer{}) << size;
        EXPECT_EQ(Ask(kSample, nullptr, nullptr, size), Answer{}) << size;
    }
}

TEST(ReadProfileText, GivesNothingForWhatIsMissingOrEmpty) {
    EXPECT_EQ(Ask(kSample, "first", "c", 64), Answer{});
    EXPECT_EQ(Ask(kSample, "third", "a", 64), Answer{});
    EXPECT_EQ(Ask("[s]\na=\n", "s", "a", 64), Answer{});
    EXPECT_EQ(Ask("[s]\n", "s", nullptr, 64), Answer{});
    EXPECT_EQ(Ask("", nullptr, nullptr, 64), Answer{});
}

TEST(ReadProfileText, ListsTheSectionsWithTheirTerminatorsCounted) {
    EXPECT_EQ(Ask("[a]\nx=1\n [bc] ;\n[a]\n", nullptr, nullptr, 64), (Answer{7, "a\0bc\0a\0\0"s}));
    EXPECT_EQ(Ask("[a]\nx=1\n", nullptr, "x", 64), (Answer{2, "a\0\0"s}));
}

TEST(ReadProfileText, ListsTheNamesOfASectionWithTheirTerminatorsCounted) {
    EXPECT_EQ(Ask("[s]\na=1\nno\n b = 2\n[t]\nc=3\n", "s", nullptr, 64), (Answer{4, "a\0b\0\0"s}));
}

TEST(ReadProfileText, ListsANameUpToTheFirstClosingBracket) {
    EXPECT_EQ(Ask("[a]b]\n", nullptr, nullptr, 64), (Answer{2, "a\0\0"s}));
}

TEST(ReadProfileText, ListsAnEmptyNameAsAnEmptyText) {
    EXPECT_EQ(Ask("[]\n[a]\n", nullptr, nullptr, 64), (Answer{3, "\0a\0\0"s}));
    EXPECT_EQ(Ask("[s]\n=1\nb=2\n", "s", nullptr, 64), (Answer{3, "\0b\0\0"s}));
}

TEST(ReadProfileText, EndsAListThatIsTooLongAtTheBufferLessTwo) {
    constexpr std::string_view kText = "[abc]\n[defgh]\n";  // 4 and 6 bytes
    EXPECT_EQ(Ask(kText, nullptr, nullptr, 11), (Answer{10, "abc\0defgh\0\0"s}));
    EXPECT_EQ(Ask(kText, nullptr, nullptr, 10), (Answer{8, "abc\0defg\0"s}));
    EXPECT_EQ(Ask(kText, nullptr, nullptr, 9), (Answer{7, "abc\0def\0"s}));
    EXPECT_EQ(Ask(kText, nullptr, nullptr, 7), (Answer{5, "abc\0d\0"s}));
    EXPECT_EQ(Ask(kText, nullptr, nullptr, 3), (Answer{1, "a\0"s}));
}

TEST(ReadProfileText, StopsAListAsSoonAsOnlyTwoBytesAreLeft) {
    constexpr std::string_view kText = "[abc]\n[defgh]\n";
    EXPECT_EQ(Ask(kText, nullptr, nullptr, 6), (Answer{4, "abc\0\0"s}));
    EXPECT_EQ(Ask(kText, nullptr, nullptr, 5), (Answer{4, "abc\0\0"s}));
}

TEST(ReadProfileText, EndsACutListWithTwoNuls) {
    AtPageEnd buffer{std::string(8, '#')};
    EXPECT_EQ(ReadProfileText("[abc]\n[defgh]\n", nullptr, nullptr, buffer.Buffer()), 6U);
    EXPECT_EQ(buffer.Text(), "abc\0de\0\0"s);
}

// Bounds and the second version

TEST(ReadProfileText, NeverLooksBehindTheText) {
    EveryPrefix(kSample, [](std::string_view text) {
        for (const char* section : {"first", "last", "", "none"}) {
            for (const char* key : {"a", "z", "", "none"}) (void)Value(text, section, key);
            (void)Ask(text, section, nullptr, 32);
        }
        (void)Ask(text, nullptr, nullptr, 32);
    });
}

TEST(ReadProfileText, AnswersAsTheLineByLineReaderDoes) {
    std::mt19937 random{20240416};
    const std::vector<const char*> names = {nullptr, "", "a", "b", "ab", "x", " a", "a]", "[a"};
    for (int i = 0; i < 10000; ++i) {
        const std::string text = RandomProfile(random);
        const AtPageEnd copy{text};
        const char* section = names[random() % names.size()];
        const char* key = names[random() % names.size()];
        const size_t size = random() % 40;
        std::string expected(size, '#');
        const size_t count = SlowReadProfile(text, section, key, expected.data(), size);
        std::string actual(size, '#');
        ASSERT_EQ(ReadProfileText(copy.Text(), section, key, actual), count) << text;
        if (count == 0) continue;
        ASSERT_EQ(actual, expected) << text;
    }
}

#include "support/at_page_end.h"

#include <array>
#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/every_prefix.h"
#include "support/failures.h"

using testing::HasSubstr;

TEST(AtPageEnd, HoldsACopyOfTheText) {
    const std::string text(10'000, 'x');
    AtPageEnd copy{text};
    EXPECT_EQ(copy.Text(), text);
    EXPECT_NE(copy.Text().data(), text.data());
    EXPECT_EQ(copy.Bytes().size(), text.size());
    EXPECT_EQ(copy.size(), text.size());
}

TEST(AtPageEnd, TakesBytes) {
    const std::array bytes{std::byte{1}, std::byte{0}, std::byte{2}};
    AtPageEnd copy{std::span<const std::byte>{bytes}};
    EXPECT_EQ(copy.Text(), std::string_view("\1\0\2", 3));
}

TEST(AtPageEnd, EndsTheProgramThatReadsOneByteTooFar) {
    for (const std::string_view text : {"", "abc"}) {
        AtPageEnd copy{text};
        const volatile char* end = copy.data() + copy.size();
        EXPECT_DEATH((void)*end, "");
    }
}

TEST(AtPageEnd, IsABufferOfExactlyThatSize) {
    AtPageEnd buffer{"12345"};
    buffer.Buffer()[4] = '6';
    EXPECT_EQ(buffer.Text(), "12346");
    volatile char* end = buffer.data() + buffer.size();
    EXPECT_DEATH(*end = 'x', "");
}

TEST(AtPageEnd, TakesAnotherTextUpToTheSameEnd) {
    AtPageEnd copy{"12345"};
    const char* end = copy.data() + copy.size();
    copy.Assign("ab");
    EXPECT_EQ(copy.Text(), "ab");
    EXPECT_EQ(copy.data() + copy.size(), end);
}

TEST(EveryPrefix, GivesEachPrefixAndTheWhole) {
    std::vector<std::string> seen;
    EveryPrefix("abc", [&seen](std::string_view text) { seen.emplace_back(text); });
    EXPECT_EQ(seen, (std::vector<std::string>{"", "a", "ab", "abc"}));
}

TEST(EveryPrefix, GivesBytesToWhoWantsThem) {
    const std::array bytes{std::byte{1}, std::byte{2}};
    size_t sum = 0;
    EveryPrefix(std::span<const std::byte>{bytes},
                [&sum](std::span<const std::byte> prefix) { sum += prefix.size(); });
    EXPECT_EQ(sum, 3u);
}

TEST(EveryPrefix, EndsTheProgramOfAParserThatLooksTooFar) {
    EXPECT_DEATH(EveryPrefix("abc",
                             [](std::string_view text) {
                                 const volatile char* data = text.data();
                                 (void)data[text.size()];
                             }),
                 "");
}

TEST(EveryPrefix, TellsTheLengthInAFailure) {
    const auto failures = FailuresOf(
        [] { EveryPrefix("abc", [](std::string_view text) { EXPECT_NE(text.size(), 2u); }); });
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_THAT(failures[0].text, HasSubstr("prefix of 2 bytes"));
}

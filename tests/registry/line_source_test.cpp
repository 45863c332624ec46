#include "registry/line_source.h"

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "registry/registry_host.h"
#include "support/libc_fault.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::vector<std::string> LinesOf(FILE* file) {
    LineSource source{file};
    std::vector<std::string> lines;
    Line line{};
    while (source.Next(line)) {
        EXPECT_EQ(line.length, strlen(line.text));
        lines.emplace_back(line.text);
    }
    return lines;
}

/// What it is to do, as it is told.
std::vector<std::string> LinesByFgets(FILE* file) {
    std::vector<std::string> lines;
    char line[1024];
    while (fgets(line, sizeof line, file) != nullptr) {
        lines.emplace_back(line);
        if (!lines.back().empty() && lines.back().back() == '\n') lines.back().pop_back();
    }
    return lines;
}

void ExpectAsFgets(const std::string& text) {
    const UniqueFile one = StreamOf(text);
    const UniqueFile other = StreamOf(text);
    EXPECT_EQ(LinesOf(one.get()), LinesByFgets(other.get()));
}

}  // namespace

TEST(LineSource, GivesLinesWithoutTheirNewlines) {
    EXPECT_THAT(LinesOf(StreamOf("a\n\nbc").get()), ElementsAre("a", "", "bc"));
    EXPECT_THAT(LinesOf(StreamOf("").get()), IsEmpty());
}

TEST(LineSource, CutsALineBehind1023Characters) {
    const std::string full(1023, 'x');
    EXPECT_THAT(LinesOf(StreamOf(full + "y\nz\n").get()), ElementsAre(full, "y", "z"));
    EXPECT_THAT(LinesOf(StreamOf(full + "\nz\n").get()), ElementsAre(full, "", "z"));
    EXPECT_THAT(LinesOf(StreamOf(full).get()), ElementsAre(full));
    EXPECT_THAT(LinesOf(StreamOf(full.substr(1) + "\nz").get()), ElementsAre(full.substr(1), "z"));
}

TEST(LineSource, SeesNothingBehindANulInALine) {
    const std::string text{"a\0b\n\0\nc\n", 8};
    EXPECT_THAT(LinesOf(StreamOf(text).get()), ElementsAre("a", "", "c"));
}

TEST(LineSource, GivesWhatFgetsGivesWhateverTheText) {
    std::mt19937 random{7};
    for (int round = 0; round < 300; ++round) {
        std::string text;
        const size_t lines = random() % 40;
        for (size_t i = 0; i < lines; ++i) {
            static constexpr size_t kLengths[] = {0,    1,    5,    1021, 1022,
                                                  1023, 1024, 2046, 2047, 5000};
            text += std::string(kLengths[random() % std::size(kLengths)], 'a');
            if (random() % 4 == 0) text += '\0';
            if (random() % 8 != 0) text += '\n';
        }
        ExpectAsFgets(text);
    }
}

TEST(LineSource, GivesWhatFgetsGivesAroundTheEdgesOfItsBuffer) {
    constexpr size_t kBuffer = 64 * 1024;
    for (size_t size = kBuffer - 1030; size < kBuffer + 1030; ++size) {
        std::string text(size, '\n');
        for (size_t i = 99; i < size - 3; ++i) text[i] = i % 600 == 0 ? '\n' : 'a';
        ExpectAsFgets(text);
    }
}

TEST(LineSource, LeavesTheStreamBehindTheLastLineThatWasTaken) {
    const UniqueFile file = StreamOf("first\nsecond\nthird\n");
    {
        LineSource source{file.get()};
        Line line{};
        EXPECT_TRUE(source.Next(line));
    }
    EXPECT_THAT(LinesByFgets(file.get()), ElementsAre("second", "third"));
}

TEST(LineSource, EndsWhereTheStreamCannotBeRead) {
    const UniqueFile file{fopen("/proc/self/mem", "re")};  // nothing is mapped at 0
    EXPECT_THAT(LinesOf(file.get()), IsEmpty());
    EXPECT_NE(ferror(file.get()), 0);
}

#include "inventory/text/command_reader.h"

#include <cerrno>
#include <string>
#include <type_traits>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/fake_host.h"
#include "support/libc_fault.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::vector<std::string> Lines(CCommandReader& reader, size_t size) {
    std::vector<std::string> lines;
    while (reader.ReadLine(size)) lines.push_back(reader.Line());
    return lines;
}

void Start(CCommandReader& reader, const std::string& command) {
    ASSERT_TRUE(reader.SetCommand(command));
    ASSERT_TRUE(reader.Open());
}

/// A close that reaps the command and fails all the same: another one has waited for it.
void FailClose(FaultOf<&::pclose>& fault) {
    fault.Answer([](FILE* stream) {
        (void)LibcFault::Real<&::pclose>(stream);
        errno = ECHILD;
        return -1;
    });
}

}  // namespace

TEST(CommandReader, BeginsWithNothing) {
    CCommandReader reader;
    EXPECT_EQ(reader.Error(), 0);
    EXPECT_EQ(reader.Line(), "");
    EXPECT_TRUE(reader.Close());
    EXPECT_FALSE(std::is_copy_constructible_v<CCommandReader>);
}

TEST(CommandReader, ReadsTheLinesOfACommandWithTheirLineFeeds) {
    CCommandReader reader;
    Start(reader, "printf 'one\\ntwo'");
    EXPECT_THAT(Lines(reader, 0), ElementsAre("one\n", "two"));
    EXPECT_EQ(reader.Line(), "");
    EXPECT_TRUE(reader.Close());
    EXPECT_EQ(reader.Error(), 0);
}

TEST(CommandReader, PutsTheCommandLineTogether) {
    FakeHost host;
    host.Command("show", "for part; do echo \"<$part>\"; done");
    host.Run([] {
        CCommandReader reader;
        ASSERT_TRUE(reader.SetCommand("replaced"));
        ASSERT_TRUE(reader.SetCommand("show"));
        ASSERT_TRUE(reader.AddArgument("one", true));
        ASSERT_TRUE(reader.AddArgument("more", false));
        ASSERT_TRUE(reader.AddArgument("two", true));
        ASSERT_TRUE(reader.Open());
        EXPECT_THAT(Lines(reader, 0), ElementsAre("<onemore>\n", "<two>\n"));
    });
}

TEST(CommandReader, RefusesAnEmptyCommandOrArgumentWithCodeTwo) {
    CCommandReader reader;
    ASSERT_TRUE(reader.SetCommand("echo"));
    EXPECT_FALSE(reader.SetCommand(""));
    EXPECT_EQ(reader.Error(), 2);
    CCommandReader other;
    ASSERT_TRUE(other.SetCommand("echo one"));
    EXPECT_FALSE(other.AddArgument("", true));
    EXPECT_EQ(other.Error(), 2);
    ASSERT_TRUE(other.Open());
    EXPECT_THAT(Lines(other, 0), ElementsAre("one\n"));
    EXPECT_EQ(other.Error(), 2);  // the last failure
}

TEST(CommandReader, HasCodeThreeIfTheCommandCannotBeStarted) {
    CCommandReader reader;
    ASSERT_TRUE(reader.SetCommand("true"));
    FaultOf<&::popen> fault;
    fault.Fail(EMFILE);
    EXPECT_FALSE(reader.Open());
    EXPECT_EQ(reader.Error(), 3);
    EXPECT_FALSE(reader.ReadLine(0));
    EXPECT_EQ(reader.Error(), 4);
}

TEST(CommandReader, HasCodeFourWithoutARunningCommandAndKeepsTheLine) {
    CCommandReader reader;
    EXPECT_FALSE(reader.ReadLine(0));
    EXPECT_EQ(reader.Error(), 4);
    Start(reader, "echo one; echo two");
    EXPECT_TRUE(reader.ReadLine(0));
    EXPECT_TRUE(reader.Close());
    EXPECT_FALSE(reader.ReadLine(0));
    EXPECT_EQ(reader.Line(), "one\n");
}

TEST(CommandReader, GivesAPartOfALongLineAndTheRestWithTheNextCall) {
    CCommandReader reader;
    Start(reader, "printf 'abcdefg\\nhi\\n'");
    EXPECT_THAT(Lines(reader, 5), ElementsAre("abcd", "efg\n", "hi\n"));
}

TEST(CommandReader, GivesALineFeedThatHasNoRoomALineOfItsOwn) {
    CCommandReader reader;
    Start(reader, "printf 'abcd\\nhi\\n'");
    EXPECT_THAT(Lines(reader, 5), ElementsAre("abcd", "\n", "hi\n"));
}

TEST(CommandReader, TakesALineOf256BytesByDefault) {
    CCommandReader reader;
    Start(reader, "printf '%0300d\\n' 7");
    EXPECT_TRUE(reader.ReadLine(0));
    EXPECT_EQ(reader.Line(), std::string(255, '0'));
    EXPECT_TRUE(reader.ReadLine(0));
    std::string rest(44, '0');
    rest += "7\n";
    EXPECT_EQ(reader.Line(), rest);
}

TEST(CommandReader, HasNoRoomInALineOfOneByte) {
    CCommandReader reader;
    Start(reader, "echo one");
    EXPECT_FALSE(reader.ReadLine(1));
    EXPECT_EQ(reader.Error(), 0);
    EXPECT_THAT(Lines(reader, 0), ElementsAre("one\n"));
}

TEST(CommandReader, DoesNotMindTheExitStatus) {
    CCommandReader reader;
    Start(reader, "exit 3");
    EXPECT_TRUE(reader.Close());
    EXPECT_EQ(reader.Error(), 0);
}

TEST(CommandReader, ClosesARunningCommandBeforeItStartsTheNext) {
    CCommandReader reader;
    Start(reader, "echo one; echo two");
    EXPECT_TRUE(reader.ReadLine(0));
    Start(reader, "echo three");
    EXPECT_THAT(Lines(reader, 0), ElementsAre("three\n"));
}

TEST(CommandReader, ClosesWhenItGoes) {
    FaultOf<&::pclose> close;
    {
        CCommandReader reader;
        Start(reader, "echo one");
    }
    EXPECT_EQ(close.Calls(), 1);
}

TEST(CommandReader, HasCodeNineIfClosingFailsAndStillCountsAsRunning) {
    CCommandReader reader;
    Start(reader, "echo one");
    FaultOf<&::pclose> fault;
    FailClose(fault);
    EXPECT_FALSE(reader.Close());
    EXPECT_EQ(reader.Error(), 9);
    EXPECT_FALSE(reader.SetCommand(""));
    EXPECT_FALSE(reader.ReadLine(0));
    EXPECT_EQ(reader.Error(), 2);  // not 4
    EXPECT_FALSE(reader.Close());
    EXPECT_EQ(reader.Error(), 9);
    EXPECT_EQ(fault.Calls(), 1);  // the C library has freed the stream
}

TEST(CommandReader, IsNotClosedTwiceWhenItGoesAfterAFailedClose) {
    FaultOf<&::pclose> fault;
    FailClose(fault);
    {
        CCommandReader reader;
        Start(reader, "true");
        EXPECT_FALSE(reader.Close());
    }
    EXPECT_EQ(fault.Calls(), 1);
}

TEST(CommandReader, StartsAgainAfterAFailedClose) {
    CCommandReader reader;
    Start(reader, "true");
    FaultOf<&::pclose> fault;
    FailClose(fault);
    Start(reader, "echo one");
    EXPECT_EQ(reader.Error(), 9);
    EXPECT_THAT(Lines(reader, 0), ElementsAre("one\n"));
    EXPECT_TRUE(reader.Close());
}

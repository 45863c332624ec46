#include "support/trace_capture.h"

#include <cstdlib>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/fake_host.h"
#include "trace/trace.h"

using testing::ElementsAre;
using testing::IsEmpty;

TEST(CutTracePrefix, CutsBothForms) {
    EXPECT_EQ(CutTracePrefix("2024-04-16 15:56:01.007 [0000012345] zorn          CName : text"),
              "CName : text");
    EXPECT_EQ(
        CutTracePrefix("2024-04-16 15:56:01.007 [0000012345]     1234 KB !zorn          text  "),
        "text  ");
}

TEST(CutTracePrefix, TakesALongNameAndAnEmptyOne) {
    EXPECT_EQ(
        CutTracePrefix("2024-04-16 15:56:01.007 [0000012345] averyveryverylongname text here"),
        "text here");
    EXPECT_EQ(CutTracePrefix("2024-04-16 15:56:01.007 [0000012345]               text here"),
              "text here");
    EXPECT_EQ(CutTracePrefix("2024-04-16 15:56:01.007 [0000012345]        1 KB !              x"),
              "x");
}

TEST(CutTracePrefix, TakesTheStampOfAClockThatCannotBeRead) {
    EXPECT_EQ(CutTracePrefix("yyyy-mm-dd hh:mm:ss.mmm [0000000001] zorn          text"), "text");
}

TEST(CutTracePrefix, LeavesOtherLinesWhole) {
    for (const char* line : {"", "text", "2024-04-16 15:56:01.007 text", "## TRACE-END ##",
                             "2024-04-16 15:56:01.007 [12] zorn          text"}) {
        EXPECT_EQ(CutTracePrefix(line), line);
    }
}

TEST(CutTracePrefix, GivesAnEmptyTextForAnEmptyLine) {
    EXPECT_EQ(CutTracePrefix("2024-04-16 15:56:01.007 [0000012345] zorn          "), "");
    EXPECT_EQ(CutTracePrefix("2024-04-16 15:56:01.007 [0000012345] zorn"), "");
}

TEST(MaskTrace, MasksWhatDiffersFromRunToRun) {
    EXPECT_EQ(
        MaskTrace(
            "2024-04-16 15:56:01.007 [0000012345]     1234 KB !zorn          one\n"
            "2024-04-16 15:56:01.007 [0000012345] zorn          Set event 0x7ffe01234567 <x>\n"
            "2024-04-16 15:56:01.007 [0000012345] zorn          Process PID                : "
            "12345\n"
            "2024-04-16 15:56:01.007 [0000012345] zorn          mirl Start=\"Nov 20 19:06:01\"\n"
            "a line without prefix, flag 0x10\n"),
        "<time> [<pid>] <KB> !zorn          one\n"
        "<time> [<pid>] zorn          Set event <address> <x>\n"
        "<time> [<pid>] zorn          Process PID                : <pid>\n"
        "<time> [<pid>] zorn          mirl Start=\"<time>\"\n"
        "a line without prefix, flag 0x10\n");
}

TEST(MaskTrace, KeepsAMissingLineEnd) {
    EXPECT_EQ(MaskTrace("one\n\ntwo"), "one\n\ntwo");
    EXPECT_EQ(MaskTrace(""), "");
}

TEST(TraceCapture, GivesTheLinesUpToItsLevelWordForWord) {
    TraceCapture trace{2};
    TRACE(1, "\nFirst               : number %d\n", 1);
    TRACE(2, "Second              : no line end");
    TRACE(3, "Third               : too fine");
    TRACE_ALWAYS("\n\nAlways              : at any level");
    EXPECT_THAT(trace.Lines(),
                ElementsAre("First               : number 1", "Second              : no line end",
                            "Always              : at any level"));
    EXPECT_THAT(trace.LinesWith("cond"), ElementsAre("Second              : no line end"));
}

TEST(TraceCapture, GivesOnlyTheUnconditionalLinesAtLevelZero) {
    TraceCapture trace{0};
    EXPECT_FALSE(Debug.IsEnabled());
    TRACE(1, "dropped");
    TRACE_ALWAYS("kept");
    EXPECT_THAT(trace.Lines(), ElementsAre("kept"));
}

TEST(TraceCapture, StartsEmptyEachTime) {
    for (int i = 0; i < 2; ++i) {
        TraceCapture trace{6};
        EXPECT_THAT(trace.Lines(), IsEmpty());
        TRACE(6, "line");
        EXPECT_THAT(trace.Lines(), ElementsAre("line"));
    }
}

TEST(TraceCapture, ForgetsLinesWhenAsked) {
    TraceCapture trace{1};
    TRACE(1, "one");
    trace.Clear();
    TRACE(1, "two");
    EXPECT_THAT(trace.Lines(), ElementsAre("two"));
    trace.Clear();
    EXPECT_THAT(trace.Lines(), IsEmpty());
}

TEST(TraceCapture, PutsEnvironmentAndTraceBack) {
    setenv("QX_LOG_DEBUG_LEVEL", "3", 1);
    unsetenv("QX_LOG_RINGBUF_DIR");
    {
        TraceCapture trace{6};
        EXPECT_STREQ(getenv("QX_LOG_DEBUG_LEVEL"), "6");
        EXPECT_TRUE(Debug.IsEnabled());
    }
    EXPECT_STREQ(getenv("QX_LOG_DEBUG_LEVEL"), "3");
    EXPECT_EQ(getenv("QX_LOG_RINGBUF_DIR"), nullptr);
    EXPECT_FALSE(Debug.IsEnabled());
    unsetenv("QX_LOG_DEBUG_LEVEL");
}

TEST(TraceCapture, WorksOnAFakeHost) {
    FakeHost host;
    host.Run([] {
        TraceCapture trace{1};
        TRACE(1, "on the host");
        EXPECT_THAT(trace.Lines(), ElementsAre("on the host"));
    });
}

TEST(TraceCapture, GivesTheWholeTextWithItsPrefixes) {
    TraceCapture trace{1};
    TRACE(1, "text");
    EXPECT_EQ(MaskTrace(trace.Text()), "<time> [<pid>] <KB> !capture       text\n");
}

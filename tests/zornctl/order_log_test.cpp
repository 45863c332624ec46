#include "zornctl/order/order_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "support/every_prefix.h"
#include "support/fake_clock.h"
#include "support/fake_host.h"
#include "trace/open_debug.h"
#include "zornctl/trace_samples.h"

using namespace zornctl;
using testing::ElementsAre;

namespace {

std::string Wrap(int second, unsigned cycle, size_t head, size_t limit) {
    return Line(second, "------ WRAP ----- Cycle=" + std::to_string(cycle) + ", CntInitEnd=" +
                            std::to_string(head) + ", CurrentByteCnt=" + std::to_string(head) +
                            " (MaxCnt=" + std::to_string(limit) + ")");
}

/// Writes `front` over the beginning of `text` from `at` on.
std::string Over(std::string text, size_t at, const std::string& front) {
    return text.replace(at, std::min(front.size(), text.size() - at), front);
}

std::vector<std::string> LogTexts(std::string_view text) {
    return Texts(OrderLog(text).pieces);
}

/// A head, and a pass that ends behind the limit.
struct Sample {
    std::string head = Line(1, "head");
    std::string former = Line(2, "a") + Line(3, "b") + Line(4, "c") + Line(5, "d");
    std::string whole = head + former;
    size_t limit = whole.size() - 1;

    /// The file after the wrap at second 5 and these lines.
    [[nodiscard]] std::string After(const std::string& lines) const {
        return Over(whole + std::string(1, '\0'), head.size(),
                    Wrap(5, 1, head.size(), limit) + lines)
            .substr(0, whole.size());
    }
};

TEST(OrderLog, LeavesALogThatHasNotWrappedAsItIs) {
    const std::string text = Line(1, "a") + Line(2, "b");
    const auto order = OrderLog(text);
    EXPECT_EQ(order.cycle, std::nullopt);
    EXPECT_THAT(order.pieces, ElementsAre(TracePiece{TracePart::kNewest, text}));
}

TEST(OrderLog, GivesNothingForAnEmptyLog) {
    EXPECT_TRUE(OrderLog("").pieces.empty());
}

TEST(OrderLog, PutsTheNewestPassBehindWhatIsLeftOfTheFormerOne) {
    const Sample sample;
    const std::string text = sample.After("");
    const auto order = OrderLog(text);
    EXPECT_EQ(order.cycle, 1u);
    ASSERT_EQ(order.pieces.size(), 3u);
    EXPECT_EQ(order.pieces[0].part, TracePart::kHead);
    EXPECT_EQ(order.pieces[1].part, TracePart::kOlder);
    EXPECT_EQ(order.pieces[2].part, TracePart::kNewest);
    EXPECT_THAT(LogTexts(text),
                ElementsAre("head", testing::StartsWith("~"), "d", testing::StartsWith("---")));
}

TEST(OrderLog, FindsTheEndOfThePassWhereTheFormerLineIsCut) {
    std::string former;
    for (int i = 0; i < 20; ++i) former += Line(100 + i, "former " + std::to_string(i));
    const std::string whole = Line(1, "head") + former;
    const size_t head = Line(1, "head").size();
    for (size_t length = 1; length < 300; ++length) {
        const std::string front = Wrap(119, 1, head, whole.size() - 1) +
                                  Line(200, std::string(length, 'n')) + Line(201, "newest");
        const std::string text = Over(whole, head, front);
        const auto texts = LogTexts(text);
        ASSERT_EQ(texts.back(), "newest") << length;
        ASSERT_EQ(texts.at(texts.size() - 2), std::string(length, 'n'));
        ASSERT_EQ(texts.at(texts.size() - 4), "former 19");
    }
}

TEST(OrderLog, MarksTheCutLineAndNoOther) {
    const std::string head = Line(1, "head");
    const std::string whole = head + Line(2, std::string(200, 'x')) + Line(3, "b") + Line(4, "c");
    const std::string text = Over(whole, head.size(), Wrap(4, 1, head.size(), whole.size() - 1));
    const auto entries = SplitEntries(OrderLog(text).pieces);
    ASSERT_EQ(entries.size(), 5u);
    EXPECT_FALSE(entries[0].isCut);
    EXPECT_TRUE(entries[1].isCut);
    EXPECT_EQ(entries[1].text, std::string(entries[1].text.size(), 'x'));
    EXPECT_FALSE(entries[2].isCut || entries[3].isCut || entries[4].isCut);
}

TEST(OrderLog, TakesTheLastLooseLineForTheCutOneAndTheOthersForText) {
    std::string whole = Line(1, std::string(300, 'x')) + Line(2, "b") + Line(3, "c");
    const std::string front = Wrap(3, 1, 0, whole.size() - 1) + Line(9, "two\nlines");
    const auto texts = LogTexts(Over(whole, 0, front));
    EXPECT_THAT(texts, ElementsAre(testing::MatchesRegex("~x+"), "b", "c",
                                   testing::StartsWith("------ WRAP"), "two\nlines"));
}

TEST(OrderLog, TakesTheRestOfAPrefixForTheCutLineWhateverTheClockSays) {
    const std::string front = Wrap(500, 1, 0, 1'000'000) + Line(501, "newest");
    const std::string older = Line(600, "later by a clock that was set back") + Line(500, "last");
    const auto texts = LogTexts(front + Line(599, "cut").substr(10) + older);
    EXPECT_EQ(texts.back(), "newest");
    EXPECT_EQ(texts.front(), "~" + Line(599, "cut").substr(10, Line(599, "cut").size() - 11));
}

TEST(OrderLog, ToleratesAClockThatWasSetBackWithinAPass) {
    const std::string front = Wrap(5000, 1, 0, 1'000'000) + Line(5001, "a") +
                              Line(1401, "after summer time") + Line(1402, "newest");
    const auto texts = LogTexts(front + "rest of a line\n" + Line(1390, "b") + Line(5000, "c"));
    EXPECT_THAT(texts, ElementsAre("~rest of a line", "b", "c", testing::StartsWith("------ WRAP"),
                                   "a", "after summer time", "newest"));
}

TEST(OrderLog, TakesTheLargestStepWhereNoLineIsCut) {
    const std::string text = Wrap(5000, 1, 0, 1'000'000) + Line(5001, "a") + Line(5000, "b") +
                             Line(3000, "c") + Line(5000, "d");
    EXPECT_THAT(LogTexts(text),
                ElementsAre("c", "d", testing::StartsWith("------ WRAP"), "a", "b"));
}

TEST(OrderLog, PassesOverStampsThatTellNoTime) {
    const std::string blind = "yyyy-mm-dd hh:mm:ss.mmm [0000004907] zorn          blind\n";
    const std::string text =
        Wrap(50, 1, 0, 1'000'000) + blind + Line(51, "a") + Line(40, "b") + Line(50, "c");
    EXPECT_THAT(LogTexts(text),
                ElementsAre("b", "c", testing::StartsWith("------ WRAP"), "blind", "a"));
}

TEST(OrderLog, PutsTheRestBehindTheLimitInFrontOfTheFormerPass) {
    const std::string former = Line(2, "a") + Line(3, "b");
    const std::string text = Wrap(3, 2, 0, Wrap(3, 2, 0, 100).size() + former.size() - 1) + former +
                             "rest of a longer last line\n";
    EXPECT_THAT(LogTexts(text), ElementsAre("~rest of a longer last line", "a", "b",
                                            testing::StartsWith("------ WRAP")));
}

TEST(OrderLog, KeepsALineOfTheSameMillisecondThatPassedTheLimitInTheFormerPass) {
    const std::string wrap = Wrap(7, 3, 0, 10);  // the limit is below the WRAP line
    EXPECT_THAT(LogTexts(wrap + Line(7, "passed the limit")),
                ElementsAre("passed the limit", testing::StartsWith("------ WRAP")));
}

TEST(OrderLog, KeepsTheCutLineInTheFormerPassWhereNothingElseIsLeftOfIt) {
    const std::string pass = Wrap(7, 1, 0, 400) + Line(8, "a") + Line(9, "newest");
    const std::string text = pass + std::string(400, 'x') + "\n";
    EXPECT_THAT(LogTexts(text), ElementsAre("~" + std::string(400, 'x'),
                                            testing::StartsWith("------ WRAP"), "a", "newest"));
}

TEST(OrderLog, IgnoresATextThatLooksLikeAWrapLine) {
    const std::string fake = Wrap(2, 4'000'000, 12345, 10);
    const std::string text = Line(1, "a") + fake + Line(3, "b");
    EXPECT_EQ(OrderLog(text).cycle, std::nullopt);
    EXPECT_EQ(OrderLog(Line(1, "x") + "------ WRAP ----- Cycle=1, CntInitEnd=0\n").cycle,
              std::nullopt);
}

// One look at the line for each of them would take hours.
TEST(OrderLog, LooksOnceAtALineThatHoldsManyWrapTexts) {
    std::string text = Line(1, "a");
    while (text.size() < size_t{64} << 20U) text += "------ WRAP ----- Cycle=";
    const auto order = OrderLog(text);
    EXPECT_EQ(order.cycle, std::nullopt);
    EXPECT_THAT(order.pieces, ElementsAre(TracePiece{TracePart::kNewest, text}));
}

TEST(OrderLog, TakesTheHighestCycleWhereAHeadHoldsAWrapLine) {
    const std::string head = Wrap(1, 1, 0, 100) + Line(2, "end of initialization");
    const std::string text =
        head + Wrap(3, 2, head.size(), 1'000'000) + Line(4, "newest") + Line(3, "older");
    const auto order = OrderLog(text);
    EXPECT_EQ(order.cycle, 2u);
    EXPECT_THAT(LogTexts(text), ElementsAre(testing::HasSubstr("Cycle=1,"), "end of initialization",
                                            "older", testing::HasSubstr("Cycle=2,"), "newest"));
}

TEST(OrderLog, FindsAPassThatBeginsAtTheStartAfterAFailedSeek) {
    const std::string text = Wrap(9, 5, 700, 900) + Line(10, "newest") + Line(3, "older");
    EXPECT_EQ(OrderLog(text).cycle, 5u);
    EXPECT_EQ(LogTexts(text).back(), "newest");
}

TEST(OrderLog, SkipsTheHoleOfALogThatWasEmptiedWhileTheServiceWent) {
    const std::string hole(500, '\0');
    const std::string text = hole + Wrap(9, 5, 500, 100'000) + Line(10, "newest") + Line(3, "old");
    EXPECT_EQ(OrderLog(text).cycle, 5u);
    EXPECT_THAT(LogTexts(text), ElementsAre("old", testing::StartsWith("------ WRAP"), "newest"));
}

TEST(OrderLog, HasEveryByteInOnePieceAndNeverLooksBehindTheText) {
    const Sample sample;
    const std::string text = sample.After(Line(6, "e") + Line(7, "several\nlines"));
    EveryPrefix(text, [](std::string_view prefix) {
        size_t bytes = 0;
        for (const auto& piece : OrderLog(prefix).pieces) bytes += piece.text.size();
        EXPECT_EQ(bytes, prefix.size());
    });
}

// --- What the trace writes -----------------------------------------------------------------------

std::string FirstLine(std::string_view text) {
    return std::string{text.substr(0, text.find('\n'))};
}

/// A trace on a machine of its own, whose log is put in order after every line.
class LogWriter {
  public:
    LogWriter(OpenDebug& debug, unsigned seed, bool severalLines)
        : m_Debug(debug), m_SeveralLines(severalLines), m_Random(seed) {}

    void EndOfInitialization() {
        m_Debug.EndOfInitialization();
        m_Head = m_History.size();
    }

    void Write(int count) {
        for (int i = 0; i < count && !testing::Test::HasFailure(); ++i) {
            WriteLine();
            Check();
        }
    }

  private:
    size_t Pick(size_t limit) { return std::uniform_int_distribution<size_t>{0, limit}(m_Random); }

    /// A line with a number of its own; after a wrap the clock goes on, as it does in any file that
    /// holds more than a millisecond. Where texts have several lines no two stamps are equal: these
    /// would leave nothing to tell a further line from a cut one.
    void WriteLine() {
        const uint32_t cycle = m_Debug.m_LogCycle;
        std::string text = "#" + std::to_string(m_History.size()) + " ";
        text.append(Pick(Pick(9) == 0 ? 1010 : 100), 'x');
        m_History.push_back(text);
        if (m_SeveralLines && Pick(2) == 0) text += "\n  further text\n\n  and more";
        m_Debug.CallTraceArgs(Pick(5) == 0 ? "some-longer-module" : "zorn", "%s", text.c_str());
        const bool hasWrapped = m_Debug.m_LogCycle != cycle;
        if (hasWrapped || m_SeveralLines || Pick(1) == 0)
            m_Clock.Advance(std::chrono::milliseconds{Pick(30) + 1});
    }

    /// The entries are the head, and the last lines of the history without a gap.
    void Check() {
        const std::string text = FileText(kLog);
        Lines texts;
        int cuts = 0;
        for (const auto& entry : SplitEntries(OrderLog(text).pieces)) {
            const auto behind = entry.text.substr(entry.prefix ? entry.prefix->length : 0);
            if (behind.starts_with("------ WRAP")) continue;
            cuts += entry.isCut ? 1 : 0;
            if (entry.isCut) continue;
            ASSERT_TRUE(behind.starts_with("#")) << behind << '\n' << text;
            texts.push_back(m_SeveralLines ? FirstLine(behind) : std::string{behind});
        }
        ASSERT_LE(cuts, 2) << "where the newest pass ends, and behind the limit";
        if (m_Debug.m_LogCycle == 0) {
            ASSERT_EQ(texts, m_History);
            return;
        }
        ASSERT_GE(texts.size(), m_Head + 1) << text;
        const auto passes = texts.size() - m_Head;
        for (size_t i = 0; i < m_Head; ++i) ASSERT_EQ(texts[i], m_History[i]);
        for (size_t i = 0; i < passes; ++i) {
            ASSERT_EQ(texts[m_Head + i], m_History[m_History.size() - passes + i]) << text;
        }
    }

    OpenDebug& m_Debug;
    bool m_SeveralLines;
    std::mt19937 m_Random;
    FakeClock m_Clock{1'700'000'000};
    Lines m_History;
    size_t m_Head = 0;
};

/// `seed` also decides about the size of the log and its head.
class RestoredLog : public testing::TestWithParam<unsigned> {};

void RestoreAfterEachLine(unsigned seed, bool severalLines) {
    FakeHost host;
    host.Directory("/var/log/tolbrin");
    host.Run([&] {
        setenv("QX_LOG_FILE_MAX_SIZE", std::to_string(1000 + seed * 700).c_str(), 1);
        OpenDebug debug;
        debug.Init("zorn");
        debug.m_MemoryTraces = seed % 2;
        debug.m_TraceTarget = 1;
        LogWriter writer{debug, seed, severalLines};
        writer.Write(static_cast<int>(seed % 4));
        writer.EndOfInitialization();
        writer.Write(600);
        EXPECT_GT(debug.m_LogCycle, 3u);
    });
}

TEST_P(RestoredLog, IsWhatWasWrittenAfterEachLineOfManyPasses) {
    RestoreAfterEachLine(GetParam(), false);
}

TEST_P(RestoredLog, KeepsItsOrderWithTextsOfSeveralLines) {
    RestoreAfterEachLine(GetParam(), true);
}

INSTANTIATE_TEST_SUITE_P(Seeds, RestoredLog, testing::Range(0U, 16U));

}  // namespace

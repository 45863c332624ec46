#include "zornctl/order/order_ring.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "support/every_prefix.h"
#include "support/fake_clock.h"
#include "support/fake_host.h"
#include "support/sanitizers.h"
#include "trace/open_debug.h"
#include "zornctl/trace_samples.h"

using namespace zornctl;
using testing::ElementsAre;
using testing::StartsWith;

namespace {

constexpr const char* kRing = "/var/log/tolbrin/test_ring";

// --- Made by hand --------------------------------------------------------------------------------

std::string Block(int second) {
    std::string block = Prefix(second);
    return block.append(1023 - block.size(), '_') + "\n";
}

std::string Over(std::string text, size_t at, const std::string& front) {
    return text.replace(at, front.size(), front);
}

const std::string kMark{kEndMark};

/// A ring of eight blocks of which nothing but the begin line in the third is written, and header.
std::string EmptyRing() {
    std::string ring;
    for (int i = 0; i < 8; ++i) ring += Block(1);
    ring = Over(ring, 0, Line(1, "QX_OS=x") + Line(1, "# End of header.") + kMark);
    return Over(ring, 2048, Line(1, "### Begin of RingBuffer. ###"));
}

const size_t kRingAt = 2048 + Line(1, "### Begin of RingBuffer. ###").size();

/// The same, filled with lines of these seconds, and dots behind them.
std::string FullRing(int first) {
    std::string ring = EmptyRing();
    size_t at = kRingAt;
    for (int i = first;; ++i) {
        const std::string line = Line(i, "#" + std::to_string(i) + std::string(40, ' ') + "x");
        if (at + line.size() + kMark.size() > ring.size()) break;
        ring.replace(at, line.size(), line);
        at += line.size();
    }
    return ring.replace(at, ring.npos, ring.size() - at, '.');
}

std::vector<std::string> RingTexts(std::string_view text) {
    const auto order = OrderRing(text);
    return order ? Texts(order->pieces) : std::vector<std::string>{};
}

TEST(OrderRing, ShowsAFreshRing) {
    const std::string ring = Over(EmptyRing(), kRingAt, Line(2, "first") + kMark);
    EXPECT_THAT(RingTexts(ring), ElementsAre("QX_OS=x", "# End of header.",
                                             "### Begin of RingBuffer. ###", "first"));
    EXPECT_EQ(OrderRing(ring)->mark, kRingAt + Line(2, "first").size());
}

TEST(OrderRing, IsEmptyForWhatIsNoRing) {
    for (const std::string& text :
         {std::string{}, std::string{"text"}, std::string(4096, '_'), Block(1) + Block(1)}) {
        EXPECT_FALSE(OrderRing(text));
    }
    EXPECT_FALSE(OrderRing(std::string(2049, ' ') + Line(1, "### Begin of RingBuffer. ###")))
        << "not at a multiple of 1,024";
}

TEST(OrderRing, NamesThePieces) {
    const std::string ring = Over(FullRing(10), kRingAt, Line(200, "newest") + kMark);
    const auto order = OrderRing(ring);
    ASSERT_TRUE(order);
    ASSERT_EQ(order->pieces.size(), 4u);
    EXPECT_EQ(order->pieces[0].part, TracePart::kHeader);
    EXPECT_EQ(order->pieces[1].part, TracePart::kBegin);
    EXPECT_EQ(order->pieces[2].part, TracePart::kOlder);
    EXPECT_TRUE(order->pieces[2].isCut);
    EXPECT_EQ(order->pieces[3].part, TracePart::kNewest);
    EXPECT_EQ(order->pieces[3].text, Line(200, "newest"));
}

TEST(OrderRing, LeavesOutBlocksAsTheyWereMadeWhereverTheNewestLineCutsOne) {
    for (size_t length = 1; length < 2200; ++length) {
        const std::string line = Line(2, std::string(length, 'n'));
        const auto texts = RingTexts(Over(EmptyRing(), kRingAt, line + kMark));
        ASSERT_EQ(texts.size(), 4u) << length;
        ASSERT_EQ(texts.back(), std::string(length, 'n'));
    }
}

TEST(OrderRing, LeavesOutBlocksAlsoWithoutAMark) {
    for (size_t length = 1; length < 2200; ++length) {
        const std::string line = Line(2, std::string(length, 'n'));
        const auto texts = RingTexts(Over(EmptyRing(), kRingAt, line));
        ASSERT_EQ(texts.size(), 4u) << length;
        ASSERT_EQ(texts.back(), std::string(length, 'n'));
    }
}

TEST(OrderRing, KeepsLinesOfUnderscores) {
    const std::string rule(60, '_');
    const std::string ring =
        Over(FullRing(10), kRingAt, Line(200, rule) + Line(201, rule + "\n" + rule) + kMark);
    const auto texts = RingTexts(ring);
    EXPECT_EQ(texts.back(), rule + "\n" + rule);
    EXPECT_EQ(texts.at(texts.size() - 2), rule);
    const std::string fresh = Over(EmptyRing(), kRingAt, Line(200, rule) + kMark);
    EXPECT_EQ(RingTexts(fresh).back(), rule);
}

TEST(OrderRing, TakesTheMarkWithTheLargestStepBehindIt) {
    const std::string text = Line(200, "a\n" + kMark + "b") + Line(201, "newest");
    const auto texts = RingTexts(Over(FullRing(10), kRingAt, text + kMark));
    EXPECT_EQ(texts.back(), "newest");
    EXPECT_EQ(texts.at(texts.size() - 2), "a\n" + kMark + "b");
}

TEST(OrderRing, TakesTheLastMarkOfAFirstPass) {
    const std::string text = Line(200, "a\n" + kMark + "b") + Line(201, "newest");
    EXPECT_EQ(RingTexts(Over(EmptyRing(), kRingAt, text + kMark)).back(), "newest");
}

TEST(OrderRing, IgnoresAMarkWithinALine) {
    const std::string text = Line(200, "x ## TRACE-END ##") + Line(201, "newest");
    EXPECT_EQ(RingTexts(Over(FullRing(10), kRingAt, text + kMark)).back(), "newest");
}

/// What a writer that is killed within `line` leaves of it at the mark, with a mark behind it or not.
std::string InTheMaking(const std::string& line, bool hasMark) {
    return kMark + line.substr(kMark.size()) + (hasMark ? kMark : "");
}

TEST(OrderRing, PutsALineInTheMakingBehindTheNewestOneIfItHasAMark) {
    const std::string front = Line(200, "newest");
    const std::string ring =
        Over(FullRing(10), kRingAt, front + InTheMaking(Line(200, "in the\nmaking"), true));
    const auto order = OrderRing(ring);
    EXPECT_EQ(order->mark, kRingAt + front.size());
    const auto texts = Texts(order->pieces);
    EXPECT_EQ(texts.back(), "~:20.000 [0000004907] zorn          in the\nmaking");
    EXPECT_EQ(texts.at(texts.size() - 2), "newest");
    EXPECT_THAT(texts, testing::Not(testing::Contains(testing::HasSubstr("TRACE-END"))));
}

TEST(OrderRing, PutsALineInTheMakingBehindTheNewestOneOfAFirstPass) {
    for (const bool hasMark : {true, false}) {
        const auto texts = RingTexts(Over(
            EmptyRing(), kRingAt, Line(200, "newest") + InTheMaking(Line(200, "made"), hasMark)));
        EXPECT_THAT(texts, ElementsAre("QX_OS=x", "# End of header.",
                                       "### Begin of RingBuffer. ###", "newest", StartsWith("~")));
    }
}

TEST(OrderRing, KeepsAllOfALineInTheMakingOfAFirstPass) {
    const std::string made = InTheMaking(Line(200, "made\nof\nlines"), false);
    const std::string torn = "## TRACE-E";
    for (const std::string& mark : {std::string{}, torn}) {
        const auto texts = RingTexts(Over(EmptyRing(), kRingAt, Line(200, "newest") + made + mark));
        EXPECT_EQ(texts.back(), "~:20.000 [0000004907] zorn          made\nof\nlines");
        EXPECT_EQ(texts.at(texts.size() - 2), "newest");
    }
}

TEST(OrderRing, ShowsALineInTheMakingUpToWhereABlockShowsThrough) {
    const std::string front = Line(200, "newest");
    std::string ring = Over(EmptyRing(), kRingAt, front + InTheMaking(Line(200, "made"), false));
    ring = Over(ring, 3072 + 500, "the end of a line of which the middle is missing\n");
    EXPECT_EQ(RingTexts(ring).back(), "~:20.000 [0000004907] zorn          made");
    ring = Over(EmptyRing(), kRingAt, front + kMark);
    EXPECT_EQ(RingTexts(Over(ring, 3072 + 500, "the end of a line\n")).back(), "newest");
}

TEST(OrderRing, TakesNoBlockForOneAsItWasMadeThatHasALineEnd) {
    std::string odd = Block(2);
    odd.replace(odd.find("zorn") + 2, 1, "\n");
    const auto ring = Line(1, "### Begin of RingBuffer. ###") + Line(2, "a") + odd;
    const auto order = OrderRing(ring);
    ASSERT_TRUE(order);
    EXPECT_TRUE(SplitEntries(order->pieces).back().text.ends_with("[0000004907] zo"));
}

TEST(OrderRing, TakesTheMarkInFrontOfTheRestOfALineThatHoldsAMarkInItsText) {
    const std::string front = Line(200, "newest");
    const std::string cut = Line(10, "a\n" + kMark + "b");
    const auto order = OrderRing(Over(FullRing(10), kRingAt, front + Over(cut, 0, kMark)));
    EXPECT_EQ(order->mark, kRingAt + front.size());
}

TEST(OrderRing, KnowsAPassThatHasNoLineYet) {
    const std::string full = FullRing(10);
    const size_t end = full.find_last_not_of('.') + 1;
    const auto former = RingTexts(full);
    for (const bool isOver : {true, false}) {
        const std::string ring = Over(isOver ? full : Over(full, end, kMark), kRingAt, kMark);
        const auto order = OrderRing(ring);
        EXPECT_EQ(order->mark, kRingAt);
        auto texts = Texts(order->pieces);
        EXPECT_THAT(texts.at(3), StartsWith("~"));
        texts.at(3) = former.at(3);
        EXPECT_EQ(texts, former);
    }
}

TEST(OrderRing, RestoresTheOrderByTimeWithoutAMark) {
    const std::string ring = Over(FullRing(10), kRingAt, Line(200, "newest") + "torn");
    const auto order = OrderRing(ring);
    ASSERT_TRUE(order);
    EXPECT_EQ(order->mark, std::nullopt);
    const auto texts = Texts(order->pieces);
    EXPECT_EQ(texts.back(), "newest");
    EXPECT_THAT(texts.at(3), StartsWith("~torn"));
}

TEST(OrderRing, KeepsTheOrderOfAPassThatWasNotBegunAnew) {
    const auto texts = RingTexts(FullRing(10));
    ASSERT_GT(texts.size(), 20u);
    for (size_t i = 3; i < texts.size(); ++i) {
        EXPECT_THAT(texts[i], StartsWith("#" + std::to_string(10 + i - 3) + " "));
    }
}

TEST(OrderRing, ShowsBothHeadersWhereAWrapWasInterruptedInTheHeader) {
    const std::string header = Line(1, "one") + Line(1, "two") + Line(1, "# End of header.");
    std::string ring = Over(FullRing(10), 0, header + kMark);
    ring = Over(ring, 0, Line(300, "ONE") + kMark);
    const auto order = OrderRing(ring);
    ASSERT_TRUE(order);
    const auto texts = Texts(order->pieces);
    EXPECT_EQ(texts.at(0), "ONE");
    EXPECT_THAT(texts.at(1), StartsWith("~"));
    EXPECT_EQ(texts.at(2), "# End of header.");
    EXPECT_EQ(texts.at(3), "### Begin of RingBuffer. ###");
}

TEST(OrderRing, IgnoresWhatALongerHeaderLeft) {
    const std::string former = Line(1, "QX_OS=" + std::string(100, 'x'));
    std::string ring = Over(FullRing(10), 0, former + Line(1, "# End of header.") + kMark);
    ring = Over(ring, 0, Line(300, "QX_OS=x") + Line(300, "# End of header.") + kMark);
    const auto texts = RingTexts(ring);
    EXPECT_EQ(texts.at(0), "QX_OS=x");
    EXPECT_EQ(texts.at(1), "# End of header.");
    EXPECT_EQ(texts.at(2), "### Begin of RingBuffer. ###");
}

TEST(OrderRing, NeverLooksBehindTheText) {
    EveryPrefix(Over(FullRing(10), kRingAt, Line(200, "newest") + kMark),
                [](std::string_view text) {
                    EXPECT_EQ(OrderRing(text).has_value(), text.size() + 1 >= kRingAt);
                });
}

// --- What the trace writes -----------------------------------------------------------------------

/// The number of a line "#N ..."; empty result for any other.
std::optional<size_t> NumberOf(const TraceEntry& entry) {
    const auto text = entry.text.substr(entry.prefix ? entry.prefix->length : 0);
    if (entry.isCut || text.size() < 2 || text[0] != '#' || isdigit(text[1]) == 0) return {};
    return std::stoul(std::string{text.substr(1)});
}

/// They are the last ones up to `newest`, without a gap.
testing::AssertionResult AreTheLast(const std::vector<size_t>& numbers, size_t newest) {
    if (numbers.empty()) return testing::AssertionFailure() << "no line";
    for (size_t i = 0; i < numbers.size(); ++i) {
        if (numbers[i] != newest + 1 - numbers.size() + i) {
            return testing::AssertionFailure()
                   << "number " << numbers[i] << " at " << i << " of " << numbers.size()
                   << " up to " << newest << ", the last one is " << numbers.back();
        }
    }
    return testing::AssertionSuccess();
}

/// Writes numbered lines into a ring and keeps them.
class RingWriter {
  public:
    RingWriter(OpenDebug& debug, unsigned seed) : m_Debug(debug), m_Random(seed) {}

    void Write() {
        if (Pick(1) == 0) m_Clock.Advance(std::chrono::milliseconds{Pick(30)});
        const uint32_t wraps = m_Debug.m_RingWrapCount;
        const uint64_t from = m_Debug.m_RingPos;
        const std::string text(Pick(Pick(9) == 0 ? 1500 : 100), 'x');
        m_Debug.Trace(1, "#%zu %s", m_Lines.size(), text.c_str());
        const bool hasWrapped = m_Debug.m_RingWrapCount != wraps;
        const uint64_t begin = hasWrapped ? m_Debug.m_RingStart : from;
        m_Lines.push_back(Ring().substr(begin, m_Debug.m_RingPos - begin - 1));
        if (hasWrapped) m_Clock.Advance(std::chrono::milliseconds{1});
    }

    [[nodiscard]] std::string Ring() const { return {m_Debug.m_RingBase, m_Debug.m_RingSize}; }
    [[nodiscard]] size_t Newest() const { return m_Lines.size() - 1; }

    /// The numbers of those lines that stand in a state of the ring as they were written.
    [[nodiscard]] std::vector<size_t> NumbersIn(const RingOrder& order) const {
        std::vector<size_t> numbers;
        for (const auto& entry : SplitEntries(order.pieces)) {
            const auto number = NumberOf(entry).value_or(m_Lines.size());
            if (number < m_Lines.size() && entry.text == m_Lines[number]) numbers.push_back(number);
        }
        return numbers;
    }

  private:
    size_t Pick(size_t limit) { return std::uniform_int_distribution<size_t>{0, limit}(m_Random); }

    OpenDebug& m_Debug;
    std::mt19937 m_Random;
    FakeClock m_Clock{1'700'000'000};
    std::vector<std::string> m_Lines;  ///< prefix and text
};

/// Runs `body` on a fresh machine with a ring of a size that the seed decides about.
void WithRing(unsigned seed, const std::function<void(OpenDebug&, RingWriter&)>& body) {
    FakeHost host;
    host.Directory("/var/log/tolbrin");
    host.Run([&] {
        setenv("QX_LOG_DEBUG_LEVEL", "1", 1);
        OpenDebug debug;
        debug.Init("zorn");
        debug.m_MemoryTraces = seed % 2;
        debug.m_RingSize = 16384 + 1024 * seed;
        {
            const RecursiveLockGuard hold{debug.Lock()};
            ASSERT_TRUE(debug.InitRingBuffer(kRing, debug.m_RingSize));
        }
        RingWriter writer{debug, seed};
        body(debug, writer);
    });
}

class RestoredRing : public testing::TestWithParam<unsigned> {};

TEST_P(RestoredRing, IsWhatWasWrittenAfterEachLineOfManyPasses) {
    WithRing(GetParam(), [](OpenDebug& debug, RingWriter& writer) {
        for (int i = 0; i < 700 && !testing::Test::HasFailure(); ++i) {
            writer.Write();
            const std::string ring = writer.Ring();
            const auto order = OrderRing(ring);
            ASSERT_TRUE(order);
            ASSERT_EQ(order->mark, debug.m_RingPos);
            ASSERT_TRUE(AreTheLast(writer.NumbersIn(*order), writer.Newest()));
        }
        EXPECT_GT(debug.m_RingWrapCount, 2u);
    });
}

TEST_P(RestoredRing, KeepsItsOrderByTimeWhereTheMarkIsLost) {
    WithRing(GetParam(), [](OpenDebug& debug, RingWriter& writer) {
        for (int i = 0; i < 700 && !testing::Test::HasFailure(); ++i) {
            const std::string before = writer.Ring();
            writer.Write();
            const std::string ring =
                Over(writer.Ring(), debug.m_RingPos, before.substr(debug.m_RingPos, kMark.size()));
            const auto order = OrderRing(ring);
            ASSERT_TRUE(order);
            ASSERT_EQ(order->mark, std::nullopt);
            ASSERT_TRUE(AreTheLast(writer.NumbersIn(*order), writer.Newest()));
        }
    });
}

INSTANTIATE_TEST_SUITE_P(Seeds, RestoredRing, testing::Range(0U, 8U));

}  // namespace

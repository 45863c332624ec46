#include "zornctl/order/order_ring.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>

#include <algorithm>
#include <atomic>
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

/// The numbers of the lines that stand whole in the ring, in the order restored. A line is whole if
/// `isWhole` says so of its number and its entry.
template <typename IsWhole>
std::vector<size_t> Numbers(std::string_view ring, IsWhole isWhole) {
    std::vector<size_t> numbers;
    const auto order = OrderRing(ring);
    if (!order) return numbers;
    for (const auto& entry : SplitEntries(order->pieces)) {
        const auto number = NumberOf(entry);
        if (number && isWhole(*number, entry)) numbers.push_back(*number);
    }
    return numbers;
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
    [[nodiscard]] std::vector<size_t> NumbersIn(std::string_view ring) const {
        return Numbers(ring, [this](size_t number, const TraceEntry& entry) {
            return number < m_Lines.size() && entry.text == m_Lines[number];
        });
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
            ASSERT_TRUE(AreTheLast(writer.NumbersIn(ring), writer.Newest()));
        }
        EXPECT_GT(debug.m_RingWrapCount, 2u);
    });
}

/// The states of the ring between two lines, if its bytes are stored in the order of the writer's
/// calls: dots, header, line, mark.
class Stores {
  public:
    Stores(std::string before, std::string after, size_t ringStart, size_t from, size_t to)
        : m_State(std::move(before)), m_After(std::move(after)) {
        const bool isWrap = to <= from;
        if (isWrap) {
            for (size_t at = from; at < m_State.size(); ++at) Add(at, '.');
            for (size_t at = 0; at < ringStart; ++at) Add(at, m_After[at]);
        }
        const size_t line = isWrap ? ringStart : from;
        for (size_t at = line; at < to + kEndMark.size(); ++at) Add(at, m_After[at]);
    }

    /// Calls `f` with each state.
    template <typename F>
    void Each(F f) {
        for (const auto& [at, byte] : m_Stores) {
            if (m_State[at] == byte) continue;
            m_State[at] = byte;
            f(m_State);
        }
    }

  private:
    void Add(size_t at, char byte) { m_Stores.emplace_back(at, byte); }

    std::string m_State;
    std::string m_After;
    std::vector<std::pair<size_t, char>> m_Stores;
};

TEST_P(RestoredRing, KeepsItsOrderWhereverTheWriterWasKilled) {
    WithRing(GetParam(), [](OpenDebug& debug, RingWriter& writer) {
        std::mt19937 random{GetParam()};
        for (int i = 0; i < 400 && !testing::Test::HasFailure(); ++i) {
            const std::string before = writer.Ring();
            const size_t from = debug.m_RingPos;
            writer.Write();
            const size_t to = debug.m_RingPos;
            const bool isWrap = to <= from;
            if (i < 2 || (!isWrap && random() % 16 != 0)) continue;
            const size_t newest = writer.Newest();
            int state = 0;
            Stores{before, writer.Ring(), debug.m_RingStart, from, to}.Each(
                [&](const std::string& ring) {
                    if (++state % 7 != 0 && ring != writer.Ring()) return;
                    auto numbers = writer.NumbersIn(ring);
                    ASSERT_FALSE(numbers.empty());
                    if (numbers.back() == newest) numbers.pop_back();
                    // Where a wrap was interrupted, dots may have taken the oldest lines.
                    ASSERT_TRUE(AreTheLast(numbers, newest - 1)) << "store " << state;
                });
        }
    });
}

INSTANTIATE_TEST_SUITE_P(Seeds, RestoredRing, testing::Range(0U, 8U));

/// What the killed writer and the test share.
struct Progress {
    std::atomic<uint32_t> written;  ///< lines whose call has returned
};

/// Writes numbered lines into a ring for ever.
[[noreturn]] void WriteForEver(OpenDebug& debug, Progress& progress) {
    for (uint32_t i = 0;; ++i) {
        debug.Trace(1, "#%u %s", i, std::string(i * 37 % 300, 'x').c_str());
        progress.written.store(i + 1, std::memory_order_release);
    }
}

/// The numbers of the lines in the file that are what the writer made of their number.
std::vector<size_t> WrittenNumbers(std::string_view ring) {
    return Numbers(ring, [](size_t number, const TraceEntry& entry) {
        const auto text = "#" + std::to_string(number) + " " + std::string(number * 37 % 300, 'x');
        return entry.text.substr(entry.prefix ? entry.prefix->length : 0) == text;
    });
}

TEST(KilledRing, IsRestoredUpToTheLastLineInHundredsOfRounds) {
    constexpr int kRounds = 300;
    // Large enough for a pass to last some milliseconds: what is equal in time has no order.
    constexpr size_t kSize = size_t{1} << 20U;
    FakeHost host;
    host.Directory("/var/log/tolbrin");
    host.Run([] {
        setenv("QX_LOG_DEBUG_LEVEL", "1", 1);
        void* shared = mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        ASSERT_NE(shared, MAP_FAILED);
        auto& progress = *new (shared) Progress;
        std::mt19937 random{7};
        for (int round = 0; round < kRounds && !testing::Test::HasFailure(); ++round) {
            progress.written = 0;
            const pid_t writer = fork();
            if (writer == 0) {
                OpenDebug debug;
                debug.Init("zorn");
                debug.m_MemoryTraces = 0;
                debug.m_RingSize = kSize;
                {
                    const RecursiveLockGuard hold{debug.Lock()};
                    if (!debug.InitRingBuffer(kRing, kSize)) _exit(1);
                }
                WriteForEver(debug, progress);
            }
            const uint32_t lines = std::uniform_int_distribution<uint32_t>{1, 10'000}(random);
            while (progress.written.load(std::memory_order_acquire) < lines) sched_yield();
            ASSERT_EQ(kill(writer, SIGKILL), 0);
            ASSERT_EQ(waitpid(writer, nullptr, 0), writer);
            const uint32_t written = progress.written;
            const std::string ring = FileText(kRing);
            auto numbers = WrittenNumbers(ring);
            ASSERT_FALSE(numbers.empty());
            const bool hasMark = OrderRing(ring)->mark.has_value();
            // The writer did not come to say that it wrote this one; or nothing but its prefix is
            // written, and the text is that of the line that it overwrites.
            const bool isMixed = !hasMark && numbers.back() + 1 != written;
            if (numbers.back() == written || isMixed) numbers.pop_back();
            ASSERT_TRUE(AreTheLast(numbers, written - 1)) << "round " << round;
        }
        EXPECT_EQ(munmap(shared, sizeof(Progress)), 0);
    });
}

}  // namespace

// Writers of the trace that are killed, and what they leave is put in order as zornctl does it: at
// random moments, over and over, and for the ring after each instruction of many lines.
//
// The variable ZORN_SOAK_ROUNDS says how many random moments it shall be, 100 without it; where it
// is set, the figures are printed (scripts/soak.sh).

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <x86intrin.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "support/fake_clock.h"
#include "support/fake_host.h"
#include "trace/open_debug.h"
#include "zornctl/order/order_log.h"
#include "zornctl/order/order_ring.h"
#include "zornctl/system/whole_file.h"

using namespace zornctl;
using std::chrono::microseconds;
using std::chrono::steady_clock;

namespace {

constexpr const char* kLogFile = "/var/log/tolbrin/log.zorn";
constexpr const char* kStartupRing = "/var/log/tolbrin/ring_startup_zorn";
constexpr const char* kStartupArchive = "/var/log/tolbrin/ring_startup_zorn.gz";
constexpr const char* kRunningRing = "/var/log/tolbrin/ring_zorn";
constexpr size_t kLargest = size_t{1} << 20U;
constexpr std::string_view kBeginText = "### Begin of RingBuffer. ###\n";

// --- The lines of a ring -------------------------------------------------------------------------

constexpr std::string_view kStartText = "### Start of initialization. ###";
constexpr std::string_view kEndText = "### End of initialization. ###";
constexpr size_t kLongestLine = 2000;

using LineMaker = std::string (*)(uint32_t number);

/// Short ones, long ones, and some of several lines.
std::string LineText(uint32_t number) {
    std::string text = "#" + std::to_string(number) + " ";
    text.append(number * 37 % 300, 'x');
    if (number % 20 == 3) text += "\nits second line\nits third line";
    if (number % 50 == 7) text.append(1500, 'y');
    return text;
}

/// The number of an entry that is what the writer made of that number.
std::optional<uint32_t> NumberOfWhole(const TraceEntry& entry, LineMaker lineText = LineText) {
    if (!entry.prefix || entry.text.size() <= entry.prefix->length) return {};
    const std::string text{entry.text.substr(entry.prefix->length)};
    const auto number = static_cast<uint32_t>(strtoul(text.c_str() + 1, nullptr, 10));
    if (text != lineText(number)) return {};
    return number;
}

/// What the readings of rings have shown.
struct Figures {
    int restored = 0;
    int oneMark = 0;
    int twoMarks = 0;
    int noMark = 0;
    int unfinished = 0;  ///< with something of a line that was in the making at the end
};

/// The lines of a ring proper, in the order restored, are the last ones of those that were
/// `written` (their call has returned), and perhaps the one behind: whole, in order, without a gap.
/// What is not whole stands in the `room` of a line in the making: what there is of it, at the end,
/// or the oldest lines, which it has begun to overwrite.
testing::AssertionResult AreTheLast(const std::vector<TraceEntry>& lines, std::string_view room,
                                    uint32_t written, Figures& figures) {
    std::optional<uint32_t> last;
    bool isUnfinished = false;
    for (const TraceEntry& line : lines) {
        const bool isInRoom =
            line.text.data() >= room.data() && line.text.data() < room.data() + room.size();
        if (const auto number = NumberOfWhole(line)) {
            if (last && *number != *last + 1) {
                return testing::AssertionFailure() << "#" << *number << " behind #" << *last;
            }
            last = number;
        } else if (isInRoom && line.part == TracePart::kOlder) {
            last.reset();
        } else if (isInRoom) {
            isUnfinished = true;
        } else if (&line == &lines.front() && line.text.ends_with(kStartText)) {
            last = ~0U;  // #0 is next
        } else if (&line != &lines.back() || !line.text.ends_with(kEndText)) {
            return testing::AssertionFailure() << "not whole: " << line.text;
        }
    }
    const uint32_t found = last ? *last + 1 : 0;
    if (found != written && found != written + 1) {
        return testing::AssertionFailure() << found << " lines of " << written << " were found";
    }
    figures.restored++;
    figures.unfinished += isUnfinished ? 1 : 0;
    return testing::AssertionSuccess();
}

size_t CountMarks(std::string_view text) {
    size_t count = 0;
    while (!text.empty()) count += TakeLine(text) == kEndMark ? 1 : 0;
    return count;
}

/// A ring has its header, its mark, and the last lines.
testing::AssertionResult IsRestored(std::string_view ring, uint32_t written, Figures& figures) {
    const auto order = OrderRing(ring);
    if (!order) return testing::AssertionFailure() << "no begin line";
    const size_t marks = CountMarks(ring.substr(ring.find(kBeginText)));
    (marks == 0 ? figures.noMark : marks == 1 ? figures.oneMark : figures.twoMarks)++;
    if (marks > 2 || !order->mark) return testing::AssertionFailure() << marks << " marks";
    std::string_view endOfHeader;
    std::vector<TraceEntry> lines;
    size_t bytes = ring.find(kBeginText);
    for (const TraceEntry& entry : SplitEntries(order->pieces)) {
        if (entry.part == TracePart::kHeader) endOfHeader = entry.text;
        if (entry.part == TracePart::kOlder || entry.part == TracePart::kNewest) {
            lines.push_back(entry);
            bytes += entry.text.size() + 1;
        }
    }
    if (!endOfHeader.ends_with("# End of header."))
        return testing::AssertionFailure() << "no header";
    const bool isFirstPass = ring.ends_with("_\n");
    if (!isFirstPass && bytes + 2 * kLongestLine < ring.size()) {
        return testing::AssertionFailure() << "no more than " << bytes << " bytes are shown";
    }
    return AreTheLast(lines, ring.substr(*order->mark, kLongestLine), written, figures);
}

/// What a writer and its killer share: lines whose call has returned.
struct Progress {
    std::atomic<uint32_t> startup;
    std::atomic<uint32_t> running;
};

struct Unmap {
    void operator()(Progress* progress) const { EXPECT_EQ(munmap(progress, sizeof *progress), 0); }
};

std::unique_ptr<Progress, Unmap> SharedProgress() {
    void* const memory =
        mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::bad_alloc{};
    return std::unique_ptr<Progress, Unmap>{new (memory) Progress{}};
}

// --- At random moments ---------------------------------------------------------------------------

constexpr uint32_t kStartupLines = 300;

/// Writes numbered lines until it is killed, a part of them up to the end of initialization.
[[noreturn]] void WriteUntilKilled(Progress& progress, LineMaker lineText, bool toRing) {
    (void)setpgid(0, 0);
    setenv("QX_LOG_DEBUG_LEVEL", "1", 1);
    setenv("QX_LOG_FILE_MAX_SIZE", std::to_string(kLargest).c_str(), 1);
    OpenDebug debug;
    debug.Init("zorn");
    debug.m_MemoryTraces = 0;
    if (toRing && !debug.ArmRingBuffer()) _exit(1);
    for (uint32_t i = 0; i < kStartupLines; ++i) {
        debug.Trace(1, "%s", lineText(i).c_str());
        progress.startup.store(i + 1, std::memory_order_release);
    }
    debug.EndOfInitialization();
    const uint32_t first = toRing ? 0 : kStartupLines;  // a ring begins anew then, the log goes on
    for (uint32_t i = 0;; ++i) {
        debug.Trace(1, "%s", lineText(first + i).c_str());
        progress.running.store(i + 1, std::memory_order_release);
    }
}

/// Kills writers, one after the other, with their children or, as the kernel does it when memory
/// runs out, alone.
class Killer {
  public:
    explicit Killer(Progress& progress) : m_Progress(progress) {}

    /// Runs `writer` as a process on an empty folder and kills it: somewhere in its start, or
    /// within that time behind it.
    void KillOne(const std::function<void()>& writer, bool whileStarting, microseconds running) {
        for (const char* path : {kLogFile, kStartupRing, kStartupArchive, kRunningRing}) {
            (void)unlink(path);
        }
        m_Progress.startup = m_Progress.running = 0;
        const auto begin = steady_clock::now();
        const pid_t process = fork();
        if (process == 0) writer();
        if (whileStarting) {
            Spin(Pick(m_TimeOfStart));
        } else {
            while (m_Progress.running.load(std::memory_order_acquire) == 0) (void)sched_yield();
            m_TimeOfStart = std::chrono::duration_cast<microseconds>(steady_clock::now() - begin);
            Spin(Pick(running));
        }
        if (kill(Pick(microseconds{1}).count() == 0 ? process : -process, SIGKILL) != 0) {
            EXPECT_EQ(kill(process, SIGKILL), 0) << "it has no group yet";
        }
        while (waitpid(-1, nullptr, 0) > 0) {  // gzip may go on
        }
    }

  private:
    microseconds Pick(microseconds limit) {
        return microseconds{std::uniform_int_distribution<int64_t>{0, limit.count()}(m_Random)};
    }
    static void Spin(microseconds time) {
        const auto end = steady_clock::now() + time;
        while (steady_clock::now() < end) {
        }
    }

    Progress& m_Progress;
    std::mt19937 m_Random{7};
    microseconds m_TimeOfStart{1'000};
};

/// Runs `round` on a machine as often as is wanted, and prints what `figures` says then.
void Repeat(const std::function<void(Killer&, Progress&, bool whileStarting)>& round,
            const std::function<void()>& printFigures) {
    const char* const wanted = getenv("ZORN_SOAK_ROUNDS");
    const int count = wanted != nullptr ? atoi(wanted) : 100;
    ASSERT_GT(count, 0);
    FakeHost host;
    host.Directory("/var/log/tolbrin");
    const auto body = [&] {
        const auto progress = SharedProgress();
        const auto begin = steady_clock::now();
        Killer killer{*progress};
        int i = 0;
        while (i < count && !testing::Test::HasFailure()) {
            SCOPED_TRACE("round " + std::to_string(++i));
            round(killer, *progress, i % 10 == 0);
        }
        if (wanted == nullptr) return;
        const std::chrono::duration<double> time = steady_clock::now() - begin;
        printf("%d rounds in %.0f s\n", i, time.count());
        printFigures();
    };
    host.Run(body, {.limit = std::chrono::seconds{60 + count}});
}

/// Rounds by what was there when the writer was killed, and what was found then.
struct RingRounds {
    int beforeFirstLine = 0;
    int startupRing = 0;
    int startupArchive = 0;
    int runningRing = 0;
    Figures starting;
    Figures running;

    void Check(const Progress& progress) {
        if (progress.startup == 0) {
            beforeFirstLine++;
        } else if (access(kStartupRing, F_OK) == 0) {
            startupRing++;
            const auto ring = ReadWholeFile(kStartupRing, kLargest);
            EXPECT_TRUE(IsRestored(ring, progress.startup, starting));
        } else {
            startupArchive++;
            const auto ring = Uncompress(kStartupArchive, kLargest);
            EXPECT_TRUE(IsRestored(ring, progress.startup, starting));
        }
        if (progress.running == 0) return;
        runningRing++;
        EXPECT_EQ(access(kStartupRing, F_OK), -1);
        EXPECT_TRUE(IsRestored(ReadWholeFile(kRunningRing, kLargest), progress.running, running));
    }

    void Print() const {
        printf("killed before the first line: %d\n", beforeFirstLine);
        printf("killed with a start-up ring: %d, with its archive: %d, restored: %d\n", startupRing,
               startupArchive, starting.restored);
        printf("killed with a running ring: %d, restored: %d\n", runningRing, running.restored);
        printf("marks in the running ring: one %d, two %d, none %d\n", running.oneMark,
               running.twoMarks, running.noMark);
        printf("something of an unfinished line at its end: %d\n", running.unfinished);
    }
};

TEST(KilledWriter, LeavesARingThatIsRestoredUpToTheLastLine) {
    RingRounds rounds;
    Repeat(
        [&](Killer& killer, Progress& progress, bool whileStarting) {
            const auto write = [&] { WriteUntilKilled(progress, LineText, true); };
            killer.KillOne(write, whileStarting, microseconds{4'000});
            rounds.Check(progress);
        },
        [&] { rounds.Print(); });
}

/// Of one line each: a further line of an overwritten text cannot be told from a cut one.
std::string LogLineText(uint32_t number) {
    std::string text = "#" + std::to_string(number) + " ";
    return text.append(number * 37 % 900, 'x');
}

/// Rounds by whether the log had wrapped, and what was found.
struct LogRounds {
    int firstPass = 0;
    int laterPass = 0;
    int restored = 0;
    int unfinished = 0;  ///< with something of a line that was in the making at the end

    /// What there is of a line in the making, if it is no prefix yet, looks like a further line of the
    /// text in front of it.
    static std::optional<uint32_t> NumberInFront(TraceEntry entry) {
        const size_t end = entry.text.find('\n');
        if (end == entry.text.npos) return {};
        entry.text = entry.text.substr(0, end);
        return NumberOfWhole(entry, LogLineText);
    }

    /// The head is there, and behind it the last lines without a gap. What is not whole is the rest
    /// of an overwritten line, or a line in the making at the end.
    testing::AssertionResult Check(const Progress& progress) {
        const std::string log = FileText(kLogFile);
        const auto order = OrderLog(log);
        (order.cycle ? laterPass : firstPass)++;
        std::vector<uint32_t> head;
        std::vector<uint32_t> passes;
        const auto entries = SplitEntries(order.pieces);
        for (const TraceEntry& entry : entries) {
            if (const auto number = NumberOfWhole(entry, LogLineText)) {
                (entry.part == TracePart::kHead ? head : passes).push_back(*number);
            } else if (!entry.isCut && entry.text.find("------ WRAP") == entry.text.npos) {
                if (&entry != &entries.back()) return testing::AssertionFailure() << entry.text;
                if (const auto last = NumberInFront(entry)) passes.push_back(*last);
                unfinished++;
            }
        }
        const auto isGap = [](uint32_t one, uint32_t next) { return next != one + 1; };
        if (std::ranges::adjacent_find(passes, isGap) != passes.end()) {
            return testing::AssertionFailure() << "a gap";
        }
        if (head.size() != (order.cycle ? kStartupLines : 0)) {
            return testing::AssertionFailure() << head.size() << " lines in the head";
        }
        if (std::ranges::adjacent_find(head, isGap) != head.end()) {
            return testing::AssertionFailure() << "a gap in the head";
        }
        const size_t found = passes.empty() ? 0 : passes.back() + 1;
        const size_t written = progress.startup + progress.running;
        if (found != written && found != written + 1) {
            return testing::AssertionFailure() << found << " lines of " << written;
        }
        restored++;
        return testing::AssertionSuccess();
    }

    void Print() const {
        printf("killed with a log in its first pass: %d, in a later one: %d, restored: %d\n",
               firstPass, laterPass, restored);
        printf("something of an unfinished line at its end: %d\n", unfinished);
    }
};

TEST(KilledWriter, LeavesALogThatIsRestoredUpToTheLastLine) {
    LogRounds rounds;
    Repeat(
        [&](Killer& killer, Progress& progress, bool whileStarting) {
            const auto write = [&] { WriteUntilKilled(progress, LogLineText, false); };
            killer.KillOne(write, whileStarting, microseconds{20'000});
            EXPECT_TRUE(rounds.Check(progress));
        },
        [&] { rounds.Print(); });
}

// --- After each instruction ----------------------------------------------------------------------

/// Keeps each state of a memory that an instruction of the watched calls makes: the processor traps
/// after each one.
class StateKeeper {
  public:
    explicit StateKeeper(std::string_view memory)
        : m_Memory(memory), m_States(kMost * memory.size()) {
        g_Keeper = this;
        (void)signal(SIGTRAP, [](int) { g_Keeper->Keep(); });
    }
    ~StateKeeper() { (void)signal(SIGTRAP, SIG_DFL); }
    StateKeeper(const StateKeeper&) = delete;
    StateKeeper& operator=(const StateKeeper&) = delete;

    /// The states that `call` leads through, the last one included.
    template <typename Call>
    std::vector<std::string_view> Watch(Call call) {
        m_Count = 0;
        __writeeflags(__readeflags() | kTrapFlag);
        call();
        __writeeflags(__readeflags() & ~kTrapFlag);
        Keep();
        EXPECT_LE(m_Count, kMost);
        std::vector<std::string_view> states;
        for (size_t i = 0; i < std::min(m_Count, kMost); ++i) states.push_back(State(i));
        return states;
    }

  private:
    static constexpr size_t kMost = 2000;
    static constexpr unsigned long long kTrapFlag = 0x100;
    static inline StateKeeper* g_Keeper = nullptr;

    [[nodiscard]] std::string_view State(size_t i) const {
        return {m_States.data() + i * m_Memory.size(), m_Memory.size()};
    }

    /// The interrupted code may hold any lock: nothing is allocated here.
    void Keep() {
        if (m_Count > kMost || (m_Count != 0 && State(m_Count - 1) == m_Memory)) return;
        if (m_Count < kMost) {
            (void)m_Memory.copy(m_States.data() + m_Count * m_Memory.size(), m_Memory.size());
        }
        ++m_Count;
    }

    std::string_view m_Memory;
    std::vector<char> m_States;
    size_t m_Count = 0;
};

TEST(KilledWriter, LeavesARingThatIsRestoredAfterEachInstruction) {
    constexpr size_t kSize = 24576;
    FakeHost host;
    host.Directory("/var/log/tolbrin");
    const auto body = [] {
        const FakeClock clock{1'700'000'000};  // held: no stamp tells the order
        OpenDebug debug;
        debug.m_TraceLevel = 1;
        debug.m_RingSize = kSize;
        {
            const RecursiveLockGuard hold{debug.Lock()};
            ASSERT_TRUE(debug.InitRingBuffer(kRunningRing, kSize));
        }
        StateKeeper keeper{{debug.m_RingBase, kSize}};
        Figures figures;
        const auto isInSecondPass = [&] { return debug.m_RingPos > debug.m_RingStart + kSize / 4; };
        for (uint32_t i = 0; debug.m_RingWrapCount == 0 || !isInSecondPass(); ++i) {
            const std::string text = LineText(i);
            const auto states = keeper.Watch([&] { debug.Trace(1, "%s", text.c_str()); });
            for (const auto state : states) ASSERT_TRUE(IsRestored(state, i, figures));
        }
        EXPECT_GT(figures.oneMark, 300);
        EXPECT_GT(figures.twoMarks, 50);
    };
    host.Run(body, {.limit = std::chrono::seconds{300}});  // millions of traps
}

}  // namespace

#include "platform/event.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/event_lines.h"
#include "support/libc_fault.h"
#include "support/trace_capture.h"

using testing::IsEmpty;

namespace {

/// What a body writes at a level, as `EventLines`.
template <typename Body>
Lines LinesAtLevel(unsigned level, Body&& body) {
    const TraceCapture trace{level};
    body();
    return EventLines(trace);
}

/// Expects that `body` writes that line at `level`, and nothing below it.
template <typename Body>
void ExpectLineAtLevel(unsigned level, const char* line, Body&& body) {
    EXPECT_THAT(LinesAtLevel(level - 1, body), IsEmpty());
    EXPECT_EQ(LinesAtLevel(level, body), (Lines{line}));
}

/// A handle whose event could not be made.
CEvent NullEvent() {
    FaultOf<&::pthread_mutex_init> fault;
    fault.Fail(EAGAIN);
    return CEvent{false, false, nullptr};
}

/// Gives back a reference that no handle holds any more, as an assignment leaves it: a handle and its
/// twin of the same bytes, which was never counted, both go.
void ReleaseLostReference(const char* name) {
    CEvent handle{false, true, name};
    alignas(CEvent) std::byte twin[sizeof(CEvent)];
    memcpy(twin, static_cast<const void*>(&handle), sizeof twin);
    std::destroy_at(reinterpret_cast<CEvent*>(twin));
}

bool IsInTable(const char* name) {
    return g_EventTable.Find(name) != nullptr;
}

size_t TableSize() {
    const RecursiveLockGuard hold{g_EventTable.Lock()};
    return g_EventTable.Entries().size();
}

}  // namespace

// Construction

TEST(EventConstruction, HasItsFieldsAtTheOffsetsThatModulesKnow) {
    static_assert(std::is_standard_layout_v<CEvent>);
    static_assert(sizeof(CEvent) == 16);
    CEvent event{false, true, "layout"};
    const auto field = [&event]<typename T>(size_t offset, T value) {
        memcpy(&value, reinterpret_cast<const char*>(&event) + offset, sizeof value);
        return value;
    };
    EXPECT_EQ(field(0, uint64_t{0}), g_EventTable.Find("layout")->Value);
    EXPECT_EQ(field(8, uint8_t{9}), 0);
    EXPECT_TRUE(event.Close());
    EXPECT_EQ(field(8, uint8_t{9}), 1);
}

TEST(EventConstruction, TracesTheEventAndItsEndAtLevel5) {
    const auto body = [] { const CEvent event{false, true, nullptr}; };
    EXPECT_THAT(LinesAtLevel(4, body), IsEmpty());
    EXPECT_EQ(LinesAtLevel(5, body), (Lines{"creating event A <anon> (IsSignaled=0)",
                                            "deleting event A <anon> (IsSignaled=0)"}));
}

TEST(EventConstruction, TakesItsStateFromTheFirstArgument) {
    EXPECT_TRUE((CEvent{true, false, nullptr}.Check()));
    EXPECT_FALSE((CEvent{false, true, nullptr}.Check()));
}

TEST(EventConstruction, TakesItsKindFromTheSecondArgument) {
    CEvent manual{true, true, nullptr};
    EXPECT_EQ(manual.Wait(0, false), 0);
    EXPECT_TRUE(manual.Check());
    CEvent automatic{true, false, nullptr};
    EXPECT_EQ(automatic.Wait(0, false), 0);
    EXPECT_FALSE(automatic.Check());
}

TEST(EventConstruction, AnAnonymousEventIsNotInTheTable) {
    const size_t before = TableSize();
    const CEvent event{false, true, nullptr};
    EXPECT_EQ(TableSize(), before);
}

TEST(EventConstruction, ANamedEventIsInTheTableWhileItLives) {
    const TraceCapture trace{5};
    {
        const CEvent event{true, true, "named"};
        const NameTableEntry* const entry = g_EventTable.Find("named");
        ASSERT_NE(entry, nullptr);
        EXPECT_NE(entry->Value, 0U);
        EXPECT_EQ(entry->Type, 0U);
    }
    EXPECT_FALSE(IsInTable("named"));
    EXPECT_EQ(EventLines(trace), (Lines{"creating event A <named> (IsSignaled=1)",
                                        "deleting event A <named> (IsSignaled=1)"}));
}

TEST(EventConstruction, AnEmptyNameIsAName) {
    const CEvent event{true, true, ""};
    EXPECT_TRUE(IsInTable(""));
    EXPECT_TRUE((CEvent{false, true, ""}.Check()));
}

TEST(EventConstruction, NamesThatDifferInCaseAreDifferentEvents) {
    const CEvent small{true, true, "name"};
    const CEvent large{false, true, "NAME"};
    EXPECT_TRUE(small.Check());
    EXPECT_FALSE(large.Check());
}

TEST(EventConstruction, OpeningANameTwiceYieldsTheSameEventInItsState) {
    const TraceCapture trace{5};
    {
        const CEvent first{true, true, "twice"};
        CEvent second{false, true, "twice"};
        second.Reset();
        (void)first.Check();
    }
    EXPECT_EQ(EventLines(trace), (Lines{"creating event A <twice> (IsSignaled=1)",
                                        "refCount for event A <twice> incremented (IsSignaled=1)",
                                        "Reset event A <twice>: IsSignaled=1 --> IsSignaled=0",
                                        "Check event A <twice> (IsSignaled=0)",
                                        "decr refcount on event A <twice> (IsSignaled=0)",
                                        "deleting event A <twice> (IsSignaled=0)"}));
}

TEST(EventConstruction, TracesAFoundEventAtLevel3) {
    const CEvent first{false, true, "found"};
    ExpectLineAtLevel(3, "refCount for event A <found> incremented (IsSignaled=0)", [] {
        const CEvent second{true, true, "found"};
    });
}

TEST(EventConstruction, WarnsAtLevel1OfAnotherKindAndKeepsTheFirst) {
    const CEvent first{true, true, "kind"};
    ExpectLineAtLevel(1, "WARNING: manual setting mismatch for event A <kind>", [] {
        CEvent second{true, false, "kind"};
        EXPECT_EQ(second.Wait(0, false), 0);
        EXPECT_TRUE(second.Check());  // still manual
    });
    EXPECT_EQ(LinesAtLevel(3,
                           [] {
                               const CEvent second{true, false, "kind"};
                           }),
              (Lines{"refCount for event A <kind> incremented (IsSignaled=1)",
                     "WARNING: manual setting mismatch for event A <kind>"}));
}

TEST(EventConstruction, ReusesAnEntryThatHasLostItsEvent) {
    g_EventTable.Insert("lost", 0, 0);
    const size_t before = TableSize();
    {
        const TraceCapture trace{5};
        const CEvent event{true, true, "lost"};
        EXPECT_EQ(EventLines(trace), (Lines{"creating event A <lost> (IsSignaled=1)"}));
        EXPECT_EQ(TableSize(), before);
        EXPECT_NE(g_EventTable.Find("lost")->Value, 0U);
        EXPECT_TRUE((CEvent{false, true, "lost"}.Check()));
    }
    EXPECT_FALSE(IsInTable("lost"));
}

TEST(EventConstruction, ANameIsFreeAgainWhenItsEventIsGone) {
    { const CEvent event{true, true, "again"}; }
    const CEvent event{false, false, "again"};
    EXPECT_FALSE(event.Check());
}

TEST(EventConstruction, ManyNamesMakeTheTableGrow) {
    std::vector<std::unique_ptr<CEvent>> events;
    for (int i = 0; i < 40; ++i) {
        events.push_back(std::make_unique<CEvent>(i % 2 == 0, true, std::to_string(i).c_str()));
    }
    for (int i = 0; i < 40; ++i) {
        EXPECT_EQ((CEvent{false, true, std::to_string(i).c_str()}.Check()), i % 2 == 0) << i;
    }
}

TEST(EventConstruction, TheExitEventIsManualNamelessAndNotSignalled) {
    EXPECT_TRUE(g_ExitEvent.IsOpen());
    EXPECT_FALSE(g_ExitEvent.Check());
    EXPECT_TRUE(g_ExitEvent.Set());
    EXPECT_EQ(g_ExitEvent.Wait(0, false), 0);
    EXPECT_EQ(LinesAtLevel(5, [] { EXPECT_TRUE(g_ExitEvent.Check()); }),
              (Lines{"Check event A <anon> (IsSignaled=1)"}));
    EXPECT_TRUE(g_ExitEvent.Reset());
}

// Copies and the count of handles

TEST(EventCopies, ShareTheEventAndCountTheirHandles) {
    const TraceCapture trace{5};
    {
        const CEvent first{true, true, nullptr};
        {
            CEvent second{first};
            EXPECT_TRUE(second.Set());
        }
        EXPECT_TRUE(first.Check());
    }
    EXPECT_EQ(EventLines(trace), (Lines{"creating event A <anon> (IsSignaled=1)",
                                        "incr refcount on event A <anon> (IsSignaled=1,IsManual=1)",
                                        "Set event A <anon> IsSignaled=1 --> IsSignaled=1",
                                        "decr refcount on event A <anon> (IsSignaled=1)",
                                        "Check event A <anon> (IsSignaled=1)",
                                        "deleting event A <anon> (IsSignaled=1)"}));
}

TEST(EventCopies, TraceTheCountAtLevel5) {
    const CEvent first{false, false, "copied"};
    EXPECT_THAT(LinesAtLevel(4, [&] { const CEvent second{first}; }), IsEmpty());
    EXPECT_EQ(LinesAtLevel(5, [&] { const CEvent second{first}; }),
              (Lines{"incr refcount on event A <copied> (IsSignaled=0,IsManual=0)",
                     "decr refcount on event A <copied> (IsSignaled=0)"}));
}

// The lines are written when the event may be gone: its name was copied before.
TEST(EventCopies, TheLinesOfAnEventThatMayBeGoneShowTheWholeName) {
    for (const size_t length : {1, 254, 255, 256, 257, 900}) {
        const std::string name(length, 'n');
        CEvent first{true, true, name.c_str()};
        auto second = std::make_unique<CEvent>(first);
        const std::string shown = "event A <" + name + "> ";
        EXPECT_EQ(LinesAtLevel(5, [&] { second.reset(); }),
                  (Lines{"decr refcount on " + shown + "(IsSignaled=1)"}));
        EXPECT_EQ(LinesAtLevel(5, [&] { (void)first.Wait(0, true); }).back(),
                  shown + "(IsManual=1) has been already signaled --> New state: IsSignaled=1");
        first.Reset();
        EXPECT_EQ(LinesAtLevel(5, [&] { (void)first.Wait(0, true); }).back(),
                  "TIMEOUT(0," + std::to_string(ETIMEDOUT) + ") on " + shown + "(IsSignaled=0)");
    }
}

TEST(EventCopies, TheNameIsCutInTheLineThatThereIsNoMemoryFor) {
    if (!LibcFault::kHeapFaults) GTEST_SKIP() << LibcFault::kNoHeapFaults;
    const std::string name(300, 'n');
    const CEvent first{false, false, name.c_str()};
    auto second = std::make_unique<CEvent>(first);
    const Lines lines = LinesAtLevel(5, [&] {
        FaultOf<&::malloc> memory;
        memory.Fail(ENOMEM);
        second.reset();
    });
    EXPECT_EQ(lines,
              (Lines{"decr refcount on event A <" + name.substr(0, 255) + "> (IsSignaled=0)"}));
}

TEST(EventCopies, AnEventTakesNoMemoryWhereNoLineIsWritten) {
    if (!LibcFault::kHeapFaults) GTEST_SKIP() << LibcFault::kNoHeapFaults;
    const struct {
        unsigned level;
        size_t length;
    } cases[] = {{0, 300}, {4, 255}};
    for (const auto& [level, length] : cases) {
        const TraceCapture trace{level};
        CEvent event{false, false, std::string(length, 'n').c_str()};
        FaultOf<&::malloc> memory;
        EXPECT_TRUE(event.Set());
        EXPECT_EQ(event.Wait(0, true), kWaitSignalled);
        EXPECT_EQ(event.Wait(0, true), kWaitTimedOut);
        EXPECT_TRUE(event.Reset());
        EXPECT_EQ(memory.Calls(), 0) << level;
    }
}

TEST(EventCopies, TheEventLivesAsLongAsTheLastHandle) {
    auto first = std::make_unique<CEvent>(false, true, "lives");
    CEvent second{*first};
    first.reset();
    EXPECT_TRUE(IsInTable("lives"));
    EXPECT_TRUE(second.Set());
    EXPECT_TRUE(second.Check());
}

TEST(EventCopies, ACopyOfAClosedHandleIsOpen) {
    CEvent first{false, true, nullptr};
    EXPECT_TRUE(first.Close());
    const CEvent second{first};
    EXPECT_FALSE(first.IsOpen());
    EXPECT_TRUE(second.IsOpen());
    EXPECT_TRUE(second.Check());
}

TEST(EventCopies, ACopyOfANullHandleIsNullAndTracesNothing) {
    const CEvent null = NullEvent();
    EXPECT_THAT(LinesAtLevel(5,
                             [&] {
                                 CEvent copy{null};
                                 EXPECT_FALSE(copy.Set());
                                 copy = null;
                                 EXPECT_FALSE(copy.Set());
                             }),
                IsEmpty());
}

TEST(EventAssignment, SharesTheEventAndOpensTheHandle) {
    const CEvent source{true, true, "source"};
    CEvent target = NullEvent();
    {
        CEvent closed{true, true, "source"};
        EXPECT_TRUE(closed.Close());
        EXPECT_EQ(LinesAtLevel(5, [&] { target = source; }),
                  (Lines{"incr refcount on event A <source> (IsSignaled=1,IsManual=1)"}));
    }
    EXPECT_TRUE(target.IsOpen());
    EXPECT_TRUE(target.Reset());
    EXPECT_FALSE(source.Check());
}

TEST(EventAssignment, OpensAClosedHandleAgain) {
    const CEvent source{true, true, nullptr};
    {
        CEvent target{false, true, "closed before"};
        EXPECT_TRUE(target.Close());
        target = source;
        EXPECT_TRUE(target.IsOpen());
        EXPECT_TRUE(target.Check());
    }
    ReleaseLostReference("closed before");
    EXPECT_FALSE(IsInTable("closed before"));
}

// Modules rely on it: a handle that they overwrite may still be known to others by its event.
TEST(EventAssignment, DoesNotReleaseTheEventHeldBefore) {
    {
        CEvent target{true, true, "never released"};
        const CEvent source{false, true, nullptr};
        const TraceCapture trace{5};
        target = source;
        EXPECT_EQ(EventLines(trace),
                  (Lines{"incr refcount on event A <anon> (IsSignaled=0,IsManual=1)"}));
    }
    EXPECT_TRUE(IsInTable("never released"));
    EXPECT_TRUE((CEvent{false, true, "never released"}.Check()));
    ReleaseLostReference("never released");
    EXPECT_FALSE(IsInTable("never released"));
}

TEST(EventAssignment, BetweenHandlesOfOneEventCountsOnceMore) {
    {
        const CEvent source{true, true, "counted thrice"};
        CEvent target{source};
        target = source;
    }
    EXPECT_TRUE(IsInTable("counted thrice"));
    ReleaseLostReference("counted thrice");
    EXPECT_FALSE(IsInTable("counted thrice"));
}

TEST(EventAssignment, FromItselfDoesNothing) {
    const TraceCapture trace{5};
    {
        CEvent event{false, true, nullptr};
        CEvent& same = event;
        EXPECT_TRUE(event.Close());
        event = same;
        EXPECT_FALSE(event.IsOpen());
    }
    EXPECT_EQ(EventLines(trace), (Lines{"creating event A <anon> (IsSignaled=0)",
                                        "Close event A <anon> IsSignaled=0 --> IsSignaled=1",
                                        "deleting event A <anon> (IsSignaled=1)"}));
}

// Create

TEST(EventCreate, ChangesStateAndKindOfAnUnusedEvent) {
    CEvent event{false, true, "created"};
    EXPECT_EQ(LinesAtLevel(5, [&] { EXPECT_TRUE(event.Create(true, false)); }),
              (Lines{"Create event A <created>, changing attributes (IsSignaled=0,IsManual=1) --> "
                     "(IsSignaled=1,IsManual=0)"}));
    EXPECT_EQ(event.Wait(0, false), 0);
    EXPECT_FALSE(event.Check());  // automatic now
}

TEST(EventCreate, ChangesOneOfTheTwo) {
    CEvent event{false, false, nullptr};
    EXPECT_EQ(LinesAtLevel(5, [&] { EXPECT_TRUE(event.Create(false, true)); }),
              (Lines{"Create event A <anon>, changing attributes (IsSignaled=0,IsManual=0) --> "
                     "(IsSignaled=0,IsManual=1)"}));
    EXPECT_EQ(LinesAtLevel(5, [&] { EXPECT_TRUE(event.Create(true, true)); }),
              (Lines{"Create event A <anon>, changing attributes (IsSignaled=0,IsManual=1) --> "
                     "(IsSignaled=1,IsManual=1)"}));
}

TEST(EventCreate, TracesAtLevel5) {
    CEvent event{false, false, nullptr};
    EXPECT_THAT(LinesAtLevel(4, [&] { EXPECT_TRUE(event.Create(true, true)); }), IsEmpty());
}

TEST(EventCreate, IsTrueWithoutALineWhenNothingChanges) {
    CEvent event{true, false, nullptr};
    EXPECT_THAT(LinesAtLevel(5, [&] { EXPECT_TRUE(event.Create(true, false)); }), IsEmpty());
    EXPECT_TRUE(event.Check());
}

// Set, Pulse, Reset, Check

TEST(EventSet, SignalsAndTracesAtLevel5) {
    CEvent event{false, true, nullptr};
    EXPECT_EQ(LinesAtLevel(5, [&] { EXPECT_TRUE(event.Set()); }),
              (Lines{"Set event A <anon> IsSignaled=0 --> IsSignaled=1"}));
    EXPECT_TRUE(event.Check());
    EXPECT_EQ(LinesAtLevel(5, [&] { EXPECT_TRUE(event.Set()); }),
              (Lines{"Set event A <anon> IsSignaled=1 --> IsSignaled=1"}));
    EXPECT_THAT(LinesAtLevel(4, [&] { EXPECT_TRUE(event.Set()); }), IsEmpty());
}

TEST(EventSet, WakesAllOfAManualAndOneOfAnAutomaticEventAndYields) {
    CEvent manual{false, true, nullptr};
    CEvent automatic{false, false, nullptr};
    FaultOf<&::pthread_cond_broadcast> broadcast;
    FaultOf<&::pthread_cond_signal> signal;
    FaultOf<&::sched_yield> yield;
    EXPECT_TRUE(manual.Set());
    EXPECT_EQ(broadcast.Calls(), 1);
    EXPECT_EQ(signal.Calls(), 0);
    EXPECT_EQ(yield.Calls(), 1);
    EXPECT_TRUE(automatic.Set());
    EXPECT_EQ(broadcast.Calls(), 1);
    EXPECT_EQ(signal.Calls(), 1);
    EXPECT_EQ(yield.Calls(), 2);
}

TEST(EventSet, OnAnAutomaticEventWithoutWaitersLetsTheNextWaitGoAndClears) {
    CEvent event{false, false, nullptr};
    EXPECT_TRUE(event.Set());
    EXPECT_EQ(event.Wait(kWaitForever, false), 0);
    EXPECT_FALSE(event.Check());
    EXPECT_EQ(event.Wait(0, false), 102);
}

TEST(EventPulse, LeavesTheEventUnsignalledAndTracesAtLevel5) {
    CEvent event{true, true, "pulsed"};
    EXPECT_THAT(LinesAtLevel(4, [&] { EXPECT_TRUE(event.Pulse()); }), IsEmpty());
    EXPECT_FALSE(event.Check());
    EXPECT_EQ(LinesAtLevel(5, [&] { EXPECT_TRUE(event.Pulse()); }),
              (Lines{"Pulse event A <pulsed> IsSignaled=0 --> IsSignaled=0"}));
    EXPECT_TRUE(event.Set());
    EXPECT_EQ(LinesAtLevel(5, [&] { EXPECT_TRUE(event.Pulse()); }),
              (Lines{"Pulse event A <pulsed> IsSignaled=1 --> IsSignaled=0"}));
}

TEST(EventPulse, WakesAllOfAManualAndOneOfAnAutomaticEventAndYields) {
    CEvent manual{false, true, nullptr};
    CEvent automatic{false, false, nullptr};
    FaultOf<&::pthread_cond_broadcast> broadcast;
    FaultOf<&::pthread_cond_signal> signal;
    FaultOf<&::sched_yield> yield;
    EXPECT_TRUE(manual.Pulse());
    EXPECT_EQ(broadcast.Calls(), 1);
    EXPECT_EQ(signal.Calls(), 0);
    EXPECT_TRUE(automatic.Pulse());
    EXPECT_EQ(broadcast.Calls(), 1);
    EXPECT_EQ(signal.Calls(), 1);
    EXPECT_EQ(yield.Calls(), 2);
}

TEST(EventPulse, WithNobodyWaitingReleasesNoLaterWait) {
    CEvent manual{false, true, nullptr};
    CEvent automatic{false, false, nullptr};
    EXPECT_TRUE(manual.Pulse());
    EXPECT_TRUE(automatic.Pulse());
    EXPECT_EQ(manual.Wait(1, false), 102);
    EXPECT_EQ(automatic.Wait(1, false), 102);
}

TEST(EventReset, ClearsAndTracesAtLevel5) {
    CEvent event{true, true, nullptr};
    EXPECT_EQ(LinesAtLevel(5, [&] { EXPECT_TRUE(event.Reset()); }),
              (Lines{"Reset event A <anon>: IsSignaled=1 --> IsSignaled=0"}));
    EXPECT_FALSE(event.Check());
    EXPECT_EQ(LinesAtLevel(5, [&] { EXPECT_TRUE(event.Reset()); }),
              (Lines{"Reset event A <anon>: IsSignaled=0 --> IsSignaled=0"}));
    EXPECT_THAT(LinesAtLevel(4, [&] { EXPECT_TRUE(event.Reset()); }), IsEmpty());
}

TEST(EventReset, NeitherWakesNorYields) {
    CEvent event{true, true, nullptr};
    FaultOf<&::pthread_cond_broadcast> broadcast;
    FaultOf<&::pthread_cond_signal> signal;
    FaultOf<&::sched_yield> yield;
    EXPECT_TRUE(event.Reset());
    EXPECT_EQ(broadcast.Calls() + signal.Calls() + yield.Calls(), 0);
}

TEST(EventCheck, ReadsTheStateAndTracesAtLevel5) {
    const CEvent event{true, false, nullptr};
    EXPECT_EQ(LinesAtLevel(5, [&] { EXPECT_TRUE(event.Check()); }),
              (Lines{"Check event A <anon> (IsSignaled=1)"}));
    EXPECT_THAT(LinesAtLevel(4, [&] { EXPECT_TRUE(event.Check()); }), IsEmpty());
}

TEST(EventCheck, DoesNotClearAnAutomaticEvent) {
    const CEvent event{true, false, nullptr};
    EXPECT_TRUE(event.Check());
    EXPECT_TRUE(event.Check());
}

TEST(EventCheck, TakesNoLock) {
    const CEvent event{true, false, nullptr};
    FaultOf<&::pthread_mutex_lock> lock;
    EXPECT_TRUE(event.Check());
    EXPECT_EQ(lock.Calls(), 0);
}

// Close

TEST(EventClose, BarsThisHandleAndSignalsTheOthers) {
    CEvent first{false, true, "closed"};
    const CEvent second{first};
    EXPECT_EQ(LinesAtLevel(5, [&] { EXPECT_TRUE(first.Close()); }),
              (Lines{"Close event A <closed> IsSignaled=0 --> IsSignaled=1"}));
    EXPECT_FALSE(first.IsOpen());
    EXPECT_TRUE(second.IsOpen());
    EXPECT_TRUE(second.Check());
}

TEST(EventClose, TracesAtLevel5) {
    CEvent event{false, true, nullptr};
    EXPECT_THAT(LinesAtLevel(4, [&] { EXPECT_TRUE(event.Close()); }), IsEmpty());
}

TEST(EventClose, WakesAllOfAManualAndOneOfAnAutomaticEventWithoutAYield) {
    CEvent manual{false, true, nullptr};
    CEvent automatic{false, false, nullptr};
    FaultOf<&::pthread_cond_broadcast> broadcast;
    FaultOf<&::pthread_cond_signal> signal;
    FaultOf<&::sched_yield> yield;
    EXPECT_TRUE(manual.Close());
    EXPECT_EQ(broadcast.Calls(), 1);
    EXPECT_EQ(signal.Calls(), 0);
    EXPECT_TRUE(automatic.Close());
    EXPECT_EQ(signal.Calls(), 1);
    EXPECT_EQ(yield.Calls(), 0);
}

TEST(EventClose, KeepsTheNameInTheTableForOtherHandles) {
    CEvent first{false, true, "closed name"};
    EXPECT_TRUE(first.Close());
    EXPECT_TRUE((CEvent{false, true, "closed name"}.Check()));
}

namespace {

void ExpectNothingWorks(CEvent& event) {
    EXPECT_THAT(LinesAtLevel(5,
                             [&] {
                                 EXPECT_FALSE(event.Create(true, true));
                                 EXPECT_FALSE(event.Set());
                                 EXPECT_FALSE(event.Pulse());
                                 EXPECT_FALSE(event.Reset());
                                 EXPECT_FALSE(event.Check());
                                 EXPECT_EQ(event.Wait(0, true), -1);
                                 EXPECT_EQ(event.Wait(kWaitForever, true), -1);
                                 EXPECT_FALSE(event.Close());
                             }),
                IsEmpty());
    EXPECT_EQ(event.IsAvailable(), 1);
}

}  // namespace

TEST(EventClose, AClosedHandleRefusesEverything) {
    CEvent event{true, true, nullptr};
    EXPECT_TRUE(event.Close());
    ExpectNothingWorks(event);
}

TEST(EventClose, ANullHandleRefusesEverythingButCountsAsOpen) {
    CEvent null = NullEvent();
    EXPECT_TRUE(null.IsOpen());
    ExpectNothingWorks(null);
    EXPECT_TRUE(null.IsOpen());
}

TEST(EventClose, AnEventIsAvailableInAllCases) {
    EXPECT_EQ((CEvent{true, true, nullptr}.IsAvailable()), 1);
}

#include "platform/event.h"

#include <cerrno>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/event_lines.h"
#include "support/libc_fault.h"
#include "support/trace_capture.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// The line of a failed construction, with the address as a letter; empty if there is none.
struct Row {
    const char* name;
    bool initialState;
    const char* line;
};

/// Constructs an event while a call fails, at levels 2 and 3: a null handle, one line, nothing in
/// the table, and no lock held.
template <auto F>
void ExpectNullEvent(const Row& row, int error) {
    for (const unsigned level : {2U, 3U}) {
        const TraceCapture trace{level};
        {
            FaultOf<F> fault;
            fault.Fail(error);
            CEvent event{row.initialState, true, row.name};
            EXPECT_FALSE(event.Set());
            EXPECT_TRUE(event.IsOpen());
        }
        EXPECT_EQ(EventLines(trace), level == 2 ? Lines{} : Lines{row.line});
        EXPECT_EQ(g_EventTable.Find(row.name), nullptr);
    }
    std::thread{[] { const CEvent other{false, true, "needs the lock"}; }}.join();
}

/// The object of a named event.
uint64_t ObjectOf(const char* name) {
    return g_EventTable.Find(name)->Value;
}

/// A script that concerns only the mutex of one event: the trace and the tables have others.
template <auto F>
class EventMutexFault : public FaultOf<F> {
  public:
    explicit EventMutexFault(uint64_t object) {
        this->Only([object](pthread_mutex_t* mutex) {
            return reinterpret_cast<uint64_t>(mutex) - object < 256;
        });
    }
};

}  // namespace

TEST(EventFailure, OfTheConditionAttributesGivesANullHandle) {
    ExpectNullEvent<&::pthread_condattr_init>({nullptr, true,
                                               "pthread_condattr_setclock(): ## ERROR ##: Set "
                                               "CLOCK_MONOTONIC failed (ret=12) for event A "
                                               "<anon> (IsSignaled=1)"},
                                              ENOMEM);
    ExpectNullEvent<&::pthread_condattr_init>({"failing", false,
                                               "pthread_condattr_setclock(): ## ERROR ##: Set "
                                               "CLOCK_MONOTONIC failed (ret=12) for event A "
                                               "<failing> (IsSignaled=0)"},
                                              ENOMEM);
}

TEST(EventFailure, OfTheClockGivesANullHandle) {
    ExpectNullEvent<&::pthread_condattr_setclock>({nullptr, false,
                                                   "pthread_condattr_setclock(): ## ERROR ##: Set "
                                                   "CLOCK_MONOTONIC failed (ret=22) for event A "
                                                   "<anon> (IsSignaled=0)"},
                                                  EINVAL);
    ExpectNullEvent<&::pthread_condattr_setclock>({"failing", true,
                                                   "pthread_condattr_setclock(): ## ERROR ##: Set "
                                                   "CLOCK_MONOTONIC failed (ret=22) for event A "
                                                   "<failing> (IsSignaled=1)"},
                                                  EINVAL);
}

TEST(EventFailure, OfTheConditionGivesANullHandle) {
    ExpectNullEvent<&::pthread_cond_init>(
        {nullptr, false,
         "pthread_cond_init(), CLOCK_MONOTONIC: ## ERROR ##: failed (ret=11) on event A <anon> "
         "(IsSignaled=0)"},
        EAGAIN);
    ExpectNullEvent<&::pthread_cond_init>(
        {"failing", true,
         "pthread_cond_init(), CLOCK_MONOTONIC: ## ERROR ##: failed (ret=11) on event A <failing> "
         "(IsSignaled=1)"},
        EAGAIN);
}

TEST(EventFailure, OfTheMutexGivesANullHandle) {
    ExpectNullEvent<&::pthread_mutex_init>(
        {nullptr, false,
         "pthread_mutex_init(), CLOCK_MONOTONIC: ## ERROR ##: failed (ret=11) on event A <anon> "
         "(IsSignaled=0)"},
        EAGAIN);
    ExpectNullEvent<&::pthread_mutex_init>(
        {"failing", true,
         "pthread_mutex_init(), CLOCK_MONOTONIC: ## ERROR ##: failed (ret=11) on event A <failing> "
         "(IsSignaled=1)"},
        EAGAIN);
}

/// Notes the calls of a function that destroys something, and makes them.
template <auto F>
class DestroyNote : public FaultOf<F> {
  public:
    DestroyNote(std::vector<std::string>& order, const char* what) {
        this->Always([&order, what](auto* destroyed) {
            order.emplace_back(what);
            return LibcFault::Real<F>(destroyed);
        });
    }
};

/// Those of the parts of an event.
struct EventDestroyNotes {
    explicit EventDestroyNotes(std::vector<std::string>& order)
        : condition(order, "condition"), attributes(order, "attributes"), mutex(order, "mutex") {}

    DestroyNote<&::pthread_cond_destroy> condition;
    DestroyNote<&::pthread_condattr_destroy> attributes;
    DestroyNote<&::pthread_mutex_destroy> mutex;
};

/// What is destroyed, in its order, when `F` fails as an event is made.
template <auto F>
std::vector<std::string> UndoneWhenFailing() {
    std::vector<std::string> undone;
    FaultOf<F> init;
    init.Fail(EAGAIN);
    const EventDestroyNotes notes{undone};
    const CEvent event{false, true, nullptr};
    return undone;
}

TEST(EventFailure, UndoesTheStepsDoneBefore) {
    EXPECT_THAT(UndoneWhenFailing<&::pthread_condattr_init>(), IsEmpty());
    EXPECT_THAT(UndoneWhenFailing<&::pthread_condattr_setclock>(), ElementsAre("attributes"));
    EXPECT_THAT(UndoneWhenFailing<&::pthread_mutex_init>(), ElementsAre("condition", "attributes"));
    const FaultOf<&::pthread_mutex_init> mutex;
    EXPECT_THAT(UndoneWhenFailing<&::pthread_cond_init>(), ElementsAre("attributes"));
    EXPECT_EQ(mutex.Calls(), 0) << "the condition comes first";
}

TEST(EventFailure, OfTheMemoryGivesANullHandleWithoutALine) {
    if (!LibcFault::kHeapFaults) GTEST_SKIP() << LibcFault::kNoHeapFaults;
    const TraceCapture trace{5};
    FaultOf<&::malloc> fault;
    fault.Fail(ENOMEM);
    CEvent event{true, true, nullptr};
    EXPECT_FALSE(event.Check());
    EXPECT_FALSE(event.Set());
    EXPECT_THAT(EventLines(trace), IsEmpty());
}

TEST(EventFailure, OfTheNamesMemoryUndoesEverything) {
    if (!LibcFault::kHeapFaults) GTEST_SKIP() << LibcFault::kNoHeapFaults;
    const TraceCapture trace{5};
    FaultOf<&::pthread_cond_destroy> destroy;
    {
        FaultOf<&::strdup> fault;
        fault.Fail(ENOMEM);
        CEvent event{true, true, "no memory"};
        EXPECT_FALSE(event.Check());
    }
    EXPECT_EQ(destroy.Calls(), 1);
    EXPECT_EQ(g_EventTable.Find("no memory"), nullptr);
    EXPECT_THAT(EventLines(trace), IsEmpty());
}

TEST(EventFailure, OfTheTablesMemoryUndoesEverything) {
    if (!LibcFault::kHeapFaults) GTEST_SKIP() << LibcFault::kNoHeapFaults;
    FaultOf<&::pthread_cond_destroy> destroy;
    {
        FaultOf<&::malloc> fault;
        fault.PassThrough();  // the object; `strdup` allocates inside the C library
        fault.Fail(ENOMEM);   // the table's copy of the name
        CEvent event{true, true, "no memory"};
        EXPECT_FALSE(event.Check());
    }
    EXPECT_EQ(destroy.Calls(), 1);
    EXPECT_EQ(g_EventTable.Find("no memory"), nullptr);
    const CEvent event{true, true, "no memory"};
    EXPECT_TRUE(event.Check());
}

// A mutex that cannot be locked

TEST(EventLockFailure, SetPulseResetCreateAndCloseGoOnWithoutTheMutex) {
    CEvent event{false, false, "lock"};
    const uint64_t object = ObjectOf("lock");
    EventMutexFault<&::pthread_mutex_lock> lock{object};
    EventMutexFault<&::pthread_mutex_unlock> unlock{object};
    FaultOf<&::pthread_cond_signal> signal;
    lock.AlwaysFail(EINVAL);
    EXPECT_TRUE(event.Set());
    EXPECT_TRUE(event.Check());
    EXPECT_TRUE(event.Pulse());
    EXPECT_FALSE(event.Check());
    EXPECT_TRUE(event.Set());
    EXPECT_TRUE(event.Reset());
    EXPECT_FALSE(event.Check());
    EXPECT_TRUE(event.Create(true, true));
    EXPECT_TRUE(event.Check());
    EXPECT_TRUE(event.Create(false, false));
    EXPECT_TRUE(event.Close());
    EXPECT_EQ(lock.Calls(), 7);
    EXPECT_EQ(unlock.Calls(), 0);
    EXPECT_EQ(signal.Calls(), 4);
}

TEST(EventLockFailure, WaitTakesASignalWithoutTheMutex) {
    CEvent event{true, false, "lock"};
    const uint64_t object = ObjectOf("lock");
    EventMutexFault<&::pthread_mutex_lock> lock{object};
    EventMutexFault<&::pthread_mutex_unlock> unlock{object};
    lock.Fail(EINVAL);
    EXPECT_EQ(event.Wait(kWaitForever, false), 0);
    EXPECT_FALSE(event.Check());
    EXPECT_EQ(unlock.Calls(), 0);
}

TEST(EventLockFailure, WaitForASignalFailsAndCountsNobody) {
    for (const unsigned timeout : {0U, 5U, kWaitForever}) {
        CEvent event{false, true, "lock"};
        const TraceCapture trace{5};
        {
            const uint64_t object = ObjectOf("lock");
            EventMutexFault<&::pthread_mutex_lock> lock{object};
            EventMutexFault<&::pthread_mutex_unlock> unlock{object};
            FaultOf<&::pthread_cond_wait> wait;
            FaultOf<&::pthread_cond_timedwait> timedWait;
            lock.Fail(EINVAL);
            EXPECT_EQ(event.Wait(timeout, true), -1);
            EXPECT_EQ(unlock.Calls() + wait.Calls() + timedWait.Calls(), 0);
        }
        EXPECT_EQ(EventLines(trace).back(), "FAILURE(22,-1) on event A <lock> (IsSignaled=0)");
        EXPECT_EQ(EventLines(trace).size(), 2U);
        EXPECT_TRUE(event.Create(true, true));  // nobody waits
    }
}

// The last handle does not delete the event as long as a thread counts.
TEST(EventLockFailure, WaitCountsUntilItHasCopiedWhatItsLineShows) {
    if (!LibcFault::kHeapFaults) GTEST_SKIP() << LibcFault::kNoHeapFaults;
    const std::string name(300, 'n');
    CEvent event{false, true, name.c_str()};
    const TraceCapture trace{5};
    {
        EventMutexFault<&::pthread_mutex_lock> lock{ObjectOf(name.c_str())};
        FaultOf<&::malloc> memory;
        lock.Fail(EINVAL);
        memory.Answer([&event](size_t size) {  // of the copy of the name
            EXPECT_FALSE(event.Create(false, true)) << "nobody waits";
            return LibcFault::Real<&::malloc>(size);
        });
        EXPECT_EQ(event.Wait(0, true), -1);
    }
    EXPECT_EQ(EventLines(trace).back(), "FAILURE(22,-1) on event A <" + name + "> (IsSignaled=0)");
    EXPECT_TRUE(event.Create(false, true));
}

TEST(EventLockFailure, TheDestructorGoesOnWithoutTheMutex) {
    auto event = std::make_unique<CEvent>(false, true, "lock");
    const TraceCapture trace{5};
    const uint64_t object = ObjectOf("lock");
    EventMutexFault<&::pthread_mutex_lock> lock{object};
    EventMutexFault<&::pthread_mutex_unlock> unlock{object};
    lock.Fail(EINVAL);
    event.reset();
    EXPECT_EQ(lock.Calls(), 1);
    EXPECT_EQ(unlock.Calls(), 0);
    EXPECT_EQ(EventLines(trace), (Lines{"deleting event A <lock> (IsSignaled=0)"}));
}

// What comes before what

TEST(EventOrder, CloseWakesBehindTheUnlockAndTheOthersBeforeIt) {
    for (const bool isManual : {true, false}) {
        std::vector<std::string> order;
        CEvent event{false, isManual, "order"};
        EventMutexFault<&::pthread_mutex_unlock> unlock{ObjectOf("order")};
        FaultOf<&::pthread_cond_broadcast> broadcast;
        FaultOf<&::pthread_cond_signal> signal;
        unlock.Always([&](pthread_mutex_t* mutex) {
            order.emplace_back("unlock");
            return LibcFault::Real<&::pthread_mutex_unlock>(mutex);
        });
        const auto wake = [&](pthread_cond_t*) {
            order.emplace_back("wake");
            return 0;
        };
        broadcast.Always(wake);
        signal.Always(wake);
        EXPECT_TRUE(event.Set());
        EXPECT_TRUE(event.Pulse());
        EXPECT_THAT(order, ElementsAre("wake", "unlock", "wake", "unlock"));
        order.clear();
        EXPECT_TRUE(event.Close());
        EXPECT_THAT(order, ElementsAre("unlock", "wake"));
    }
}

TEST(EventOrder, TheLastHandleDestroysConditionAttributesAndMutexBeforeItsLine) {
    std::vector<std::string> order;
    const TraceCapture trace{5};
    auto event = std::make_unique<CEvent>(true, true, "order");
    EventMutexFault<&::pthread_mutex_unlock> unlock{ObjectOf("order")};
    unlock.Always([&](pthread_mutex_t* mutex) {
        order.emplace_back("unlock");
        return LibcFault::Real<&::pthread_mutex_unlock>(mutex);
    });
    FaultOf<&::gettimeofday> line;  // for its time
    line.Always([&](timeval* now, void* zone) {
        order.emplace_back("line");
        return LibcFault::Real<&::gettimeofday>(now, zone);
    });
    const EventDestroyNotes notes{order};
    event.reset();
    EXPECT_THAT(order, ElementsAre("unlock", "condition", "attributes", "mutex", "line"));
    EXPECT_EQ(EventLines(trace).back(), "deleting event A <order> (IsSignaled=1)");
}

// A condition that cannot be signalled

TEST(EventWakeFailure, SetPulseAndCloseReportIt) {
    CEvent manual{false, true, nullptr};
    CEvent automatic{false, false, nullptr};
    FaultOf<&::pthread_cond_broadcast> broadcast;
    FaultOf<&::pthread_cond_signal> signal;
    broadcast.Fail(EINVAL, 3);
    signal.Fail(EINVAL, 3);
    for (CEvent* event : {&manual, &automatic}) {
        EXPECT_FALSE(event->Set());
        EXPECT_TRUE(event->Check());
        EXPECT_FALSE(event->Pulse());
        EXPECT_FALSE(event->Check());
        EXPECT_FALSE(event->Close());
        EXPECT_FALSE(event->IsOpen());
    }
}

TEST(EventWakeFailure, LeavesTheMutexFree) {
    CEvent event{false, true, nullptr};
    FaultOf<&::pthread_cond_broadcast> broadcast;
    broadcast.Fail(EINVAL);
    EXPECT_FALSE(event.Set());
    EXPECT_TRUE(event.Reset());
}

#include "platform/event.h"

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/event_lines.h"
#include "platform/victim.h"
#include "support/fake_clock.h"
#include "support/host_process.h"
#include "support/libc_fault.h"
#include "support/trace_capture.h"

using testing::IsEmpty;

namespace {

/// Counts the threads that have gone into a wait on a condition. A thread that is counted holds the
/// event's mutex until it waits, so whatever takes the mutex afterwards finds it waiting.
class WaitsOnConditions {
  public:
    /// Until `count` have been counted in all.
    [[nodiscard]] bool Await(int count) const {
        return HostProcess::WaitUntil(
            [&] { return m_Wait.Calls() + m_TimedWait.Calls() >= count; });
    }

  private:
    FaultOf<&::pthread_cond_wait> m_Wait;
    FaultOf<&::pthread_cond_timedwait> m_TimedWait;
};

/// A thread in `Wait`, not verbose.
class Waiter {
  public:
    Waiter(CEvent& event, unsigned timeoutMs) {
        m_Thread = std::thread{[this, &event, timeoutMs] {
            m_Result = event.Wait(timeoutMs, false);
            m_Done = true;
        }};
    }
    ~Waiter() {
        if (m_Thread.joinable()) m_Thread.join();
    }
    Waiter(const Waiter&) = delete;
    Waiter& operator=(const Waiter&) = delete;

    [[nodiscard]] bool IsDone() const { return m_Done; }
    int Result() {
        m_Thread.join();
        return m_Result;
    }

  private:
    int m_Result = 12345;
    std::atomic<bool> m_Done{false};
    std::thread m_Thread;
};

int CountDone(const std::vector<std::unique_ptr<Waiter>>& waiters) {
    int done = 0;
    for (const auto& waiter : waiters) done += waiter->IsDone();
    return done;
}

/// Three threads that wait on `event`.
std::vector<std::unique_ptr<Waiter>> StartThree(CEvent& event, const WaitsOnConditions& waits) {
    std::vector<std::unique_ptr<Waiter>> waiters;
    for (int i = 0; i < 3; ++i) waiters.push_back(std::make_unique<Waiter>(event, kWaitForever));
    EXPECT_TRUE(waits.Await(3));
    return waiters;
}

}  // namespace

// Who is let go

TEST(EventThreads, SetLetsAllGoWhoWaitForAManualEvent) {
    CEvent event{false, true, nullptr};
    const WaitsOnConditions waits;
    const auto waiters = StartThree(event, waits);
    EXPECT_TRUE(event.Set());
    for (const auto& waiter : waiters) EXPECT_EQ(waiter->Result(), 0);
    EXPECT_TRUE(event.Check());
}

TEST(EventThreads, SetLetsOneGoWhoWaitsForAnAutomaticEvent) {
    CEvent event{false, false, nullptr};
    const WaitsOnConditions waits;
    const auto waiters = StartThree(event, waits);
    for (int released = 1; released <= 3; ++released) {
        EXPECT_TRUE(event.Set());
        EXPECT_TRUE(HostProcess::WaitUntil([&] { return CountDone(waiters) >= released; }));
        EXPECT_EQ(CountDone(waiters), released);
    }
    for (const auto& waiter : waiters) EXPECT_EQ(waiter->Result(), 0);
    EXPECT_FALSE(event.Check());  // had one Set let two go, the last one would have met nobody
}

TEST(EventThreads, PulseLetsAllGoWhoWaitForAManualEvent) {
    CEvent event{false, true, nullptr};
    const WaitsOnConditions waits;
    const auto waiters = StartThree(event, waits);
    EXPECT_TRUE(event.Pulse());
    for (const auto& waiter : waiters) EXPECT_EQ(waiter->Result(), 0);
    EXPECT_FALSE(event.Check());
    EXPECT_EQ(event.Wait(0, false), 102);
}

TEST(EventThreads, PulseLetsOneGoWhoWaitsForAnAutomaticEvent) {
    CEvent event{false, false, nullptr};
    const WaitsOnConditions waits;
    const auto waiters = StartThree(event, waits);
    EXPECT_TRUE(event.Pulse());
    EXPECT_TRUE(HostProcess::WaitUntil([&] { return CountDone(waiters) >= 1; }));
    EXPECT_EQ(CountDone(waiters), 1);
    EXPECT_FALSE(event.Check());
    EXPECT_FALSE(event.Create(true, true));  // the others wait still
    for (int released = 2; released <= 3; ++released) {
        EXPECT_TRUE(event.Set());
        EXPECT_TRUE(HostProcess::WaitUntil([&] { return CountDone(waiters) >= released; }));
    }
    EXPECT_FALSE(event.Check());  // had the Pulse let two go, the last Set would have met nobody
}

TEST(EventThreads, PulseLetsAWaitWithALimitGo) {
    CEvent event{false, true, nullptr};
    const WaitsOnConditions waits;
    Waiter waiter{event, 600000};
    ASSERT_TRUE(waits.Await(1));
    EXPECT_TRUE(event.Pulse());
    EXPECT_EQ(waiter.Result(), 0);
}

TEST(EventThreads, CloseLetsAllGoWhoWaitForAManualEvent) {
    CEvent event{false, true, nullptr};
    const WaitsOnConditions waits;
    const auto waiters = StartThree(event, waits);
    EXPECT_TRUE(event.Close());
    for (const auto& waiter : waiters) EXPECT_EQ(waiter->Result(), 0);
}

TEST(EventThreads, CloseLetsOneGoWhoWaitsForAnAutomaticEvent) {
    CEvent first{false, false, nullptr};
    CEvent second{first};
    const WaitsOnConditions waits;
    const auto waiters = StartThree(first, waits);
    EXPECT_TRUE(first.Close());
    EXPECT_TRUE(HostProcess::WaitUntil([&] { return CountDone(waiters) >= 1; }));
    EXPECT_EQ(CountDone(waiters), 1);
    for (int released = 2; released <= 3; ++released) {
        EXPECT_TRUE(second.Set());
        EXPECT_TRUE(HostProcess::WaitUntil([&] { return CountDone(waiters) >= released; }));
    }
    EXPECT_FALSE(second.Check());
}

TEST(EventThreads, AnotherHandleOfTheNameLetsTheWaiterGo) {
    CEvent event{false, true, "across"};
    const WaitsOnConditions waits;
    Waiter waiter{event, kWaitForever};
    ASSERT_TRUE(waits.Await(1));
    EXPECT_TRUE((CEvent{false, true, "across"}.Set()));
    EXPECT_EQ(waiter.Result(), 0);
}

TEST(EventThreads, CreateWithWaitersPresentChangesNothing) {
    CEvent event{false, true, nullptr};
    const WaitsOnConditions waits;
    Waiter waiter{event, kWaitForever};
    ASSERT_TRUE(waits.Await(1));
    {
        const TraceCapture trace{5};
        EXPECT_FALSE(event.Create(true, false));
        EXPECT_FALSE(event.Create(false, true));  // also what it is already
        EXPECT_THAT(EventLines(trace), IsEmpty());
    }
    EXPECT_FALSE(event.Check());
    EXPECT_TRUE(event.Set());
    EXPECT_EQ(waiter.Result(), 0);
    EXPECT_TRUE(event.Check());  // still manual
    EXPECT_TRUE(event.Create(true, false));
}

TEST(EventThreads, AWallClockJumpDuringAWaitWithLimitChangesNothing) {
    FaultOf<&::pthread_cond_timedwait> wait;
    FakeClock clock;
    CEvent event{false, true, nullptr};
    Waiter waiter{event, 600000};
    ASSERT_TRUE(HostProcess::WaitUntil([&] { return wait.Calls() == 1; }));
    clock.Advance(std::chrono::hours{24 * 365});
    EXPECT_FALSE(event.Create(true, true));  // it waits on, for a deadline that is no date
    clock.Set(0);
    EXPECT_FALSE(event.Create(true, true));
    EXPECT_TRUE(event.Set());
    EXPECT_EQ(waiter.Result(), 0);
    Waiter late{event, 1};
    EXPECT_EQ(late.Result(), 0);
    EXPECT_TRUE(event.Reset());
    EXPECT_EQ(event.Wait(1, false), 102);
}

// The last handle

TEST(EventThreads, TheLastHandleWaitsForTheWaitersBySecond) {
    const TraceCapture trace{5};
    std::atomic<bool> slept{false};
    std::vector<unsigned> naps;
    FaultOf<&::sleep> sleep;
    sleep.Always([&](unsigned seconds) {
        naps.push_back(seconds);
        slept = true;
        std::this_thread::yield();
        return 0U;
    });
    // A wait that times out when the destructor has looked once.
    FaultOf<&::pthread_cond_timedwait> wait;
    wait.Answer([&](pthread_cond_t*, pthread_mutex_t* mutex, const timespec*) {
        EXPECT_EQ(pthread_mutex_unlock(mutex), 0);
        EXPECT_TRUE(HostProcess::WaitUntil([&] { return slept.load(); }));
        EXPECT_EQ(pthread_mutex_lock(mutex), 0);
        return ETIMEDOUT;
    });
    auto event = std::make_unique<CEvent>(false, true, "last");
    Waiter waiter{*event, 5000};
    ASSERT_TRUE(HostProcess::WaitUntil([&] { return wait.Calls() == 1; }));
    event.reset();
    EXPECT_EQ(waiter.Result(), 102);
    EXPECT_GE(naps.size(), 1U);
    EXPECT_THAT(naps, testing::Each(1U));
    EXPECT_EQ(g_EventTable.Find("last"), nullptr);
    EXPECT_EQ(EventLines(trace), (Lines{"creating event A <last> (IsSignaled=0)",
                                        "deleting event A <last> (IsSignaled=0)"}));
}

TEST(EventThreads, ANameIsFreeWhileTheLastHandleWaits) {
    std::atomic<bool> slept{false};
    FaultOf<&::sleep> sleep;
    sleep.Always([&](unsigned) {
        if (!slept) {  // the locks are free, and the name makes a new event
            EXPECT_TRUE((CEvent{true, true, "leaving"}.Check()));
        }
        slept = true;
        return 0U;
    });
    FaultOf<&::pthread_cond_wait> wait;
    wait.Answer([&](pthread_cond_t*, pthread_mutex_t* mutex) {
        EXPECT_EQ(pthread_mutex_unlock(mutex), 0);
        EXPECT_TRUE(HostProcess::WaitUntil([&] { return slept.load(); }));
        EXPECT_EQ(pthread_mutex_lock(mutex), 0);
        return 0;
    });
    auto event = std::make_unique<CEvent>(false, true, "leaving");
    Waiter waiter{*event, kWaitForever};
    ASSERT_TRUE(HostProcess::WaitUntil([&] { return wait.Calls() == 1; }));
    event.reset();
    EXPECT_EQ(waiter.Result(), 0);
    EXPECT_TRUE(slept);
}

TEST(EventThreads, OtherHandlesDoNotWaitForTheWaiters) {
    CEvent event{false, true, nullptr};
    const WaitsOnConditions waits;
    Waiter waiter{event, kWaitForever};
    ASSERT_TRUE(waits.Await(1));
    FaultOf<&::sleep> sleep;
    { const CEvent copy{event}; }
    EXPECT_EQ(sleep.Calls(), 0);
    EXPECT_TRUE(event.Set());
}

// Common use: the one who waits owns the event, and destroys it once it is released.
TEST(EventThreads, AReleasedWaiterMayDestroyTheEventAtOnce) {
    for (int round = 0; round < 300; ++round) {
        auto event = std::make_unique<CEvent>(false, true, nullptr);
        std::thread setter{[raw = event.get()] { (void)raw->Set(); }};
        EXPECT_EQ(event->Wait(kWaitForever, false), 0);
        event.reset();
        setter.join();
    }
}

// Cancellation

TEST(EventCancellation, InAWaitLeavesTheEventAsIfTheThreadHadNeverCome) {
    for (const unsigned timeout : {600000U, kWaitForever}) {
        CEvent event{false, false, nullptr};
        const WaitsOnConditions waits;
        Victim victim{[&] { (void)event.Wait(timeout, false); }};
        ASSERT_TRUE(waits.Await(1));
        EXPECT_FALSE(event.Create(true, true));
        victim.Cancel();
        EXPECT_TRUE(victim.EndedByCancellation());
        EXPECT_TRUE(event.Create(true, false));  // nobody waits, and the mutex is free
        EXPECT_EQ(event.Wait(kWaitForever, false), 0);
    }
}

TEST(EventCancellation, LeavesAnotherWaiterToBeServed) {
    for (const unsigned timeout : {600000U, kWaitForever}) {
        CEvent event{false, false, nullptr};
        const WaitsOnConditions waits;
        Victim victim{[&] { (void)event.Wait(timeout, false); }};
        Waiter other{event, timeout};
        ASSERT_TRUE(waits.Await(2));
        victim.Cancel();
        EXPECT_TRUE(victim.EndedByCancellation());
        EXPECT_FALSE(event.Create(true, true));
        EXPECT_TRUE(event.Set());
        EXPECT_EQ(other.Result(), 0);
        EXPECT_TRUE(event.Create(true, true));
    }
}

TEST(EventCancellation, UnwindsTheFramesAboveTheWait) {
    CEvent event{false, true, nullptr};
    const WaitsOnConditions waits;
    bool unwound = false;
    struct Frame {
        bool& unwound;
        ~Frame() { unwound = true; }
    };
    Victim victim{[&] {
        const Frame frame{unwound};
        (void)event.Wait(kWaitForever, false);
    }};
    ASSERT_TRUE(waits.Await(1));
    victim.Cancel();
    EXPECT_TRUE(victim.EndedByCancellation());
    EXPECT_TRUE(unwound);
}

TEST(EventCancellation, IsHeardByAThreadThatOnlyLooks) {
    CEvent event{false, true, nullptr};
    Victim victim{[&] {
        while (event.Wait(0, false) == kWaitTimedOut) std::this_thread::yield();
    }};
    victim.Cancel();
    EXPECT_TRUE(victim.EndedByCancellation());
    EXPECT_TRUE(event.Create(true, true));
}

TEST(EventCancellation, InTheLinesOfAVerboseWaitLeavesTheEventFree) {
    const TraceCapture trace{5};
    CEvent event{false, true, nullptr};
    for (const unsigned timeout : {0U, 600000U, kWaitForever}) {
        Victim victim{[&] {
            pthread_cancel(pthread_self());  // takes effect at the first point on the way
            (void)event.Wait(timeout, true);
        }};
        EXPECT_TRUE(victim.EndedByCancellation());
        EXPECT_TRUE(event.Create(false, true));
    }
    EXPECT_TRUE(event.Set());
}

TEST(EventCancellation, BehindAWaitThatTookTheSignalLeavesItsResultAndLines) {
    const TraceCapture trace{5};
    CEvent event{false, false, nullptr};
    FaultOf<&::pthread_cond_wait> wait;
    wait.Answer([](pthread_cond_t*, pthread_mutex_t*) {
        pthread_cancel(pthread_self());  // comes when the wait is over
        return 0;
    });
    int result = 12345;
    Victim victim{[&] {
        result = event.Wait(kWaitForever, true);
        pthread_testcancel();
    }};
    EXPECT_TRUE(victim.EndedByCancellation());
    EXPECT_EQ(result, 0);
    EXPECT_EQ(EventLines(trace).back(), "SIGNAL(0,0) on event A <anon> (IsSignaled=0)");
}

TEST(EventCancellation, InTheLineOfSetLeavesTheEventFree) {
    const TraceCapture trace{5};
    CEvent event{false, true, nullptr};
    Victim victim{[&] {
        pthread_cancel(pthread_self());
        (void)event.Set();
        pthread_testcancel();
    }};
    EXPECT_TRUE(victim.EndedByCancellation());
    EXPECT_TRUE(event.Reset());
    EXPECT_TRUE(event.Create(true, true));
}

TEST(EventCancellation, DoesNotReachTheConstructorsAndTheDestructor) {
    const TraceCapture trace{5};
    std::atomic<bool> passed{false};
    Victim victim{[&] {
        pthread_cancel(pthread_self());
        {
            const CEvent event{true, true, "to the end"};
            const CEvent found{true, true, "to the end"};
            const CEvent copy{event};
        }
        passed = true;
        pthread_testcancel();
    }};
    EXPECT_TRUE(victim.EndedByCancellation());
    EXPECT_TRUE(passed);
    EXPECT_EQ(g_EventTable.Find("to the end"), nullptr);
    EXPECT_EQ(EventLines(trace).back(), "deleting event A <to the end> (IsSignaled=1)");
}

TEST(EventCancellation, DoesNotReachTheLastHandleThatWaitsForWaiters) {
    std::atomic<bool> slept{false};
    FaultOf<&::sleep> sleep;
    sleep.Always([&](unsigned) {
        slept = true;
        pthread_testcancel();  // as the real one does
        return 0U;
    });
    FaultOf<&::pthread_cond_wait> wait;
    wait.Answer([&](pthread_cond_t*, pthread_mutex_t* mutex) {
        EXPECT_EQ(pthread_mutex_unlock(mutex), 0);
        EXPECT_TRUE(HostProcess::WaitUntil([&] { return slept.load(); }));
        EXPECT_EQ(pthread_mutex_lock(mutex), 0);
        return 0;
    });
    auto event = std::make_unique<CEvent>(false, true, nullptr);
    Waiter waiter{*event, kWaitForever};
    ASSERT_TRUE(HostProcess::WaitUntil([&] { return wait.Calls() == 1; }));
    Victim victim{[&] {
        pthread_cancel(pthread_self());
        event.reset();
        pthread_testcancel();
    }};
    EXPECT_TRUE(victim.EndedByCancellation());
    EXPECT_TRUE(slept);
    EXPECT_EQ(event, nullptr);
    EXPECT_EQ(waiter.Result(), 0);
}

// Many at once

namespace {

void InEightThreads(const std::function<void(int)>& body) {
    std::vector<std::thread> threads;
    for (int id = 0; id < 8; ++id) threads.emplace_back(body, id);
    for (std::thread& thread : threads) thread.join();
}

}  // namespace

TEST(EventStress, AnAutomaticEventPassesThroughEightThreads) {
    CEvent event{true, false, nullptr};
    std::atomic<int> passed{0};
    InEightThreads([&](int) {
        for (int i = 0; i < 500; ++i) {
            EXPECT_EQ(event.Wait(kWaitForever, false), 0);
            ++passed;
            EXPECT_TRUE(event.Set());
        }
    });
    EXPECT_EQ(passed, 4000);
    EXPECT_TRUE(event.Check());
    EXPECT_TRUE(event.Create(false, false));  // nobody waits
}

TEST(EventStress, EveryOperationFromEightThreads) {
    CEvent event{false, true, "hammered"};
    InEightThreads([&](int id) {
        for (int i = 0; i < 300; ++i) {
            CEvent named{false, true, "hammered"};
            CEvent copy{event};
            EXPECT_TRUE(named.Set());
            EXPECT_NE(copy.Wait(0, false), -1);
            EXPECT_TRUE(copy.Pulse());
            EXPECT_NE(event.Wait(static_cast<unsigned>(id % 2), false), -1);
            EXPECT_TRUE(event.Reset());
            (void)event.Check();
            (void)event.Create(false, true);
            EXPECT_TRUE(named.Close());
            EXPECT_FALSE(named.Check());
        }
    });
    EXPECT_TRUE(event.Create(false, false) || !event.Check());
}

TEST(EventStress, NamesComeAndGoInEightThreads) {
    InEightThreads([](int id) {
        for (int i = 0; i < 500; ++i) {
            const std::string own = "own" + std::to_string(id);
            CEvent shared{false, true, "shared"};
            const CEvent mine{true, true, own.c_str()};
            EXPECT_TRUE(mine.Check());
            EXPECT_TRUE(shared.Set());
        }
    });
    EXPECT_EQ(g_EventTable.Find("shared"), nullptr);
    EXPECT_EQ(g_EventTable.Find("own0"), nullptr);
}

TEST(EventStress, TracesOfManyThreadsNeverTouchADeletedEvent) {
    const TraceCapture trace{5};
    InEightThreads([](int) {
        for (int i = 0; i < 50; ++i) {
            CEvent event{false, true, "traced"};
            const CEvent copy{event};
            EXPECT_TRUE(event.Set());
            EXPECT_NE(event.Wait(0, true), -1);
        }
    });
    EXPECT_FALSE(trace.LinesWith("deleting event").empty());
}

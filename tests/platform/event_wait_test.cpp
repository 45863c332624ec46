#include "platform/event.h"

#include <cerrno>
#include <ctime>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/event_lines.h"
#include "support/libc_fault.h"
#include "support/trace_capture.h"

using testing::IsEmpty;

// One thread, with the C library's waits in the hands of the test.

namespace {

/// The monotonic clock stands at `now`.
class FixedMonotonicClock {
  public:
    explicit FixedMonotonicClock(timespec now) {
        m_Fault.Only([](clockid_t clock, timespec*) { return clock == CLOCK_MONOTONIC; });
        m_Fault.Always([now](clockid_t, timespec* time) {
            *time = now;
            return 0;
        });
    }

  private:
    FaultOf<&::clock_gettime> m_Fault;
};

using TimedWait = FaultOf<&::pthread_cond_timedwait>;

/// Keeps the deadlines that the product waits for; each wait times out.
struct Deadlines {
    std::vector<timespec> seen;
    TimedWait wait;

    Deadlines() {
        wait.Always([this](pthread_cond_t*, pthread_mutex_t*, const timespec* deadline) {
            seen.push_back(*deadline);
            return ETIMEDOUT;
        });
    }
};

/// Sets the event as another thread does while this one waits with its mutex given back.
void SetMeanwhile(CEvent& event, pthread_mutex_t* mutex) {
    EXPECT_EQ(pthread_mutex_unlock(mutex), 0);
    EXPECT_TRUE(event.Set());
    EXPECT_EQ(pthread_mutex_lock(mutex), 0);
}

}  // namespace

// Results

TEST(EventWait, TakesASignalAtOnce) {
    CEvent manual{true, true, nullptr};
    CEvent automatic{true, false, nullptr};
    FaultOf<&::pthread_cond_wait> wait;
    TimedWait timedWait;
    for (const unsigned timeout : {0U, 1000U, kWaitForever}) {
        EXPECT_EQ(manual.Wait(timeout, false), 0);
        EXPECT_TRUE(manual.Check());
        EXPECT_TRUE(automatic.Set());
        EXPECT_EQ(automatic.Wait(timeout, false), 0);
        EXPECT_FALSE(automatic.Check());
    }
    EXPECT_EQ(wait.Calls() + timedWait.Calls(), 0);
}

TEST(EventWait, OfNoTimeGives102WithoutBlocking) {
    CEvent event{false, true, nullptr};
    FaultOf<&::pthread_cond_wait> wait;
    TimedWait timedWait;
    EXPECT_EQ(event.Wait(0, false), 102);
    EXPECT_EQ(event.Wait(0, true), 102);
    EXPECT_EQ(wait.Calls() + timedWait.Calls(), 0);
    EXPECT_TRUE(event.Create(true, true));  // nobody waits, and the mutex is free
}

TEST(EventWait, Gives102WhenTheTimeIsOver) {
    CEvent event{false, true, nullptr};
    EXPECT_EQ(event.Wait(1, false), 102);
    EXPECT_EQ(event.Wait(20, false), 102);
    EXPECT_FALSE(event.Check());
    EXPECT_TRUE(event.Create(true, true));
}

TEST(EventWait, GivesMinusOneWhenTheWaitFails) {
    CEvent event{false, true, nullptr};
    {
        TimedWait wait;
        wait.Fail(EINVAL);
        EXPECT_EQ(event.Wait(5, false), -1);
    }
    FaultOf<&::pthread_cond_wait> wait;
    wait.Fail(EPERM);
    EXPECT_EQ(event.Wait(kWaitForever, false), -1);
    EXPECT_TRUE(event.Create(true, true));
}

TEST(EventWait, GoesOnAfterAnInterruptionWithTheSameDeadline) {
    CEvent event{false, true, nullptr};
    const FixedMonotonicClock clock{{100, 0}};
    std::vector<time_t> deadlines;
    TimedWait wait;
    wait.Answer(
        [&](pthread_cond_t*, pthread_mutex_t*, const timespec* deadline) {
            deadlines.push_back(deadline->tv_sec);
            return EINTR;
        },
        3);
    wait.Fail(ETIMEDOUT);
    EXPECT_EQ(event.Wait(7000, false), 102);
    EXPECT_EQ(deadlines, (std::vector<time_t>{107, 107, 107}));
    EXPECT_EQ(wait.Calls(), 4);
}

TEST(EventWait, WithoutALimitGoesOnAfterAnInterruption) {
    CEvent event{false, true, nullptr};
    FaultOf<&::pthread_cond_wait> wait;
    wait.Fail(EINTR, 2);
    wait.Return(0);
    EXPECT_EQ(event.Wait(kWaitForever, false), 0);
    EXPECT_EQ(wait.Calls(), 3);
}

// The price of Pulse, which lets waiters go with the flag already clear.
TEST(EventWait, ASpuriousWakeUpCountsAsASignal) {
    CEvent event{false, false, nullptr};
    {
        FaultOf<&::pthread_cond_wait> wait;
        wait.Return(0);
        EXPECT_EQ(event.Wait(kWaitForever, false), 0);
    }
    TimedWait wait;
    wait.Return(0);
    EXPECT_EQ(event.Wait(5, false), 0);
    EXPECT_FALSE(event.Check());
}

TEST(EventWait, ASignalThatComesWithTheTimeoutCounts) {
    for (const int error : {ETIMEDOUT, EINVAL}) {
        for (const bool manual : {true, false}) {
            CEvent event{false, manual, nullptr};
            TimedWait wait;
            wait.Answer([&](pthread_cond_t*, pthread_mutex_t* mutex, const timespec*) {
                SetMeanwhile(event, mutex);
                return error;
            });
            EXPECT_EQ(event.Wait(5, false), 0);
            EXPECT_EQ(event.Check(), manual);  // taken by the wait if automatic
        }
    }
}

TEST(EventWait, ACloseOfTheSameHandleEndsItAsASignal) {
    CEvent event{false, true, nullptr};
    FaultOf<&::pthread_cond_wait> wait;
    wait.Answer([&](pthread_cond_t*, pthread_mutex_t* mutex) {
        EXPECT_EQ(pthread_mutex_unlock(mutex), 0);
        EXPECT_TRUE(event.Close());
        EXPECT_EQ(pthread_mutex_lock(mutex), 0);
        return 0;
    });
    EXPECT_EQ(event.Wait(kWaitForever, false), 0);
    EXPECT_EQ(event.Wait(kWaitForever, false), -1);
}

// The deadline

TEST(EventWait, ItsDeadlineIsTheMonotonicTimePlusTheLimit) {
    struct Case {
        timespec now;
        unsigned timeout;
        timespec deadline;
    };
    const Case cases[] = {
        {{50, 0}, 1, {50, 1000000}},
        {{50, 5}, 999, {50, 999000005}},
        {{50, 0}, 1000, {51, 0}},
        {{50, 999999999}, 1, {51, 999999}},
        {{50, 1000000}, 999, {51, 0}},
        {{50, 500000000}, 2600, {53, 100000000}},
        {{50, 0}, 4294967294, {4295017, 294000000}},
    };
    CEvent event{false, true, nullptr};
    for (const Case& row : cases) {
        const FixedMonotonicClock clock{row.now};
        Deadlines deadlines;
        EXPECT_EQ(event.Wait(row.timeout, false), 102);
        ASSERT_EQ(deadlines.seen.size(), 1U);
        EXPECT_EQ(deadlines.seen[0].tv_sec, row.deadline.tv_sec) << row.timeout;
        EXPECT_EQ(deadlines.seen[0].tv_nsec, row.deadline.tv_nsec) << row.timeout;
    }
}

TEST(EventWait, WithoutALimitAsksForNoTime) {
    CEvent event{false, true, nullptr};
    FaultOf<&::clock_gettime> clock;
    clock.Only([](clockid_t id, timespec*) { return id == CLOCK_MONOTONIC; });
    FaultOf<&::pthread_cond_wait> wait;
    wait.Return(0);
    EXPECT_EQ(event.Wait(kWaitForever, false), 0);
    EXPECT_EQ(event.Wait(0, false), 102);
    EXPECT_EQ(clock.Calls(), 0);
}

TEST(EventWait, TheConditionRunsOnTheMonotonicClock) {
    FaultOf<&::pthread_condattr_setclock> setClock;
    clockid_t chosen = CLOCK_REALTIME;
    setClock.Answer([&](pthread_condattr_t* attributes, clockid_t clock) {
        chosen = clock;
        return LibcFault::Real<&::pthread_condattr_setclock>(attributes, clock);
    });
    const CEvent event{false, true, nullptr};
    EXPECT_EQ(chosen, CLOCK_MONOTONIC);
}

// The lines of a verbose wait

namespace {

/// The lines of `Wait(timeout, true)` at level 5.
Lines LinesOfWait(CEvent& event, unsigned timeout) {
    const TraceCapture trace{5};
    (void)event.Wait(timeout, true);
    return EventLines(trace);
}

}  // namespace

TEST(EventWaitLines, TellOfASignalThatWasThere) {
    CEvent manual{true, true, "manual"};
    EXPECT_EQ(LinesOfWait(manual, 250),
              (Lines{"waiting 250ms on event A",
                     "event A <manual> (IsManual=1) has been already signaled --> New state: "
                     "IsSignaled=1"}));
    CEvent automatic{true, false, nullptr};
    EXPECT_EQ(LinesOfWait(automatic, kWaitForever),
              (Lines{"waiting forever on event A",
                     "event A <anon> (IsManual=0) has been already signaled --> New state: "
                     "IsSignaled=0"}));
}

TEST(EventWaitLines, TellOfATimeout) {
    CEvent event{false, true, "timed"};
    const FixedMonotonicClock clock{{1000, 999000000}};
    Deadlines deadlines;
    EXPECT_EQ(LinesOfWait(event, 1500),
              (Lines{"waiting 1500ms on event A",
                     "prepare time for waiting on event A <timed> "
                     "(ts_beg:sec=1000,ts_beg:nsec=999000000) -> (ts:sec=1002,ts:nsec=499000000)",
                     "TIMEOUT(0,110) on event A <timed> (IsSignaled=0)"}));
}

TEST(EventWaitLines, TellTheSameOfAWaitOfNoTime) {
    CEvent event{false, true, nullptr};
    const FixedMonotonicClock clock{{1000, 5}};
    EXPECT_EQ(
        LinesOfWait(event, 0),
        (Lines{"waiting 0ms on event A",
               "prepare time for waiting on event A <anon> (ts_beg:sec=1000,ts_beg:nsec=5) -> "
               "(ts:sec=1000,ts:nsec=5)",
               "TIMEOUT(0,110) on event A <anon> (IsSignaled=0)"}));
}

TEST(EventWaitLines, TellOfASignalThatCame) {
    CEvent event{false, true, nullptr};
    FaultOf<&::pthread_cond_wait> wait;
    wait.Answer([&](pthread_cond_t*, pthread_mutex_t* mutex) {
        SetMeanwhile(event, mutex);
        return 0;
    });
    EXPECT_EQ(
        LinesOfWait(event, kWaitForever),
        (Lines{"waiting forever on event A", "Set event A <anon> IsSignaled=0 --> IsSignaled=1",
               "SIGNAL(0,0) on event A <anon> (IsSignaled=1)"}));
}

TEST(EventWaitLines, TellTheStateAfterAnAutomaticEventWasTaken) {
    CEvent event{false, false, nullptr};
    const FixedMonotonicClock clock{{1, 0}};
    TimedWait wait;
    wait.Answer([&](pthread_cond_t*, pthread_mutex_t* mutex, const timespec*) {
        SetMeanwhile(event, mutex);
        return ETIMEDOUT;
    });
    EXPECT_EQ(LinesOfWait(event, 1000).back(), "SIGNAL(0,110) on event A <anon> (IsSignaled=0)");
}

TEST(EventWaitLines, TellOfAFailure) {
    CEvent event{false, true, nullptr};
    FaultOf<&::pthread_cond_wait> wait;
    wait.Fail(EPERM);
    EXPECT_EQ(
        LinesOfWait(event, kWaitForever),
        (Lines{"waiting forever on event A", "FAILURE(0,1) on event A <anon> (IsSignaled=0)"}));
}

TEST(EventWaitLines, ShowALimitOfMoreThan31BitsAsANegativeNumber) {
    CEvent event{true, true, nullptr};
    EXPECT_EQ(LinesOfWait(event, 3000000000).front(), "waiting -1294967296ms on event A");
}

TEST(EventWaitLines, AreOfLevel5) {
    CEvent event{false, true, nullptr};
    const TraceCapture trace{4};
    EXPECT_EQ(event.Wait(0, true), 102);
    EXPECT_EQ(event.Wait(1, true), 102);
    {
        FaultOf<&::pthread_cond_wait> wait;
        wait.Return(0);
        EXPECT_EQ(event.Wait(kWaitForever, true), 0);
    }
    EXPECT_TRUE(event.Set());
    EXPECT_EQ(event.Wait(0, true), 0);
    EXPECT_THAT(EventLines(trace), IsEmpty());
}

TEST(EventWaitLines, AreNotWrittenUnlessVerbose) {
    CEvent unsignalled{false, true, nullptr};
    CEvent signalled{true, true, nullptr};
    const TraceCapture trace{5};
    EXPECT_EQ(unsignalled.Wait(0, false), 102);
    EXPECT_EQ(unsignalled.Wait(1, false), 102);
    EXPECT_EQ(signalled.Wait(0, false), 0);
    FaultOf<&::pthread_cond_wait> wait;
    wait.Fail(EPERM);
    EXPECT_EQ(unsignalled.Wait(kWaitForever, false), -1);
    EXPECT_THAT(EventLines(trace), IsEmpty());
}

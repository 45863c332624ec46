#include "platform/event_guard.h"

#include <pthread.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/victim.h"
#include "support/libc_fault.h"
#include "support/trace_capture.h"

using testing::IsEmpty;
using testing::SizeIs;

TEST(EventGuard, TakesTheEventForItsScope) {
    CEvent event{true, false, nullptr};
    {
        const EventGuard guard{event, 0, false};
        EXPECT_TRUE(guard);
        EXPECT_EQ(guard.Result(), kWaitSignalled);
        EXPECT_FALSE(event.Check());
    }
    EXPECT_TRUE(event.Check());
}

TEST(EventGuard, IsEmptyAndGivesNothingBackWhenTheTimeIsOver) {
    CEvent event{true, false, nullptr};
    const EventGuard holder{event, 0, false};
    {
        const EventGuard guard{event, 0, false};
        EXPECT_FALSE(guard);
        EXPECT_EQ(guard.Result(), kWaitTimedOut);
    }
    EXPECT_FALSE(event.Check());
}

TEST(EventGuard, TellsAFailedWait) {
    CEvent event{false, false, nullptr};
    FaultOf<&::pthread_cond_timedwait> fault;
    fault.Fail(EINVAL);
    const EventGuard guard{event, 1000, false};
    EXPECT_FALSE(guard);
    EXPECT_EQ(guard.Result(), kWaitFailed);
}

TEST(EventGuard, TracesTheWaitIfAsked) {
    CEvent event{true, false, nullptr};
    TraceCapture trace{5};
    { const EventGuard guard{event, 0, false}; }
    EXPECT_THAT(trace.LinesWith("waiting"), IsEmpty());
    { const EventGuard guard{event, 0, true}; }
    EXPECT_THAT(trace.LinesWith("waiting"), SizeIs(1));
}

TEST(EventGuard, IsGivenBackByAThreadThatIsCancelled) {
    CEvent event{true, false, nullptr};
    Victim victim{[&] {
        const EventGuard guard{event, 0, false};
        pthread_cancel(pthread_self());
        pthread_testcancel();
    }};
    EXPECT_TRUE(victim.EndedByCancellation());
    EXPECT_TRUE(event.Check());
}

// The lines of a wait and the mutex of its event: a waiter writes its last line without the mutex, and
// what it took it reports, whatever happens to its thread meanwhile.

#include <pthread.h>

#include <gtest/gtest.h>

#include "platform/event.h"
#include "support/libc_fault.h"
#include "support/trace_capture.h"
#include "trace/trace.h"

namespace {

struct Wait {
    CEvent& event;
    int result = kWaitFailed;
    bool cancelled = false;
    pthread_t thread{};

    explicit Wait(CEvent& awaited) : event{awaited} {
        EXPECT_EQ(pthread_create(
                      &thread, nullptr,
                      [](void* self) -> void* {
                          auto* wait = static_cast<Wait*>(self);
                          wait->result = wait->event.Wait(kWaitForever, true);
                          return nullptr;
                      },
                      this),
                  0);
    }
    void Join() {
        void* end = nullptr;
        EXPECT_EQ(pthread_join(thread, &end), 0);
        cancelled = end == PTHREAD_CANCELED;
    }
};

TEST(VerboseWait, LeavesTheMutexToAHolderOfTheTrace) {
    const TraceCapture trace{5};
    CEvent event{false, true, nullptr};
    Wait wait{event};
    while (event.Create(false, true)) sched_yield();  // until it waits
    {
        const RecursiveLockGuard hold{Debug.Lock()};
        EXPECT_TRUE(event.Set());
        EXPECT_TRUE(event.Reset());  // would wait for ever for a waiter that wants to trace
    }
    wait.Join();
    EXPECT_EQ(wait.result, kWaitSignalled);
}

TEST(VerboseWait, ReportsTheSignalItTookThoughItsThreadIsCancelled) {
    const TraceCapture trace{5};
    CEvent event{false, false, nullptr};
    FaultOf<&::pthread_cond_wait> wake;
    wake.Answer([](pthread_cond_t* condition, pthread_mutex_t* mutex) {
        const int result = LibcFault::Real<&::pthread_cond_wait>(condition, mutex);
        pthread_cancel(pthread_self());  // between the signal and the line that tells of it
        return result;
    });
    Wait wait{event};
    while (event.Create(false, false)) sched_yield();
    EXPECT_TRUE(event.Set());
    wait.Join();
    EXPECT_EQ(wait.result, kWaitSignalled);
    EXPECT_FALSE(wait.cancelled);
    EXPECT_FALSE(event.Check());
    EXPECT_EQ(trace.LinesWith("SIGNAL(0,0) on event").size(), 1u);
}

}  // namespace

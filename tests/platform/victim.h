#pragma once

#include <gtest/gtest.h>
#include <pthread.h>
#include <sanitizer/asan_interface.h>

#include <cstddef>
#include <functional>
#include <utility>

/// The address sanitizer does not see frames go that a cancellation unwinds, and would take their
/// guard bytes for those of whatever comes to stand there. For the outermost frame of a thread that
/// may be cancelled.
struct FrameSweeper {
    ~FrameSweeper() {
        constexpr size_t kDepth = 64 * 1024;
        char here = 0;
        ASAN_UNPOISON_MEMORY_REGION(&here - kDepth, kDepth);
    }
};

/// A thread that is cancelled, by itself or by the test.
///
///     Victim victim{[&] { (void)event.Wait(kWaitForever, false); }};
///     victim.Cancel();
///     EXPECT_TRUE(victim.EndedByCancellation());
///
/// REQUIRES: `EndedByCancellation` is called, once. Thread-safety: one thread, beside its own.
class Victim {
  public:
    explicit Victim(std::function<void()> body) : m_Body(std::move(body)) {
        EXPECT_EQ(pthread_create(&m_Thread, nullptr, Run, this), 0);
    }
    Victim(const Victim&) = delete;
    Victim& operator=(const Victim&) = delete;

    void Cancel() { EXPECT_EQ(pthread_cancel(m_Thread), 0); }

    /// Waits for its end.
    bool EndedByCancellation() {
        void* result = nullptr;
        EXPECT_EQ(pthread_join(m_Thread, &result), 0);
        return result == PTHREAD_CANCELED;
    }

  private:
    static void* Run(void* self) {
        const FrameSweeper sweeper;
        static_cast<Victim*>(self)->m_Body();
        return nullptr;
    }

    std::function<void()> m_Body;
    pthread_t m_Thread{};
};

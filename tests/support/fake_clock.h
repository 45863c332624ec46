#pragma once

#include <sys/time.h>
#include <time.h>

#include <atomic>
#include <chrono>

#include "support/libc_fault.h"

/// The calendar clock of the program in the hands of the test: `time`, `gettimeofday`,
/// `clock_gettime(CLOCK_REALTIME)` and std::chrono's system_clock. It stands still but for `Set`,
/// `Advance` and the program's own `sleep`, `usleep` and `nanosleep`, which move it and return at
/// once.
///
///     FakeClock clock{1'700'000'000};
///     clock.Advance(60s);
///
/// CLOCK_MONOTONIC stays real, and so do waits with a limit: script those with `FaultOf`
/// (`FaultOf<&::pthread_cond_timedwait> wait; wait.Return(ETIMEDOUT);`).
///
/// REQUIRES: no other `FaultOf` of these functions. Thread-safety: any thread.
class FakeClock {
  public:
    using Duration = std::chrono::nanoseconds;

    /// Starts at that many seconds after 1970 (by default 2023-11-14 22:13:20 UTC).
    explicit FakeClock(time_t seconds = 1'700'000'000);

    void Set(time_t seconds) { m_Now = std::chrono::seconds{seconds}; }
    /// A negative duration turns the clock back.
    void Advance(Duration duration) { m_Now = m_Now.load() + duration; }

    /// What the program slept in all.
    [[nodiscard]] Duration Slept() const { return m_Slept; }

  private:
    void Sleep(Duration duration);

    std::atomic<Duration> m_Now;
    std::atomic<Duration> m_Slept{Duration::zero()};
    FaultOf<&::time> m_Time;
    FaultOf<&::gettimeofday> m_GetTimeOfDay;
    FaultOf<&::clock_gettime> m_ClockGetTime;
    FaultOf<&::sleep> m_Sleep;
    FaultOf<&::usleep> m_USleep;
    FaultOf<&::nanosleep> m_NanoSleep;
};

// What an event costs, beside a flag with std::mutex and std::condition_variable.
//
//   SetReset             Set and Reset of an event for which nobody waits, the yield of Set included
//   SetResetCondition    lock, flag, notify, unlock; lock, flag, unlock
//   Yield                the sched_yield that Set makes, alone: SetReset less this is the comparison
//   WakeUp               two threads wake each other in turn: a round trip
//   WakeUpCondition      the same with condition variables
//   WaitZero             Wait(0) on an event that is not signalled
//   Check                the plain read

#include <benchmark/benchmark.h>
#include <sched.h>

#include <condition_variable>
#include <mutex>
#include <thread>

#include "platform/event.h"

namespace {

/// The peer: an automatic event as one writes it with the standard library.
class Condition {
  public:
    void Set() {
        const std::lock_guard hold{m_Mutex};
        m_IsSignaled = true;
        m_Condition.notify_one();
    }
    void Reset() {
        const std::lock_guard hold{m_Mutex};
        m_IsSignaled = false;
    }
    void Wait() {
        std::unique_lock hold{m_Mutex};
        m_Condition.wait(hold, [this] { return m_IsSignaled; });
        m_IsSignaled = false;
    }

  private:
    std::mutex m_Mutex;
    std::condition_variable m_Condition;
    bool m_IsSignaled = false;
};

void SetReset(benchmark::State& state) {
    CEvent event{false, true, nullptr};
    for (auto _ : state) {
        event.Set();
        event.Reset();
    }
}
BENCHMARK(SetReset);

void SetResetCondition(benchmark::State& state) {
    Condition event;
    for (auto _ : state) {
        event.Set();
        event.Reset();
    }
}
BENCHMARK(SetResetCondition);

void Yield(benchmark::State& state) {
    for (auto _ : state) sched_yield();
}
BENCHMARK(Yield);

/// A round trip: this thread wakes the other and waits until that one wakes it.
template <typename Ping, typename Pong>
void RoundTrips(benchmark::State& state, Ping ping, Pong pong) {
    bool done = false;
    std::thread other{[&] {
        for (;;) {
            pong(false);
            if (done) return;
            pong(true);
        }
    }};
    for (auto _ : state) {
        ping(true);
        ping(false);
    }
    done = true;
    ping(true);
    other.join();
}

void WakeUp(benchmark::State& state) {
    CEvent there{false, false, nullptr};
    CEvent back{false, false, nullptr};
    RoundTrips(
        state, [&](bool set) { set ? void(there.Set()) : void(back.Wait(kWaitForever, false)); },
        [&](bool set) { set ? void(back.Set()) : void(there.Wait(kWaitForever, false)); });
}
BENCHMARK(WakeUp)->UseRealTime();

void WakeUpCondition(benchmark::State& state) {
    Condition there;
    Condition back;
    RoundTrips(
        state, [&](bool set) { set ? there.Set() : back.Wait(); },
        [&](bool set) { set ? back.Set() : there.Wait(); });
}
BENCHMARK(WakeUpCondition)->UseRealTime();

void WaitZero(benchmark::State& state) {
    CEvent event{false, true, nullptr};
    for (auto _ : state) {
        if (event.Wait(0, false) != kWaitTimedOut) state.SkipWithError("signalled");
    }
}
BENCHMARK(WaitZero);

void Check(benchmark::State& state) {
    CEvent event{false, true, nullptr};
    for (auto _ : state) benchmark::DoNotOptimize(event.Check());
}
BENCHMARK(Check);

}  // namespace

#include "support/fake_clock.h"

namespace {

using std::chrono::duration_cast;
using std::chrono::microseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;

bool IsCalendar(clockid_t clock) {
    return clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE;
}

}  // namespace

FakeClock::FakeClock(time_t start) : m_Now(Duration{seconds{start}}) {
    m_Time.Always([this](time_t* out) {
        const time_t now = std::chrono::floor<seconds>(m_Now.load()).count();
        if (out != nullptr) *out = now;
        return now;
    });
    m_GetTimeOfDay.Always([this](timeval* out, void*) {
        const Duration now = m_Now;
        const auto whole = std::chrono::floor<seconds>(now);
        *out = {whole.count(), duration_cast<microseconds>(now - whole).count()};
        return 0;
    });
    m_ClockGetTime.Only([](clockid_t clock, timespec*) { return IsCalendar(clock); });
    m_ClockGetTime.Always([this](clockid_t, timespec* out) {
        const Duration now = m_Now;
        const auto whole = std::chrono::floor<seconds>(now);
        *out = {whole.count(), (now - whole).count()};
        return 0;
    });
    m_Sleep.Always([this](unsigned count) -> unsigned {
        Sleep(seconds{count});
        return 0;
    });
    m_USleep.Always([this](useconds_t count) {
        Sleep(microseconds{count});
        return 0;
    });
    m_NanoSleep.Always([this](const timespec* span, timespec*) {
        Sleep(seconds{span->tv_sec} + nanoseconds{span->tv_nsec});
        return 0;
    });
}

void FakeClock::Sleep(Duration duration) {
    Advance(duration);
    m_Slept = m_Slept.load() + duration;
}

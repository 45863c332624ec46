#include "support/fake_clock.h"

#include <sys/time.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {

timeval Now() {
    timeval now{};
    EXPECT_EQ(gettimeofday(&now, nullptr), 0);
    return now;
}

timespec Now(clockid_t clock) {
    timespec now{};
    EXPECT_EQ(clock_gettime(clock, &now), 0);
    return now;
}

}  // namespace

TEST(FakeClock, StandsStillForEveryCalendarCall) {
    FakeClock clock{1000};
    for (int i = 0; i < 2; ++i) {
        time_t out = 0;
        EXPECT_EQ(time(nullptr), 1000);
        EXPECT_EQ(time(&out), 1000);
        EXPECT_EQ(out, 1000);
        EXPECT_EQ(Now().tv_sec, 1000);
        EXPECT_EQ(Now().tv_usec, 0);
        EXPECT_EQ(Now(CLOCK_REALTIME).tv_sec, 1000);
        EXPECT_EQ(Now(CLOCK_REALTIME_COARSE).tv_sec, 1000);
        EXPECT_EQ(std::chrono::system_clock::now().time_since_epoch(), 1000s);
    }
}

TEST(FakeClock, MovesInBothDirections) {
    FakeClock clock{1000};
    clock.Advance(1500ms);
    EXPECT_EQ(time(nullptr), 1001);
    EXPECT_EQ(Now().tv_usec, 500'000);
    EXPECT_EQ(Now(CLOCK_REALTIME).tv_nsec, 500'000'000);
    clock.Advance(-2s);
    EXPECT_EQ(time(nullptr), 999);
    clock.Set(5);
    EXPECT_EQ(time(nullptr), 5);
    EXPECT_EQ(Now().tv_usec, 0);
}

TEST(FakeClock, IsMovedBySleepsWhichReturnAtOnce) {
    FakeClock clock{1000};
    EXPECT_EQ(sleep(60), 0u);
    EXPECT_EQ(usleep(500'000), 0);
    const timespec span{1, 500'000'000};
    EXPECT_EQ(nanosleep(&span, nullptr), 0);
    EXPECT_EQ(time(nullptr), 1062);
    EXPECT_EQ(clock.Slept(), 62s);
}

TEST(FakeClock, LeavesTheMonotonicClockReal) {
    const timespec before = Now(CLOCK_MONOTONIC);
    FakeClock clock{1000};
    const timespec after = Now(CLOCK_MONOTONIC);
    EXPECT_GE(after.tv_sec, before.tv_sec);
    EXPECT_NE(after.tv_sec, 1000);
}

TEST(FakeClock, GivesTheRealTimeBackAtItsEnd) {
    { FakeClock clock{1000}; }
    EXPECT_GT(time(nullptr), 1'700'000'000);
}

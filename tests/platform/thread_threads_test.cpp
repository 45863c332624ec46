#include "platform/thread.h"

#include <array>
#include <atomic>
#include <filesystem>
#include <iterator>
#include <thread>

#include <gtest/gtest.h>

#include "platform/victim.h"
#include "support/host_process.h"

namespace {

std::ptrdiff_t CountThreads() {
    const std::filesystem::directory_iterator tasks{"/proc/self/task"};
    return std::distance(begin(tasks), end(tasks));
}

/// The threads there are, that of a sanitizer among them, which comes with the first one.
std::ptrdiff_t CountThreadsBefore() {
    std::thread{[] {}}.join();
    return CountThreads();
}

void* Increment(void* number) {
    const FrameSweeper sweeper;
    ++*static_cast<int*>(number);
    return nullptr;
}

void* Count(void* counter) {
    const FrameSweeper sweeper;
    ++*static_cast<std::atomic<int>*>(counter);
    return nullptr;
}

}  // namespace

TEST(ThreadThreads, WhatAThreadWroteIsSeenBehindTheJoin) {
    CThread thread;
    int number = 0;
    for (int i = 1; i <= 20; ++i) {
        ASSERT_TRUE(thread.Start(Increment, &number, 0, false, 0, nullptr, true));
        EXPECT_TRUE(i % 2 == 0 ? thread.Kill() : thread.WaitForTermination(kWaitForever));
        EXPECT_EQ(number, i);
    }
}

// The C library keeps the stacks of some threads that have ended and unmaps the others, so that a
// look at the number of one of those would end the process.
TEST(ThreadThreads, ManyDetachedThreadsThatEndedLongAgoCanBeKilled) {
    const auto before = CountThreadsBefore();
    std::atomic<int> ended{0};
    std::array<CThread, 30> threads;
    for (CThread& thread : threads) {
        ASSERT_TRUE(thread.Start(Count, &ended, 0, false, 0, nullptr, false));
    }
    ASSERT_TRUE(HostProcess::WaitUntil([&] { return ended == 30 && CountThreads() <= before; }));
    for (CThread& thread : threads) {
        EXPECT_NE(thread.Id(), pthread_t{0});
        EXPECT_TRUE(thread.Kill());
        EXPECT_EQ(thread.Id(), pthread_t{0});
    }
}

TEST(ThreadThreads, DetachedThreadsCanBeKilledWhileTheyEnd) {
    const auto before = CountThreadsBefore();
    std::atomic<int> counter{0};
    for (int i = 0; i < 200; ++i) {
        CThread thread;
        ASSERT_TRUE(thread.Start(Count, &counter, 0, false, 0, nullptr, false));
        EXPECT_TRUE(thread.Kill());
    }
    ASSERT_TRUE(HostProcess::WaitUntil([&] { return CountThreads() <= before; }));
}

TEST(ThreadThreads, AnObjectMayGoBeforeItsDetachedThread) {
    const auto before = CountThreadsBefore();
    std::atomic<int> counter{0};
    for (int i = 0; i < 20; ++i) {
        ASSERT_TRUE(CThread{}.Start(Count, &counter, 0, false, 0, nullptr, false));
    }
    ASSERT_TRUE(HostProcess::WaitUntil([&] { return CountThreads() <= before; }));
    EXPECT_EQ(counter, 20);
}

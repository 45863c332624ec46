#include <unistd.h>

#include <array>
#include <cerrno>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/libc_fault.h"

TEST(FaultOf, GivesEachAnswerToOneOfManyThreads) {
    constexpr int kThreads = 4;
    constexpr int kCalls = 500;
    FaultOf<&::access> fault;
    fault.Fail(EACCES, kThreads * kCalls / 2);
    std::array<int, kThreads> failed{};
    std::vector<std::thread> threads;
    for (int& count : failed) {
        threads.emplace_back([&count] {
            for (int i = 0; i < kCalls; ++i) count += access("/", F_OK) != 0 ? 1 : 0;
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(failed[0] + failed[1] + failed[2] + failed[3], kThreads * kCalls / 2);
    EXPECT_EQ(fault.Calls(), kThreads * kCalls);
}

// How a prefix learns of a fork, whichever thread writes the first line of the process.

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <functional>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "support/fake_host.h"
#include "support/libc_fault.h"
#include "trace/line_prefix.h"

extern "C" int RegisterAtfork(void (*)(), void (*)(), void (*)(), void*) noexcept
    __asm__("__register_atfork");

namespace {

std::atomic<int> g_Registered{0};
std::function<int()> g_BeforeRegistering = [] { return 0; };  ///< its error number is the result

}  // namespace

/// The program's own: the C library has it in the static part of its library, out of reach for
/// `FaultOf`.
int pthread_atfork(void (*prepare)(), void (*parent)(), void (*child)()) noexcept {
    ++g_Registered;
    const int error = g_BeforeRegistering();
    return error != 0 ? error : RegisterAtfork(prepare, parent, child, nullptr);
}

namespace {

constexpr size_t kThreads = 8;

/// The prefix shows the number of the calling process.
bool ShowsOwnNumber(LinePrefix& prefix) {
    char text[kPrefixSize + 1];
    char number[16];
    snprintf(number, sizeof number, "[%010d]", getpid());
    return std::string{text, prefix.Format(text, "x", false)}.find(number) != std::string::npos;
}

/// Whether all do in a descendant of the calling process so many generations on, where nobody asked
/// in between.
bool ShowOwnNumbersAfterForks(std::span<LinePrefix> prefixes, int generations) {
    if (generations == 0) return std::all_of(prefixes.begin(), prefixes.end(), ShowsOwnNumber);
    const pid_t child = fork();
    if (child == 0) _exit(ShowOwnNumbersAfterForks(prefixes, generations - 1) ? 0 : 1);
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return status == 0;
}

void ExpectOwnNumbersAfterForks(std::span<LinePrefix> prefixes) {
    for (int generations = 1; generations <= 2 * static_cast<int>(kThreads); ++generations) {
        EXPECT_TRUE(ShowOwnNumbersAfterForks(prefixes, generations)) << generations;
    }
}

TEST(ForkCountThreads, BeginsOnceForFirstLinesAtOnce) {
    FakeHost{}.Run([] {
        std::array<LinePrefix, kThreads> prefixes;
        const FaultOf<&::gettimeofday> begun;  // what each of them asks for first
        g_BeforeRegistering = [&begun] {
            while (begun.Calls() < static_cast<int>(kThreads)) sched_yield();
            for (int i = 0; i < 1000; ++i) sched_yield();  // and what comes next
            return 0;
        };
        std::vector<std::thread> threads;
        for (LinePrefix& prefix : prefixes) {
            threads.emplace_back([&prefix] { EXPECT_TRUE(ShowsOwnNumber(prefix)); });
        }
        for (std::thread& thread : threads) thread.join();
        EXPECT_EQ(g_Registered, 1);
        ExpectOwnNumbersAfterForks(prefixes);
    });
}

TEST(ForkCountThreads, KeepsNothingWhereForksCannotBeCounted) {
    FakeHost{}.Run([] {
        std::array<LinePrefix, 2> prefixes;
        g_BeforeRegistering = [] { return ENOMEM; };
        for (int line = 0; line < 3; ++line) EXPECT_TRUE(ShowsOwnNumber(prefixes[0]));
        EXPECT_TRUE(ShowsOwnNumber(prefixes[1]));
        EXPECT_EQ(g_Registered, 1);
        ExpectOwnNumbersAfterForks(prefixes);
    });
}

}  // namespace

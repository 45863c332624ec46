// Tests that are to fail, for the tests of the census: run one by one by leak_census_test.cpp, and
// by nobody else.

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include <gtest/gtest.h>

TEST(Sample, LeavesADescriptor) {
    EXPECT_GE(open("/dev/null", O_RDONLY), 0);
}

TEST(Sample, LeavesAGrandchild) {
    const pid_t child = fork();
    if (child == 0) {
        if (fork() == 0) {
            for (;;) pause();
        }
        _exit(0);
    }
    EXPECT_EQ(waitpid(child, nullptr, 0), child);
}

namespace {

/// Far down the stack, where no stale copy of the pointer is left for LeakSanitizer to find.
[[gnu::noinline]] bool LoseMemory() {
    volatile char room[65536];
    room[0] = 1;
    void* volatile memory = malloc(1234);
    const bool wasGiven = memory != nullptr;
    memory = nullptr;
    return wasGiven && room[0] == 1;
}

}  // namespace

TEST(Sample, LosesMemory) {
    LoseMemory();
}

TEST(Sample, IsClean) {}

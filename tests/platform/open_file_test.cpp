#include "platform/open_file.h"

#include <dirent.h>
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "platform/retry_interrupted.h"
#include "platform/unique_memory.h"
#include "platform/victim.h"
#include "support/libc_fault.h"
#include "support/temporary_folder.h"

namespace {

bool IsCloseOnExec(int fd) {
    return (fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0;
}

}  // namespace

// RetryInterrupted

TEST(RetryInterrupted, CallsAgainUntilNoSignalInterrupts) {
    int calls = 0;
    const auto call = [&] {
        errno = EINTR;
        return ++calls < 3 ? -1 : 7;
    };
    EXPECT_EQ(RetryInterrupted(call), 7);
    EXPECT_EQ(calls, 3);
}

TEST(RetryInterrupted, CallsAgainForANullPointerToo) {
    int calls = 0;
    const auto call = [&]() -> int* {
        errno = EINTR;
        return ++calls < 3 ? nullptr : &calls;
    };
    EXPECT_EQ(RetryInterrupted(call), &calls);
    EXPECT_EQ(calls, 3);
}

TEST(RetryInterrupted, GivesAnyOtherFailureBackWithItsNumber) {
    int calls = 0;
    const auto call = [&] {
        ++calls;
        errno = EACCES;
        return -1;
    };
    EXPECT_EQ(RetryInterrupted(call), -1);
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(calls, 1);
}

TEST(RetryInterrupted, TakesAResultForWhatItIsWhateverNumberIsLeftFromBefore) {
    int calls = 0;
    errno = EINTR;
    EXPECT_EQ(RetryInterrupted([&] { return calls++; }), 0);
    EXPECT_EQ(calls, 1);
}

// OpenFile and UniqueFile

TEST(OpenFile, OpensCloseOnExecAndClosesWithItsOwner) {
    int fd = -1;
    {
        const UniqueFile file = OpenFile("/dev/null", "r");
        ASSERT_TRUE(file);
        fd = fileno(file.get());
        EXPECT_TRUE(IsCloseOnExec(fd));
    }
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
}

TEST(OpenFile, KeepsTheMode) {
    const TemporaryFolder folder;
    (void)fputs("one", OpenFile(folder.Path("f").c_str(), "w").get());
    (void)fputs("two", OpenFile(folder.Path("f").c_str(), "a").get());
    EXPECT_EQ(folder.Read("f"), "onetwo");
}

TEST(OpenFile, IsEmptyWithTheNumberOfTheFailure) {
    errno = 0;
    EXPECT_FALSE(OpenFile("/nonexistent", "r"));
    EXPECT_EQ(errno, ENOENT);
}

TEST(OpenFile, TriesAgainWhenASignalInterrupts) {
    FaultOf<&::fopen> fault;
    fault.Fail(EINTR, 3);
    EXPECT_TRUE(OpenFile("/dev/null", "r"));
    EXPECT_EQ(fault.Calls(), 4);
}

TEST(UniqueFile, LeavesErrnoAloneWhenItCloses) {
    UniqueFile file = OpenFile("/dev/full", "w");
    ASSERT_TRUE(file);
    (void)fputs("lost", file.get());
    errno = ENOTTY;
    file.reset();  // flushes, and fails
    EXPECT_EQ(errno, ENOTTY);
}

TEST(UniqueFile, IsClosedByAThreadThatIsToBeCancelled) {
    const TemporaryFolder folder;
    const std::string path = folder.Path("f");
    Victim victim{[&] {
        {
            const UniqueFile file = OpenFile(path.c_str(), "w");
            (void)fputs("kept", file.get());
            pthread_cancel(pthread_self());  // pending: the flush is a cancellation point
        }
        pthread_testcancel();
    }};
    EXPECT_TRUE(victim.EndedByCancellation());
    EXPECT_EQ(folder.Read("f"), "kept");
}

// OpenFd

TEST(OpenFd, OpensCloseOnExecWithTheModeOfANewFile) {
    const TemporaryFolder folder;
    const UniqueFd fd = OpenFd(folder.Path("f").c_str(), O_WRONLY | O_CREAT, 0600);
    ASSERT_TRUE(fd);
    EXPECT_TRUE(IsCloseOnExec(fd.Get()));
    EXPECT_TRUE(folder.Exists("f"));
}

TEST(OpenFd, IsEmptyWithTheNumberOfTheFailure) {
    EXPECT_FALSE(OpenFd("/nonexistent", O_RDONLY));
    EXPECT_EQ(errno, ENOENT);
}

TEST(OpenFd, TriesAgainWhenASignalInterrupts) {
    FaultOf<&::open> fault;
    fault.Fail(EINTR, 2);
    EXPECT_TRUE(OpenFd("/dev/null", O_RDONLY));
    EXPECT_EQ(fault.Calls(), 3);
}

// UniqueMemory

TEST(UniqueMemory, OwnsWhatTheCLibraryHasAllocated) {
    UniqueMemory<char> text{strdup("text")};
    ASSERT_TRUE(text);
    EXPECT_STREQ(text.get(), "text");
    text.reset(realpath("/", nullptr));
    EXPECT_STREQ(text.get(), "/");
    const UniqueMemory<char> none{realpath("/nonexistent", nullptr)};
    EXPECT_FALSE(none);
}

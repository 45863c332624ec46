#include "platform/unique_fd.h"

#include <fcntl.h>
#include <pthread.h>

#include <cerrno>
#include <type_traits>
#include <utility>

#include <gtest/gtest.h>

#include "platform/victim.h"

namespace {

int OpenNull() {
    return open("/dev/null", O_RDONLY | O_CLOEXEC);
}

bool IsOpen(int fd) {
    return fcntl(fd, F_GETFD) != -1;
}

}  // namespace

TEST(UniqueFd, IsEmptyByDefault) {
    const UniqueFd fd;
    EXPECT_FALSE(fd);
    EXPECT_EQ(fd.Get(), -1);
}

TEST(UniqueFd, TakesAFailedOpenAsEmpty) {
    const UniqueFd fd{open("/nonexistent", O_RDONLY | O_CLOEXEC)};
    EXPECT_FALSE(fd);
    EXPECT_EQ(UniqueFd{-22}.Get(), -1);
}

TEST(UniqueFd, OwnsDescriptorZeroLikeAnyOther) {
    const int saved = fcntl(0, F_DUPFD_CLOEXEC, 3);
    {
        const UniqueFd fd{0};
        EXPECT_TRUE(fd);
        EXPECT_EQ(fd.Get(), 0);
    }
    EXPECT_FALSE(IsOpen(0));
    if (saved == -1) return;
    EXPECT_EQ(dup2(saved, 0), 0);
    close(saved);
}

TEST(UniqueFd, ClosesWhatItHolds) {
    int number = -1;
    {
        const UniqueFd fd{OpenNull()};
        number = fd.Get();
        EXPECT_TRUE(fd);
        EXPECT_TRUE(IsOpen(number));
    }
    EXPECT_FALSE(IsOpen(number));
}

TEST(UniqueFd, MovesAndCannotBeCopied) {
    EXPECT_FALSE(std::is_copy_constructible_v<UniqueFd>);
    EXPECT_FALSE(std::is_copy_assignable_v<UniqueFd>);
    UniqueFd first{OpenNull()};
    const int number = first.Get();
    UniqueFd second{std::move(first)};
    EXPECT_EQ(first.Get(), -1);  // NOLINT(bugprone-use-after-move): left empty by contract
    EXPECT_EQ(second.Get(), number);
    EXPECT_TRUE(IsOpen(number));
}

TEST(UniqueFd, AssignmentClosesTheFormerOne) {
    UniqueFd target{OpenNull()};
    UniqueFd source{OpenNull()};
    const int former = target.Get();
    const int number = source.Get();
    target = std::move(source);
    EXPECT_FALSE(IsOpen(former));
    EXPECT_EQ(target.Get(), number);
    EXPECT_TRUE(IsOpen(number));
}

TEST(UniqueFd, AssignmentFromItselfDoesNothing) {
    UniqueFd fd{OpenNull()};
    const int number = fd.Get();
    UniqueFd& same = fd;
    fd = std::move(same);
    EXPECT_EQ(fd.Get(), number);
    EXPECT_TRUE(IsOpen(number));
}

TEST(UniqueFd, ReleaseGivesTheDescriptorAway) {
    UniqueFd fd{OpenNull()};
    const int number = fd.Release();
    EXPECT_FALSE(fd);
    EXPECT_TRUE(IsOpen(number));
    close(number);
}

TEST(UniqueFd, ResetClosesAndMayTakeAnother) {
    UniqueFd fd{OpenNull()};
    const int first = fd.Get();
    const int second = OpenNull();
    fd.Reset(second);
    EXPECT_FALSE(IsOpen(first));
    EXPECT_EQ(fd.Get(), second);
    fd.Reset();
    EXPECT_FALSE(fd);
    EXPECT_FALSE(IsOpen(second));
    fd.Reset();
    EXPECT_FALSE(fd);
}

TEST(UniqueFd, AFailedCloseLeavesErrnoAlone) {
    UniqueFd fd{OpenNull()};
    close(fd.Get());
    errno = ENOTTY;
    fd.Reset();
    EXPECT_EQ(errno, ENOTTY);
}

TEST(UniqueFd, IsClosedByAThreadThatIsToBeCancelled) {
    const int number = OpenNull();
    Victim victim{[number] {
        {
            const UniqueFd fd{number};
            pthread_cancel(pthread_self());  // pending: close is a cancellation point
        }
        pthread_testcancel();
    }};
    EXPECT_TRUE(victim.EndedByCancellation());
    EXPECT_FALSE(IsOpen(number));
}

#include "support/libc_fault.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/failures.h"

using testing::HasSubstr;

namespace {

/// A call as the product makes it.
int OpenNull() {
    return open("/dev/null", O_RDONLY | O_CLOEXEC);
}

/// The real outcome of `OpenNull`, closed again.
bool OpensReally() {
    const int fd = OpenNull();
    return fd >= 0 && LibcFault::Real<&::close>(fd) == 0;
}

}  // namespace

TEST(FaultOf, LeavesEverythingRealWithoutAScript) {
    FaultOf<&::open> fault;
    EXPECT_TRUE(OpensReally());
    EXPECT_EQ(fault.Calls(), 1);
}

TEST(FaultOf, FailsOnceWithThatError) {
    FaultOf<&::open> fault;
    fault.Fail(EACCES);
    errno = 0;
    EXPECT_EQ(OpenNull(), -1);
    EXPECT_EQ(errno, EACCES);
    EXPECT_TRUE(OpensReally());
    EXPECT_EQ(fault.Calls(), 2);
}

TEST(FaultOf, AnswersInTheOrderOfTheScript) {
    FaultOf<&::open> fault;
    fault.PassThrough();
    fault.Fail(EINTR, 2);
    fault.Return(77);
    fault.Answer([](const char* path, int flags, mode_t mode) {
        EXPECT_STREQ(path, "/dev/null");
        EXPECT_EQ(flags, O_RDONLY | O_CLOEXEC);
        EXPECT_EQ(mode, 0u);
        errno = ELOOP;
        return -1;
    });
    EXPECT_TRUE(OpensReally());
    EXPECT_EQ(OpenNull(), -1);
    EXPECT_EQ(OpenNull(), -1);
    EXPECT_EQ(errno, EINTR);
    EXPECT_EQ(OpenNull(), 77);
    EXPECT_EQ(OpenNull(), -1);
    EXPECT_EQ(errno, ELOOP);
    EXPECT_TRUE(OpensReally());
    EXPECT_EQ(fault.Calls(), 6);
}

TEST(FaultOf, LeavesErrnoAloneWhereTheScriptNamesNone) {
    FaultOf<&::open> fault;
    fault.Return(5);
    errno = E2BIG;
    EXPECT_EQ(OpenNull(), 5);
    EXPECT_EQ(errno, E2BIG);
}

TEST(FaultOf, AlwaysAnswersBehindTheScript) {
    FaultOf<&::time> fault;
    fault.Return(1);
    fault.Always([](time_t*) { return time_t{1000}; });
    EXPECT_EQ(time(nullptr), 1);
    EXPECT_EQ(time(nullptr), 1000);
    EXPECT_EQ(time(nullptr), 1000);
    fault.AlwaysFail(EFAULT);
    EXPECT_EQ(time(nullptr), -1);
}

TEST(FaultOf, ConcernsOnlyTheCallsThatAreMeant) {
    FaultOf<&::open> fault;
    fault.Only([](const char* path, int, mode_t) { return std::strcmp(path, "/lock") == 0; });
    fault.Fail(EROFS);
    EXPECT_TRUE(OpensReally());
    EXPECT_EQ(fault.Calls(), 0);
    EXPECT_EQ(open("/lock", O_RDWR), -1);
    EXPECT_EQ(errno, EROFS);
    EXPECT_EQ(fault.Calls(), 1);
}

TEST(FaultOf, MakesCallsFromWithinAnAnswerReal) {
    FaultOf<&::open> fault;
    fault.Answer([](const char*, int, mode_t) { return OpenNull(); });
    EXPECT_TRUE(OpensReally());
    EXPECT_EQ(fault.Calls(), 1);
}

TEST(FaultOf, FailsTheTestForAnAnswerThatWasNotAskedFor) {
    const int line = __LINE__ + 4;
    const auto failures = FailuresOf([] {
        FaultOf<&::open> fault;
        fault.Fail(EINTR);
        fault.Fail(EACCES);
        EXPECT_EQ(OpenNull(), -1);
    });
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_THAT(failures[0].text,
                HasSubstr("The script of open was not used up: this Fail was never asked for."));
    EXPECT_EQ(failures[0].file, __FILE__);
    EXPECT_EQ(failures[0].line, line);
}

TEST(FaultOf, IsOverAtTheEndOfItsScope) {
    {
        FaultOf<&::open> fault;
        fault.AlwaysFail(EACCES);
        EXPECT_EQ(OpenNull(), -1);
    }
    EXPECT_TRUE(OpensReally());
}

TEST(FaultOf, EndsTheProgramWhenTwoOverlap) {
    EXPECT_DEATH(
        {
            FaultOf<&::open> one;
            FaultOf<&::open> two;
        },
        "two scripts at a time for open");
}

TEST(FaultOf, IsSwitchedOffByTheTestSupport) {
    FaultOf<&::open> fault;
    fault.AlwaysFail(EACCES);
    {
        const LibcFault::Off off;
        EXPECT_TRUE(OpensReally());
    }
    EXPECT_EQ(fault.Calls(), 0);
    EXPECT_EQ(OpenNull(), -1);
}

TEST(FaultOf, FailsAsTheFunctionItselfWould) {
    {
        FaultOf<&::mmap> fault;
        fault.Fail(ENOMEM);
        EXPECT_EQ(mmap(nullptr, 1, PROT_READ, MAP_PRIVATE, -1, 0), MAP_FAILED);
        EXPECT_EQ(errno, ENOMEM);
    }
    {
        FaultOf<&::fopen> fault;
        fault.Fail(EMFILE);
        EXPECT_EQ(fopen("/dev/null", "r"), nullptr);
        EXPECT_EQ(errno, EMFILE);
    }
    {
        FaultOf<&::pthread_mutex_init> fault;
        fault.Fail(EAGAIN);
        errno = 0;
        pthread_mutex_t mutex;
        EXPECT_EQ(pthread_mutex_init(&mutex, nullptr), EAGAIN);
        EXPECT_EQ(errno, 0);
    }
    {
        FaultOf<&::sigwait> fault;
        fault.Fail(EINVAL);
        sigset_t set{};
        int number = 0;
        EXPECT_EQ(sigwait(&set, &number), EINVAL);
    }
    {
        FaultOf<&::strftime> fault;
        fault.Fail(0);
        char text[16];
        const tm time{};
        EXPECT_EQ(strftime(text, sizeof text, "%F", &time), 0u);
    }
}

TEST(FaultOf, HandsVariableArgumentsOn) {
    FaultOf<&::ioctl> fault;
    fault.Answer([](int fd, unsigned long request, void* argument) {
        EXPECT_EQ(fd, 3);
        EXPECT_EQ(request, 0x89A0u);
        *static_cast<int*>(argument) = 9;
        return 0;
    });
    int value = 0;
    EXPECT_EQ(ioctl(3, 0x89A0, &value), 0);
    EXPECT_EQ(value, 9);
}

TEST(FaultOf, GivesOpenItsModeWhereItHasOne) {
    FaultOf<&::open> fault;
    fault.Answer([](const char*, int, mode_t mode) {
        EXPECT_EQ(mode, 0640u);
        return 4;
    });
    EXPECT_EQ(open("/x", O_CREAT | O_RDWR, 0640), 4);
}

/// In a checking build these are calls of other names, because the size of the buffer is known.
TEST(FaultOf, ReachesReadsIntoABufferOfKnownSize) {
    char buffer[8];
    const volatile size_t size = sizeof buffer;
    const auto failing = [](auto& fault) { fault.AlwaysFail(EIO); };
    {
        FaultOf<&::read> fault;
        failing(fault);
        EXPECT_EQ(read(-1, buffer, size), -1);
        EXPECT_EQ(errno, EIO);
    }
    {
        FaultOf<&::pread> fault;
        failing(fault);
        EXPECT_EQ(pread(-1, buffer, size, 0), -1);
        EXPECT_EQ(errno, EIO);
    }
    {
        FaultOf<&::readlink> fault;
        failing(fault);
        EXPECT_EQ(readlink("/proc/self/exe", buffer, size), -1);
        EXPECT_EQ(errno, EIO);
    }
    {
        FaultOf<&::recv> fault;
        failing(fault);
        EXPECT_EQ(recv(-1, buffer, size, 0), -1);
        EXPECT_EQ(errno, EIO);
    }
    {
        FaultOf<&::recvfrom> fault;
        failing(fault);
        EXPECT_EQ(recvfrom(-1, buffer, size, 0, nullptr, nullptr), -1);
        EXPECT_EQ(errno, EIO);
    }
    {
        FaultOf<&::fread> fault;
        failing(fault);
        EXPECT_EQ(fread(buffer, 1, size, stdin), 0u);
        EXPECT_EQ(errno, EIO);
    }
}

TEST(FaultOf, ReachesTheLockAndWaitFunctions) {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
    const timespec when{};
    int locked = 0;
    int waited = 0;
    {
        FaultOf<&::pthread_cond_timedwait> wait;
        wait.Fail(ETIMEDOUT);
        FaultOf<&::pthread_mutex_lock> lock;
        lock.Only([&mutex](pthread_mutex_t* which) { return which == &mutex; });
        lock.Fail(EDEADLK);
        locked = pthread_mutex_lock(&mutex);
        waited = pthread_cond_timedwait(&condition, &mutex, &when);
    }
    EXPECT_EQ(locked, EDEADLK);
    EXPECT_EQ(waited, ETIMEDOUT);
}

TEST(FaultOf, LetsAllocationsFail) {
    if (!LibcFault::kHeapFaults) GTEST_SKIP() << LibcFault::kNoHeapFaults;
    char name[] = "name";  // not known to the compiler, or it would answer itself
    FaultOf<&::malloc> noMalloc;
    FaultOf<&::calloc> noCalloc;
    FaultOf<&::strdup> noCopy;
    noMalloc.Fail(ENOMEM);
    noCalloc.Fail(ENOMEM);
    noCopy.Fail(ENOMEM);
    void* volatile one = malloc(8);
    void* volatile two = calloc(1, 8);
    void* volatile three = strdup(name);
    EXPECT_EQ(one, nullptr);
    EXPECT_EQ(two, nullptr);
    EXPECT_EQ(three, nullptr);
    EXPECT_EQ(noMalloc.Calls() + noCalloc.Calls() + noCopy.Calls(), 3);
}

TEST(LibcFault, CallsTheRealFunctionBehindAScript) {
    FaultOf<&::getpid> fault;
    fault.AlwaysFail(EPERM);
    EXPECT_EQ(getpid(), -1);
    EXPECT_GT(LibcFault::Real<&::getpid>(), 0);
}

/// Every function of the lists, looked up and real: one that the compiler or the linker took past
/// us would have no entry.
TEST(LibcFault, FindsEveryFunctionOfTheLists) {
#define ZORN_EXPECT_REAL(arity, name)                                     \
    EXPECT_NE(LibcFault::RealPointer<&::name>(), nullptr) << #name;       \
    EXPECT_NE(reinterpret_cast<void*>(LibcFault::RealPointer<&::name>()), \
              reinterpret_cast<void*>(&::name))                           \
        << #name;
    ZORN_LIBC_FUNCTIONS(ZORN_EXPECT_REAL)
    ZORN_LIBC_ERROR_NUMBER_FUNCTIONS(ZORN_EXPECT_REAL)
    ZORN_LIBC_SPECIAL_FUNCTIONS(ZORN_EXPECT_REAL)
#undef ZORN_EXPECT_REAL
}

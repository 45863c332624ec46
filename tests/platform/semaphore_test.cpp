#include "platform/semaphore.h"

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <thread>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "support/libc_fault.h"

namespace {

/// How many waits pass until the count is used up.
int Drain(CSemaphore& semaphore) {
    int taken = 0;
    while (semaphore.Wait(0) == 0) ++taken;
    return taken;
}

/// A semaphore with a count of 0 in `g_SemaphoreTable`, as a module puts it there, with one holder.
class NamedSemaphore {
  public:
    explicit NamedSemaphore(const char* name) : m_Name(name) {
        EXPECT_EQ(sem_init(&m_Object->m_Semaphore, 0, 0), 0);
        g_SemaphoreTable.Insert(name, reinterpret_cast<uint64_t>(m_Object), 0);
    }
    ~NamedSemaphore() {
        g_SemaphoreTable.Remove(m_Name);
        EXPECT_EQ(m_Object->m_RefCount, 1U);
        sem_destroy(&m_Object->m_Semaphore);
        delete m_Object;
    }
    NamedSemaphore(const NamedSemaphore&) = delete;
    NamedSemaphore& operator=(const NamedSemaphore&) = delete;

    [[nodiscard]] uint32_t Holders() const { return m_Object->m_RefCount; }

  private:
    const char* m_Name;
    CSemaphoreObject* m_Object = new CSemaphoreObject{{}, 1};
};

}  // namespace

// Modules put objects of this layout into the table.
static_assert(offsetof(CSemaphoreObject, m_Semaphore) == 0);
static_assert(offsetof(CSemaphoreObject, m_RefCount) == sizeof(sem_t));
static_assert(sizeof(CSemaphoreObject::m_RefCount) == sizeof(uint32_t));
static_assert(sizeof(CSemaphoreObject) == 40);
static_assert(sizeof(CSemaphore) == sizeof(void*));

// An empty handle

TEST(Semaphore, AnEmptyHandleRefusesEverything) {
    CSemaphore semaphore;
    EXPECT_EQ(semaphore.Wait(0), -1);
    EXPECT_EQ(semaphore.Wait(1000), -1);
    EXPECT_EQ(semaphore.Wait(kWaitForever), -1);
    EXPECT_FALSE(semaphore.Release(1));
    EXPECT_FALSE(semaphore.Close());
}

TEST(Semaphore, CannotBeCopied) {
    EXPECT_FALSE(std::is_copy_constructible_v<CSemaphore>);
    EXPECT_FALSE(std::is_copy_assignable_v<CSemaphore>);
}

// Create without a name

TEST(SemaphoreCreate, FromZeroToFiveTakesFiveReleasesAndFiveWaits) {
    CSemaphore semaphore;
    ASSERT_TRUE(semaphore.Create(0, 5, nullptr));
    EXPECT_EQ(semaphore.Wait(0), 102);
    for (int i = 0; i < 5; ++i) EXPECT_TRUE(semaphore.Release(1));
    for (int i = 0; i < 5; ++i) EXPECT_EQ(semaphore.Wait(0), 0);
    EXPECT_EQ(semaphore.Wait(0), 102);
}

TEST(SemaphoreCreate, BeginsWithTheInitialCount) {
    CSemaphore semaphore;
    ASSERT_TRUE(semaphore.Create(3, 5, nullptr));
    EXPECT_EQ(Drain(semaphore), 3);
}

TEST(SemaphoreCreate, BeginsWithTheMaximumIfThatIsNotAboveTheInitialCount) {
    CSemaphore semaphore;
    ASSERT_TRUE(semaphore.Create(4, 4, nullptr));
    EXPECT_EQ(Drain(semaphore), 4);
    ASSERT_TRUE(semaphore.Create(9, 2, nullptr));
    EXPECT_EQ(Drain(semaphore), 2);
    ASSERT_TRUE(semaphore.Create(0, 0, nullptr));
    EXPECT_EQ(Drain(semaphore), 0);
}

TEST(SemaphoreCreate, BeginsWithZeroForANegativeInitialCount) {
    CSemaphore semaphore;
    ASSERT_TRUE(semaphore.Create(-3, 5, nullptr));
    EXPECT_EQ(Drain(semaphore), 0);
}

TEST(SemaphoreCreate, DoesNotKeepTheMaximum) {
    CSemaphore semaphore;
    ASSERT_TRUE(semaphore.Create(0, 1, nullptr));
    EXPECT_TRUE(semaphore.Release(3));
    EXPECT_EQ(Drain(semaphore), 3);
}

TEST(SemaphoreCreate, TakesTheLargestCountAtOnceAndRefusesALargerOne) {
    CSemaphore semaphore;
    EXPECT_TRUE(semaphore.Create(0, SEM_VALUE_MAX, nullptr));
    EXPECT_EQ(semaphore.Wait(0), 102);
    for (const long refused : {SEM_VALUE_MAX + 1L, LONG_MAX, -1L, LONG_MIN}) {
        CSemaphore other;
        EXPECT_FALSE(other.Create(0, refused, nullptr)) << refused;
        EXPECT_EQ(other.Wait(0), -1);
    }
}

TEST(SemaphoreCreate, IsFalseWithAnEmptyHandleIfTheSemaphoreCannotBeMade) {
    CSemaphore semaphore;
    ASSERT_TRUE(semaphore.Create(1, 1, nullptr));
    FaultOf<&::sem_init> fault;
    fault.Fail(ENOSYS);
    EXPECT_FALSE(semaphore.Create(1, 1, nullptr));
    EXPECT_EQ(semaphore.Wait(0), -1);
}

TEST(SemaphoreCreate, IsFalseWithoutMemory) {
    if (!LibcFault::kHeapFaults) GTEST_SKIP() << LibcFault::kNoHeapFaults;
    CSemaphore semaphore;
    FaultOf<&::malloc> fault;
    fault.Fail(ENOMEM);
    EXPECT_FALSE(semaphore.Create(1, 1, nullptr));
    EXPECT_EQ(semaphore.Wait(0), -1);
}

TEST(SemaphoreCreate, ReplacesTheOneHeldAsItsLastHolder) {
    CSemaphore semaphore;
    ASSERT_TRUE(semaphore.Create(5, 5, nullptr));
    FaultOf<&::sem_destroy> destroy;
    ASSERT_TRUE(semaphore.Create(1, 1, nullptr));
    EXPECT_EQ(destroy.Calls(), 1);
    EXPECT_EQ(Drain(semaphore), 1);
}

TEST(SemaphoreCreate, IsFalseWithAnEmptyHandleIfTheOneHeldCannotBeDestroyed) {
    CSemaphore semaphore;
    ASSERT_TRUE(semaphore.Create(5, 5, nullptr));
    FaultOf<&::sem_destroy> destroy;
    destroy.Fail(EINVAL);
    EXPECT_FALSE(semaphore.Create(1, 1, nullptr));
    EXPECT_EQ(semaphore.Wait(0), -1);
    EXPECT_TRUE(semaphore.Create(1, 1, nullptr));
}

// Callers that want a semaphore of their own ask twice.
TEST(SemaphoreCreate, IsFalseWithAnEmptyHandleIfTheOneHeldHasOtherHolders) {
    const NamedSemaphore named{"shared"};
    CSemaphore semaphore;
    ASSERT_TRUE(semaphore.Create(0, 0, "shared"));
    EXPECT_EQ(named.Holders(), 2U);
    EXPECT_FALSE(semaphore.Create(1, 1, nullptr));
    EXPECT_EQ(named.Holders(), 1U);
    EXPECT_EQ(semaphore.Wait(0), -1);
    EXPECT_TRUE(semaphore.Create(1, 1, nullptr));
    EXPECT_EQ(semaphore.Wait(0), 0);
}

// Create with a name

TEST(SemaphoreCreate, WithAnUnknownNameIsTrueAndChangesNothing) {
    CSemaphore semaphore;
    EXPECT_TRUE(semaphore.Create(1, 1, "unknown"));
    EXPECT_EQ(semaphore.Wait(0), -1);
    ASSERT_TRUE(semaphore.Create(2, 2, nullptr));
    EXPECT_TRUE(semaphore.Create(1, 1, "unknown"));
    EXPECT_EQ(Drain(semaphore), 2);
    EXPECT_EQ(g_SemaphoreTable.Find("unknown"), nullptr);
}

TEST(SemaphoreCreate, WithANameThatHasNoSemaphoreChangesNothing) {
    g_SemaphoreTable.Insert("empty", 0, 0);
    CSemaphore semaphore;
    ASSERT_TRUE(semaphore.Create(2, 2, nullptr));
    EXPECT_TRUE(semaphore.Create(1, 1, "empty"));
    EXPECT_EQ(Drain(semaphore), 2);
    EXPECT_TRUE(g_SemaphoreTable.Remove("empty"));
}

TEST(SemaphoreCreate, WithAKnownNameSharesItsSemaphore) {
    const NamedSemaphore named{"known"};
    {
        CSemaphore first;
        CSemaphore second;
        EXPECT_TRUE(first.Create(7, 7, "known"));
        EXPECT_TRUE(second.Create(7, 7, "known"));
        EXPECT_EQ(named.Holders(), 3U);
        EXPECT_EQ(first.Wait(0), 102);
        EXPECT_TRUE(first.Release(1));
        EXPECT_EQ(second.Wait(0), 0);
    }
    EXPECT_EQ(named.Holders(), 1U);
}

TEST(SemaphoreCreate, WithAKnownNameDropsTheOneHeldBefore) {
    const NamedSemaphore named{"known"};
    CSemaphore semaphore;
    ASSERT_TRUE(semaphore.Create(5, 5, nullptr));
    FaultOf<&::sem_destroy> destroy;
    EXPECT_TRUE(semaphore.Create(0, 0, "known"));
    EXPECT_EQ(destroy.Calls(), 1);
    EXPECT_EQ(semaphore.Wait(0), 102);
    EXPECT_TRUE(semaphore.Create(0, 0, "known"));  // again: still one holder
    EXPECT_EQ(named.Holders(), 2U);
    EXPECT_FALSE(semaphore.Close());
}

// Wait

TEST(SemaphoreWait, TakesWhatIsThereWhateverTheLimit) {
    CSemaphore semaphore;
    ASSERT_TRUE(semaphore.Create(3, 3, nullptr));
    EXPECT_EQ(semaphore.Wait(0), 0);
    EXPECT_EQ(semaphore.Wait(1500), 0);
    EXPECT_EQ(semaphore.Wait(kWaitForever), 0);
    EXPECT_EQ(semaphore.Wait(0), 102);
}

// Callers rely on it: only a wait without limit waits.
TEST(SemaphoreWait, OnABusySemaphoreGivesMinusOneAtOnceForALimit) {
    CSemaphore semaphore;
    ASSERT_TRUE(semaphore.Create(0, 1, nullptr));
    FaultOf<&::sleep> sleep;
    FaultOf<&::sem_trywait> tryWait;
    EXPECT_EQ(semaphore.Wait(1), -1);
    EXPECT_EQ(semaphore.Wait(60000), -1);
    EXPECT_EQ(semaphore.Wait(kWaitForever - 1), -1);
    EXPECT_EQ(tryWait.Calls(), 3);
    EXPECT_EQ(sleep.Calls(), 0);
}

TEST(SemaphoreWait, WithoutALimitWaitsForARelease) {
    CSemaphore semaphore;
    ASSERT_TRUE(semaphore.Create(0, 1, nullptr));
    FaultOf<&::sem_wait> wait;
    int result = 12345;
    std::thread waiter{[&] { result = semaphore.Wait(kWaitForever); }};
    while (wait.Calls() == 0) std::this_thread::yield();
    EXPECT_TRUE(semaphore.Release(1));
    waiter.join();
    EXPECT_EQ(result, 0);
}

TEST(SemaphoreWait, WithoutALimitGivesMinusOneForAFailureOrAnInterruption) {
    CSemaphore semaphore;
    ASSERT_TRUE(semaphore.Create(1, 1, nullptr));
    FaultOf<&::sem_wait> wait;
    wait.Fail(EINTR);
    wait.Fail(EINVAL);
    EXPECT_EQ(semaphore.Wait(kWaitForever), -1);
    EXPECT_EQ(semaphore.Wait(kWaitForever), -1);
    EXPECT_EQ(semaphore.Wait(kWaitForever), 0);
}

// A C library that answers with the number itself.

TEST(SemaphoreWait, SleepsBySecondAsLongAsItIsToldSixteen) {
    CSemaphore semaphore;
    ASSERT_TRUE(semaphore.Create(1, 1, nullptr));
    FaultOf<&::sem_trywait> tryWait;
    FaultOf<&::sleep> sleep;
    sleep.Always([](unsigned seconds) {
        EXPECT_EQ(seconds, 1U);
        return 0U;
    });
    tryWait.Return(16, 0, 3);
    EXPECT_EQ(semaphore.Wait(2000), 102);
    EXPECT_EQ(sleep.Calls(), 2);
    EXPECT_EQ(tryWait.Calls(), 3);
}

TEST(SemaphoreWait, TakesTheSemaphoreAfterSixteen) {
    CSemaphore semaphore;
    ASSERT_TRUE(semaphore.Create(1, 1, nullptr));
    FaultOf<&::sem_trywait> tryWait;
    FaultOf<&::sleep> sleep;
    sleep.Return(0U);
    tryWait.Return(16);
    EXPECT_EQ(semaphore.Wait(5000), 0);
    EXPECT_EQ(semaphore.Wait(0), 102);
}

TEST(SemaphoreWait, GivesUpAtOnceOnSixteenWithNoTime) {
    CSemaphore semaphore;
    ASSERT_TRUE(semaphore.Create(1, 1, nullptr));
    FaultOf<&::sem_trywait> tryWait;
    FaultOf<&::sleep> sleep;
    tryWait.Return(16);
    EXPECT_EQ(semaphore.Wait(0), 102);
    EXPECT_EQ(sleep.Calls(), 0);
}

TEST(SemaphoreWait, JudgesAFailureAfterSixteenByTheTimeThatIsLeft) {
    CSemaphore semaphore;
    ASSERT_TRUE(semaphore.Create(1, 1, nullptr));
    FaultOf<&::sem_trywait> tryWait;
    FaultOf<&::sleep> sleep;
    sleep.Return(0U, 0, 2);
    tryWait.Return(16);
    tryWait.Fail(EAGAIN);
    EXPECT_EQ(semaphore.Wait(1000), 102);
    tryWait.Return(16);
    tryWait.Fail(EAGAIN);
    EXPECT_EQ(semaphore.Wait(2000), -1);
}

// The time is counted down without a look at what is left of it.
TEST(SemaphoreWait, NeverRunsOutOnSixteenWithALimitThatIsNoWholeSecond) {
    CSemaphore semaphore;
    ASSERT_TRUE(semaphore.Create(1, 1, nullptr));
    FaultOf<&::sem_trywait> tryWait;
    FaultOf<&::sleep> sleep;
    sleep.Return(0U, 0, 50);
    tryWait.Return(16, 0, 50);
    EXPECT_EQ(semaphore.Wait(1500), 0);
}

// Release and Close

TEST(SemaphoreRelease, AddsTheCount) {
    CSemaphore semaphore;
    ASSERT_TRUE(semaphore.Create(0, 10, nullptr));
    EXPECT_TRUE(semaphore.Release(4));
    EXPECT_EQ(Drain(semaphore), 4);
}

TEST(SemaphoreRelease, RefusesACountBelowOne) {
    CSemaphore semaphore;
    ASSERT_TRUE(semaphore.Create(0, 10, nullptr));
    EXPECT_FALSE(semaphore.Release(0));
    EXPECT_FALSE(semaphore.Release(-1));
    EXPECT_FALSE(semaphore.Release(LONG_MIN));
    EXPECT_EQ(Drain(semaphore), 0);
}

TEST(SemaphoreRelease, IsTrueIfTheLastOneCouldBeAdded) {
    CSemaphore semaphore;
    ASSERT_TRUE(semaphore.Create(0, 10, nullptr));
    FaultOf<&::sem_post> post;
    post.Fail(EOVERFLOW, 2);
    EXPECT_TRUE(semaphore.Release(3));
    EXPECT_EQ(post.Calls(), 3);
    post.PassThrough(2);
    post.Fail(EOVERFLOW);
    EXPECT_FALSE(semaphore.Release(3));
    EXPECT_EQ(Drain(semaphore), 3);
}

TEST(SemaphoreRelease, FailsAtTheLargestCount) {
    CSemaphore semaphore;
    ASSERT_TRUE(semaphore.Create(SEM_VALUE_MAX, SEM_VALUE_MAX, nullptr));
    EXPECT_FALSE(semaphore.Release(1));
}

TEST(SemaphoreClose, OfTheLastHolderDestroysTheSemaphore) {
    CSemaphore semaphore;
    ASSERT_TRUE(semaphore.Create(1, 1, nullptr));
    FaultOf<&::sem_destroy> destroy;
    EXPECT_TRUE(semaphore.Close());
    EXPECT_EQ(destroy.Calls(), 1);
    EXPECT_EQ(semaphore.Wait(0), -1);
    EXPECT_FALSE(semaphore.Close());
}

TEST(SemaphoreClose, IsFalseIfDestroyingFailsAndEmptiesTheHandle) {
    CSemaphore semaphore;
    ASSERT_TRUE(semaphore.Create(1, 1, nullptr));
    FaultOf<&::sem_destroy> destroy;
    destroy.Fail(EINVAL);
    EXPECT_FALSE(semaphore.Close());
    EXPECT_EQ(semaphore.Wait(0), -1);
}

TEST(SemaphoreClose, IsFalseWithOtherHoldersLeftAndEmptiesTheHandle) {
    const NamedSemaphore named{"held"};
    CSemaphore semaphore;
    ASSERT_TRUE(semaphore.Create(0, 0, "held"));
    FaultOf<&::sem_destroy> destroy;
    EXPECT_FALSE(semaphore.Close());
    EXPECT_EQ(destroy.Calls(), 0);
    EXPECT_EQ(named.Holders(), 1U);
    EXPECT_EQ(semaphore.Wait(0), -1);
}

TEST(SemaphoreClose, IsDoneByTheDestructor) {
    FaultOf<&::sem_destroy> destroy;
    {
        CSemaphore semaphore;
        ASSERT_TRUE(semaphore.Create(1, 1, nullptr));
    }
    EXPECT_EQ(destroy.Calls(), 1);
}

// Threads

TEST(SemaphoreThreads, EightShareTheCount) {
    CSemaphore semaphore;
    ASSERT_TRUE(semaphore.Create(3, 3, nullptr));
    std::atomic<int> inside{0};
    std::atomic<int> most{0};
    std::vector<std::thread> threads;
    for (int id = 0; id < 8; ++id) {
        threads.emplace_back([&] {
            for (int i = 0; i < 500; ++i) {
                EXPECT_EQ(semaphore.Wait(kWaitForever), 0);
                const int now = ++inside;
                for (int seen = most; seen < now && !most.compare_exchange_weak(seen, now);) {
                }
                --inside;
                EXPECT_TRUE(semaphore.Release(1));
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_LE(most, 3);
    EXPECT_EQ(Drain(semaphore), 3);
}

TEST(SemaphoreThreads, HandlesOfOneNameComeAndGo) {
    const NamedSemaphore named{"busy"};
    std::vector<std::thread> threads;
    for (int id = 0; id < 8; ++id) {
        threads.emplace_back([&] {
            for (int i = 0; i < 500; ++i) {
                CSemaphore semaphore;
                EXPECT_TRUE(semaphore.Create(0, 0, "busy"));
                EXPECT_TRUE(semaphore.Release(1));
                EXPECT_EQ(semaphore.Wait(0), 0);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(named.Holders(), 1U);
}

#include "trace/recursive_lock.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <cstring>
#include <memory>
#include <new>
#include <thread>

#include "support/libc_fault.h"
#include "support/sanitizers.h"

namespace {

/// Whether another thread finds the lock free: it must not have to wait for it.
bool IsFree(CRecursiveLock& lock) {
    bool free = false;
    std::thread{[&] {
        auto* mutex = reinterpret_cast<pthread_mutex_t*>(&lock);  // its first field
        free = pthread_mutex_trylock(mutex) == 0;
        if (free) pthread_mutex_unlock(mutex);
    }}.join();
    return free;
}

/// Its fields behind the mutex, as modules find them.
struct LockFields {
    pthread_t owner;
    uint32_t count;
    uint8_t valid;
};

LockFields FieldsOf(const CRecursiveLock& lock) {
    static_assert(sizeof(CRecursiveLock) == sizeof(pthread_mutex_t) + sizeof(LockFields));
    LockFields fields{};
    memcpy(&fields, reinterpret_cast<const char*>(&lock) + sizeof(pthread_mutex_t), sizeof fields);
    return fields;
}

void ExpectFields(const CRecursiveLock& lock, pthread_t owner, uint32_t count, uint8_t valid) {
    const LockFields fields = FieldsOf(lock);
    EXPECT_EQ(fields.owner, owner);
    EXPECT_EQ(fields.count, count);
    EXPECT_EQ(fields.valid, valid);
}

TEST(CRecursiveLock, HasOwnerCountAndValidityBehindItsMutex) {
    alignas(CRecursiveLock) unsigned char storage[sizeof(CRecursiveLock)];
    auto* lock = new (storage) CRecursiveLock;
    ExpectFields(*lock, 0, 0, 1);
    lock->Lock();
    lock->Lock();
    ExpectFields(*lock, pthread_self(), 2, 1);
    lock->Unlock();
    ExpectFields(*lock, pthread_self(), 1, 1);
    lock->Lock();
    lock->ForceUnlock();
    ExpectFields(*lock, 0, 0, 1);
    lock->~CRecursiveLock();
    ExpectFields(*lock, 0, 0, 0);
}

TEST(CRecursiveLock, IsFreeAfterAsManyUnlocksAsLocks) {
    CRecursiveLock lock;
    EXPECT_TRUE(IsFree(lock));
    lock.Lock();
    lock.Lock();
    EXPECT_FALSE(IsFree(lock));
    lock.Unlock();
    EXPECT_FALSE(IsFree(lock));
    lock.Unlock();
    EXPECT_TRUE(IsFree(lock));
}

TEST(CRecursiveLock, IgnoresAnUnlockOfAThreadThatDoesNotHoldIt) {
    CRecursiveLock lock;
    lock.Unlock();
    EXPECT_TRUE(IsFree(lock));
    lock.Lock();
    std::thread{[&] { lock.Unlock(); }}.join();
    EXPECT_FALSE(IsFree(lock));
    lock.Unlock();
    EXPECT_TRUE(IsFree(lock));
}

TEST(CRecursiveLock, IsFreeAfterAForcedUnlockWhateverItsDepth) {
    CRecursiveLock lock;
    for (int i = 0; i < 5; ++i) lock.Lock();
    lock.ForceUnlock();
    EXPECT_TRUE(IsFree(lock));
    lock.Unlock();  // what outer frames still do
    EXPECT_TRUE(IsFree(lock));
    lock.Lock();
    EXPECT_FALSE(IsFree(lock));
    lock.Unlock();
    EXPECT_TRUE(IsFree(lock));
}

TEST(CRecursiveLock, DoesNothingInZeroedStorageBeforeItsConstructor) {
    alignas(CRecursiveLock) unsigned char storage[sizeof(CRecursiveLock)] = {};
    auto* lock = std::launder(reinterpret_cast<CRecursiveLock*>(storage));
    lock->Lock();
    lock->Unlock();
    lock->ForceUnlock();
    lock->~CRecursiveLock();
    const unsigned char zeros[sizeof storage] = {};
    EXPECT_EQ(memcmp(storage, zeros, sizeof storage), 0);
}

TEST(CRecursiveLock, DoesNothingAfterItsDestructor) {
    alignas(CRecursiveLock) unsigned char storage[sizeof(CRecursiveLock)];
    auto* lock = new (storage) CRecursiveLock;
    lock->~CRecursiveLock();
    unsigned char after[sizeof storage];
    memcpy(after, storage, sizeof storage);
    lock->Lock();
    lock->Unlock();
    lock->ForceUnlock();
    EXPECT_EQ(memcmp(storage, after, sizeof storage), 0);
}

TEST(CRecursiveLock, DoesNothingIfItsMutexCouldNotBeMade) {
    FaultOf<&::pthread_mutex_init> init;
    init.Return(ENOMEM);
    CRecursiveLock lock;
    FaultOf<&::pthread_mutex_lock> mutexLock;
    FaultOf<&::pthread_mutex_unlock> mutexUnlock;
    lock.Lock();
    lock.Unlock();
    lock.ForceUnlock();
    EXPECT_EQ(mutexLock.Calls() + mutexUnlock.Calls(), 0);
}

TEST(CRecursiveLock, MayBeDestroyedWhileItIsHeld) {
    auto lock = std::make_unique<CRecursiveLock>();
    lock->Lock();
    lock->Lock();
    FaultOf<&::pthread_mutex_unlock> unlock;
    lock.reset();
    EXPECT_EQ(unlock.Calls(), 1) << "freed before it is destroyed, whatever its depth";
}

TEST(CRecursiveLock, IsNotFreedByTheThreadThatDestroysItForAnother) {
    if (kThreadSanitizer) GTEST_SKIP() << "it takes the end of a held mutex for a mistake";
    auto lock = std::make_unique<CRecursiveLock>();
    std::thread{[&] { lock->Lock(); }}.join();
    FaultOf<&::pthread_mutex_unlock> unlock;
    lock.reset();
    EXPECT_EQ(unlock.Calls(), 0);
}

TEST(CRecursiveLock, LetsOneThreadInAtATime) {
    CRecursiveLock lock;
    int count = 0;
    const auto work = [&] {
        for (int i = 0; i < 10'000; ++i) {
            const RecursiveLockGuard outer{lock};
            const RecursiveLockGuard inner{lock};
            ++count;
        }
    };
    std::thread threads[4];
    for (auto& thread : threads) thread = std::thread{work};
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(count, 40'000);
}

}  // namespace

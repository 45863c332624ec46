#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>

#include "trace/api.h"
#include "trace/thread_annotations.h"

/// The lock of the whole library layer: a thread that holds it may take it again. Made by hand on a
/// plain mutex because objects of static storage use it before its constructor and after its
/// destructor have run: on zeroed storage, after destruction, and when the mutex could not be made,
/// every operation does nothing. There is no wait with a limit.
///
///     RecursiveLockGuard hold{lock};  // the usual way, also when an exception passes
///
/// Thread-safety: any thread may call any operation; construction and destruction by one thread.
class ZORN_API CAPABILITY("recursive lock") CRecursiveLock {
  public:
    CRecursiveLock();
    /// A lock still held by the calling thread is let go first.
    ~CRecursiveLock();
    CRecursiveLock(const CRecursiveLock&) = delete;
    CRecursiveLock& operator=(const CRecursiveLock&) = delete;

    /// Waits until the lock is free or held by the calling thread, then holds it one level deeper.
    void Lock() ACQUIRE();

    /// Gives back one level; the last one frees the lock. Ignored from a thread that does not hold
    /// it.
    void Unlock() RELEASE();

    /// Frees the lock whatever its depth: for a holder that an exception or a cancellation unwinds.
    /// The `Unlock` calls that outer frames still make are then ignored.
    void ForceUnlock() RELEASE();

  private:
    pthread_mutex_t m_Mutex;  ///< default attributes, not recursive itself
    /// The holder, or 0. Read without the mutex: only the holder can find its own identity here.
    std::atomic<pthread_t> m_Owner;
    uint32_t m_Count;           ///< depth of holding; touched by the holder only
    std::atomic<bool> m_Valid;  ///< the mutex exists

    [[nodiscard]] bool IsHeldByCaller() const;
};

/// Holds a `CRecursiveLock` for a scope.
class SCOPED_CAPABILITY RecursiveLockGuard {
  public:
    explicit RecursiveLockGuard(CRecursiveLock& lock) ACQUIRE(lock) : m_Lock(lock) {
        m_Lock.Lock();
    }
    ~RecursiveLockGuard() RELEASE() { m_Lock.Unlock(); }
    RecursiveLockGuard(const RecursiveLockGuard&) = delete;
    RecursiveLockGuard& operator=(const RecursiveLockGuard&) = delete;

  private:
    CRecursiveLock& m_Lock;
};

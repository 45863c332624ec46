#pragma once

#include <semaphore.h>

#include <atomic>
#include <cstdint>

#include "platform/name_table.h"
#include "platform/wait_result.h"
#include "trace/api.h"

/// What handles of `CSemaphore` share.
struct CSemaphoreObject {
    sem_t m_Semaphore;
    std::atomic<uint32_t> m_RefCount;  ///< handles
};

/// Handle to a counting semaphore.
///
///     CSemaphore ready;
///     if (!ready.Create(0, 5, nullptr)) return false;
///     ready.Release(1);                                        // one thread
///     if (ready.Wait(kWaitForever) == kWaitSignalled) Work();  // another
///
/// Thread-safety: any thread may call `Wait` and `Release` of one handle; the other operations are
/// for one thread at a time, while no other uses the handle. Different handles of one semaphore are
/// independent.
class ZORN_API CSemaphore {
  public:
    CSemaphore() = default;  ///< an empty handle
    /// `Close()`.
    ~CSemaphore();
    // A copy would share the semaphore without being counted: `Create` with a name shares one.
    CSemaphore(const CSemaphore&) = delete;
    CSemaphore& operator=(const CSemaphore&) = delete;

    /// Without a name: lets go of what the handle holds, as `Close` does, and makes a new semaphore
    /// that begins with `initialCount`, at least with 0 and at most with `maximumCount`; the
    /// maximum is not kept beyond that. False if `Close` says so (the handle is empty then) or if
    /// the new one cannot be made: no memory, or `maximumCount` is negative or above
    /// `SEM_VALUE_MAX`.
    ///
    /// With a name: takes the semaphore of that name in `g_SemaphoreTable`, instead of the one
    /// held; without such a name the handle stays as it is. True in both cases.
    bool Create(long initialCount, long maximumCount, const char* name);

    /// Takes one from the count. `kWaitSignalled` if it could be taken. With `kWaitForever` it
    /// waits for that, and gives `kWaitFailed` if that fails or is interrupted by a signal. With
    /// any other limit it does not wait: a count of 0 gives `kWaitTimedOut` for a limit of 0 and
    /// `kWaitFailed` for a longer one, at once. `kWaitFailed` on an empty handle.
    [[nodiscard]] int Wait(unsigned timeoutMs);

    /// Adds `count` to the count, one by one, whatever fails on the way. True if the last one could
    /// be added; false on an empty handle and for a `count` below 1.
    bool Release(long count);

    /// Lets go of the semaphore and empties the handle. True if this was its last handle and it
    /// could be destroyed; false if others hold it still, or on an empty handle.
    bool Close();

  private:
    CSemaphoreObject* m_Object = nullptr;

    void Open(const char* name);
};

/// Semaphores by name: the value is the `CSemaphoreObject*`, of which the one who inserts it counts
/// as a holder. Nothing here inserts any: they come from modules.
extern ZORN_API CNameTable g_SemaphoreTable;

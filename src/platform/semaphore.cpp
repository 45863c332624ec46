#include "platform/semaphore.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <new>
#include <utility>

namespace {

/// The count of a new semaphore, or one that `sem_init` refuses.
unsigned StartCount(long initialCount, long maximumCount) {
    if (maximumCount < 0 || maximumCount > SEM_VALUE_MAX) return UINT_MAX;
    return static_cast<unsigned>(std::clamp(initialCount, 0L, maximumCount));
}

}  // namespace

CSemaphore::~CSemaphore() {
    (void)Close();
}

bool CSemaphore::Create(long initialCount, long maximumCount, const char* name) {
    if (name != nullptr) {
        Open(name);
        return true;
    }
    if (m_Object != nullptr && !Close()) return false;
    auto* const object = new (std::nothrow) CSemaphoreObject{{}, 1};
    if (object == nullptr) return false;
    if (sem_init(&object->m_Semaphore, 0, StartCount(initialCount, maximumCount)) != 0) {
        delete object;
        return false;
    }
    m_Object = object;
    return true;
}

void CSemaphore::Open(const char* name) {
    CSemaphoreObject* object = nullptr;
    {
        const RecursiveLockGuard hold{g_SemaphoreTable.Lock()};
        const NameTableEntry* const entry = g_SemaphoreTable.Find(name);
        if (entry == nullptr || entry->Value == 0) return;
        object = reinterpret_cast<CSemaphoreObject*>(entry->Value);
        ++object->m_RefCount;
    }
    (void)Close();
    m_Object = object;
}

int CSemaphore::Wait(unsigned timeoutMs) {
    if (m_Object == nullptr) return kWaitFailed;
    sem_t* const semaphore = &m_Object->m_Semaphore;
    if (timeoutMs == kWaitForever) return sem_wait(semaphore) == 0 ? kWaitSignalled : kWaitFailed;
    int error = sem_trywait(semaphore);
    // A C library that answers with the error number itself would make this a wait by the second.
    // Ours answers -1, and callers rely on a busy semaphore being refused at once.
    while (error == EBUSY) {
        if (timeoutMs == 0) return kWaitTimedOut;
        timeoutMs -= 1000;
        (void)sleep(1);
        error = sem_trywait(semaphore);
    }
    if (error == 0) return kWaitSignalled;
    return timeoutMs == 0 ? kWaitTimedOut : kWaitFailed;
}

bool CSemaphore::Release(long count) {
    if (m_Object == nullptr || count < 1) return false;
    bool posted = false;
    for (long i = 0; i < count; ++i) posted = sem_post(&m_Object->m_Semaphore) == 0;
    return posted;
}

bool CSemaphore::Close() {
    CSemaphoreObject* const object = std::exchange(m_Object, nullptr);
    if (object == nullptr || --object->m_RefCount > 0) return false;
    const bool destroyed = sem_destroy(&object->m_Semaphore) == 0;
    delete object;
    return destroyed;
}

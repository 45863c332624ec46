#include "trace/recursive_lock.h"

CRecursiveLock::CRecursiveLock() : m_Mutex{}, m_Owner{0}, m_Count{0}, m_Valid{false} {
    m_Valid = pthread_mutex_init(&m_Mutex, nullptr) == 0;
}

CRecursiveLock::~CRecursiveLock() {
    if (!m_Valid) return;
    if (m_Count > 0) {
        m_Count = 1;
        Unlock();
    }
    pthread_mutex_destroy(&m_Mutex);
    m_Valid = false;  // objects destroyed later still call Lock and Unlock
}

bool CRecursiveLock::IsHeldByCaller() const {
    return m_Owner.load(std::memory_order_relaxed) == pthread_self();
}

void CRecursiveLock::Lock() NO_THREAD_SAFETY_ANALYSIS {
    if (!m_Valid.load(std::memory_order_relaxed)) return;
    if (!IsHeldByCaller()) {
        pthread_mutex_lock(&m_Mutex);
        m_Owner.store(pthread_self(), std::memory_order_relaxed);
    }
    ++m_Count;
}

void CRecursiveLock::Unlock() NO_THREAD_SAFETY_ANALYSIS {
    if (!m_Valid.load(std::memory_order_relaxed) || !IsHeldByCaller()) return;
    if (--m_Count > 0) return;
    m_Owner.store(0, std::memory_order_relaxed);
    pthread_mutex_unlock(&m_Mutex);
}

void CRecursiveLock::ForceUnlock() NO_THREAD_SAFETY_ANALYSIS {
    if (!m_Valid.load(std::memory_order_relaxed)) return;
    m_Owner.store(0, std::memory_order_relaxed);
    m_Count = 0;
    pthread_mutex_unlock(&m_Mutex);
}

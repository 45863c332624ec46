#pragma once

#include <algorithm>

#include "support/libc_fault.h"

/// Counts the locks that are held at a time while it lives.
/// REQUIRES: one thread.
class LockCount {
  public:
    LockCount() {
        m_Lock.Always([this](pthread_mutex_t* mutex) {
            m_Most = std::max(m_Most, ++m_Held);
            return LibcFault::Real<&::pthread_mutex_lock>(mutex);
        });
        m_Unlock.Always([this](pthread_mutex_t* mutex) {
            --m_Held;
            return LibcFault::Real<&::pthread_mutex_unlock>(mutex);
        });
    }

    [[nodiscard]] int Held() const { return m_Held; }
    [[nodiscard]] int Most() const { return m_Most; }

  private:
    int m_Held = 0;
    int m_Most = 0;
    FaultOf<&::pthread_mutex_lock> m_Lock;
    FaultOf<&::pthread_mutex_unlock> m_Unlock;
};

#pragma once

#include <pthread.h>

/// Holds back the cancellation of the calling thread for a scope, for code that must run to its
/// end: destructors, through which a cancellation may not unwind, and constructors that own
/// something before they are done. A cancellation that comes meanwhile takes effect at the next
/// cancellation point behind the scope. Scopes nest. Thread-safety: a scope belongs to the thread
/// that opened it.
class NoCancellation {
  public:
    NoCancellation() { (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_Former); }
    ~NoCancellation() { (void)pthread_setcancelstate(m_Former, nullptr); }
    NoCancellation(const NoCancellation&) = delete;
    NoCancellation& operator=(const NoCancellation&) = delete;

  private:
    int m_Former = PTHREAD_CANCEL_ENABLE;
};

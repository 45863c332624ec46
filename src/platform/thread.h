#pragma once

#include <pthread.h>

#include <memory>

#include "platform/wait_result.h"
#include "trace/api.h"

/// Whether a detached thread still runs (thread.cpp).
struct DetachedThread;

/// One thread: starts it, waits for its end, gets rid of it. What it does is a plain function of
/// the caller's, which ends by itself: usually it watches an event.
///
///     CThread worker;
///     if (!worker.Start(Work, &stop, 0, false, 0, nullptr, true)) return false;
///     stop.Set();
///     worker.WaitForTermination(kWaitForever);
///
/// A thread inherits the signal mask of the one that starts it, and so the four signals that the
/// service keeps blocked. The object does not own the thread: destroyed, it leaves it running, and
/// one that is joinable and was never joined keeps its stack until the process ends.
///
/// Thread-safety: one thread at a time; it has no lock.
class ZORN_API CThread {
  public:
    /// Holds no thread. With `killAliveThread` each `Start` begins with `Kill()`, whatever that
    /// gives; without, a thread that is still held is forgotten and runs on.
    explicit CThread(bool killAliveThread = false) : m_KillAliveThread(killAliveThread) {}
    CThread(const CThread&) = delete;  // two objects would join one thread
    CThread& operator=(const CThread&) = delete;

    /// Starts `routine(arg)`, at once and with the system's default stack: `suspended` and
    /// `stackSize` are only traced, `reserved` is ignored. A `waitable` thread is joinable, any
    /// other detached.
    ///
    /// A `priority` other than 0 is put into the thread's attributes as that of round-robin
    /// scheduling (1 to 99 in its low 32 bits; others fail) and stays without effect: threads inherit how they are
    /// scheduled.
    ///
    /// False, with a line at level 2, if a step fails: the object then holds the thread that it
    /// held before, but takes that for `waitable` as told by the call.
    bool Start(void* (*routine)(void*), void* arg, unsigned long priority, bool suspended,
               unsigned stackSize, void* reserved, bool waitable);

    /// Waits until the thread has ended and lets go of it. There is no wait with a limit: one other
    /// than `kWaitForever` is traced as a warning and ignored. True also without a thread. False
    /// for a detached thread, without waiting, or if the join fails; the thread is kept then.
    /// A cancellation point; a caller cancelled in it may wait again.
    bool WaitForTermination(unsigned timeoutMs);

    /// Gets rid of the thread. One that is joinable is joined, not killed: this waits until it ends
    /// by itself, and is false, with the thread kept, if the join fails. A detached one is
    /// cancelled, unless it has ended already, and let go; false only if it cannot be cancelled.
    /// False without a thread.
    bool Kill();

    /// The thread held, 0 if there is none. A detached one may have ended meanwhile: then nothing
    /// may be called with this.
    [[nodiscard]] pthread_t Id() const { return m_Thread; }

  private:
    pthread_t m_Thread = 0;
    bool m_KillAliveThread;
    bool m_Waitable = false;
    std::shared_ptr<DetachedThread> m_Detached;  ///< null unless the thread held is detached

    int Create(const pthread_attr_t& attributes, void* (*routine)(void*), void* arg);
    int Join(void** result);
    bool JoinInWait();
    bool JoinInKill();
    bool CancelUnlessEnded();
};

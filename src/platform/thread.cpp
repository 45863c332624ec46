// A detached thread may end at any moment, and from then on the C library may not be asked about its
// number any more: its memory is given back, or another thread has it. So such a thread says when it
// ends, under a lock that `Kill` holds from its look at the thread to the cancellation.

#include "platform/thread.h"

#include <sched.h>

#include <cerrno>
#include <mutex>
#include <new>
#include <utility>

#include "trace/no_cancellation.h"
#include "trace/trace.h"

struct DetachedThread {
    std::mutex m_Mutex;  ///< guards `m_HasEnded`; while it is held the thread does not end
    bool m_HasEnded = false;
};

namespace {

/// What a detached thread is started with.
struct DetachedStart {
    void* (*routine)(void*);
    void* arg;
    std::shared_ptr<DetachedThread> thread;
};

/// Tells at the end of a scope, also when a cancellation unwinds it, that the thread ends.
class EndMark {
  public:
    explicit EndMark(DetachedThread& thread) : m_Thread(thread) {}
    ~EndMark() {
        const NoCancellation untilTold;
        const std::lock_guard hold{m_Thread.m_Mutex};
        m_Thread.m_HasEnded = true;
    }
    EndMark(const EndMark&) = delete;
    EndMark& operator=(const EndMark&) = delete;

  private:
    DetachedThread& m_Thread;
};

void* RunDetached(void* start) {
    const std::unique_ptr<DetachedStart> own{static_cast<DetachedStart*>(start)};
    const EndMark mark{*own->thread};
    return own->routine(own->arg);
}

/// What the trace shows of a thread: the low half of its number.
unsigned Shown(pthread_t thread) {
    return static_cast<unsigned>(thread);
}

bool SetDetached(pthread_attr_t& attributes) {
    const int error = pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    if (error != 0) TRACE(2, "\npthread_attr_setdetachstate failed: %d", error);
    return error == 0;
}

bool SetPriority(pthread_attr_t& attributes, unsigned long priority) {
    int error = pthread_attr_setschedpolicy(&attributes, SCHED_RR);
    if (error != 0) {
        TRACE(2, "\npthread_attr_setschedpolicy failed: %d", error);
        return false;
    }
    sched_param parameters{};
    error = pthread_attr_getschedparam(&attributes, &parameters);
    if (error != 0) {
        TRACE(2, "\npthread_attr_getschedparam failed: %d", error);
        return false;
    }
    parameters.sched_priority = static_cast<int>(priority);
    error = pthread_attr_setschedparam(&attributes, &parameters);
    if (error != 0) {
        TRACE(2, "\npthread_attr_setschedparam failed: error=%d priority=%d", error,
              parameters.sched_priority);
        return false;
    }
    return true;
}

bool MakeAttributes(pthread_attr_t& attributes, unsigned long priority, bool waitable) {
    const int error = pthread_attr_init(&attributes);
    if (error != 0) {
        TRACE(2, "\npthread_attr_init failed: %d", error);
        return false;
    }
    TRACE(4, "\npthread_attr_init: %d", error);
    if (!waitable && !SetDetached(attributes)) return false;
    TRACE(2, "\nThreadPrio=%d", static_cast<int>(priority));
    return priority == 0 || SetPriority(attributes, priority);
}

}  // namespace

bool CThread::Start(void* (*routine)(void*), void* arg, unsigned long priority, bool suspended,
                    unsigned stackSize, void* /*reserved*/, bool waitable) {
    const int prio = static_cast<int>(priority);
    // clang-format off
    TRACE(5, "\nCThread::Start: Start a thread, Prio=%d, Suspend=%d, StackSize=0x%08x, Waitable=%d, KillAliveThread=%d",
          prio, suspended, stackSize, waitable, m_KillAliveThread);
    // clang-format on
    if (m_KillAliveThread) (void)Kill();
    m_Waitable = waitable;
    pthread_attr_t attributes;  // never destroyed: as set here it holds no memory of its own
    if (!MakeAttributes(attributes, priority, waitable)) return false;
    const int error = Create(attributes, routine, arg);
    if (error != 0) {
        TRACE(2, "\npthread_create failed: %d", error);
        return false;
    }
    TRACE(2, "\nCThread::Start: thread=0x%08X created, Prio=%d, Waitable=%d, StackSize=0x%x",
          Shown(m_Thread), prio, waitable, stackSize);
    (void)sched_yield();
    return true;
}

int CThread::Create(const pthread_attr_t& attributes, void* (*routine)(void*), void* arg) {
    try {
        std::shared_ptr<DetachedThread> detached;
        std::unique_ptr<DetachedStart> start;
        if (!m_Waitable) {
            detached = std::make_shared<DetachedThread>();
            start = std::make_unique<DetachedStart>(DetachedStart{routine, arg, detached});
            routine = RunDetached;
            arg = start.get();
        }
        // A failing call leaves a number of no thread behind.
        pthread_t thread = 0;
        const int error = pthread_create(&thread, &attributes, routine, arg);
        if (error != 0) return error;
        (void)start.release();
        m_Thread = thread;
        m_Detached = std::move(detached);
        return 0;
    } catch (const std::bad_alloc&) {
        return ENOMEM;
    }
}

bool CThread::WaitForTermination(unsigned timeoutMs) {
    const unsigned shown = Shown(m_Thread);
    if (m_Thread == 0) {
        TRACE(1, "\nCThread::WaitForTermination: Thread = 0x0%08X doesn't exist !", shown);
        return true;
    }
    // clang-format off
    if (timeoutMs != kWaitForever) {
        TRACE(1, "\nCThread::WaitForTermination: WARNING: can't wait for Thread = 0x%08X termination with timeout",
              shown);
    }
    if (!m_Waitable) {
        TRACE(1, "\nCThread::WaitForTermination: WARNING: Can't wait for detached thread 0x%08X",
              shown);
        return false;
    }
    // clang-format on
    return JoinInWait();
}

bool CThread::Kill() {
    const unsigned shown = Shown(m_Thread);
    TRACE(1, "\nCThread::Kill: Try to kill the Thread = 0x%08X", shown);
    if (m_Thread == 0) {
        TRACE(1, "\nCThread::Kill: Thread = 0x0%08X doesn't exist !", shown);
        return false;
    }
    return m_Waitable ? JoinInKill() : CancelUnlessEnded();
}

/// Lets go of the thread if it could be joined.
int CThread::Join(void** result) {
    if (m_Detached != nullptr) return EINVAL;  // detached, whatever a failed `Start` has said since
    const int error = pthread_join(m_Thread, result);
    if (error == 0) m_Thread = 0;
    return error;
}

bool CThread::JoinInWait() {
    const unsigned shown = Shown(m_Thread);
    void* result = nullptr;
    const int error = Join(&result);
    // clang-format off
    if (error != 0) {
        TRACE(1, "\nCThread::WaitForTermination: ERROR ! ThreadJoin failed, Thread = 0x%08X, Err = 0x%08x",
              shown, static_cast<unsigned>(error));
        return false;
    }
    TRACE(1, "\nCThread::WaitForTermination: a joinable Thread = 0x%08X has terminated, pstat=%p",
          shown, result);
    // clang-format on
    return true;
}

bool CThread::JoinInKill() {
    const unsigned shown = Shown(m_Thread);
    TRACE(1, "\nCThread::Kill: Try to join a joinable Thread = 0x%08X", shown);
    void* result = nullptr;
    const int error = Join(&result);
    if (error != 0) {
        TRACE(1, "\nCThread::Kill: ERROR ! ThreadJoin failed, Thread = 0x%08X, Err = 0x%08x", shown,
              static_cast<unsigned>(error));
        return false;
    }
    TRACE(1, "\nCThread::Kill: a joinable Thread = 0x%08X has terminated, pstat=%p", shown, result);
    return true;
}

bool CThread::CancelUnlessEnded() {
    const NoCancellation untilDone;
    const pthread_t thread = std::exchange(m_Thread, 0);
    const auto detached = std::exchange(m_Detached, nullptr);
    const unsigned shown = Shown(thread);
    TRACE(1, "\nCThread::Kill: Try to kill a non-joinable Thread = 0x0%08X", shown);
    std::unique_lock<std::mutex> running;
    if (detached != nullptr) running = std::unique_lock{detached->m_Mutex};
    if (detached != nullptr && detached->m_HasEnded) return true;
    int policy = 0;
    sched_param parameters{};
    if (pthread_getschedparam(thread, &policy, &parameters) != 0) return true;
    TRACE(2, "\nCThread::Kill: Killing a non-joinable thread 0x%08X", shown);
    const int error = pthread_cancel(thread);
    if (error != 0) {
        TRACE(2, "\nCThread::Kill: unable to cancel a non-joinable thread 0x%08X (err = 0x%08x)",
              shown, static_cast<unsigned>(error));
        return false;
    }
    TRACE(2, "\nCThread::Kill: a non-joinable thread 0x%08X cancel invoked", shown);
    return true;
}

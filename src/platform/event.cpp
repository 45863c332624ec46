// An event is a flag under a mutex with a condition. Three things are out of the common way:
//
// - A wait whose condition call returns 0 counts as signalled whatever the flag says. That is what
//   lets Pulse release those who wait and leave the flag clear in one step, under the mutex.
// - The number of those who wait is kept under the mutex, so that the last handle can tell when the
//   object is free. A thread inside Wait must not touch the object after it has given back the
//   mutex: what its last line shows is copied before, and the line is written without the mutex.
// - A cancelled thread unwinds through Wait (the condition call locks the mutex again before): all
//   that Wait holds is held by objects of its frame.

#include "platform/event.h"

#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>
#include <optional>

#include "trace/no_cancellation.h"
#include "trace/trace.h"

struct CEventObject {
    CEventObject(bool isManual, bool isSignaled) : IsManual{isManual}, IsSignaled{isSignaled} {}

    pthread_cond_t m_Cond{};    ///< on CLOCK_MONOTONIC
    pthread_mutex_t m_Mutex{};  ///< guards `IsSignaled` and `m_Waiters`, which some read without it
    uint32_t m_RefCount GUARDED_BY(g_EventLock) = 1;  ///< handles
    std::atomic<bool> IsManual;                       ///< stays signalled until `Reset`
    std::atomic<bool> IsSignaled;
    char* m_Name = nullptr;              ///< from `strdup`; null: anonymous
    std::atomic<uint32_t> m_Waiters{0};  ///< threads inside a blocking wait
    pthread_condattr_t m_CondAttr{};     ///< lives as long as the condition
};

namespace {

constexpr auto kRelaxed = std::memory_order_relaxed;

/// Holds the mutex of an event for a scope, or goes without it if it cannot be locked.
class ObjectLock {
  public:
    explicit ObjectLock(CEventObject& object)
        : m_Mutex(object.m_Mutex), m_Error(pthread_mutex_lock(&m_Mutex)) {}
    ~ObjectLock() {
        if (m_Error == 0) (void)pthread_mutex_unlock(&m_Mutex);
    }
    ObjectLock(const ObjectLock&) = delete;
    ObjectLock& operator=(const ObjectLock&) = delete;

    [[nodiscard]] int Error() const { return m_Error; }

  private:
    pthread_mutex_t& m_Mutex;
    const int m_Error;
};

/// Counts the calling thread among those who wait for a scope.
class WaiterCount {
  public:
    explicit WaiterCount(CEventObject& object) : m_Waiters(object.m_Waiters) {
        m_Waiters.fetch_add(1, kRelaxed);
    }
    ~WaiterCount() { m_Waiters.fetch_sub(1, kRelaxed); }
    WaiterCount(const WaiterCount&) = delete;
    WaiterCount& operator=(const WaiterCount&) = delete;

  private:
    std::atomic<uint32_t>& m_Waiters;
};

// What stands in the trace lines.

const void* Address(const CEventObject& object) {
    return &object;
}
const char* Name(const CEventObject& object) {
    return object.m_Name ? object.m_Name : "anon";
}
int State(const CEventObject& object) {
    return object.IsSignaled.load(kRelaxed) ? 1 : 0;
}
int Kind(const CEventObject& object) {
    return object.IsManual.load(kRelaxed) ? 1 : 0;
}

/// A copy of a name. Memory is taken for a long one only; where there is none, it is cut.
class NameCopy {
  public:
    explicit NameCopy(const char* name) {
        const size_t size = strlen(name) + 1;
        if (size > sizeof m_Short) m_Long.reset(new (std::nothrow) char[size]);
        char* const place = m_Long ? m_Long.get() : m_Short;
        const size_t length = m_Long ? size - 1 : std::min(size, sizeof m_Short) - 1;
        memcpy(place, name, length);
        place[length] = '\0';
    }

    [[nodiscard]] const char* Text() const { return m_Long ? m_Long.get() : m_Short; }

  private:
    std::unique_ptr<char[]> m_Long;
    char m_Short[256];
};

/// What the lines of an event show, copied while it lives.
struct Snapshot {
    explicit Snapshot(const CEventObject& object)
        : address{&object}, name{Name(object)}, kind{Kind(object)}, state{State(object)} {}

    const void* address;
    NameCopy name;
    int kind;
    int state;
};

enum class Outcome { kMade, kFound, kNoMemory, kNoAttributes, kNoCondition, kNoMutex };

/// What the construction of a handle came to.
struct Creation {
    CEventObject* object;  ///< null if it failed
    Outcome outcome;
    int error;            ///< of the call that failed
    const void* address;  ///< of the object, also of one that is gone: for the trace
};

void DestroyParts(CEventObject& object) {
    (void)pthread_cond_destroy(&object.m_Cond);
    (void)pthread_condattr_destroy(&object.m_CondAttr);
    (void)pthread_mutex_destroy(&object.m_Mutex);
}

void DeleteObject(CEventObject* object) {
    free(object->m_Name);
    delete object;
}

/// Makes the system's parts of `object`; undoes them if one fails.
Outcome MakeParts(CEventObject& object, int& error) {
    error = pthread_condattr_init(&object.m_CondAttr);
    if (error != 0) return Outcome::kNoAttributes;
    error = pthread_condattr_setclock(&object.m_CondAttr, CLOCK_MONOTONIC);
    if (error != 0) {
        (void)pthread_condattr_destroy(&object.m_CondAttr);
        return Outcome::kNoAttributes;
    }
    error = pthread_cond_init(&object.m_Cond, &object.m_CondAttr);
    if (error != 0) {
        (void)pthread_condattr_destroy(&object.m_CondAttr);
        return Outcome::kNoCondition;
    }
    error = pthread_mutex_init(&object.m_Mutex, nullptr);
    if (error != 0) {
        (void)pthread_cond_destroy(&object.m_Cond);
        (void)pthread_condattr_destroy(&object.m_CondAttr);
        return Outcome::kNoMutex;
    }
    return Outcome::kMade;
}

Creation MakeObject(bool initialState, bool isManual) {
    std::unique_ptr<CEventObject> object{new (std::nothrow) CEventObject{isManual, initialState}};
    if (object == nullptr) return {nullptr, Outcome::kNoMemory, ENOMEM, nullptr};
    Creation made{nullptr, Outcome::kMade, 0, object.get()};
    made.outcome = MakeParts(*object, made.error);
    if (made.outcome == Outcome::kMade) made.object = object.release();
    return made;
}

CEventObject* FindObject(const char* name) {
    const RecursiveLockGuard hold{g_EventTable.Lock()};
    const NameTableEntry* const entry = g_EventTable.Find(name);
    return entry != nullptr ? reinterpret_cast<CEventObject*>(entry->Value) : nullptr;
}

/// Gives `object` its name and makes it findable. False without memory.
bool Publish(CEventObject& object, const char* name) {
    object.m_Name = strdup(name);
    if (object.m_Name == nullptr) return false;
    try {
        g_EventTable.Insert(name, reinterpret_cast<uint64_t>(&object), 0);
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

Creation FindOrMakeObject(bool initialState, bool isManual, const char* name) {
    const RecursiveLockGuard hold{g_EventLock};
    if (CEventObject* const object = FindObject(name)) {
        ++object->m_RefCount;
        return {object, Outcome::kFound, 0, object};
    }
    const Creation made = MakeObject(initialState, isManual);
    if (made.object == nullptr || Publish(*made.object, name)) return made;
    DestroyParts(*made.object);
    DeleteObject(made.object);
    return {nullptr, Outcome::kNoMemory, ENOMEM, nullptr};
}

void TraceFound(const CEventObject& object, bool isManual) {
    TRACE(3, "refCount for event %p <%s> incremented (IsSignaled=%d)\n", Address(object),
          Name(object), State(object));
    if (object.IsManual.load(kRelaxed) == isManual) return;
    TRACE(1, "WARNING: manual setting mismatch for event %p <%s>\n", Address(object), Name(object));
}

void TraceCreation(const Creation& made, bool initialState, bool isManual, const char* name) {
    if (name == nullptr) name = "anon";
    switch (made.outcome) {
        case Outcome::kFound:
            TraceFound(*made.object, isManual);
            break;
        case Outcome::kMade:
            TRACE(5, "creating event %p <%s> (IsSignaled=%d)\n", made.address, name,
                  State(*made.object));
            break;
        case Outcome::kNoAttributes:
            // clang-format off
            TRACE(3, "pthread_condattr_setclock(): ## ERROR ##: Set CLOCK_MONOTONIC failed (ret=%d) for event %p <%s> (IsSignaled=%d)\n",
                  made.error, made.address, name, initialState);
            break;
        case Outcome::kNoCondition:
            TRACE(3, "pthread_cond_init(), CLOCK_MONOTONIC: ## ERROR ##: failed (ret=%d) on event %p <%s> (IsSignaled=%d)\n",
                  made.error, made.address, name, initialState);
            break;
        case Outcome::kNoMutex:
            TRACE(3, "pthread_mutex_init(), CLOCK_MONOTONIC: ## ERROR ##: failed (ret=%d) on event %p <%s> (IsSignaled=%d)\n",
                  made.error, made.address, name, initialState);
            // clang-format on
            break;
        case Outcome::kNoMemory:
            break;
    }
}

void AddReference(CEventObject& object) {
    {
        const RecursiveLockGuard hold{g_EventLock};
        ++object.m_RefCount;
    }
    TRACE(5, "incr refcount on event %p <%s> (IsSignaled=%d,IsManual=%d)\n", Address(object),
          Name(object), State(object), Kind(object));
}

/// Gives one reference back. True if it was the last one: nobody can find the object any more.
bool DropReference(CEventObject& object) {
    std::optional<Snapshot> shown;
    {
        const RecursiveLockGuard hold{g_EventLock};
        if (object.m_RefCount == 1) {
            object.m_RefCount = 0;
            if (object.m_Name != nullptr) g_EventTable.Remove(object.m_Name);
            return true;
        }
        --object.m_RefCount;
        // The line is written outside the lock, when another handle may have deleted the object.
        if (Debug.IsEnabled()) shown.emplace(object);
    }
    if (shown) {
        TRACE(5, "decr refcount on event %p <%s> (IsSignaled=%d)\n", shown->address,
              shown->name.Text(), shown->state);
    }
    return false;
}

bool IsAwaited(CEventObject& object) {
    const ObjectLock hold{object};
    return object.m_Waiters.load(kRelaxed) != 0;
}

bool WakeWaiters(CEventObject& object) {
    const bool all = object.IsManual.load(kRelaxed);
    return (all ? pthread_cond_broadcast(&object.m_Cond) : pthread_cond_signal(&object.m_Cond)) ==
           0;
}

/// What ends a wait: an automatic event serves one.
void TakeSignal(CEventObject& object) {
    if (!object.IsManual.load(kRelaxed)) object.IsSignaled.store(false, kRelaxed);
}

timespec After(const timespec& begin, unsigned timeoutMs) {
    constexpr long kSecond = 1000000000;
    timespec end = begin;
    end.tv_sec += timeoutMs / 1000;
    end.tv_nsec += timeoutMs % 1000 * 1000000L;
    if (end.tv_nsec >= kSecond) {
        end.tv_nsec -= kSecond;
        ++end.tv_sec;
    }
    return end;
}

int WaitWithoutLimit(CEventObject& object) {
    int error = EINTR;
    while (error == EINTR) error = pthread_cond_wait(&object.m_Cond, &object.m_Mutex);
    return error;
}

int WaitUntil(CEventObject& object, const timespec& end) {
    int error = EINTR;
    while (error == EINTR) error = pthread_cond_timedwait(&object.m_Cond, &object.m_Mutex, &end);
    return error;
}

/// Gives ETIMEDOUT for a limit of 0 without a wait, so that looking at an event costs no system
/// call.
int WaitWithLimit(CEventObject& object, unsigned timeoutMs, bool verbose) {
    timespec begin{};
    if (timeoutMs > 0 || verbose) (void)clock_gettime(CLOCK_MONOTONIC, &begin);
    const timespec end = After(begin, timeoutMs);
    if (verbose) {
        // clang-format off
        TRACE(5, "prepare time for waiting on event %p <%s> (ts_beg:sec=%ld,ts_beg:nsec=%ld) -> (ts:sec=%ld,ts:nsec=%ld)\n",
              Address(object), Name(object), begin.tv_sec, begin.tv_nsec, end.tv_sec, end.tv_nsec);
        // clang-format on
    }
    if (timeoutMs > 0) return WaitUntil(object, end);
    pthread_testcancel();
    return ETIMEDOUT;
}

/// The result of a wait that the condition call ended with `error`.
int Conclude(CEventObject& object, int error) {
    if (error == 0 || object.IsSignaled.load(kRelaxed)) {
        TakeSignal(object);
        return kWaitSignalled;
    }
    return error == ETIMEDOUT ? kWaitTimedOut : kWaitFailed;
}

const char* ResultText(int result) {
    if (result == kWaitSignalled) return "SIGNAL";
    return result == kWaitTimedOut ? "TIMEOUT" : "FAILURE";
}

/// How a wait ended.
struct WaitEnd {
    int result;
    bool atOnce;  ///< the event was signalled already
    int lockError;
    int waitError;
};

/// REQUIRES: the calling thread holds `hold`, the lock of `object`, unless it could not be had.
/// Counts the thread in `counted` if the event was not signalled.
WaitEnd WaitForSignal(CEventObject& object, const ObjectLock& hold,
                      std::optional<WaiterCount>& counted, unsigned timeoutMs, bool verbose) {
    if (object.IsSignaled.load(kRelaxed)) {
        TakeSignal(object);
        return {kWaitSignalled, true, 0, 0};
    }
    counted.emplace(object);
    if (hold.Error() != 0) return {kWaitFailed, false, hold.Error(), -1};
    const int error = timeoutMs == kWaitForever ? WaitWithoutLimit(object)
                                                : WaitWithLimit(object, timeoutMs, verbose);
    return {Conclude(object, error), false, 0, error};
}

void TraceWaitEnd(const Snapshot& event, const WaitEnd& end) {
    const NoCancellation untilReturned;  // the signal is taken: the caller has to hear of it
    if (end.atOnce) {
        // clang-format off
        TRACE(5, "event %p <%s> (IsManual=%d) has been already signaled --> New state: IsSignaled=%d\n",
              event.address, event.name.Text(), event.kind, event.state);
        // clang-format on
    } else {
        TRACE(5, "%s(%d,%d) on event %p <%s> (IsSignaled=%d)\n", ResultText(end.result),
              end.lockError, end.waitError, event.address, event.name.Text(), event.state);
    }
}

void TraceWait(const CEventObject& object, unsigned timeoutMs) {
    if (timeoutMs == kWaitForever) {
        TRACE(5, "\nwaiting forever on event %p", Address(object));
    } else {
        TRACE(5, "\nwaiting %dms on event %p", static_cast<int>(timeoutMs), Address(object));
    }
}

}  // namespace

CEvent::CEvent(bool initialState, bool isManual, const char* name)
    : m_Object{nullptr}, m_Closed{false} {
    const NoCancellation untilTraced;  // unwound here, a handle would keep its reference
    const Creation made = name != nullptr ? FindOrMakeObject(initialState, isManual, name)
                                          : MakeObject(initialState, isManual);
    m_Object = made.object;
    TraceCreation(made, initialState, isManual, name);
}

CEvent::CEvent(const CEvent& other) : m_Object{other.m_Object}, m_Closed{false} {
    const NoCancellation untilTraced;
    if (m_Object != nullptr) AddReference(*m_Object);
}

CEvent& CEvent::operator=(const CEvent& other) {
    if (this == &other) return *this;
    m_Object = other.m_Object;
    m_Closed.store(false, kRelaxed);
    if (m_Object != nullptr) AddReference(*m_Object);
    return *this;
}

CEvent::~CEvent() {
    if (m_Object == nullptr) return;
    const NoCancellation untilDone;
    if (!DropReference(*m_Object)) return;
    while (IsAwaited(*m_Object)) (void)sleep(1);
    DestroyParts(*m_Object);
    TRACE(5, "deleting event %p <%s> (IsSignaled=%d)\n", Address(*m_Object), Name(*m_Object),
          State(*m_Object));
    DeleteObject(m_Object);
}

bool CEvent::Create(bool initialState, bool isManual) {
    CEventObject* const object = Usable();
    if (object == nullptr) return false;
    const ObjectLock hold{*object};
    if (object->m_Waiters.load(kRelaxed) != 0) return false;
    if (State(*object) == initialState && Kind(*object) == isManual) return true;
    // clang-format off
    TRACE(5, "Create event %p <%s>, changing attributes (IsSignaled=%d,IsManual=%d) --> (IsSignaled=%d,IsManual=%d)\n",
          Address(*object), Name(*object), State(*object), Kind(*object), initialState, isManual);
    // clang-format on
    object->IsSignaled.store(initialState, kRelaxed);
    object->IsManual.store(isManual, kRelaxed);
    return true;
}

bool CEvent::Close() {
    CEventObject* const object = Usable();
    if (object == nullptr) return false;
    TRACE(5, "Close event %p <%s> IsSignaled=%d --> IsSignaled=1\n", Address(*object),
          Name(*object), State(*object));
    m_Closed.store(true, kRelaxed);
    {
        const ObjectLock hold{*object};
        object->IsSignaled.store(true, kRelaxed);
    }
    return WakeWaiters(*object);
}

bool CEvent::Set() {
    CEventObject* const object = Usable();
    if (object == nullptr) return false;
    bool woken = false;
    {
        const ObjectLock hold{*object};
        TRACE(5, "Set event %p <%s> IsSignaled=%d --> IsSignaled=1\n", Address(*object),
              Name(*object), State(*object));
        object->IsSignaled.store(true, kRelaxed);
        woken = WakeWaiters(*object);
    }
    (void)sched_yield();  // a waiter gets to run at once
    return woken;
}

bool CEvent::Pulse() {
    CEventObject* const object = Usable();
    if (object == nullptr) return false;
    bool woken = false;
    {
        const ObjectLock hold{*object};
        TRACE(5, "Pulse event %p <%s> IsSignaled=%d --> IsSignaled=0\n", Address(*object),
              Name(*object), State(*object));
        object->IsSignaled.store(false, kRelaxed);
        woken = WakeWaiters(*object);
    }
    (void)sched_yield();
    return woken;
}

bool CEvent::Reset() {
    CEventObject* const object = Usable();
    if (object == nullptr) return false;
    const ObjectLock hold{*object};
    TRACE(5, "Reset event %p <%s>: IsSignaled=%d --> IsSignaled=0\n", Address(*object),
          Name(*object), State(*object));
    object->IsSignaled.store(false, kRelaxed);
    return true;
}

bool CEvent::Check() const {
    CEventObject* const object = Usable();
    if (object == nullptr) return false;
    const int state = State(*object);
    TRACE(5, "Check event %p <%s> (IsSignaled=%d)\n", Address(*object), Name(*object), state);
    return state != 0;
}

int CEvent::Wait(unsigned timeoutMs, bool verbose) {
    CEventObject* const object = Usable();
    if (object == nullptr) return kWaitFailed;
    if (verbose) TraceWait(*object, timeoutMs);
    WaitEnd end;
    std::optional<Snapshot> shown;
    {
        const ObjectLock hold{*object};
        std::optional<WaiterCount> counted;  // keeps the object without the lock too
        end = WaitForSignal(*object, hold, counted, timeoutMs, verbose);
        if (verbose && Debug.IsEnabled()) shown.emplace(*object);
    }
    if (shown) TraceWaitEnd(*shown, end);
    return end.result;
}

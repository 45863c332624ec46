#pragma once

#include <atomic>

#include "platform/name_table.h"
#include "platform/wait_result.h"
#include "trace/api.h"
#include "trace/recursive_lock.h"

/// What the handles of one event share (event.cpp).
struct CEventObject;

/// Handle to an event: a flag that threads wait for. A manual event stays signalled until `Reset`;
/// an automatic one is cleared by the wait that it ends. Copies share the event, and so do handles
/// constructed with the same name; it lives as long as one of them.
///
///     CEvent stop{false, true, nullptr};            // not signalled, manual, nameless
///     while (stop.Wait(1000, false) == kWaitTimedOut) Work();   // the worker, every second
///     stop.Set();                                               // another thread
///
/// The limit of a wait runs on the monotonic clock: a change of the wall clock does not touch it.
///
/// A handle whose event could not be made (no memory, no more locks) is null: except for `IsOpen`
/// and `IsAvailable`, all operations on a null or closed handle do nothing and return false, or
/// `kWaitFailed`. If the mutex of an event cannot be locked, an operation goes on without it.
///
/// Every operation writes a trace line at level 5, where nothing else is said.
///
/// Thread-safety: any thread may call any operation of one handle, while no thread assigns to it or
/// destroys it. Threads that already wait for the signal are the exception: the destructor waits for
/// them. No operation may be called while the caller holds the trace's lock (`CDebug::Lock`): lines
/// are written with the event's mutex held, so the trace's lock comes last.
class ZORN_API CEvent {
  public:
    /// Opens the event called `name` if there is one: its state and kind stay as they are, with a
    /// warning at level 1 if `isManual` is another kind. Otherwise, or if `name` is null, makes
    /// one. A failure gives a null handle, with a line at level 3 if a system call failed.
    CEvent(bool initialState, bool isManual, const char* name);

    /// Shares the event of `other`; the new handle is open also if `other` is closed.
    CEvent(const CEvent& other);

    /// The same, and nothing if `other` is this handle. The event held before is not released: it
    /// stays for the life of the process.
    CEvent& operator=(const CEvent& other);

    /// The last handle of an event first waits until no thread is inside `Wait` any more, and looks
    /// once a second: wake them before (`Close`).
    ~CEvent();

    /// Gives an unused event another state and kind. False, and nothing changed, if a thread waits.
    bool Create(bool initialState, bool isManual);

    /// Signals the event, lets all (manual) or one (automatic) of those who wait go, and bars this
    /// handle; other handles go on. True if those who wait could be woken.
    ///
    /// A thread that it lets go must not destroy this handle before `Close` has returned: the wake
    /// is its last step, made when the mutex is free again.
    bool Close();

    /// Signals the event and lets all (manual) or one (automatic) of those who wait go. True if
    /// they could be woken.
    bool Set();

    /// Lets all (manual) or one (automatic) of those who wait at this moment go, and leaves the
    /// event not signalled. True if they could be woken.
    bool Pulse();

    /// Makes the event not signalled. True.
    bool Reset();

    /// Whether the event is signalled, without a lock; an automatic event stays so.
    [[nodiscard]] bool Check() const;

    /// Waits until the event is signalled or pulsed: `kWaitSignalled`; `kWaitTimedOut` if that does
    /// not happen within `timeoutMs` milliseconds (`kWaitForever`: no limit); `kWaitFailed` if the
    /// wait fails. With a limit of 0 it only looks and takes: nobody waits, so no `Pulse` meets it.
    /// A spurious wake-up of the condition counts as a signal. Lines are written if `verbose` only.
    ///
    /// A cancellation point, unless the event is signalled: a thread cancelled here no longer
    /// counts as one that waits, and leaves the event free.
    [[nodiscard]] int Wait(unsigned timeoutMs, bool verbose);

    /// False from `Close` on; a null handle counts as open.
    [[nodiscard]] bool IsOpen() const { return !m_Closed.load(std::memory_order_relaxed); }

    /// Always 1.
    [[nodiscard]] int IsAvailable() const { return 1; }

  private:
    CEventObject* m_Object;      ///< the shared object, or null
    std::atomic<bool> m_Closed;  ///< this handle has been closed; read by waiters without a lock

    [[nodiscard]] CEventObject* Usable() const { return IsOpen() ? m_Object : nullptr; }
};

/// Signalled: the service is to stop. Made before the lock and the table below and destroyed after
/// them, which is well since a nameless event does not need them and a lock that does not live does
/// nothing.
extern ZORN_API CEvent g_ExitEvent;

/// Guards the counts of handles and the creation and removal of events. Taken before the lock of
/// `g_EventTable`, and never while the mutex of an event is held.
extern ZORN_API CRecursiveLock g_EventLock;

/// The named events: the value is the `CEventObject*`.
extern ZORN_API CNameTable g_EventTable;

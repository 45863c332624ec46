#pragma once

#include "platform/event.h"
#include "platform/wait_result.h"
#include "trace/no_cancellation.h"

/// Takes an automatic event as a lock with a limit, for a scope: a wait takes it, a Set gives it
/// back.
///
///     const EventGuard access{m_AccessEvent, 90000, true};
///     if (!access) return {};  // access.Result() tells why
///
/// REQUIRES: the event resets itself and was made signalled; it outlives the guard. Thread-safety:
/// a guard belongs to the thread that made it.
class EventGuard {
  public:
    /// Waits up to `timeoutMs` milliseconds (`kWaitForever`: without limit); `verbose` as for
    /// `CEvent::Wait`.
    EventGuard(CEvent& event, unsigned timeoutMs, bool verbose)
        : m_Event(event), m_Result(event.Wait(timeoutMs, verbose)) {}
    /// Gives the event back if it was had.
    ~EventGuard() {
        if (m_Result != kWaitSignalled) return;
        const NoCancellation untilGivenBack;
        (void)m_Event.Set();
    }
    EventGuard(const EventGuard&) = delete;
    EventGuard& operator=(const EventGuard&) = delete;

    [[nodiscard]] explicit operator bool() const { return m_Result == kWaitSignalled; }
    /// `kWaitSignalled`, `kWaitTimedOut` or `kWaitFailed`.
    [[nodiscard]] int Result() const { return m_Result; }

  private:
    CEvent& m_Event;
    int m_Result;
};

#pragma once

#include <cstdint>

// The Switch is the module host of the service: a shared library that finds, loads and runs the
// extension modules. Authors of one include this header. They build `libswitch.so`, which the
// dynamic linker finds in the executable's run path /opt/Corvanthimex/lib64 (not inherited: a
// library that it loads in turn is found by its own), and export from it with C linkage
//
//     void SW_AddRef();                                     // fetched, never called; may be missing
//     void SW_Release();                                    // may be missing
//     bool SW_QueryInterface(void* reserved, ISwitch** out);  // must be there
//
// `SW_QueryInterface` gets null as its first argument, stores the interface through the second and
// returns a byte that is not zero on success. The service then calls, all on its main thread:
//
//     LoadModules, StartModules     at the start; the latter only if the former returned true
//     NotifyService                 when a stop signal has come
//     StopModules, UnloadModules    at the stop, also if no module was loaded or started
//     SW_Release                    once, right before the library is closed
//
// The library finds the trace as the executable's exported object `Debug` (trace/debug.h). It asks
// for the end of the service by sending SIGTERM. Setting `g_ExitEvent` (platform/event.h) does the
// same but is heard at the next signal only. SIGINT, SIGTERM, SIGHUP and SIGALRM are blocked before
// the library is loaded, so its threads are born with them blocked, and have to keep it so: they
// are the main thread's. SIGPIPE and SIGIO are ignored.
//
// Exceptions: what leaves `LoadModules` or `UnloadModules` is caught and counts as their failure.
// What leaves another operation ends the process (SIGABRT), with the library closed on the way.

/// What `ISwitch::LoadModules` is told. Valid as long as the service runs.
struct SwitchLoadParams {
    uint32_t dwForceRescan;  ///< always 0
    uint32_t dwRunMode;      ///< always 5: agentless mode
};

/// The interface of a module host. The service calls its operations by their slots in the table of
/// virtual operations, hence the fixed order, the reserved ones and no virtual destructor. A
/// reserved operation is never called; it must only be there.
class ISwitch {
  public:
    virtual void Reserved0() = 0;

    /// Slot 1. The service gives the interface up. Called only where an exception ends the service:
    /// a stop in the normal way has `SW_Release` instead.
    virtual void Release() = 0;

    /// Slot 2. Loads the modules. True on success; false keeps the service up without started
    /// modules.
    virtual bool LoadModules(SwitchLoadParams* params) = 0;

    /// Slot 3. Unloads all modules; `flags` is 0. The result is not looked at.
    virtual bool UnloadModules(uint32_t flags) = 0;

    /// Slot 4. Starts the loaded modules. The service is ready for signals only when this has
    /// returned.
    virtual void StartModules() = 0;

    /// Slot 5. Stops the modules.
    virtual void StopModules() = 0;

    virtual void Reserved6() = 0;
    virtual void Reserved7() = 0;
    virtual void Reserved8() = 0;
    virtual void Reserved9() = 0;
    virtual void Reserved10() = 0;
    virtual void Reserved11() = 0;
    virtual void Reserved12() = 0;
    virtual void Reserved13() = 0;
    virtual void Reserved14() = 0;
    virtual void Reserved15() = 0;

    /// Slot 16. Something happened to the service: `code` is `kNotifyStop` and the two words, as
    /// wide as a pointer, are 0.
    virtual void NotifyService(uint32_t code, uintptr_t first, uintptr_t second) = 0;

  protected:
    ~ISwitch() = default;  // the library deletes what it made
};

/// The code of `ISwitch::NotifyService` for "a signal stops the service".
inline constexpr uint32_t kNotifyStop = 0x20000;

/// The module host as the service holds it. All null: not loaded.
///
///     SwitchBinding binding{};
///     if (!LoadSwitch(binding)) { CloseSwitch(binding); return false; }
///     if (LoadModules(binding, &params)) binding.pInterface->StartModules();
///     ...
///     (void)UnloadModules(binding, 0);
///     CloseSwitch(binding);
///
/// Thread-safety: of the main thread only, as are the operations below. They hold no lock while
/// they are inside the library.
struct SwitchBinding {
    void (*pfnAddRef)();   ///< export `SW_AddRef`, or null; never called
    void (*pfnRelease)();  ///< export `SW_Release`, or null
    /// Export `SW_QueryInterface`, or null. The result is a byte of which any bit counts.
    uint8_t (*pfnQueryInterface)(void* reserved, ISwitch** out);
    void* hLibrary;        ///< handle of the loaded library, or null
    ISwitch* pInterface;   ///< owned by the library; or null
    uint32_t dwLastError;  ///< `errno` as it stood after a failed load
};

/// Loads libswitch.so unless that is done, fetches its exports and asks for its interface.
/// True if there is an interface. Otherwise
///  - the library could not be loaded: one line at level 1, `dwLastError` set; an interface that was
///    there stays, and the result is true then;
///  - it lacks `SW_QueryInterface`, or that gave no interface: no line; the library stays loaded.
[[nodiscard]] bool LoadSwitch(SwitchBinding& binding);

/// Calls `ISwitch::LoadModules`: its result; false, with lines at level 1, if there is no interface
/// or an exception left the call. REQUIRES: `params` is not null.
[[nodiscard]] bool LoadModules(SwitchBinding& binding, SwitchLoadParams* params);

/// Calls `ISwitch::UnloadModules`: its result; false, with lines at level 1, if there is no
/// interface or an exception left the call.
bool UnloadModules(SwitchBinding& binding, unsigned flags);

/// Gives the interface up (`ISwitch::Release`) if the pointer is still set, closes the library if
/// it is loaded, and makes the binding all null but for `dwLastError`.
void CloseSwitch(SwitchBinding& binding);

/// The same while an exception unwinds the caller. The library is closed but its code stays in
/// memory: the type of the exception may live in it, and the runtime is yet to print its name.
void CloseSwitchUnwinding(SwitchBinding& binding);

#pragma once

#include <cstdint>

#include "trace/api.h"

// What an extension module is to the reference module host: a shared library `NAME.so` in the
// module folder that exports one function, `ZornModuleEntry`. docs/modules.md shows a whole module
// and how to build it.

/// The version of this contract. It grows with every change of `ZornModule`; the host refuses a
/// module that was built for another one.
inline constexpr uint32_t kZornModuleVersion = 1;

/// What a module hands to the host. The host calls everything on one thread, the daemon's main
/// thread, on which SIGINT, SIGTERM, SIGHUP and SIGALRM are blocked; threads that a module starts
/// inherit that, and must leave it so. An exception that leaves one of these calls is traced with
/// the module's name, and the other modules go on.
struct ZornModule {
    uint32_t version;  ///< `kZornModuleVersion`

    /// The module's name in the trace, not empty.
    const char* name;

    /// Begins the module's work and returns soon: long work belongs on a thread of the module.
    /// False (or an exception) if it cannot work here: then `Stop` is not called.
    bool (*Start)();

    /// Ends the work. When it returns, no thread of the module runs and nothing outside knows of
    /// the module any more: the library is unmapped next. Called once, and only after a `Start`
    /// that returned true.
    void (*Stop)();

    /// Hears what the daemon tells all modules; may be null. `code` 0x20000 with two zero words:
    /// the daemon has been told to stop, and `Stop` follows. Called between `Start` and `Stop`
    /// only.
    void (*Notify)(uint32_t code, uintptr_t first, uintptr_t second);
};

/// Gives the module's table, which stays valid until the library is unmapped. The first call into
/// the module; may throw, with the reason as the exception's text, to keep the module from being
/// loaded. Objects of static storage must not throw from their constructors: nobody could tell the
/// module's name then.
extern "C" ZORN_API const ZornModule* ZornModuleEntry();

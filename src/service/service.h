#pragma once

#include <cstddef>
#include <cstdint>

#include <array>

#include "service/switch_binding.h"

// The service itself: everything between the start of the process and its end. It has no work of
// its own. It sets the process up, loads the module host (switch_binding.h), lets that load and
// start its modules, and waits for signals until it is told to stop:
//
//     SIGINT, SIGTERM   stop
//     SIGHUP            switches the trace off, or on again; reloads nothing
//     SIGALRM           one line in the log
//
// It runs where it is started, in the foreground: it does not fork, leaves the standard streams as
// they are and writes no pid file.

/// Runs the service from start to stop. The command line goes into the trace and has no other
/// effect; it must live as long as the process.
///
/// The exit code of the process: 0 after a stop, 1 if the caller is not root (one line on the
/// standard error, nothing else happens) or if the module host could not be loaded. An exception
/// that leaves the module host is thrown on, after the library was closed on the way. Aborts on a
/// signal that it does not know. REQUIRES: called once, by the main thread, while no other runs:
/// threads of the module host inherit the blocked signals.
[[nodiscard]] int RunService(int argc, char** argv);

// Parts of RunService that a way through it does not reach.

/// Room for the text of `asctime_r`.
using StartTime = std::array<char, 44>;

/// Now as "Wed Jun 30 21:49:08 1993\n" in local time; a year that this form has no room for gives
/// "mmm dd hh:mm:ss yyyy\n".
[[nodiscard]] StartTime TakeStartTime();

/// Asks the smbus driver for its data (smbus_driver.h) in run mode 0 and does nothing in any other.
void ProbeSmbusDriver(uint32_t runMode);

/// Waits for signals and acts on each, until after one of them `g_ExitEvent` is found signalled. A
/// stop signal is told to `host`, which may be null. A wait that fails counts as SIGTERM.
/// REQUIRES: SIGINT, SIGTERM, SIGHUP and SIGALRM are blocked in all threads.
void WaitForExit(ISwitch* host);

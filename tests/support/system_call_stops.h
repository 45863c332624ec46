#pragma once

#include <functional>

// Processes that are killed at a system call: what they leave behind is what a crash at that moment
// would.

/// Runs `prepare` and `body` in a child process that is killed, by SIGKILL, at stop number `stop` of
/// `body`: 0 before its first system call, 1 behind that, 2 before the second, and so on.
///
///     for (int stop = 0; KilledAtStop(stop, [] { Open(); }, [] { Save(); }); ++stop) Check();
///
/// True if it was killed there; false if it came to the end of `body` before. A child that ends in
/// another way is a failure of the test. It exits without the program's end, so nothing of it is
/// flushed or destroyed behind `body`.
///
/// REQUIRES: the calling process may trace (ptrace(2)) and has one thread.
[[nodiscard]] bool KilledAtStop(int stop, const std::function<void()>& prepare,
                                const std::function<void()>& body);

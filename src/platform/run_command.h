#pragma once

#include <sys/types.h>

#include <string>

#include "trace/api.h"

// Commands as processes of their own. Thread-safety: any thread, but a command with a working
// directory changes that of the whole process for the time of the call, so one at a time.

/// Starts `command` and waits for its end unless `noWait`.
///
///     int status = 0;
///     if (!RunCommandAndWait("gzip -f /var/log/x", nullptr, 0, false)) Complain();
///
/// `command` is split at white space into program and arguments; there is no quoting and no shell.
/// A program without a slash is found by PATH. Its standard streams are ours. Without `keepFds`
/// it gets no other descriptor below the limit of open files (RLIMIT_NOFILE, or 1,024 where that is
/// below 256); with it, those that are not close-on-exec. SIGINT, SIGTERM, SIGHUP and SIGALRM are
/// unblocked in it. `workDir` is where it runs, null: here. `ignored` is ignored.
///
/// `*pid` is its process number, -1 if it could not be started. With `noWait` true as soon as it is
/// started: the caller has to `WaitForProcess` later. Otherwise `*exitCode` is its exit status, 255
/// if there is no such program, -1 if a signal ended it or its end could not be told, and the
/// result whether that is 0. False also if we could not get back from `workDir`; and, with nothing
/// started and both words as they were, if we could not get there.
///
/// A cancellation of the calling thread waits until the call is done.
ZORN_API bool RunCommand(const std::string& command, pid_t* pid, int* exitCode, const char* workDir,
                         unsigned ignored, bool noWait, bool keepFds);

/// Runs `command` to its end.
ZORN_API bool RunCommandAndWait(const std::string& command, const char* workDir, unsigned ignored,
                                bool keepFds);
ZORN_API bool RunCommandAndWait(const std::string& command, pid_t* pid, int* exitCode,
                                const char* workDir, unsigned ignored, bool keepFds);

/// Starts `command` and does not wait. Without the process number its end can only be awaited by a
/// `waitpid` for any child.
ZORN_API bool RunCommandNoWait(const std::string& command, const char* workDir, unsigned ignored,
                               bool keepFds);
ZORN_API bool RunCommandNoWait(const std::string& command, pid_t* pid, const char* workDir,
                               unsigned ignored, bool keepFds);

/// Waits for the end of child `pid`. `*exitCode` is its exit status, or -1 if a signal ended it or
/// it is no child of ours; true if that is 0. A cancellation point.
ZORN_API bool WaitForProcess(pid_t pid, int* exitCode);

/// Ends a process by SIGKILL: whether that could be sent. As with kill(2), 0 and negative numbers
/// mean groups of processes, and -1 every process of the machine.
ZORN_API bool KillProcess(pid_t pid);

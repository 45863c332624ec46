#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "trace/api.h"
#include "trace/proc_status.h"

// What /proc tells of a process (proc(5)), by its number. `GetProcStatusField`, the value of any key
// of its `status`, is in trace/proc_status.h.
//
// A process may end between two calls, and its number be given to another: what is told then is of
// no one, or of that one. Thread-safety: any thread; no state.

/// The first line of /proc/PID/`file`, without its newline, into `out`; empty if the file is, or
/// cannot be read. False, with `out` kept, if it cannot be opened.
ZORN_API bool ReadProcFileLine(pid_t pid, const char* file, std::string& out);

/// The kernel's short name of a process (its first 15 bytes) into `out`. False, with `out` kept, if
/// there is no such process.
ZORN_API bool GetProcessName(std::string& out, pid_t pid);

/// The path of a process's executable, at most 4,096 bytes of it, into `out`; the kernel adds
/// " (deleted)" to one that is gone. False, with `out` kept, if there is no such process, it has no
/// executable (a thread of the kernel), or it may not be asked.
ZORN_API bool GetProcessPath(std::string& out, pid_t pid);

/// Both; each is set if it can be told. True if both are.
ZORN_API bool GetProcessNameAndPath(pid_t pid, std::string& name, std::string& path);

/// Finds a process by its short name, compared as it stands: a `name` above 15 characters matches
/// none. Of several the one that /proc tells first. False, with -1 in `*pid`, if there is none or
/// /proc cannot be opened.
ZORN_API bool FindProcessByName(pid_t* pid, const std::string& name);

/// The value of `key` in the process's `status` in bytes: `GetProcStatusField` with scale 0.
ZORN_API bool ReadProcStatusField(pid_t pid, uint64_t* value, const char* key);

/// Memory of a process in bytes: `*size` of its address space, the largest that that was (`*peak`),
/// what of it is swapped out (`*swap`), and `*data`, which is the size less that of the libraries.
/// `*reserved` is 0. What cannot be told is 0. True if size and peak are told.
ZORN_API bool GetProcessMemory(pid_t pid, uint64_t* size, uint64_t* peak, uint64_t* swap,
                               uint64_t* reserved, uint64_t* data);

/// Sets `*flag` to 1 and gives 0, whatever the process: all of them are of the machine's own word
/// size.
ZORN_API int QueryProcessFlag(uintptr_t ignored, int* flag);

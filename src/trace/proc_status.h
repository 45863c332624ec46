#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string_view>

#include "trace/api.h"

/// Finds `key` (with its colon, as "VmRSS:") as the first word of a line of /proc/PID/status
/// (proc_pid_status(5)) and gives the number behind it, multiplied by the factor of the unit that
/// follows it: "kB" 2^10, "MB" 2^20, "GB" 2^30, anything else 1. Empty result if no line has the
/// key or the line has no number. Thread-safety: any thread; no state.
[[nodiscard]] ZORN_API std::optional<uint64_t> ParseProcStatusField(std::string_view text,
                                                                    std::string_view key);

/// Reads that field of process `pid` into `*value`, then shifts `*value` right by ten bits `scale`
/// times: a size is in bytes with `scale` 0, in KiB with 1, in MiB with 2.
/// False if the file cannot be read or has no such number: then the shift alone is applied, so set
/// `*value` to what an unknown figure is to read before the call.
/// Thread-safety: any thread; no state.
ZORN_API bool GetProcStatusField(pid_t pid, uint64_t* value, const char* key, unsigned scale);

#pragma once

#include <string>

#include "trace/api.h"

// The working directory, which is one for all threads of the process.
// Thread-safety: any thread; a change of directory concerns all of them.

/// The working directory; empty if it cannot be told (it has been removed, or its path takes more
/// than 4,095 bytes).
[[nodiscard]] ZORN_API std::string GetCurrentDirectory();

/// The same into `out`; false, with `out` kept, if the path is empty.
ZORN_API bool GetCurrentDirectory(std::string& out);

/// Changes the working directory; false for an empty path or if that fails (`errno` tells why).
ZORN_API bool SetCurrentDirectory(const std::string& path);

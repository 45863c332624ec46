#pragma once

#include <optional>
#include <string>

/// The whole text of a file that the kernel makes as it is read (its size is not known before).
/// Empty result if it cannot be opened or read; `errno` tells why.
/// Thread-safety: any thread; no state.
[[nodiscard]] std::optional<std::string> ReadFileText(const char* path);

#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "trace/api.h"

/// Binary files. Thread-safety: any thread; no state.
class ZORN_API CDataStream {
  public:
    CDataStream() = delete;

    /// Puts the whole content of a file into `bytes`; also of one that tells its size only as it is
    /// read (/proc, /sys). The name is traced at level 5, the size at level 3. False, with a line
    /// at level 1 and `bytes` empty, if it cannot be opened or read to its end; an empty `path` has
    /// one line more, at level 5.
    [[nodiscard]] static bool ReadFromFile(const std::string& path, std::vector<std::byte>& bytes);
};

#pragma once

#include <string>
#include <vector>

#include "trace/api.h"

/// Directories. Thread-safety: any thread; no state.
class ZORN_API CDirectory {
  public:
    CDirectory() = delete;

    /// Appends the names in a directory, less "." and "..", to `names`, in the order of the file
    /// system; with `fullPaths` the canonical path of the directory, "/" and the name.
    ///
    /// True if `names` then has an element. False, with a line at level 1 and `names` untouched, if
    /// the directory cannot be opened or, with `fullPaths`, its canonical path cannot be had. False
    /// without a line if it is empty.
    [[nodiscard]] static bool GetDirectoryContent(std::vector<std::string>& names,
                                                  const std::string& path, bool fullPaths);
};

#pragma once

#include <string>

#include "trace/api.h"

/// Files as entries of the file system. Thread-safety: any thread; no state.
class ZORN_API CFile {
  public:
    CFile() = delete;

    /// Puts the target of a symbolic link into `target`, as it stands in the link, cut to 1023
    /// bytes. False, with a line at level 2 and `target` untouched, if `path` is no link or cannot
    /// be read.
    [[nodiscard]] static bool GetSymbolicLink(std::string& target, const std::string& path);
};

#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "trace/api.h"

/// Text files by lines. Thread-safety: any thread; no state.
class ZORN_API CStdioFile {
  public:
    CStdioFile() = delete;

    /// Appends the lines of a file to `lines`, without their line feeds; the last one counts without
    /// a line feed too. False, with a line at level 1, if the file cannot be opened. A file that
    /// cannot be read to its end gives the lines that are complete up to there, and true.
    [[nodiscard]] static bool ReadFile(std::vector<std::string>& lines, const std::string& path);

    /// Puts line `index`, counted from 0, into `line`. False, with a line at level 1 and `line`
    /// untouched, if the file cannot be opened (`ReadFile` traces that first) or has no such line.
    [[nodiscard]] static bool GetLineFromFile(std::string& line, const std::string& path,
                                              size_t index);
};

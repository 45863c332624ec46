#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

// What the reader of registry files passes over, and so the next save takes away.
// Thread-safety of all here: any thread; no state.

namespace zornctl {

/// The most characters that a line of a registry file may have; the reader takes the rest of a longer
/// one for lines of their own.
inline constexpr size_t kLongestRegistryLine = 1022;

/// A line of which something does not get into the tree, or with which the file breaks off.
struct LostLine {
    size_t number;       ///< from 1
    std::string reason;  ///< "holds no number"
    /// It begins like a key and is none: what was to be in that key gets into the one above.
    bool isKey = false;
};

/// Finds such lines in the text of a registry file, in the order of their numbers: lines that are too
/// long, that are no key and no value, that a later one of the same key and name overrides, or that
/// stand behind the end of the tree; and the last line if it has no newline or does not end the tree.
/// One reason a line. Pure.
[[nodiscard]] std::vector<LostLine> FindLostLines(std::string_view text);

/// The text with a dash in the place of each line that is too long, holds a NUL or has no newline.
[[nodiscard]] std::string WithoutBrokenLines(std::string_view text);

/// "line 3 holds no number, line 7 ...", the first few of them.
[[nodiscard]] std::string FormatLostLines(const std::vector<LostLine>& lines);

}  // namespace zornctl

#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zornctl {

/// How a cell is to stand out where there are colours.
enum class Emphasis { kNone, kGood, kWarning, kBad, kFaint };

struct Cell {
    Cell(std::string cellText, Emphasis cellEmphasis = Emphasis::kNone)
        : text(std::move(cellText)), emphasis(cellEmphasis) {}
    Cell(const char* cellText) : text(cellText) {}
    Cell(std::string_view cellText) : text(cellText) {}

    std::string text;  ///< any bytes: escaped when the table is written
    Emphasis emphasis = Emphasis::kNone;
};

/// Where a text goes: what it may use there.
struct TextStyle {
    size_t width = 0;  ///< columns; 0: no limit
    bool hasColour = false;
};

/// Rows of cells as a table for people: columns two blanks apart, as wide as their widest cell; the
/// last column is broken at blanks where the width ends. Where less than 20 columns are left for it,
/// each cell has a line of its own instead, and those behind the first one of a row are indented.
/// REQUIRES: every row has as many cells as `titles`.
/// Thread-safety of all here: any thread; no state.
[[nodiscard]] std::string FormatTable(const std::vector<std::string>& titles,
                                      const std::vector<std::vector<Cell>>& rows,
                                      const TextStyle& style);

/// The text in the colours of the emphasis, or as it is where there are none.
[[nodiscard]] std::string Emphasize(std::string_view text, Emphasis emphasis,
                                    const TextStyle& style);

/// `text` broken at blanks into lines of at most `width` columns (0: one line); a word that is
/// longer stands alone in its line. At least one line. REQUIRES: `text` is UTF-8.
[[nodiscard]] std::vector<std::string> BreakLines(std::string_view text, size_t width);

}  // namespace zornctl

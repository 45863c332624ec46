#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace zornctl {

/// What stands in front of the text of a line of the trace:
///
///     2026-11-20 19:35:59.060 [0000004907]     9400 KB !zorn          text
///     2026-11-20 19:35:59.060 [0000004907] zorn          text
///
/// The views point into the line.
struct TracePrefix {
    std::string_view stamp;  ///< 23 characters, the local time of the machine that wrote the line
    bool hasTime = false;    ///< false: the writer's clock could not be read, `stamp` is letters
    uint64_t pid = 0;
    std::optional<uint64_t> memoryKiB;  ///< resident memory, where the line tells it
    std::string_view name;              ///< name column without its padding
    size_t length = 0;                  ///< bytes of the prefix: where the text begins
};

/// Reads the prefix of a line. Empty if it has none: then the line belongs to the text of the one
/// before, or is the rest of a line whose beginning was overwritten. A line that ends inside its
/// name column is a prefix without text.
/// Thread-safety of all here: any thread; no state.
[[nodiscard]] std::optional<TracePrefix> ParseTracePrefix(std::string_view line);

/// The stamp of a line with a prefix, as in `TracePrefix`; empty if the line has none. Cheaper than
/// reading the whole prefix.
[[nodiscard]] std::string_view StampOf(std::string_view line);

/// The milliseconds since 1970 that a stamp of digits tells, as if it were UTC: good for
/// differences. Empty if it tells no time.
[[nodiscard]] std::optional<int64_t> StampMilliseconds(std::string_view stamp);

/// Whether the line begins somewhere inside a prefix, in front of the name column: it is the rest
/// of a line that was overwritten up to there.
[[nodiscard]] bool IsRestOfPrefix(std::string_view line);

/// Whether a prefix of digits may begin with `text`, or the other way round.
[[nodiscard]] bool IsBeginningOfPrefix(std::string_view text);

/// Takes the next line off the front of `text`: up to and with its newline, or all if there is
/// none. REQUIRES: `text` is not empty.
[[nodiscard]] std::string_view TakeLine(std::string_view& text);

/// The line without its newline and without the NULs in front of it, which are what a file has
/// where it was emptied while a writer went on.
[[nodiscard]] std::string_view BareLine(std::string_view line);

}  // namespace zornctl

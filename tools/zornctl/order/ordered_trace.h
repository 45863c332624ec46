#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "zornctl/order/trace_prefix.h"

// What restoring the order of a log or ring file gives: pieces of the file's text, in the order of
// writing, and the entries that these consist of. All views point into the text of the file.

namespace zornctl {

/// What a piece of a log or ring file is.
enum class TracePart {
    kHead,    ///< of a log: what was written up to the end of initialization, never overwritten
    kHeader,  ///< of a ring: settings and state, written anew at every wrap
    kBegin,   ///< of a ring: the line in front of the ring proper
    kOlder,   ///< what is left of the passes before the newest one
    kNewest,  ///< the newest pass, or all of a log that has not wrapped yet
};

struct TracePiece {
    TracePart part;
    std::string_view text;  ///< lines with their newlines
    bool isCut = false;     ///< it begins with the rest of a line that was overwritten

    bool operator==(const TracePiece&) const = default;
};

/// One line of the trace, with the further lines of its text if it has some.
struct TraceEntry {
    TracePart part;
    std::string_view text;              ///< prefix and text, without the last newline
    std::optional<TracePrefix> prefix;  ///< empty: the line has none, or it was overwritten
    bool isCut = false;                 ///< the line's beginning was overwritten
};

/// The entries of pieces, in order: a line without prefix belongs to the one before it. Empty lines
/// at a cut and lines of nothing but NULs are left out.
/// Thread-safety: any thread; no state.
[[nodiscard]] std::vector<TraceEntry> SplitEntries(const std::vector<TracePiece>& pieces);

}  // namespace zornctl

#pragma once

#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

#include "zornctl/order/ordered_trace.h"

namespace zornctl {

/// A ring file in the order of writing.
struct RingOrder {
    /// Header, begin line, what is left of the former pass, newest pass; only those that are not
    /// empty. The header comes in two pieces where its rewriting was interrupted: new lines, then
    /// those of the former header.
    std::vector<TracePiece> pieces;
    /// Where the end mark behind the newest whole line stands. Empty: there is none, because the
    /// file was read while it was written, or lost a part with the machine; the order then comes
    /// from the time stamps, and the newest line may be mixed with an older one.
    std::optional<size_t> mark;
};

/// Restores the order of the text of a ring file. Marks, blocks as they were made and the dots at
/// the end are in no piece. Empty if `text` has no begin line: it is no ring, or one that is just
/// being made.
/// Thread-safety: any thread; no state.
[[nodiscard]] std::optional<RingOrder> OrderRing(std::string_view text);

/// What stands behind the newest line of a ring.
inline constexpr std::string_view kEndMark = "## TRACE-END ##\n";

}  // namespace zornctl

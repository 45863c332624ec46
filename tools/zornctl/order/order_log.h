#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "zornctl/order/ordered_trace.h"

namespace zornctl {

/// A log file in the order of writing.
struct LogOrder {
    /// Head, what is left of older passes, newest pass; only those that are not empty.
    std::vector<TracePiece> pieces;
    /// Number of the newest pass; empty if the log has not wrapped yet.
    std::optional<uint32_t> cycle;
};

/// Restores the order of the text of a log file. Every byte of `text` is in exactly one piece.
/// Whatever the text is, there is a result: one without a WRAP line is in order as it stands.
/// Thread-safety: any thread; no state.
[[nodiscard]] LogOrder OrderLog(std::string_view text);

}  // namespace zornctl

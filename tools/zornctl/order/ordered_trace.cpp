#include "zornctl/order/ordered_trace.h"

namespace zornctl {

namespace {

/// Joins two texts of which the second one stands behind the first in the same file.
std::string_view Join(std::string_view front, std::string_view back) {
    return {front.data(), static_cast<size_t>(back.data() - front.data()) + back.size()};
}

void SplitPiece(const TracePiece& piece, std::vector<TraceEntry>& entries) {
    const size_t before = entries.size();
    for (auto rest = piece.text; !rest.empty();) {
        const auto raw = TakeLine(rest);
        const auto line = BareLine(raw);
        const bool isFirst = entries.size() == before;
        if (line.empty() && (isFirst || raw.starts_with('\0'))) continue;
        const auto prefix = ParseTracePrefix(line);
        if (prefix || isFirst) {
            entries.push_back({piece.part, line, prefix, piece.isCut && !prefix});
        } else {
            entries.back().text = Join(entries.back().text, line);
        }
    }
}

}  // namespace

std::vector<TraceEntry> SplitEntries(const std::vector<TracePiece>& pieces) {
    std::vector<TraceEntry> entries;
    for (const TracePiece& piece : pieces) SplitPiece(piece, entries);
    return entries;
}

}  // namespace zornctl

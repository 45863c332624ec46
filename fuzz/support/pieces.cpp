#include "support/pieces.h"

#include <algorithm>

#include "support/fuzz.h"

using namespace zornctl;

namespace {

void CheckApart(std::string_view file, const std::vector<TracePiece>& pieces) {
    for (const auto& piece : AsInFile(pieces)) {
        HOLDS(!piece.text.empty() && IsPartOf(file, piece.text));
        file.remove_prefix(piece.text.end() - file.begin());
    }
}

bool IsLeftOut(std::string_view text) {
    return text.find_first_not_of(std::string_view{"\n\0", 2}) == text.npos;
}

}  // namespace

std::vector<TracePiece> AsInFile(std::vector<TracePiece> pieces) {
    std::ranges::sort(pieces, {}, [](const TracePiece& piece) { return piece.text.data(); });
    return pieces;
}

void CheckPieces(std::string_view file, const std::vector<TracePiece>& pieces) {
    CheckApart(file, pieces);
    HOLDS(std::ranges::is_sorted(pieces, {}, &TracePiece::part));
    const auto entries = SplitEntries(pieces);
    auto entry = entries.begin();
    for (const auto& piece : pieces) {
        auto rest = piece.text;
        for (; entry != entries.end() && IsPartOf(rest, entry->text); ++entry) {
            const bool isFirst = rest.size() == piece.text.size();
            const auto skipped = static_cast<size_t>(entry->text.data() - rest.data());
            HOLDS(!entry->text.empty() && IsLeftOut(rest.substr(0, skipped)));
            HOLDS(entry->part == piece.part);
            HOLDS(entry->isCut == (piece.isCut && isFirst && !entry->prefix));
            rest.remove_prefix(skipped + entry->text.size());
        }
        HOLDS(IsLeftOut(rest));
    }
    HOLDS(entry == entries.end());
}

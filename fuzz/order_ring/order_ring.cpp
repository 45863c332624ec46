// Input: a ring file. Behind its header all is in pieces but the mark, dots and blocks as made.
#include "zornctl/order/order_ring.h"

#include <algorithm>

#include "support/fuzz.h"
#include "support/pieces.h"

using namespace zornctl;

void Fuzz(std::string_view input) {
    const auto order = OrderRing(input);
    if (!order) return;
    CheckPieces(input, order->pieces);
    auto pieces = order->pieces;
    std::ranges::sort(pieces, {}, [](const TracePiece& piece) { return piece.text.data(); });
    const auto begin = std::ranges::find(pieces, TracePart::kBegin, &TracePiece::part);
    HOLDS(begin != pieces.end());
    auto rest = input.substr(begin->text.data() - input.data());
    const char* const mark = order->mark ? input.data() + *order->mark : nullptr;
    for (auto piece = begin; piece != pieces.end(); ++piece) {
        HOLDS(rest.data() == piece->text.data());
        rest.remove_prefix(piece->text.size());
        if (rest.data() == mark) rest.remove_prefix(kEndMark.size());
    }
    while (!rest.empty()) {
        const auto line = BareLine(TakeLine(rest));
        HOLDS(line.empty() || line.ends_with('_') || line.ends_with('.'));
    }
}

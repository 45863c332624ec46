// Input: a ring file. Behind its header all is in pieces but marks, dots and blocks as made.
#include "zornctl/order/order_ring.h"

#include "support/fuzz.h"
#include "support/pieces.h"

using namespace zornctl;

void Fuzz(std::string_view input) {
    const auto order = OrderRing(input);
    if (!order) return;
    CheckPieces(input, order->pieces);
    std::string_view rest;
    const char* const mark = input.data() + order->mark.value_or(input.size());
    const auto isAtMark = [&] { return rest.data() == mark || rest.starts_with(kEndMark); };
    for (const auto& [part, text, isCut] : AsInFile(order->pieces)) {
        if (part == TracePart::kHeader) continue;
        if (part == TracePart::kBegin) rest = input.substr(text.data() - input.data());
        while (isAtMark() && rest.data() != text.data()) rest.remove_prefix(kEndMark.size());
        HOLDS(rest.data() == text.data());
        rest.remove_prefix(text.size());
    }
    HOLDS(rest.data() != nullptr);
    while (isAtMark() && !rest.empty()) rest.remove_prefix(kEndMark.size());
    while (!rest.empty()) {
        const auto line = BareLine(TakeLine(rest));
        HOLDS(line.empty() || line.ends_with('_') || line.ends_with('.'));
        if (input.ends_with("_\n")) return;  // the bottom of a first pass: one line is enough
    }
}

// Input: a log file.
#include "zornctl/order/order_log.h"

#include "support/fuzz.h"
#include "support/pieces.h"

void Fuzz(std::string_view input) {
    const auto order = zornctl::OrderLog(input);
    CheckPieces(input, order.pieces);
    size_t bytes = 0;
    for (const auto& piece : order.pieces) bytes += piece.text.size();
    HOLDS(bytes == input.size());
    if (!order.cycle) HOLDS(order.pieces.size() <= 1);
    if (!order.cycle) return;
    const auto& newest = order.pieces.back();
    HOLDS(newest.part == zornctl::TracePart::kNewest && !newest.isCut);
    auto text = newest.text;
    const auto wrap = zornctl::TakeLine(text);
    const auto prefix = zornctl::ParseTracePrefix(wrap);
    HOLDS(prefix && wrap.substr(prefix->length).starts_with("------ WRAP ----- Cycle="));
}

// Input: any bytes.
#include "zornctl/output/escape.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "support/fuzz.h"
#include "support/shown_text.h"

using nlohmann::json;

static auto HighBytes(std::string_view text) {
    return std::ranges::count_if(text, [](char c) { return c < 0; });
}

void Fuzz(std::string_view input) {
    const auto escaped = zornctl::Escape(input);
    HOLDS(IsHarmless(escaped));
    HOLDS(zornctl::Escape(escaped) == escaped);
    HOLDS(zornctl::Columns(escaped) <= escaped.size());
    const auto reversible = zornctl::EscapeReversibly(input);
    HOLDS(IsHarmless(reversible));
    HOLDS(Unescape(reversible) == input);
    // Another judge of UTF-8: it leaves out what is none.
    const auto utf8 = json(input).dump(-1, ' ', false, json::error_handler_t::ignore);
    HOLDS(zornctl::IsUtf8(input) == (HighBytes(utf8) == HighBytes(input)));
}

#pragma once

#include <string>
#include <string_view>

/// Whether a terminal takes `text` for text and nothing else: a second version of what `Escape`
/// promises, made from bytes.
[[nodiscard]] bool IsHarmless(std::string_view text);

/// What `EscapeReversibly` has made `text` of. Fails if it cannot have made it.
[[nodiscard]] std::string Unescape(std::string_view text);

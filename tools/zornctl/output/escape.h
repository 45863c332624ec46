#pragma once

#include <string>
#include <string_view>

// What comes from a file or a machine reaches a terminal or a JSON text only through these.
// Thread-safety of all here: any thread; no state.

namespace zornctl {

/// `text` with nothing left in it that a terminal acts upon or that hides other text:
///
///     tab, newline, carriage return     \t \n \r
///     other control characters, DEL     \x1b
///     C1 control characters, bytes      each byte as \x9b
///     that are no UTF-8
///     line and paragraph separator,     U+2028, U+2029, U+061C, U+200E, U+200F, U+202A to U+202E,
///     marks that turn the direction     U+2066 to U+2069: each byte as \xe2
///
/// Everything else, backslashes included, stands as it is.
[[nodiscard]] std::string Escape(std::string_view text);

/// The same with a doubled backslash for each one, so that `text` can be had back.
[[nodiscard]] std::string EscapeReversibly(std::string_view text);

/// Whether all of `text` is UTF-8 (RFC 3629).
[[nodiscard]] bool IsUtf8(std::string_view text);

/// How many columns `text` takes on a terminal: its characters, one column each.
/// REQUIRES: `text` is UTF-8.
[[nodiscard]] size_t Columns(std::string_view text);

}  // namespace zornctl

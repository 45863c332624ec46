#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "trace/api.h"

// The format of the trace's configuration files: sections `[name]` of `Key=Value` lines and a last
// section head `[EndOfFile]`, without which the file counts as unreadable (it may have been cut).
// There are no comments: a key is any text of the body, found as a substring.

/// Finds the body of the first section called `section` (letter case ignored) in the text of a
/// file. The body goes from behind the section's `]` up to the next `[`, a NUL or the trailer.
/// Empty result if the trailer is missing, a section head before the match is not closed, or no
/// section matches. `text` ends before its first NUL as far as sections go; the trailer is searched
/// in all of it, and its word ends at a NUL too.
[[nodiscard]] ZORN_API std::optional<std::string_view> FindIniSection(std::string_view text,
                                                                      std::string_view section);

/// The text behind the first `=` that follows the first occurrence of `key`, less leading white
/// space (line ends included: a key with nothing behind its `=` takes what the next line holds), up
/// to a newline, cut to `limit` characters. Empty result if the key or the `=` is missing.
[[nodiscard]] ZORN_API std::optional<std::string_view> FindIniText(std::string_view body,
                                                                   std::string_view key,
                                                                   size_t limit);

/// The number that stands for an absent key.
inline constexpr uint32_t kIniAbsent = 0xFFFFFFFF;

/// The first 64 characters of the key's text as a number with a C prefix (0x10, 010, 10), cut to 32
/// bits; a text that is none is 0. Empty result if the key is missing or its number is
/// `kIniAbsent`.
[[nodiscard]] ZORN_API std::optional<uint32_t> FindIniNumber(std::string_view body,
                                                             std::string_view key);

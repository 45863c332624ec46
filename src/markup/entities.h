#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "trace/api.h"

// Between raw text and the text of a document, in UTF-8 or any other encoding that has ASCII in it:
// bytes of 128 and above go through as they are, except in `EscapeNonPrintable`. Any bytes are
// taken, NUL too, and the work is linear in them. What gives a text throws `std::bad_alloc`.
// Thread-safety: no state.

/// Flags of the escapes.
inline constexpr uint32_t kEscapeQuotes = 0x0100;  ///< quotes too, as in an attribute's value
inline constexpr uint32_t kEscapeKeepReferences = 0x0008;  ///< a "&" that begins a reference stays

/// Gives `text` with "&lt;", "&amp;" and "&gt;" in place of those characters, and with
/// `kEscapeQuotes` also "&quot;" and "&apos;".
///
/// With `kEscapeKeepReferences` what looks like a reference is copied as it is: "&", then "#" or a
/// character that can begin a name, then any of a name, then ";". Whether there is such an entity
/// is not asked.
ZORN_API std::string EscapeText(std::string_view text, uint32_t flags);

/// Gives `text` with its references replaced: "&lt;", "&#60;", "&#x3C;", of which letter case does
/// not matter, and the character entities of HTML 4. The characters stand in UTF-8. Nothing is
/// refused: what is no known reference stays as it is.
///
/// A name has at most nine characters, all ASCII. Of entities that differ in case only one can be
/// written: "&oslash;" gives the letter of "&Oslash;" (see `kEntityTable`). A number is read as
/// `strtol` does, up to what is no digit; of a negative one the low byte is taken, and 0 is no
/// character.
///
/// `kMarkupTrim` in `flags` removes white space at both ends, `kMarkupCollapse` makes a blank of
/// each further run besides. White space that is written as a reference counts as text.
ZORN_API std::string DecodeText(std::string_view text, uint32_t flags);

/// Gives `text` with "&#xE9;" and the like in place of each byte that is not a printable ASCII
/// character: below 0x20 or above 0x7E. If `flags` is not 0, what stands between those is escaped
/// too, each piece by `EscapeText`; otherwise "&" stays.
ZORN_API std::string EscapeNonPrintable(std::string_view text, uint32_t flags);

/// Gives the CDATA section that holds `text`: several behind each other where it has "]]>" in it.
ZORN_API std::string MakeCdata(std::string_view text);

/// Writes the UTF-8 form of a character behind the first `count` bytes of `buffer` and adds its
/// length, 2 to 4, to `count`; with a null `buffer` only that.
///
/// Of a character below 128 the form is an overlong one: write those as they are. Surrogates are
/// written like others, and of what lies above 0x1FFFFF only the low 21 bits.
ZORN_API void EncodeUtf8(uint32_t codePoint, char* buffer, int& count);

/// Gives the code page of an encoding by one of its names, in any letter case: 65001 for "utf-8".
/// -1 if there is none, or for a name of 100 characters or more.
///
/// Every name that begins with "UTF-32" in upper case, whatever follows, has 65005.
ZORN_API int LookUpEncoding(std::string_view name);

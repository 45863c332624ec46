#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string_view>

// The format of private profiles, as text: no file is touched here (private_profile.h does that).
//
//     ; a comment
//     [8086]
//     Vendor = Intel Corporation     ; a comment too
//     0D4F=Ethernet Connection (10) I219-V
//
// A line is at most 1023 bytes, its line feed included: what is longer is several lines. It is
// cleaned before anything else: a NUL or the first `;` ends it, white space around it goes. A head
// begins with `[` and has a `]`; in a section each other line with a `=` is an entry. Names are
// compared byte by byte. Of sections with the same name the first counts, and in it the first of
// entries with the same name.
//
// All of this looks at `text` and nothing behind it. Thread-safety: any thread; no state.

/// One line of a profile.
struct ProfileLine {
    size_t begin;           ///< offset of its first byte
    size_t end;             ///< offset behind its last one, the line feed included
    std::string_view text;  ///< cleaned; empty if there was nothing but white space and comment
};

/// The line that begins at `begin`. REQUIRES: a line begins there, and `text` goes on behind it.
[[nodiscard]] ProfileLine ProfileLineAt(std::string_view text, size_t begin);

/// The first line, of those from offset `from` on, whose cleaned text begins with `start`. Empty if
/// there is none. REQUIRES: a line begins at `from`, or `text` ends there; `start` is not empty.
[[nodiscard]] std::optional<ProfileLine> FindProfileLine(std::string_view text,
                                                         std::string_view start, size_t from);

/// Whether a cleaned line is a section's head.
[[nodiscard]] bool IsProfileHead(std::string_view line);

/// Whether a cleaned line is the head of that section: `]` follows the name directly.
[[nodiscard]] bool IsProfileHeadOf(std::string_view line, std::string_view section);

struct ProfileEntry {
    std::string_view name;
    std::string_view value;
};

/// What a cleaned line says: white space around name and value is gone, each may be empty. Empty
/// result without a `=`.
[[nodiscard]] std::optional<ProfileEntry> ParseProfileEntry(std::string_view line);

/// The lines of a section, from behind its head up to the next head or the end. A line begins where
/// they begin, so they are a text of the same kind.
[[nodiscard]] std::optional<std::string_view> FindProfileSection(std::string_view text,
                                                                 std::string_view section);

/// The value of an entry of a section.
[[nodiscard]] std::optional<std::string_view> FindProfileValue(std::string_view lines,
                                                               std::string_view key);

/// Answers a question of GetPrivateProfileString from the text of the file: the value of `key` in
/// `section`; with a null `key` the list of the names in `section`; with a null `section` the list
/// of the sections. Gives the number of bytes in `buffer` before the last NUL: of a list all
/// terminators but the one that ends the list. 0 for "nothing found", which an empty value is too,
/// and for a buffer of less than three bytes, which is not written to; otherwise what was found is
/// there, terminated.
///
/// A value that is too long is cut to the size of `buffer` less 1. A list that is too long is cut
/// so that it ends properly, with a result of the size less 1 or less 2 (a list that just fits may
/// give these too). A head `[]` or a line without a name before its `=` puts an empty text into the
/// list, which readers take for its end.
[[nodiscard]] size_t ReadProfileText(std::string_view text, const char* section, const char* key,
                                     std::span<char> buffer);

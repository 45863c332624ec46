#pragma once

#include <cstdarg>
#include <cstddef>

/// The most characters of text that fit into the line buffer; a longer text is cut or, in the ring,
/// gets memory of its own.
inline constexpr size_t kTextSize = 1024;

/// Formats a text into `buffer`, which takes `size` bytes with the NUL; leading newlines of `fmt`
/// are left out unless it holds nothing else. Gives the length that the whole text has, negative if
/// it cannot be formatted.
[[nodiscard]] int FormatText(char* buffer, size_t size, const char* fmt, va_list args)
    __attribute__((format(printf, 3, 0)));

/// Ends the line of `length` bytes with a newline if it has none; gives the new length. The buffer
/// takes a byte more than the line.
[[nodiscard]] inline size_t EndWithNewline(char* line, size_t length) {
    if (length > 0 && line[length - 1] == '\n') return length;
    line[length] = '\n';
    return length + 1;
}

#pragma once

#include <cstdio>
#include <cstdlib>
#include <string_view>

/// What a target defines: hands `input` to a parser and asserts what holds whatever was handed to
/// it. `input` ends where its memory ends, so a look behind it is found too.
void Fuzz(std::string_view input);

/// Ends the process with place and text of the condition unless it holds: libFuzzer then keeps the
/// input.
#define HOLDS(condition)                                                                     \
    do {                                                                                     \
        if (condition) break;                                                                \
        (void)fprintf(stderr, "%s:%d: does not hold: %s\n", __FILE__, __LINE__, #condition); \
        abort();                                                                             \
    } while (false)

/// Takes a line off the front of `input`, for a target whose parser has more than one argument. All
/// of it if there is no newline.
[[nodiscard]] inline std::string_view TakeArgument(std::string_view& input) {
    const auto line = input.substr(0, input.find('\n'));
    input.remove_prefix(line.size() < input.size() ? line.size() + 1 : input.size());
    return line;
}

/// Whether `part` is a view into `text`.
[[nodiscard]] inline bool IsPartOf(std::string_view text, std::string_view part) {
    return part.data() >= text.data() && part.data() + part.size() <= text.data() + text.size();
}

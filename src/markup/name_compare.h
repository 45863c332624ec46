#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "markup/characters.h"

/// Whether the bytes are the same: faster than `memcmp` for the lengths that names have.
[[nodiscard]] inline bool IsSameBytes(std::string_view one, std::string_view other) {
    if (one.size() != other.size()) return false;
    const auto word = [](std::string_view text, size_t place) {
        uint64_t bits = 0;
        memcpy(&bits, text.data() + place, sizeof bits);
        return bits;
    };
    const size_t size = one.size();
    if (size < 8 || size > 16) return one == other;
    return ((word(one, 0) ^ word(other, 0)) | (word(one, size - 8) ^ word(other, size - 8))) == 0;
}

/// Whether two names are the same; in ASCII letters of any case if `ignoresCase`.
[[nodiscard]] inline bool IsSameName(std::string_view one, std::string_view other,
                                     bool ignoresCase) {
    if (!ignoresCase) return IsSameBytes(one, other);
    return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                      [](char a, char b) { return Lower(a) == Lower(b); });
}

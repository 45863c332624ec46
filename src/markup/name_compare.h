#pragma once

#include <algorithm>
#include <string_view>

#include "markup/characters.h"

/// Whether two names are the same; in ASCII letters of any case if `ignoresCase`.
[[nodiscard]] inline bool IsSameName(std::string_view one, std::string_view other,
                                     bool ignoresCase) {
    if (!ignoresCase) return one == other;
    return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                      [](char a, char b) { return Lower(a) == Lower(b); });
}

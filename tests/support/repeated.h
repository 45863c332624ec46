#pragma once

#include <string>
#include <string_view>

/// The text so many times, one behind the other.
inline std::string Repeated(std::string_view text, size_t times) {
    std::string result;
    result.reserve(text.size() * times);
    for (size_t i = 0; i < times; ++i) result += text;
    return result;
}

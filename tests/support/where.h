#pragma once

/// The place of a call, as a last parameter `Where where = Where::Here()`.
/// (std::source_location is not there with clang 14.)
struct Where {
    const char* file;
    int line;

    [[nodiscard]] static constexpr Where Here(const char* file = __builtin_FILE(),
                                              int line = __builtin_LINE()) {
        return {file, line};
    }
};

#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "zornctl/order/ordered_trace.h"

// Lines of a trace for tests, by the second at which they were written.

inline std::string Prefix(int second, const char* name = "zorn") {
    char text[96];
    (void)snprintf(text, sizeof text, "2026-11-20 %02d:%02d:%02d.000 [0000004907] %-13s ",
                   second / 3600, second / 60 % 60, second % 60, name);
    return text;
}

inline std::string Line(int second, const std::string& text) {
    return Prefix(second) + text + "\n";
}

/// The texts of entries without their prefixes, a cut one behind "~".
inline std::vector<std::string> Texts(const std::vector<zornctl::TracePiece>& pieces) {
    std::vector<std::string> texts;
    for (const auto& entry : SplitEntries(pieces)) {
        const auto text = entry.text.substr(entry.prefix ? entry.prefix->length : 0);
        texts.push_back((entry.isCut ? "~" : "") + std::string{text});
    }
    return texts;
}

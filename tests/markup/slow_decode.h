#pragma once

#include <cstdlib>
#include <map>
#include <string>
#include <string_view>

#include "markup/entity_list.h"

inline std::string SlowUtf8(long character) {
    if (character <= 127) return {static_cast<char>(character)};
    const auto Tail = [&](int shift) {
        return static_cast<char>(0x80 + (character >> shift) % 64);
    };
    const auto Lead = [](long bits) { return static_cast<char>(bits); };
    if (character < 0x800) return {Lead(0xC0 + (character >> 6)), Tail(0)};
    if (character < 0x10000) return {Lead(0xE0 + (character >> 12)), Tail(6), Tail(0)};
    return {Lead(0xF0 + (character >> 18) % 8), Tail(12), Tail(6), Tail(0)};
}

/// `DecodeText` a byte at a time, as it is told: the state is where the white space at the end of
/// the result begins, 0 for none, -1 for a result without anything.
inline std::string SlowDecode(const std::string& text, bool trims, bool collapses) {
    static const std::map<std::string, int> kEntities = FoundEntities();
    std::string result;
    int mark = -1;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if ((trims || collapses) && (c == ' ' || c == '\t' || c == '\n' || c == '\r')) {
            if (collapses && mark == 0) {
                mark = static_cast<int>(result.size());
                result += ' ';
            } else if (!collapses && mark >= 0) {
                if (mark == 0) mark = static_cast<int>(result.size());
                result += c;
            }
            continue;
        }
        mark = 0;
        std::string name;
        size_t end = i + 1;
        while (c == '&' && name.size() < 9 && end < text.size() && text[end] != ';' &&
               text[end] >= 0) {
            name += InLowerCase({text[end++]});
        }
        long value = 0;
        if (c == '&' && end < text.size() && text[end] == ';') {
            const auto entity = kEntities.find(name);
            if (name.substr(0, 2) == "#x") {
                value = strtol(name.c_str() + 2, nullptr, 16);
            } else if (name.substr(0, 1) == "#") {
                value = strtol(name.c_str() + 1, nullptr, 10);
            } else if (entity != kEntities.end()) {
                value = entity->second;
            }
        }
        result += value == 0 ? std::string{c} : SlowUtf8(value);
        if (value != 0) i = end;
    }
    return mark > 0 ? result.substr(0, static_cast<size_t>(mark)) : result;
}

/// The text of CDATA sections behind each other; "?" and what is left where there is none.
inline std::string TextOfSections(std::string_view sections) {
    constexpr std::string_view kOpen = "<![CDATA[";
    std::string text;
    while (sections.starts_with(kOpen)) {
        const size_t close = sections.find("]]>", kOpen.size());
        if (close == std::string_view::npos) break;
        text += sections.substr(kOpen.size(), close - kOpen.size());
        sections.remove_prefix(close + 3);
    }
    return sections.empty() ? text : text + "?" + std::string{sections};
}

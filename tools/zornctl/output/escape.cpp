#include "zornctl/output/escape.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace zornctl {

namespace {

struct Range {
    uint32_t first;
    uint32_t last;
};

/// Control characters behind DEL, and characters that change how others are shown.
constexpr std::array<Range, 7> kHarmful{{{0x0, 0x1F},
                                         {0x7F, 0x9F},
                                         {0x61C, 0x61C},
                                         {0x200E, 0x200F},
                                         {0x2028, 0x2029},
                                         {0x202A, 0x202E},
                                         {0x2066, 0x2069}}};

bool IsHarmful(uint32_t character) {
    return std::any_of(kHarmful.begin(), kHarmful.end(), [=](const Range& range) {
        return character >= range.first && character <= range.last;
    });
}

struct Character {
    uint32_t value = 0;
    size_t length = 0;  ///< bytes; 0: the text does not begin with UTF-8
};

/// What the first byte tells of a character.
struct Lead {
    uint8_t first, last;  ///< the bytes that are such leads
    uint8_t length;       ///< bytes of the character
    uint32_t least;       ///< smaller values have a shorter form, which alone is allowed
};
constexpr std::array<Lead, 4> kLeads{
    {{0x00, 0x7F, 1, 0}, {0xC2, 0xDF, 2, 0x80}, {0xE0, 0xEF, 3, 0x800}, {0xF0, 0xF4, 4, 0x10000}}};

/// Reads the first character. REQUIRES: `text` is not empty.
Character ReadCharacter(std::string_view text) {
    const auto byte = [&](size_t at) { return static_cast<uint8_t>(text[at]); };
    const auto* const lead = std::find_if(kLeads.begin(), kLeads.end(), [&](const Lead& row) {
        return byte(0) >= row.first && byte(0) <= row.last;
    });
    if (lead == kLeads.end() || text.size() < lead->length) return {};
    uint32_t value = lead->length == 1 ? byte(0) : byte(0) & (0x7FU >> lead->length);
    for (size_t at = 1; at < lead->length; ++at) {
        if ((byte(at) & 0xC0U) != 0x80U) return {};
        value = value << 6U | (byte(at) & 0x3FU);
    }
    const bool isSurrogate = value >= 0xD800 && value <= 0xDFFF;
    if (value < lead->least || value > 0x10FFFF || isSurrogate) return {};
    return {value, lead->length};
}

void AppendBytes(std::string& out, std::string_view bytes) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    for (const char c : bytes) {
        const auto byte = static_cast<uint8_t>(c);
        out.append("\\x").append(1, kDigits[byte >> 4U]).append(1, kDigits[byte & 0xFU]);
    }
}

void AppendHarmful(std::string& out, std::string_view bytes) {
    switch (bytes.front()) {
        case '\t':
            out += "\\t";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        default:
            AppendBytes(out, bytes);
    }
}

bool IsPlain(char c) {
    return c >= ' ' && c <= '~';
}

std::string EscapeText(std::string_view text, bool doublesBackslash) {
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        const auto plain = static_cast<size_t>(
            std::find_if_not(
                text.begin(), text.end(),
                [=](char c) { return IsPlain(c) && !(doublesBackslash && c == '\\'); }) -
            text.begin());
        out.append(text.substr(0, plain));
        text.remove_prefix(plain);
        if (text.empty()) break;
        const auto character = ReadCharacter(text);
        const auto bytes = text.substr(0, std::max<size_t>(character.length, 1));
        if (bytes == "\\")
            out += "\\\\";
        else if (character.length == 0 || IsHarmful(character.value))
            AppendHarmful(out, bytes);
        else
            out += bytes;
        text.remove_prefix(bytes.size());
    }
    return out;
}

}  // namespace

std::string Escape(std::string_view text) {
    return EscapeText(text, false);
}

std::string EscapeReversibly(std::string_view text) {
    return EscapeText(text, true);
}

bool IsUtf8(std::string_view text) {
    while (!text.empty()) {
        const auto character = ReadCharacter(text);
        if (character.length == 0) return false;
        text.remove_prefix(character.length);
    }
    return true;
}

size_t Columns(std::string_view text) {
    return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char c) {
        return (static_cast<uint8_t>(c) & 0xC0U) != 0x80U;
    }));
}

}  // namespace zornctl

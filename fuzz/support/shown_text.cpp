#include "support/shown_text.h"

#include <algorithm>
#include <cstdint>

#include "support/fuzz.h"
#include "zornctl/output/escape.h"

namespace {

/// Bytes of which the last one is in a range.
struct Sequence {
    std::string_view lead;
    uint8_t first, last;
};

constexpr Sequence kHarmful[] = {
    {"\xC2", 0x80, 0x9F},     {"\xD8", 0x9C, 0x9C},     {"\xE2\x80", 0x8E, 0x8F},
    {"\xE2\x80", 0xA8, 0xAE}, {"\xE2\x81", 0xA6, 0xA9},
};

bool Begins(std::string_view text, const Sequence& bytes) {
    if (!text.starts_with(bytes.lead) || text.size() == bytes.lead.size()) return false;
    const auto last = static_cast<uint8_t>(text[bytes.lead.size()]);
    return last >= bytes.first && last <= bytes.last;
}

}  // namespace

bool IsHarmless(std::string_view text) {
    if (!zornctl::IsUtf8(text)) return false;
    for (; !text.empty(); text.remove_prefix(1)) {
        const auto byte = static_cast<uint8_t>(text.front());
        if (byte >= ' ' && byte < 0x7F) continue;
        if (byte < 0x80) return false;
        if (std::ranges::any_of(kHarmful, [=](const auto& row) { return Begins(text, row); })) {
            return false;
        }
    }
    return true;
}

std::string Unescape(std::string_view text) {
    constexpr std::string_view kLetters = "\\tnr";
    std::string out;
    for (size_t at = 0; at < text.size(); ++at) {
        if (text[at] != '\\') {
            out += text[at];
        } else if (const auto letter = kLetters.find(text.at(++at)); letter != text.npos) {
            out += "\\\t\n\r"[letter];
        } else {
            HOLDS(text[at] == 'x');
            out += static_cast<char>(std::stoi(std::string{text.substr(at + 1, 2)}, nullptr, 16));
            at += 2;
        }
    }
    return out;
}

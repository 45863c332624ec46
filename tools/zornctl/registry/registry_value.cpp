#include "zornctl/registry/registry_value.h"

#include <charconv>

#include "registry/registry_node.h"
#include "zornctl/output/failure.h"
#include "zornctl/registry/lost_lines.h"

namespace zornctl {

namespace {

Failure Refusal(const std::string& cause, const std::string& remedy = {}) {
    return {ExitStatus::kWrongUse, {}, cause, remedy};
}

std::string Quoted(std::string_view text) {
    return std::string{"'"}.append(text).append("'");
}

int HexDigit(char digit) {
    uint8_t value = 0;
    return std::from_chars(&digit, &digit + 1, value, 16).ec == std::errc{} ? value : -1;
}

std::string ParseBytes(std::string_view text) {
    std::string bytes;
    for (size_t at = 0; at < text.size(); ++at) {
        if (text[at] == ' ') continue;
        const int high = HexDigit(text[at]);
        const int low = at + 1 < text.size() ? HexDigit(text[at + 1]) : -1;
        if (high < 0 || low < 0) {
            throw Refusal("no bytes: " + Quoted(text),
                          "write two hexadecimal digits a byte: 0aff10");
        }
        bytes += static_cast<char>(high * 16 + low);
        ++at;
    }
    return bytes;
}

uint32_t ParseNumber(std::string_view text) {
    auto digits = text;
    const bool isNegative = digits.starts_with('-');
    if (isNegative || digits.starts_with('+')) digits.remove_prefix(1);
    const bool isHex = digits.starts_with("0x") || digits.starts_with("0X");
    if (isHex) digits.remove_prefix(2);
    uint64_t number = 0;
    const char* const end = digits.data() + digits.size();
    const auto result = std::from_chars(digits.data(), end, number, isHex ? 16 : 10);
    const uint64_t most = isNegative ? uint64_t{1} << 31U : UINT32_MAX;
    if (result.ec != std::errc{} || result.ptr != end || number > most) {
        throw Refusal("no number of 32 bits: " + Quoted(text),
                      "write -2147483648 to 4294967295, or 0x0 to 0xffffffff");
    }
    return static_cast<uint32_t>(isNegative ? -number : number);
}

std::string FormatBytes(std::string_view bytes) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<uint8_t>(c);
        if (!text.empty()) text += ' ';
        text.append(1, kDigits[byte >> 4U]).append(1, kDigits[byte & 0xFU]);
    }
    return text;
}

/// What stands behind the name in a line.
std::string FormatTail(const RegistryValue& value) {
    switch (value.type) {
        case kRegistryString:
            return "=s=" + value.bytes;
        case kRegistryExpandString:
            return "=es=" + value.bytes;
        case kRegistryBinary:
            return "=b=" + FormatBytes(value.bytes) + (value.bytes.empty() ? "" : " ");
        default:
            return "=d=" + std::to_string(static_cast<int32_t>(value.number));
    }
}

}  // namespace

std::string_view NameOfType(unsigned type) {
    switch (type) {
        case kRegistryString:
            return "string";
        case kRegistryExpandString:
            return "expand";
        case kRegistryBinary:
            return "binary";
        case kRegistryDoubleWord:
            return "dword";
        default:
            return "key";
    }
}

RegistryValue ParseRegistryValue(std::string_view type, std::string_view text) {
    if (type == "binary") return {kRegistryBinary, ParseBytes(text), 0};
    if (type == "dword") return {kRegistryDoubleWord, {}, ParseNumber(text)};
    return {type == "expand" ? kRegistryExpandString : kRegistryString, std::string{text}, 0};
}

std::string FormatRegistryValue(const RegistryValue& value) {
    if (value.type == kRegistryBinary) return FormatBytes(value.bytes);
    if (value.type == kRegistryDoubleWord) return std::to_string(value.number);
    return value.bytes;
}

std::string FormatRegistryLine(std::string_view name, const RegistryValue& value) {
    if (name.find_first_of("=\n") != name.npos) {
        throw Refusal("the file cannot hold a name with = or a newline: " + Quoted(name));
    }
    auto line = std::string{name} + FormatTail(value);
    if (line.find('\n') != line.npos) {
        throw Refusal("the file cannot hold a text with a newline",
                      "set it as binary, or without the newline");
    }
    if (line.starts_with('[') && line.find(']') != line.npos) {
        throw Refusal("the file cannot hold a name that begins with [ if a ] follows: " +
                      Quoted(line));
    }
    if (line.size() > kLongestRegistryLine) {
        throw Refusal("the file cannot hold a line of " + std::to_string(line.size()) +
                          " characters: name, tag and value may have 1,022",
                      "shorten the value, or part it");
    }
    return line;
}

void CheckKeyName(std::string_view name) {
    if (name.find_first_of("]\n") != name.npos) {
        throw Refusal("the file cannot hold a name of a key with ] or a newline: " + Quoted(name));
    }
    if (name.size() + 2 > kLongestRegistryLine) {
        throw Refusal("the file cannot hold a name of a key of more than 1,020 characters");
    }
}

}  // namespace zornctl

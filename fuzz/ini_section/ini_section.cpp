// Input: a line with a section's name, one with a key, and the file.
#include "trace/ini_section.h"

#include <strings.h>

#include "support/fuzz.h"

static bool EndsWithHead(std::string_view text, std::string_view name) {
    const std::string head = "[" + std::string{name} + "]";
    if (text.size() < head.size()) return false;
    return strncasecmp(text.end() - head.size(), head.c_str(), head.size()) == 0;
}

void Fuzz(std::string_view input) {
    constexpr std::string_view kEnds{"[\0]", 3};
    const auto section = TakeArgument(input), key = TakeArgument(input);
    const auto body = FindIniSection(input, section);
    const auto close = input.rfind(']'), open = input.rfind('[', close) + 1;
    const auto trailer = body ? std::string{input.substr(open, close - open)} : "EndOfFile";
    HOLDS(strcasecmp(trailer.c_str(), "EndOfFile") == 0);  // up to a NUL
    HOLDS(!body || EndsWithHead(input.substr(0, body->data() - input.data()), section));
    const std::string made = "[" + std::string{section} + "]" + std::string{input} + "[endOFfile]";
    const auto front = input.substr(0, input.find_first_of(kEnds.substr(0, 2)));
    if (section.find_first_of(kEnds) == section.npos) HOLDS(FindIniSection(made, section) == front);
    const auto text = FindIniText(input, key, input.npos), cut = FindIniText(input, key, 8);
    HOLDS(text.has_value() == (input.find('=', input.find(key)) != input.npos));
    HOLDS(cut.has_value() == text.has_value() && (!cut || *cut == text->substr(0, 8)));
    HOLDS(!text || (IsPartOf(input, *text) && text->find('\n') == text->npos));
    HOLDS(!text || text->empty() || isspace(text->front()) == 0);
    const auto number = FindIniNumber(input, key);
    HOLDS(!number || (text && *number != kIniAbsent));
}

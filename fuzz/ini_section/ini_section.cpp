// Input: a line with a section's name, one with a key, and the file.
#include "trace/ini_section.h"

#include <strings.h>

#include "support/fuzz.h"

static bool EndsWith(std::string_view text, const std::string& head) {
    return text.size() >= head.size() &&
           strncasecmp(text.end() - head.size(), head.c_str(), head.size()) == 0;
}

void Fuzz(std::string_view input) {
    const auto section = TakeArgument(input), key = TakeArgument(input);
    const auto made = "[" + std::string{section} + "]" + std::string{input} + "[endOFfile]";
    const auto body = FindIniSection(input, section);
    const auto close = input.rfind(']'), open = input.rfind('[', close) + 1;
    HOLDS(!body || strcasecmp(std::string(input, open, close - open).c_str(), "EndOfFile") == 0);
    const auto head = made.substr(0, section.size() + 2);
    HOLDS(!body || EndsWith(input.substr(0, body->data() - input.data()), head));
    const auto front = input.substr(0, input.find_first_of("[\0", 0, 2));
    const bool isName = section.find_first_of("[\0]", 0, 3) == section.npos;
    HOLDS(!isName || FindIniSection(made, section) == front);
    const auto text = FindIniText(input, key, input.npos), cut = FindIniText(input, key, 8);
    HOLDS(text.has_value() == (input.find('=', input.find(key)) != input.npos));
    HOLDS(cut.has_value() == text.has_value() && (!cut || *cut == text->substr(0, 8)));
    HOLDS(!text || (IsPartOf(input, *text) && text->find('\n') == text->npos));
    HOLDS(!text || text->empty() || isspace(text->front()) == 0);
    HOLDS(!FindIniNumber(input, key) || (text && FindIniNumber(input, key) != kIniAbsent));
}

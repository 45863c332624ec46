#include "trace/ini_section.h"

#include <strings.h>

#include <algorithm>
#include <cstdlib>

namespace {

constexpr std::string_view kTrailer = "EndOfFile";
constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";
constexpr size_t kNumberLimit = 64;

bool EqualNoCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

/// The text in front of the trailer; empty result if there is no trailer. A bracket in the first
/// byte of the file is not taken for one of the trailer's.
std::optional<std::string_view> CutTrailer(std::string_view text) {
    const auto close = text.rfind(']');
    if (close == text.npos || close == 0) return std::nullopt;
    const auto open = text.rfind('[', close);
    if (open == text.npos || open == 0) return std::nullopt;
    const auto word = text.substr(open + 1, close - open - 1);
    if (!EqualNoCase(word.substr(0, word.find('\0')), kTrailer)) return std::nullopt;
    return text.substr(0, open);
}

}  // namespace

std::optional<std::string_view> FindIniSection(std::string_view text, std::string_view section) {
    const auto sections = CutTrailer(text);
    if (!sections) return std::nullopt;
    auto rest = sections->substr(0, sections->find('\0'));
    for (;;) {
        const auto open = rest.find('[');
        const auto close = open == rest.npos ? rest.npos : rest.find(']', open);
        if (close == rest.npos) return std::nullopt;
        const auto name = rest.substr(open + 1, close - open - 1);
        rest.remove_prefix(close + 1);
        if (EqualNoCase(name, section)) return rest.substr(0, rest.find('['));
    }
}

std::optional<std::string_view> FindIniText(std::string_view body, std::string_view key,
                                            size_t limit) {
    const auto found = body.find(key);
    const auto equals = found == body.npos ? body.npos : body.find('=', found);
    if (equals == body.npos) return std::nullopt;
    auto value = body.substr(equals + 1);
    value.remove_prefix(std::min(value.find_first_not_of(kWhiteSpace), value.size()));
    return value.substr(0, std::min(value.find('\n'), limit));
}

std::optional<uint32_t> FindIniNumber(std::string_view body, std::string_view key) {
    const auto text = FindIniText(body, key, kNumberLimit);
    if (!text) return std::nullopt;
    const auto number = static_cast<uint32_t>(strtoul(std::string{*text}.c_str(), nullptr, 0));
    if (number == kIniAbsent) return std::nullopt;
    return number;
}

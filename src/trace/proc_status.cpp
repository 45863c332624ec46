#include "trace/proc_status.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <string>

#include "trace/file_text.h"

namespace {

/// Takes the next word off the front of `line`; empty if there is none left.
std::string_view TakeWord(std::string_view& line) {
    constexpr std::string_view kBlanks = " \t\v\f\r";
    line.remove_prefix(std::min(line.find_first_not_of(kBlanks), line.size()));
    const auto word = line.substr(0, line.find_first_of(kBlanks));
    line.remove_prefix(word.size());
    return word;
}

unsigned UnitShift(std::string_view unit) {
    if (unit == "kB") return 10;
    if (unit == "MB") return 20;
    if (unit == "GB") return 30;
    return 0;
}

}  // namespace

std::optional<uint64_t> ParseProcStatusField(std::string_view text, std::string_view key) {
    while (!text.empty()) {
        auto line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        if (TakeWord(line) != key) continue;
        const auto digits = TakeWord(line);
        uint64_t number = 0;
        const auto [end, error] =
            std::from_chars(digits.data(), digits.data() + digits.size(), number);
        if (error != std::errc{}) return std::nullopt;
        return number << UnitShift(TakeWord(line));
    }
    return std::nullopt;
}

bool GetProcStatusField(pid_t pid, uint64_t* value, const char* key, unsigned scale) {
    char path[sizeof "/proc//status" + 11];
    snprintf(path, sizeof path, "/proc/%d/status", pid);
    const auto text = ReadFileText(path);
    const auto field = text ? ParseProcStatusField(*text, key) : std::nullopt;
    if (field) *value = *field;
    for (; scale > 0 && *value > 0; --scale) *value >>= 10;
    return field.has_value();
}

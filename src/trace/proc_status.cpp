#include "trace/proc_status.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <string>

#include "trace/file_text.h"

namespace {

constexpr std::string_view kBlanks = " \t\v\f\r";

void SkipBlanks(std::string_view& line) {
    line.remove_prefix(std::min(line.find_first_not_of(kBlanks), line.size()));
}

/// Takes the next word off the front of `line`; empty if there is none left.
std::string_view TakeWord(std::string_view& line) {
    SkipBlanks(line);
    const auto word = line.substr(0, line.find_first_of(kBlanks));
    line.remove_prefix(word.size());
    return word;
}

/// Takes a number off the front of `line`; the unit may follow it at once.
std::optional<uint64_t> TakeNumber(std::string_view& line) {
    SkipBlanks(line);
    uint64_t number = 0;
    const auto [end, error] = std::from_chars(line.data(), line.data() + line.size(), number);
    if (error != std::errc{}) return std::nullopt;
    line.remove_prefix(static_cast<size_t>(end - line.data()));
    return number;
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
        const auto number = TakeNumber(line);
        return number ? std::optional{*number << UnitShift(TakeWord(line))} : std::nullopt;
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

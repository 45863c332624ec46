#include "zornctl/order/trace_prefix.h"

#include <algorithm>
#include <charconv>
#include <chrono>

namespace zornctl {

namespace {

/// The prefix up to the process number; a 0 stands for any digit.
constexpr std::string_view kPattern = "0000-00-00 00:00:00.000 [0000000000] ";
constexpr std::string_view kUnknownTime = "yyyy-mm-dd hh:mm:ss.mmm";
constexpr size_t kStampLength = kUnknownTime.size();
constexpr size_t kNumberAt = kStampLength + 2;
constexpr size_t kNumberLength = 10;
constexpr std::string_view kMemoryUnit = " KB !";
constexpr size_t kNameColumn = 13;

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

bool Begins(std::string_view line, std::string_view pattern) {
    if (line.size() < pattern.size()) return false;
    for (size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] == '0' ? !IsDigit(line[i]) : line[i] != pattern[i]) return false;
    }
    return true;
}

uint64_t Number(std::string_view digits) {
    uint64_t number = 0;
    (void)std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return number;
}

/// Takes "    9400 KB !" off the front of `rest`; nothing is taken if that is not there.
std::optional<uint64_t> TakeMemory(std::string_view& rest) {
    const auto begin = std::min(rest.find_first_not_of(' '), rest.size());
    const auto end = std::min(rest.find_first_not_of("0123456789", begin), rest.size());
    if (begin == end || !rest.substr(end).starts_with(kMemoryUnit)) return std::nullopt;
    const auto memory = Number(rest.substr(begin, end - begin));
    rest.remove_prefix(end + kMemoryUnit.size());
    return memory;
}

}  // namespace

std::optional<TracePrefix> ParseTracePrefix(std::string_view line) {
    TracePrefix prefix;
    prefix.stamp = StampOf(line);
    if (prefix.stamp.empty()) return std::nullopt;
    prefix.hasTime = prefix.stamp != kUnknownTime;
    prefix.pid = Number(line.substr(kNumberAt, kNumberLength));
    auto rest = line.substr(kPattern.size());
    prefix.memoryKiB = TakeMemory(rest);
    // The column is as wide as a longer name makes it.
    const auto end = rest.find(' ', std::min(kNameColumn, rest.size()));
    const auto column = rest.substr(0, end);
    prefix.name = column.substr(0, column.find_last_not_of(' ') + 1);
    if (end != rest.npos)
        rest.remove_prefix(end + 1);
    else
        rest.remove_prefix(rest.size());
    prefix.length = line.size() - rest.size();
    return prefix;
}

std::string_view StampOf(std::string_view line) {
    const auto stamp = line.substr(0, kStampLength);
    if (Begins(line, kPattern)) return stamp;
    const bool isPrefix =
        stamp == kUnknownTime && Begins(line.substr(kStampLength), kPattern.substr(kStampLength));
    return isPrefix ? stamp : std::string_view{};
}

std::optional<int64_t> StampMilliseconds(std::string_view stamp) {
    if (!Begins(stamp, kPattern.substr(0, kStampLength))) return std::nullopt;
    const auto field = [&](size_t at, size_t length) {
        return static_cast<unsigned>(Number(stamp.substr(at, length)));
    };
    const std::chrono::year_month_day date{std::chrono::year{static_cast<int>(field(0, 4))},
                                           std::chrono::month{field(5, 2)},
                                           std::chrono::day{field(8, 2)}};
    if (!date.ok()) return std::nullopt;
    const auto time = std::chrono::sys_days{date} + std::chrono::hours{field(11, 2)} +
                      std::chrono::minutes{field(14, 2)} + std::chrono::seconds{field(17, 2)} +
                      std::chrono::milliseconds{field(20, 3)};
    return time.time_since_epoch().count();
}

bool IsRestOfPrefix(std::string_view line) {
    for (size_t at = 1; at < kNumberAt; ++at) {
        if (Begins(line, kPattern.substr(at))) return true;
    }
    return false;
}

bool IsBeginningOfPrefix(std::string_view text) {
    return Begins(text, kPattern.substr(0, text.size()));
}

std::string_view TakeLine(std::string_view& text) {
    const auto end = text.find('\n');
    const auto line = text.substr(0, end == text.npos ? end : end + 1);
    text.remove_prefix(line.size());
    return line;
}

std::string_view BareLine(std::string_view line) {
    if (line.ends_with('\n')) line.remove_suffix(1);
    line.remove_prefix(std::min(line.find_first_not_of('\0'), line.size()));
    return line;
}

}  // namespace zornctl

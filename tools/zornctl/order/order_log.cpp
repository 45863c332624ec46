// A log file that has wrapped holds, from its start on (trace/log_file.cpp):
//
//     head | WRAP line of pass n, its lines | what is left of pass n-1 | a rest of some pass before
//
// The order of writing is: head, rest, pass n-1, pass n.
//
// 1. The WRAP line of the newest pass is the one with the highest Cycle among those that stand
// where
//    they say (CntInitEnd, or 0 after a failed seek): texts that look like one do not count.
// 2. A pass ends with the line that passes MaxCnt. So the first line that ends behind MaxCnt is the
//    last one of its pass, and what follows it is the rest of a longer last line of an older pass.
// 3. In between, the stamps tell where pass n ends (FindPassEnd).
// 4. If they do not, either all stamps are equal or nothing but one cut line is left of pass n-1.
// The
//    WRAP line has the prefix of the last line of pass n-1: where the last line has the same, it
//    belongs there. Otherwise a loose line that ends behind MaxCnt is the cut one, because a line
//    of pass n that ended there would have begun pass n+1.

#include "zornctl/order/order_log.h"

#include <algorithm>
#include <charconv>

#include "zornctl/order/pass_end.h"

namespace zornctl {

namespace {

constexpr std::string_view kWrapText = "------ WRAP ----- Cycle=";

struct WrapLine {
    size_t at = 0;
    size_t end = 0;  ///< behind its newline
    uint32_t cycle = 0;
    size_t maxCount = 0;
};

/// Takes "`key`number" off the front of `text`.
std::optional<uint64_t> TakeNumber(std::string_view& text, std::string_view key) {
    if (!text.starts_with(key)) return std::nullopt;
    uint64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [behind, error] = std::from_chars(text.data() + key.size(), end, number);
    if (error != std::errc{}) return std::nullopt;
    text = {behind, static_cast<size_t>(end - behind)};
    return number;
}

/// The line at `at` of the file as a WRAP line; empty if it is none, or none of that place.
std::optional<WrapLine> ParseWrapLine(std::string_view line, size_t at) {
    const auto prefix = ParseTracePrefix(line);
    if (!prefix) return std::nullopt;
    auto rest = line.substr(prefix->length);
    const auto cycle = TakeNumber(rest, kWrapText);
    const auto headEnd = cycle ? TakeNumber(rest, ", CntInitEnd=") : std::nullopt;
    const auto count = headEnd ? TakeNumber(rest, ", CurrentByteCnt=") : std::nullopt;
    const auto maxCount = count ? TakeNumber(rest, " (MaxCnt=") : std::nullopt;
    if (!maxCount || (at != 0 && at != *headEnd)) return std::nullopt;
    return WrapLine{at, at + line.size() + 1, static_cast<uint32_t>(*cycle), *maxCount};
}

std::optional<WrapLine> FindNewestWrap(std::string_view text) {
    std::optional<WrapLine> newest;
    for (size_t found = text.find(kWrapText); found != text.npos;) {
        const size_t begin = text.rfind('\n', found) + 1;  // npos + 1 is 0
        const auto line = BareLine(text.substr(begin, text.find('\n', found) - begin));
        const auto at = static_cast<size_t>(line.data() - text.data());
        const auto wrap = ParseWrapLine(line, at);
        if (wrap && (!newest || wrap->cycle > newest->cycle)) newest = wrap;
        found = text.find(kWrapText, at + line.size());
    }
    if (newest) newest->end = std::min(newest->end, text.size());
    return newest;
}

/// Where the line that passes `maxCount` ends: all behind it is of another pass.
size_t FindLimit(std::string_view text, const WrapLine& wrap) {
    const auto newline = text.find('\n', std::max(wrap.end, wrap.maxCount));
    return newline == text.npos ? text.size() : newline + 1;
}

std::string_view PrefixText(std::string_view line) {
    const auto prefix = ParseTracePrefix(line);
    return line.substr(0, prefix ? prefix->length : 0);
}

/// What the lines of a pass end with.
struct LastLines {
    size_t stamped = 0;                ///< the last line with a stamp
    std::optional<size_t> firstLoose;  ///< of all
    std::optional<size_t> loose;       ///< the last one behind the last stamp
};

LastLines FindLastLines(std::string_view pass) {
    LastLines last;
    for (auto rest = pass; !rest.empty();) {
        const size_t at = pass.size() - rest.size();
        if (!StampOf(BareLine(TakeLine(rest))).empty()) {
            last.stamped = at;
            last.loose.reset();
        } else {
            last.loose = at;
            if (!last.firstLoose) last.firstLoose = at;
        }
    }
    return last;
}

/// Step 4: `pass` begins with the WRAP line and shows no sign of an older line.
PassEnd FindUnsignedEnd(std::string_view pass, size_t wrapLength, bool passesLimit) {
    if (!passesLimit) return {pass.size(), false};
    const auto last = FindLastLines(pass);
    const bool isOfFormerPass =
        last.stamped != 0 && PrefixText(pass.substr(last.stamped)) == PrefixText(pass);
    if (!isOfFormerPass) return {last.loose.value_or(pass.size()), last.loose.has_value()};
    const bool isCut = last.firstLoose && *last.firstLoose < last.stamped;
    return {isCut ? *last.firstLoose : wrapLength, isCut};
}

void Add(LogOrder& order, const TracePiece& piece) {
    if (!piece.text.empty()) order.pieces.push_back(piece);
}

}  // namespace

LogOrder OrderLog(std::string_view text) {
    LogOrder order;
    const auto wrap = FindNewestWrap(text);
    if (!wrap) {
        Add(order, {TracePart::kNewest, text});
        return order;
    }
    const size_t limit = FindLimit(text, *wrap);
    const auto pass = text.substr(wrap->at, limit - wrap->at);
    auto end = FindPassEnd(pass);
    if (end.at == pass.size()) {
        end = FindUnsignedEnd(pass, wrap->end - wrap->at, limit > wrap->maxCount);
    }
    order.cycle = wrap->cycle;
    Add(order, {TracePart::kHead, text.substr(0, wrap->at)});
    Add(order, {TracePart::kOlder, text.substr(limit), true});
    Add(order, {TracePart::kOlder, pass.substr(end.at), end.isCut});
    Add(order, {TracePart::kNewest, pass.substr(0, end.at)});
    return order;
}

}  // namespace zornctl

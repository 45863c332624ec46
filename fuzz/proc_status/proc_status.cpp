// Input: a line with a key, and the file.
#include "trace/proc_status.h"

#include <map>
#include <sstream>
#include <string>

#include "support/fuzz.h"

/// The same word by word, with the library's streams.
static std::optional<uint64_t> ReadByStreams(std::string_view text, std::string_view key) {
    static const std::map<std::string, uint64_t> kFactors{
        {"kB", 1ULL << 10}, {"MB", 1ULL << 20}, {"GB", 1ULL << 30}};
    std::istringstream lines{std::string{text}};
    for (std::string line, word, unit; std::getline(lines, line); word.clear()) {
        std::istringstream words{line};
        words >> word >> std::ws;
        if (word != key) continue;
        uint64_t number = 0;
        if (words.peek() == '-' || words.peek() == '+' || !(words >> number)) return std::nullopt;
        words >> unit;
        return number * (kFactors.contains(unit) ? kFactors.at(unit) : 1);
    }
    return std::nullopt;
}

void Fuzz(std::string_view input) {
    const auto key = TakeArgument(input);
    HOLDS(ParseProcStatusField(input, key) == ReadByStreams(input, key));
}

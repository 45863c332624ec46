#include "support/trace_capture.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <system_error>

#include "support/leak_census.h"
#include "support/libc_fault.h"
#include "trace/debug.h"

namespace fs = std::filesystem;

namespace {

/// The trace keeps the file of its memory figure open for as long as the process lives.
[[maybe_unused]] const bool kMayStay = [] {
    LeakCensus::MayStay("/proc/*/statm");
    return true;
}();

constexpr const char* kProgram = "capture";
constexpr size_t kNameColumn = 13;

/// Every variable that has a say in how the trace is set up; empty: it is not to be set.
std::vector<std::pair<const char*, std::string>> Settings(const fs::path& directory,
                                                          unsigned level) {
    return {{"QX_LOG_RINGBUF_DIR", directory.native()},
            {"QX_LOG_DEBUG_LEVEL", std::to_string(level)},
            {"QX_LOG_NOHDR_TOSDTERR", "1"},
            {"QX_LOG_DYNAMIC_UPDATE", "0"},
            {"QX_LOG_FILE_MAX_SIZE", "1073741824"},
            {"QX_LOG_FILE_DIR", ""},
            {"QX_LOG_RINGBUF_WEIGHT", ""},
            {"TraceFileLimit", ""}};
}

void SetVariable(const char* name, const std::optional<std::string>& value) {
    (void)(value ? setenv(name, value->c_str(), 1) : unsetenv(name));
}

/// Takes `count` characters off the front of `text` that all fulfil `is`; false and nothing is
/// taken if they do not.
template <typename Is>
bool Take(std::string_view& text, size_t count, Is is) {
    if (text.size() < count || !std::all_of(text.begin(), text.begin() + count, is)) return false;
    text.remove_prefix(count);
    return true;
}

bool IsDigit(char c) {
    return std::isdigit(static_cast<unsigned char>(c)) != 0;
}

bool TakeText(std::string_view& text, std::string_view what) {
    if (!text.starts_with(what)) return false;
    text.remove_prefix(what.size());
    return true;
}

/// "yyyy-mm-dd hh:mm:ss.mmm", digits or these letters (a clock that cannot be read).
bool TakeStamp(std::string_view& text) {
    constexpr std::string_view kLetters = "yyyy-mm-dd hh:mm:ss.mmm";
    if (text.size() < kLetters.size()) return false;
    for (size_t i = 0; i < kLetters.size(); ++i) {
        const bool isMark = std::isalpha(static_cast<unsigned char>(kLetters[i])) == 0;
        if (text[i] != kLetters[i] && (isMark || !IsDigit(text[i]))) return false;
    }
    text.remove_prefix(kLetters.size());
    return true;
}

/// The parts of a prefix. `hasMemory` tells which of the two forms it has; `rest` is the name
/// column and the text.
struct Prefix {
    bool hasMemory;
    std::string_view rest;
};

std::optional<Prefix> ParsePrefix(std::string_view line) {
    std::string_view rest = line;
    if (!TakeStamp(rest) || !TakeText(rest, " [") || !Take(rest, 10, IsDigit) ||
        !TakeText(rest, "] ")) {
        return std::nullopt;
    }
    std::string_view memory = rest;
    memory.remove_prefix(std::min(memory.find_first_not_of(' '), memory.size()));
    const auto digits = std::min(memory.find_first_not_of("0123456789"), memory.size());
    memory.remove_prefix(digits);
    if (digits != 0 && TakeText(memory, " KB !")) return Prefix{true, memory};
    return Prefix{false, rest};
}

/// Replaces all between `head` and `tail` by `mask`.
void MaskBetween(std::string& line, std::string_view head, std::string_view tail,
                 std::string_view mask) {
    auto at = line.find(head);
    if (at == line.npos) return;
    at += head.size();
    const auto end = tail.empty() ? line.size() : line.find(tail, at);
    if (end != line.npos) line.replace(at, end - at, mask);
}

void MaskAddresses(std::string& line) {
    constexpr size_t kLeast = 6;
    for (size_t at = line.find("0x"); at != line.npos; at = line.find("0x", at + 2)) {
        const auto end = std::min(line.find_first_not_of("0123456789abcdef", at + 2), line.size());
        if (end - at - 2 >= kLeast) line.replace(at, end - at, "<address>");
    }
}

std::string MaskLine(std::string_view line) {
    std::string masked{line};
    if (const auto prefix = ParsePrefix(line)) {
        masked = "<time> [<pid>] ";
        if (prefix->hasMemory) masked += "<KB> !";
        masked += prefix->rest;
    }
    MaskBetween(masked, "Start=\"", "\"", "<time>");
    MaskBetween(masked, "Process PID                : ", "", "<pid>");
    MaskAddresses(masked);
    return masked;
}

/// Gives `f` each line of `text`, without its end.
template <typename F>
void EachLine(std::string_view text, F f) {
    while (!text.empty()) {
        const auto end = std::min(text.find('\n'), text.size());
        f(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
}

}  // namespace

std::string_view CutTracePrefix(std::string_view line) {
    const auto prefix = ParsePrefix(line);
    if (!prefix) return line;
    std::string_view rest = prefix->rest;
    // The column is as wide as a longer name makes it.
    const auto end = rest.find(' ', std::min(kNameColumn, rest.size()));
    return end == rest.npos ? std::string_view{} : rest.substr(end + 1);
}

std::string MaskTrace(std::string_view log) {
    std::string masked;
    EachLine(log, [&masked](std::string_view line) { masked += MaskLine(line) + "\n"; });
    if (!log.empty() && !log.ends_with('\n')) masked.pop_back();
    return masked;
}

TraceCapture::TraceCapture(unsigned level) {
    std::string directory = (fs::temp_directory_path() / "zorn-trace-XXXXXX").native();
    if (mkdtemp(directory.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(),
                                "TraceCapture: cannot make " + directory);
    }
    m_Directory = directory;
    for (const auto& [name, value] : Settings(m_Directory, level)) {
        const char* old = std::getenv(name);
        m_Environment.emplace_back(name,
                                   old == nullptr ? std::nullopt : std::optional<std::string>{old});
        SetVariable(name, value.empty() ? std::nullopt : std::optional{value});
    }
    const LibcFault::Off off;
    (void)Debug.Init(kProgram);
}

TraceCapture::~TraceCapture() {
    const LibcFault::Off off;
    Debug.ResetMembers();
    for (const auto& [name, value] : m_Environment) SetVariable(name.c_str(), value);
    std::error_code ignored;
    fs::remove_all(m_Directory, ignored);
}

std::string TraceCapture::Text() const {
    std::ifstream file{m_Directory / ("log." + std::string{kProgram}), std::ios::binary};
    file.seekg(static_cast<std::streamoff>(m_Skip));
    return {std::istreambuf_iterator<char>{file}, {}};
}

::Lines TraceCapture::Lines() const {
    ::Lines lines;
    EachLine(Text(), [&lines](std::string_view line) { lines.emplace_back(CutTracePrefix(line)); });
    return lines;
}

::Lines TraceCapture::LinesWith(std::string_view part) const {
    ::Lines lines = Lines();
    std::erase_if(lines, [part](const std::string& line) { return line.find(part) == line.npos; });
    return lines;
}

void TraceCapture::Clear() {
    m_Skip += Text().size();
}

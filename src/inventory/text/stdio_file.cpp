#include "inventory/text/stdio_file.h"

#include <string_view>
#include <utility>

#include "platform/open_file.h"
#include "platform/stream_text.h"
#include "trace/trace.h"

namespace {

/// Appends the lines of `text`; what follows the last line feed counts if `text` is whole.
void SplitLines(std::string_view text, bool isWhole, std::vector<std::string>& lines) {
    for (size_t end = text.find('\n'); end != text.npos; end = text.find('\n')) {
        lines.emplace_back(text.substr(0, end));
        text.remove_prefix(end + 1);
    }
    if (isWhole && !text.empty()) lines.emplace_back(text);
}

}  // namespace

bool CStdioFile::ReadFile(std::vector<std::string>& lines, const std::string& path) {
    const UniqueFile file = OpenFile(path.c_str(), "r");
    if (!file) {
        TRACE(1, "\nCStdioFile::ReadFile   : Cannot read file \"%s\"!\n", path.c_str());
        return false;
    }
    const StreamText read{file.get()};
    SplitLines(read.Text(), read.IsWhole(), lines);
    return true;
}

bool CStdioFile::GetLineFromFile(std::string& line, const std::string& path, size_t index) {
    std::vector<std::string> lines;
    if (!ReadFile(lines, path)) {
        TRACE(1, "\nCStdioFile::GetLineFromFile  : Cannot read file \"%s\"!\n", path.c_str());
        return false;
    }
    if (index >= lines.size()) {
        // clang-format off
        TRACE(1, "\nCStdioFile::GetLineFromFile  : File has %d lines. Requested line index: %d does not exist (index is 0 based).\n",
              static_cast<int>(lines.size()), static_cast<int>(index));
        // clang-format on
        return false;
    }
    line = std::move(lines[index]);
    return true;
}

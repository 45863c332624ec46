// A file of PCI names has tens of thousands of lines, of which one is wanted. So what is looked for
// is searched as bytes (memmem), and only where it was found the line around it is cut out and
// cleaned, which is the proof: it counts if the cleaned line begins with it. A find amid a line, the
// usual miss, is told by what stands in front of it.
//
// Where a line begins depends on all bytes since the line feed before it, since a line has a limit.
// A search therefore keeps the offset of some line's begin at or before the find: less than a limit
// behind it, a line begins only behind a line feed.

#include "platform/profile_text.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace {

constexpr size_t kLineLimit = 1023;

/// isspace(3) in the C locale: blank, \t \n \v \f \r.
bool IsBlank(char byte) {
    return byte == ' ' || (byte >= '\t' && byte <= '\r');
}

std::string_view TrimEnd(std::string_view text) {
    while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
    return text;
}

std::string_view Trim(std::string_view text) {
    while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
    return TrimEnd(text);
}

size_t OffsetOf(std::string_view text, const void* byte) {
    return static_cast<size_t>(static_cast<const char*>(byte) - text.data());
}

size_t Search(std::string_view text, std::string_view part, size_t from) {
    if (from == text.size()) return text.npos;
    // The bracket of a head is rare enough to be looked for alone, which is what `find` does.
    if (part.front() == '[') return text.find(part, from);
    const void* const found =
        memmem(text.data() + from, text.size() - from, part.data(), part.size());
    return found != nullptr ? OffsetOf(text, found) : text.npos;
}

/// The part of `text` in front of the first `byte`, or all of it. (memchr: the text's own operations
/// go byte by byte.)
std::string_view Before(std::string_view text, char byte) {
    const void* const found = text.empty() ? nullptr : memchr(text.data(), byte, text.size());
    return found != nullptr ? text.substr(0, OffsetOf(text, found)) : text;
}

/// Whether something other than white space stands in the line in front of the byte at `at`.
/// REQUIRES: a line begins at `known`, not behind `at`, and no other one because of the limit.
bool IsAmidLine(std::string_view text, size_t known, size_t at) {
    while (at > known && text[at - 1] != '\n') {
        if (!IsBlank(text[--at])) return true;
    }
    return false;
}

/// The line that holds the byte at `at`. REQUIRES: a line begins at `known`, not behind `at`.
ProfileLine LineAround(std::string_view text, size_t known, size_t at) {
    const void* const lineFeed = memrchr(text.data() + known, '\n', at - known);
    const size_t first = lineFeed == nullptr ? known : OffsetOf(text, lineFeed) + 1;
    return ProfileLineAt(text, first + (at - first) / kLineLimit * kLineLimit);
}

size_t CopyText(std::string_view text, std::span<char> buffer) {
    const size_t length = std::min(text.size(), buffer.size() - 1);
    memcpy(buffer.data(), text.data(), length);
    buffer[length] = '\0';
    return length;
}

/// Puts names into a buffer, one behind the other. REQUIRES: a buffer of three bytes or more.
class NameList {
  public:
    explicit NameList(std::span<char> buffer) : m_Buffer(buffer) {}

    [[nodiscard]] bool IsFull() const { return m_Count + 2 >= m_Buffer.size(); }

    void Append(std::string_view name) {
        const size_t room = m_Buffer.size() - m_Count;
        const size_t length = std::min(name.size(), room);
        memcpy(m_Buffer.data() + m_Count, name.data(), length);
        m_Count += length;
        if (length < room) m_Buffer[m_Count++] = '\0';
    }

    /// Ends the list; gives its count.
    size_t Close() {
        if (m_Count == 0) return 0;
        if (m_Count == m_Buffer.size()) {
            m_Buffer[m_Count - 1] = '\0';
            m_Count -= 2;
        }
        m_Buffer[m_Count] = '\0';
        return m_Count;
    }

  private:
    std::span<char> m_Buffer;
    size_t m_Count = 0;
};

std::optional<ProfileLine> FindProfileHead(std::string_view text, size_t from) {
    while (const auto line = FindProfileLine(text, "[", from)) {
        if (IsProfileHead(line->text)) return line;
        from = line->end;
    }
    return std::nullopt;
}

size_t ListSections(std::string_view text, std::span<char> buffer) {
    NameList list{buffer};
    for (size_t from = 0; !list.IsFull();) {
        const auto head = FindProfileHead(text, from);
        if (!head) break;
        list.Append(head->text.substr(1, head->text.find(']') - 1));
        from = head->end;
    }
    return list.Close();
}

size_t ListNames(std::string_view lines, std::span<char> buffer) {
    NameList list{buffer};
    for (size_t from = 0; from < lines.size() && !list.IsFull();) {
        const ProfileLine line = ProfileLineAt(lines, from);
        if (const auto entry = ParseProfileEntry(line.text)) list.Append(entry->name);
        from = line.end;
    }
    return list.Close();
}

}  // namespace

ProfileLine ProfileLineAt(std::string_view text, size_t begin) {
    const std::string_view most = text.substr(begin, kLineLimit);
    const std::string_view line = Before(most, '\n');
    const size_t lineFeed = line.size() < most.size() ? 1 : 0;
    return {begin, begin + line.size() + lineFeed, Trim(Before(Before(line, '\0'), ';'))};
}

std::optional<ProfileLine> FindProfileLine(std::string_view text, std::string_view start,
                                           size_t from) {
    size_t at = Search(text, start, from);
    while (at != text.npos) {
        if (at - from < kLineLimit && IsAmidLine(text, from, at)) {
            at = Search(text, start, at + 1);
            continue;
        }
        const ProfileLine line = LineAround(text, from, at);
        if (line.text.starts_with(start)) return line;
        from = line.end;
        at = Search(text, start, from);
    }
    return std::nullopt;
}

bool IsProfileHead(std::string_view line) {
    return line.starts_with('[') && line.find(']') != line.npos;
}

bool IsProfileHeadOf(std::string_view line, std::string_view section) {
    return line.starts_with('[') && line.substr(1).starts_with(section) &&
           line.substr(1 + section.size()).starts_with(']');
}

std::optional<ProfileEntry> ParseProfileEntry(std::string_view line) {
    const size_t sign = line.find('=');
    if (sign == line.npos) return std::nullopt;
    return ProfileEntry{TrimEnd(line.substr(0, sign)), Trim(line.substr(sign + 1))};
}

std::optional<std::string_view> FindProfileSection(std::string_view text,
                                                   std::string_view section) {
    const auto head = FindProfileLine(text, "[" + std::string{section} + "]", 0);
    if (!head) return std::nullopt;
    const auto next = FindProfileHead(text, head->end);
    const size_t end = next ? next->begin : text.size();
    return text.substr(head->end, end - head->end);
}

std::optional<std::string_view> FindProfileValue(std::string_view lines, std::string_view key) {
    const std::string_view start = key.empty() ? "=" : key;
    for (size_t from = 0; const auto line = FindProfileLine(lines, start, from);) {
        const auto entry = ParseProfileEntry(line->text);
        if (entry && entry->name == key) return entry->value;
        from = line->end;
    }
    return std::nullopt;
}

size_t ReadProfileText(std::string_view text, const char* section, const char* key,
                       std::span<char> buffer) {
    if (buffer.size() < 3) return 0;
    if (section == nullptr) return ListSections(text, buffer);
    const auto lines = FindProfileSection(text, section);
    if (!lines) return 0;
    if (key == nullptr) return ListNames(*lines, buffer);
    const auto value = FindProfileValue(*lines, key);
    return value ? CopyText(*value, buffer) : 0;
}

#pragma once

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/profile_edit.h"

// The second version of what reads and edits private profiles: slow and obvious, line by line into
// a buffer of 1024 bytes, with the functions of <cstring>. The tests and the fuzz targets compare.

/// The lines of a text as `fgets` gives them.
class SlowLines {
  public:
    explicit SlowLines(std::string_view text) : m_Text(text) {}

    bool Next() {
        size_t length = 0;
        while (length < 1023 && m_At < m_Text.size()) {
            m_Line[length++] = m_Text[m_At++];
            if (m_Line[length - 1] == '\n') break;
        }
        m_Line[length] = '\0';
        return length > 0;
    }
    [[nodiscard]] size_t At() const { return m_At; }

    /// The line without white space around and comment.
    char* Clean() {
        char* start = SkipBlanks(m_Line);
        if (char* comment = strchr(start, ';')) *comment = '\0';
        CutBlanks(start);
        return start;
    }

    static char* SkipBlanks(char* text) {
        while (isspace(static_cast<unsigned char>(*text)) != 0) ++text;
        return text;
    }
    static void CutBlanks(char* text) {
        size_t length = strlen(text);
        while (length > 0 && isspace(static_cast<unsigned char>(text[length - 1])) != 0) --length;
        text[length] = '\0';
    }

  private:
    std::string_view m_Text;
    size_t m_At = 0;
    char m_Line[1024];
};

inline bool SlowIsHead(const char* line) {
    return *line == '[' && strchr(line, ']') != nullptr;
}

inline bool SlowIsHeadOf(const char* line, const char* section) {
    const size_t length = strlen(section);
    return strncmp(line + 1, section, length) == 0 && line[1 + length] == ']';
}

/// What `ReadProfileText` gives.
inline size_t SlowReadProfile(std::string_view text, const char* section, const char* key,
                              char* buffer, size_t size) {
    size_t count = 0;
    bool isInSection = false;
    const auto append = [&](const char* name) {
        for (size_t i = 0; i <= strlen(name) && count < size; ++i) buffer[count++] = name[i];
    };
    SlowLines lines{text};
    while (static_cast<int64_t>(count) < static_cast<int64_t>(size) - 2 && lines.Next()) {
        char* line = lines.Clean();
        if (*line == '\0') continue;
        if (SlowIsHead(line)) {
            if (isInSection) break;
            if (section == nullptr) {
                *strchr(line, ']') = '\0';
                append(line + 1);
            } else {
                isInSection = SlowIsHeadOf(line, section);
            }
            continue;
        }
        char* value = isInSection ? strchr(line, '=') : nullptr;
        if (value == nullptr) continue;
        *value++ = '\0';
        SlowLines::CutBlanks(line);
        if (key == nullptr) {
            append(line);
        } else if (strcmp(line, key) == 0) {
            append(SlowLines::SkipBlanks(value));
            --count;  // of a value no terminator is counted, and a cut one keeps room for it
            break;
        }
    }
    if (count == 0) return 0;
    if (count == size) {
        buffer[size - 1] = '\0';
        count = size - 2;
    }
    buffer[count] = '\0';
    return count;
}

/// What `WritePrivateProfileString` makes of a file that is there; its result.
inline int SlowWriteProfile(std::string& text, const char* section, const char* key,
                            const char* value) {
    const std::string entry =
        key != nullptr && value != nullptr ? std::string{key} + "=" + value + "\n" : "";
    const std::string whole = text;
    const auto splice = [&](size_t from, size_t to, const std::string& made) {
        text = whole.substr(0, from) + made + whole.substr(to);
        return 1;
    };
    SlowLines lines{whole};
    bool isInSection = false;
    size_t start = 0;
    size_t lastEnd = 0;
    int entries = 0;
    while (lines.Next()) {
        char* line = lines.Clean();
        if (*line == '\0') continue;
        const size_t before = lastEnd;
        lastEnd = lines.At();
        if (SlowIsHead(line)) {
            if (isInSection) {
                if (key == nullptr) return splice(start, before, "");
                return value != nullptr ? splice(before, before, entry) : 0;
            }
            isInSection = SlowIsHeadOf(line, section);
            start = before;
            continue;
        }
        if (!isInSection) continue;
        ++entries;
        char* sign = strchr(line, '=');
        if (sign == nullptr || key == nullptr) continue;
        *sign = '\0';
        SlowLines::CutBlanks(line);
        if (strcmp(line, key) != 0) continue;
        return splice(before, lastEnd, (entries == 1 ? "\n" : "") + entry);
    }
    if (isInSection && key == nullptr) return splice(start, whole.size(), "");
    if (key == nullptr || value == nullptr) return 0;
    text += isInSection ? entry : std::string{"\n["} + section + "]\n\n" + entry;
    return 1;
}

/// What an edit makes of a text.
inline std::string ApplyProfileEdit(const ProfileEdit& edit, std::string text, const char* section,
                                    const char* key, const char* value) {
    const std::string entry =
        key != nullptr && value != nullptr ? std::string{key} + "=" + value + "\n" : "";
    switch (edit.kind) {
        case ProfileEdit::Kind::kNothing:
            return text;
        case ProfileEdit::Kind::kSplice:
            return text.replace(edit.from, edit.to - edit.from,
                                (edit.addEmptyLine ? "\n" : "") + (edit.withEntry ? entry : ""));
        case ProfileEdit::Kind::kAppendEntry:
            return text + entry;
        case ProfileEdit::Kind::kAppendSection:
            return text + "\n[" + section + "]\n\n" + entry;
    }
    return {};
}

/// The lines of a text that say something.
inline std::vector<std::string> SlowCleanLines(std::string_view text) {
    std::vector<std::string> found;
    for (SlowLines lines{text}; lines.Next();) {
        const char* line = lines.Clean();
        if (*line != '\0') found.emplace_back(line);
    }
    return found;
}

/// How many lines of `before` and of `after` stand between what both begin and end with.
inline std::pair<size_t, size_t> CountChanged(const std::vector<std::string>& before,
                                              const std::vector<std::string>& after) {
    const size_t least = std::min(before.size(), after.size());
    size_t same = 0;
    while (same < least && before[same] == after[same]) ++same;
    size_t tail = 0;
    while (same + tail < least && *(before.end() - 1 - static_cast<long>(tail)) ==
                                      *(after.end() - 1 - static_cast<long>(tail))) {
        ++tail;
    }
    return {before.size() - same - tail, after.size() - same - tail};
}

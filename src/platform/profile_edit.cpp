#include "platform/profile_edit.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <utility>

#include "platform/profile_text.h"
#include "platform/unique_memory.h"

namespace {

using Kind = ProfileEdit::Kind;

/// Walks over a profile until the place of an edit is found.
class EditPlanner {
  public:
    EditPlanner(const char* section, const char* key, const char* value)
        : m_Section(section), m_Key(key), m_HasValue(value != nullptr) {}

    ProfileEdit Plan(std::string_view text) {
        for (size_t at = 0; at < text.size();) {
            const ProfileLine line = ProfileLineAt(text, at);
            at = line.end;
            if (line.text.empty()) continue;
            const size_t before = std::exchange(m_LastEnd, line.end);
            if (IsProfileHead(line.text)) {
                if (m_InSection) return AtNextHead(before);
                EnterIfWanted(line.text, before);
            } else if (m_InSection && IsWantedEntry(line.text)) {
                return {Kind::kSplice, before, line.end, m_HasValue, m_Entries == 1};
            }
        }
        return AtEnd(text.size());
    }

  private:
    std::string_view m_Section;
    const char* m_Key;
    bool m_HasValue;
    size_t m_LastEnd = 0;  ///< of the last significant line
    bool m_InSection = false;
    size_t m_Start = 0;  ///< of the section, with what belongs to its head
    unsigned m_Entries = 0;

    void EnterIfWanted(std::string_view head, size_t before) {
        m_InSection = IsProfileHeadOf(head, m_Section);
        m_Start = before;
    }

    bool IsWantedEntry(std::string_view line) {
        ++m_Entries;
        const auto entry = ParseProfileEntry(line);
        return m_Key != nullptr && entry && entry->name == m_Key;
    }

    [[nodiscard]] ProfileEdit AtNextHead(size_t before) const {
        if (m_Key == nullptr) return {Kind::kSplice, m_Start, before};
        if (m_HasValue) return {Kind::kSplice, before, before, true};
        return {};
    }

    [[nodiscard]] ProfileEdit AtEnd(size_t end) const {
        if (m_InSection && m_Key == nullptr) return {Kind::kSplice, m_Start, end};
        if (m_Key == nullptr || !m_HasValue) return {};
        return {m_InSection ? Kind::kAppendEntry : Kind::kAppendSection};
    }
};

}  // namespace

ProfileEdit PlanProfileEdit(std::string_view text, const char* section, const char* key,
                            const char* value) {
    return EditPlanner{section, key, value}.Plan(text);
}

bool SpliceFile(FILE* stream, long from, long to, const char* key, const char* value,
                bool addEmptyLine) {
    struct stat status {};
    if (fstat(fileno(stream), &status) != 0) return false;
    const size_t size = status.st_size > to ? static_cast<size_t>(status.st_size - to) : 0;
    const UniqueMemory<char> tail{static_cast<char*>(calloc(size + 1, 1))};
    if (!tail || fseek(stream, to, SEEK_SET) != 0) return false;
    if (fread(tail.get(), 1, size, stream) != size) return false;
    if (fseek(stream, from, SEEK_SET) != 0) return false;
    if (addEmptyLine) (void)fputs("\n", stream);
    if (key != nullptr && value != nullptr) (void)fprintf(stream, "%s=%s\n", key, value);
    (void)fwrite(tail.get(), 1, size, stream);
    if (fflush(stream) != 0 || ferror(stream) != 0) return false;
    return ftruncate(fileno(stream), ftell(stream)) == 0;
}

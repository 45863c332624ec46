#include "markup/tag_stack.h"

#include "markup/characters.h"
#include "markup/name_compare.h"

namespace {

/// So many entries are looked at before names are counted.
constexpr size_t kShortWay = 16;

/// FNV-1a, a character at a time.
class NameHash {
  public:
    void Add(char character) {
        m_Value = (m_Value ^ static_cast<unsigned char>(Lower(character))) * 0x100000001B3;
    }
    [[nodiscard]] uint64_t Value() const { return m_Value; }

  private:
    uint64_t m_Value = 0xCBF29CE484222325;
};

}  // namespace

TagStack::TagStack(std::string_view text, bool ignoresCase, TagStackEntry parent)
    : m_Text(text), m_IgnoresCase(ignoresCase) {
    m_Entries.reserve(7);
    m_Entries.push_back(parent);
}

std::string_view TagStack::NameOf(const TagStackEntry& entry) const {
    const auto begin = static_cast<size_t>(entry.name - m_Text.data());
    size_t end = begin;
    while (end < m_Text.size() && !kIsTagNameEnd(m_Text[end])) ++end;
    return m_Text.substr(begin, end - begin);
}

bool TagStack::Matches(const TagStackEntry& entry, std::string_view name) const {
    const std::string_view rest = m_Text.substr(static_cast<size_t>(entry.name - m_Text.data()));
    return !name.empty() && rest.size() > name.size() &&
           IsSameName(rest.substr(0, name.size()), name, m_IgnoresCase) &&
           (kIsTagNameEnd(rest[name.size()]) || kIsPathNameEnd(rest[name.size()]));
}

size_t TagStack::Find(std::string_view name) {
    size_t place = Size() - 1;
    const size_t turn = place > kShortWay ? place - kShortWay : 0;
    for (; place > turn; --place) {
        if (Matches(m_Entries[place], name)) return place;
    }
    if (place == 0) return 0;
    if (!m_IsCounting) {
        m_IsCounting = true;
        for (size_t i = 1; i < Size(); ++i) Count(m_Entries[i].name, 1);
    }
    NameHash hash;
    for (const char character : name) hash.Add(character);
    const auto found = m_Counts.find(hash.Value());
    if (found == m_Counts.end() || found->second == 0) return 0;
    while (place > 0 && !Matches(m_Entries[place], name)) --place;
    return place;
}

void TagStack::Count(const char* name, int32_t change) {
    NameHash hash;
    const char* at = name;
    do {
        hash.Add(*at++);
        if (kIsTagNameEnd(*at) || kIsPathNameEnd(*at)) m_Counts[hash.Value()] += change;
    } while (!kIsTagNameEnd(*at));
}

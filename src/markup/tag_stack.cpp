#include "markup/tag_stack.h"

#include "markup/characters.h"
#include "markup/name_compare.h"

namespace {

/// So many entries are looked at before names are counted.
constexpr int kShortWay = 16;

/// FNV-1a, a character at a time. It begins with what no document can know: so none can be made whose names
/// share a hash.
class NameHash {
  public:
    NameHash(uint64_t seed, bool ignoresCase) : m_IgnoresCase(ignoresCase), m_Value(seed) {}
    void Add(char character) {
        if (m_IgnoresCase) character = Lower(character);
        m_Value = (m_Value ^ static_cast<unsigned char>(character)) * 0x100000001B3;
    }
    [[nodiscard]] uint64_t Value() const { return m_Value; }

  private:
    const bool m_IgnoresCase;
    uint64_t m_Value;
};

}  // namespace

std::string_view TagStack::TextFromName(int32_t position) const {
    return m_Text.substr(static_cast<size_t>(m_Positions[position].start) + 1);
}

std::string_view TagStack::NameOf(int32_t position) const {
    return tagNameEnd.FrontOf(TextFromName(position));
}

bool TagStack::Matches(int32_t position, std::string_view name) const {
    const std::string_view rest = TextFromName(position);
    return !name.empty() && rest.size() > name.size() &&
           IsSameName(rest.substr(0, name.size()), name, m_IgnoresCase) &&
           openNameEnd.Has(rest[name.size()]);
}

int32_t TagStack::Find(int32_t top, std::string_view name) {
    int steps = 0;
    for (int32_t at = top; at != m_Bottom; at = m_Positions[at].parent) {
        if (steps++ == kShortWay && !IsThere(top, name)) return 0;
        if (Matches(at, name)) return at;
    }
    return 0;
}

/// By the counts alone: names of the same hash make it true too.
bool TagStack::IsThere(int32_t top, std::string_view name) {
    if (!m_IsCounting) {
        m_IsCounting = true;
        for (int32_t at = top; at != m_Bottom; at = m_Positions[at].parent) Count(at, 1);
    }
    NameHash hash{m_Seed, m_IgnoresCase};
    for (const char character : name) hash.Add(character);
    const auto found = m_Counts.find(hash.Value());
    return found != m_Counts.end() && found->second != 0;
}

void TagStack::Count(int32_t position, int32_t change) {
    NameHash hash{m_Seed, m_IgnoresCase};
    const std::string_view text = TextFromName(position);
    const char* at = text.data();
    do {
        hash.Add(*at++);
        if (openNameEnd.Has(*at)) m_Counts[hash.Value()] += change;
    } while (!tagNameEnd.Has(*at));
}

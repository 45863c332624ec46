#include "markup/tag_stack.h"

#include <sys/auxv.h>

#include <cstring>

#include "markup/characters.h"
#include "markup/name_compare.h"

namespace {

/// So many entries are looked at before names are counted.
constexpr int kShortWay = 16;

/// What documents cannot know: the kernel gives it to each process.
uint64_t ProcessKey() {
    uint64_t key = 0;
    const auto random = getauxval(AT_RANDOM);
    if (random != 0) memcpy(&key, reinterpret_cast<const void*>(random), sizeof key);
    return key;
}

/// The polynomial with the characters as coefficients, modulo a prime, at a secret place: any two names of
/// n bytes share it with a probability of n / 2^61, however they are chosen.
class NameHash {
  public:
    explicit NameHash(bool ignoresCase) : m_IgnoresCase(ignoresCase), m_Place(SecretPlace()) {}
    void Add(char character) {
        if (m_IgnoresCase) character = Lower(character);
        const Wide sum = Wide{m_Value} * m_Place + static_cast<unsigned char>(character);
        m_Value = static_cast<uint64_t>(sum & kPrime) + static_cast<uint64_t>(sum >> 61);
        if (m_Value >= kPrime) m_Value -= kPrime;
    }
    [[nodiscard]] uint64_t Value() const { return m_Value; }

  private:
    __extension__ using Wide = unsigned __int128;
    static constexpr uint64_t kPrime = (uint64_t{1} << 61) - 1;

    const bool m_IgnoresCase;
    const uint64_t m_Place;
    uint64_t m_Value = 1;

    static uint64_t SecretPlace() {
        static const uint64_t place = ProcessKey() % kPrime;
        return place;
    }
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
    NameHash hash{m_IgnoresCase};
    for (const char character : name) hash.Add(character);
    return m_Counts.contains(hash.Value());
}

void TagStack::Count(int32_t position, int32_t change) {
    NameHash hash{m_IgnoresCase};
    const std::string_view text = TextFromName(position);
    const char* at = text.data();
    do {
        hash.Add(*at++);
        if (!openNameEnd.Has(*at)) continue;
        const auto count = m_Counts.try_emplace(hash.Value()).first;
        count->second += change;
        if (count->second == 0) m_Counts.erase(count);
    } while (!tagNameEnd.Has(*at));
}

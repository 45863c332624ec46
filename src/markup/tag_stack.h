#pragma once

#include <cstdint>
#include <string_view>
#include <unordered_map>
#include <vector>

/// An element whose end tag has not come.
struct TagStackEntry {
    const char* name = nullptr;  ///< in the text, behind the "<"; its end is not looked for
    int32_t position = 0;
    int32_t lastChild = 0;  ///< 0 if there is none yet
};

/// The open elements of a parse. Entry 0 stands for the parent of all and has no name.
///
/// The names are in the text, which must stay where it is. Thread-safety: one thread.
class TagStack {
  public:
    TagStack(std::string_view text, bool ignoresCase, TagStackEntry parent);

    [[nodiscard]] size_t Size() const { return m_Entries.size(); }
    [[nodiscard]] TagStackEntry& Top() { return m_Entries.back(); }
    [[nodiscard]] TagStackEntry& operator[](size_t place) { return m_Entries[place]; }

    void Push(const char* name, int32_t position) {
        m_Entries.push_back({name, position, 0});
        if (m_IsCounting) Count(name, 1);
    }
    void Pop() {
        if (m_IsCounting) Count(Top().name, -1);
        m_Entries.pop_back();
    }

    /// The uppermost entry that an end tag with this name ends, or 0: whose name is that, or goes on
    /// behind it with one of the characters that end a name in a path.
    [[nodiscard]] size_t Find(std::string_view name);

    /// The name in whole.
    [[nodiscard]] std::string_view NameOf(const TagStackEntry& entry) const;

  private:
    std::string_view m_Text;
    const bool m_IgnoresCase;
    std::vector<TagStackEntry> m_Entries;
    /// How many entries each name ends, by its hash: so that end tags without a start do not make
    /// one look through a deep stack each time. Kept from the first one on that did.
    std::unordered_map<uint64_t, int32_t> m_Counts;
    bool m_IsCounting = false;

    [[nodiscard]] bool Matches(const TagStackEntry& entry, std::string_view name) const;
    void Count(const char* name, int32_t change);
};

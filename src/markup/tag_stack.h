#pragma once

#include <cstdint>
#include <string_view>
#include <unordered_map>

#include "markup/segmented_positions.h"

/// The open elements of a parse, seen by their names: each is the parent of the one above it, so mostly
/// nothing is kept of them beside their records.
///
/// Thread-safety: one thread.
class TagStack {
  public:
    /// The names are in `text`. `bottom` stands for the parent of all and has no name. Both `text` and
    /// `positions` must outlive this.
    TagStack(std::string_view text, bool ignoresCase, const SegmentedPositions& positions,
             int32_t bottom)
        : m_Text(text), m_IgnoresCase(ignoresCase), m_Positions(positions), m_Bottom(bottom) {}

    /// The uppermost element from `top` down that an end tag with this name ends, or 0: whose name is
    /// that, or goes on behind it with one of the characters that end a name in a path.
    [[nodiscard]] int32_t Find(int32_t top, std::string_view name);

    /// The name in whole.
    [[nodiscard]] std::string_view NameOf(int32_t position) const;

    /// Whether this is to be told of each element that is opened (1) or ends (-1).
    [[nodiscard]] bool IsCounting() const { return m_IsCounting; }
    void Count(int32_t position, int32_t change);

  private:
    std::string_view m_Text;
    const bool m_IgnoresCase;
    const SegmentedPositions& m_Positions;
    const int32_t m_Bottom;
    /// How many elements each name ends, by its hash: so that end tags without a start do not make
    /// one look through a deep stack each time. Kept from the first one on that did.
    std::unordered_map<uint64_t, int32_t> m_Counts;
    bool m_IsCounting = false;

    [[nodiscard]] std::string_view TextFromName(int32_t position) const;
    [[nodiscard]] bool Matches(int32_t position, std::string_view name) const;
    [[nodiscard]] bool IsThere(int32_t top, std::string_view name);
};

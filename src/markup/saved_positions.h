#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

/// What position a name stands for.
enum class PositionKind : uint32_t { kParent = 0, kMain = 1, kChild = 2 };

/// A position that was given a name.
struct SavedPosition {
    static constexpr uint32_t kInUse = 0x4;
    static constexpr uint32_t kLast = 0x8;  ///< of its chain
    static constexpr uint32_t kKind = 0x3;  ///< a `PositionKind`

    std::string name;
    int32_t position;
    uint32_t flags;

    [[nodiscard]] PositionKind Kind() const { return static_cast<PositionKind>(flags & kKind); }
};

/// Named positions: seven chains, by the sum of the bytes of the name.
struct SavedPositionMap {
    static constexpr size_t kBuckets = 7;
    using Chain = std::vector<SavedPosition>;

    std::array<Chain, kBuckets> chains;

    [[nodiscard]] Chain& ChainOf(std::string_view name);
    [[nodiscard]] SavedPosition* Find(std::string_view name);
    /// In place of what the name stood for. Throws `std::bad_alloc`.
    void Put(std::string_view name, int32_t position, PositionKind kind);
};

/// Any number of such maps, by number; made when they are first written to.
class SavedPositions {
  public:
    /// Null if there is none.
    [[nodiscard]] SavedPositionMap* Find(int map);
    /// REQUIRES: map >= 0. Throws `std::bad_alloc`.
    [[nodiscard]] SavedPositionMap& Make(int map);

    /// Forgets all names of positions that `isGone`.
    template <typename Predicate>
    void Purge(Predicate isGone) {
        for (const auto& map : m_Maps) {
            if (map == nullptr) continue;
            for (SavedPositionMap::Chain& chain : map->chains) {
                std::erase_if(chain,
                              [&](const SavedPosition& saved) { return isGone(saved.position); });
                if (!chain.empty()) chain.back().flags |= SavedPosition::kLast;
            }
        }
    }

  private:
    std::vector<std::unique_ptr<SavedPositionMap>> m_Maps;
};

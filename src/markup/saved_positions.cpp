#include "markup/saved_positions.h"

#include <algorithm>
#include <numeric>

SavedPositionMap::Chain& SavedPositionMap::ChainOf(std::string_view name) {
    const auto add = [](size_t sum, char byte) { return sum + static_cast<unsigned char>(byte); };
    return chains[std::accumulate(name.begin(), name.end(), size_t{0}, add) % kBuckets];
}

SavedPosition* SavedPositionMap::Find(std::string_view name) {
    Chain& chain = ChainOf(name);
    const auto found = std::find_if(chain.begin(), chain.end(), [name](const SavedPosition& saved) {
        return (saved.flags & SavedPosition::kInUse) != 0 && saved.name == name;
    });
    return found != chain.end() ? &*found : nullptr;
}

void SavedPositionMap::Put(std::string_view name, int32_t position, PositionKind kind) {
    const uint32_t flags = SavedPosition::kInUse | static_cast<uint32_t>(kind);
    if (SavedPosition* const known = Find(name)) {
        known->position = position;
        known->flags = flags | (known->flags & SavedPosition::kLast);
        return;
    }
    Chain& chain = ChainOf(name);
    chain.push_back({std::string{name}, position, flags | SavedPosition::kLast});
    if (chain.size() > 1) chain[chain.size() - 2].flags &= ~SavedPosition::kLast;
}

SavedPositionMap* SavedPositions::Find(int map) {
    const auto place = static_cast<size_t>(map);
    return map >= 0 && place < m_Maps.size() ? m_Maps[place].get() : nullptr;
}

SavedPositionMap& SavedPositions::Make(int map) {
    const auto place = static_cast<size_t>(map);
    if (place >= m_Maps.size()) m_Maps.resize(place + 1);
    if (m_Maps[place] == nullptr) m_Maps[place] = std::make_unique<SavedPositionMap>();
    return *m_Maps[place];
}

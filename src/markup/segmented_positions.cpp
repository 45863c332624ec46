#include "markup/segmented_positions.h"

#include <algorithm>
#include <utility>

void SegmentedPositions::Grow(int32_t capacity) {
    while (m_Capacity < capacity) {
        const int32_t segment = m_Capacity >> kSegmentBits;
        const int32_t begin = segment << kSegmentBits;
        if (m_Capacity == begin) GrowTable(segment + 1);
        const int32_t wanted = std::min(capacity - begin, kSegmentSize);
        auto records =
            std::make_unique_for_overwrite<ElementPosition[]>(static_cast<size_t>(wanted));
        if (m_Capacity > begin) {
            std::copy_n(m_Segments[segment].get(), m_Capacity - begin, records.get());
        }
        m_Segments[segment] = std::move(records);
        m_Capacity = begin + wanted;
    }
}

void SegmentedPositions::GrowTable(int32_t segments) {
    if (segments <= m_TableSize) return;
    const int32_t size = segments * 2 + 4;
    auto table = std::make_unique<Segment[]>(static_cast<size_t>(size));
    std::move(m_Segments.get(), m_Segments.get() + (segments - 1), table.get());
    m_Segments = std::move(table);
    m_TableSize = size;
}

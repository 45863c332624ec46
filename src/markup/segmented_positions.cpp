// Segments are enlarged by `realloc`, which moves no bytes of a large one, so that memory is not touched
// twice.

#include "markup/segmented_positions.h"

#include <algorithm>
#include <cstdlib>
#include <new>
#include <utility>

void SegmentedPositions::Grow(int32_t capacity) {
    while (m_Capacity < capacity) {
        const int32_t segment = m_Capacity >> kSegmentBits;
        const int32_t begin = segment << kSegmentBits;
        if (m_Capacity == begin) GrowTable(segment + 1);
        const int32_t wanted = std::min(capacity - begin, kSegmentSize);
        if (!Resize(segment, wanted)) throw std::bad_alloc{};
        m_Capacity = begin + wanted;
    }
}

void SegmentedPositions::Trim(int32_t count) {
    while (m_Capacity > count) {
        const int32_t segment = (m_Capacity - 1) >> kSegmentBits;
        const int32_t begin = segment << kSegmentBits;
        if (count > begin) {
            if (Resize(segment, count - begin)) m_Capacity = count;
            return;
        }
        m_Segments[segment].reset();
        m_Capacity = begin;
    }
}

bool SegmentedPositions::Resize(int32_t segment, int32_t records) {
    void* const resized =
        realloc(m_Segments[segment].get(), static_cast<size_t>(records) * sizeof(ElementPosition));
    if (resized == nullptr) return false;
    (void)m_Segments[segment].release();
    m_Segments[segment].reset(static_cast<ElementPosition*>(resized));
    return true;
}

void SegmentedPositions::GrowTable(int32_t segments) {
    if (segments <= m_TableSize) return;
    const int32_t size = segments * 2 + 4;
    auto table = std::make_unique<Segment[]>(static_cast<size_t>(size));
    std::move(m_Segments.get(), m_Segments.get() + (segments - 1), table.get());
    m_Segments = std::move(table);
    m_TableSize = size;
}

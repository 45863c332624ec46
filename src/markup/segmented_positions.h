#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "platform/unique_memory.h"

// Bits of `ElementPosition::levelFlags` above the depth.
inline constexpr uint32_t kElementEmpty = 0x00010000;         ///< written with "/>"
inline constexpr uint32_t kElementFree = 0x00020000;          ///< the record is free; no other bit
inline constexpr uint32_t kElementFirstSibling = 0x00080000;  ///< first child of its parent
inline constexpr uint32_t kElementNonEnded = 0x00100000;      ///< has no end tag of its own
/// An end tag was expected here and not found, or a lone one was met inside.
inline constexpr uint32_t kElementMissesEnd = 0x00200000;
inline constexpr uint32_t kElementIllFormed =
    0x00800000;  ///< of the root record: faults were found
inline constexpr uint32_t kElementCallersBits = 0x0F000000;  ///< belong to the caller
inline constexpr uint32_t kElementDepth = 0x0000FFFF;        ///< the depth: a root element has 1

/// Where one element stands in the text of its document, and its relatives. Positions are indexes of
/// a `SegmentedPositions`; 0 is the root, and "none" in all links.
struct ElementPosition {
    int32_t start;        ///< offset of the "<" of the start tag
    int32_t length;       ///< bytes from `start` to behind the end tag
    uint32_t tagLengths;  ///< low 22 bits: bytes of the start tag; high 10: of the end tag, or 0
    uint32_t levelFlags;  ///< depth and flags
    int32_t parent;       ///< 0 at the top
    int32_t firstChild;   ///< 0 if there is none
    int32_t nextSibling;  ///< 0 at the last; of a free record the next free one
    int32_t previousSibling;  ///< of the first child the last one

    static constexpr int kStartTagBits = 22;
    static constexpr uint32_t kStartTagMask = (1U << kStartTagBits) - 1;

    /// Bytes of the start tag, cut at 22 bits.
    [[nodiscard]] int32_t StartTagLength() const {
        return static_cast<int32_t>(tagLengths & kStartTagMask);
    }
    /// Bytes of the end tag, cut at 10 bits; 0 if there is none.
    [[nodiscard]] int32_t EndTagLength() const {
        return static_cast<int32_t>(tagLengths >> kStartTagBits);
    }
    /// Offset behind the element.
    [[nodiscard]] int32_t End() const { return start + length; }
    /// Whether it has neither content nor an end tag: `<a/>`, or `<a>` whose end is missing.
    [[nodiscard]] bool IsHollow() const {
        return (levelFlags & (kElementEmpty | kElementNonEnded)) != 0;
    }
};
static_assert(sizeof(ElementPosition) == 32);

/// An array of records that grows without moving what fills a segment, and that asks for no piece of
/// memory larger than a segment (2 MiB). What is new in it is not set to anything.
///
/// A reference to a record holds until the array grows. Thread-safety: as a `std::vector`.
class SegmentedPositions {
  public:
    static constexpr int kSegmentBits = 16;
    static constexpr int32_t kSegmentSize = 1 << kSegmentBits;  ///< records

    /// How many records there is room for.
    [[nodiscard]] int32_t Capacity() const { return m_Capacity; }

    /// Makes room for `capacity` records, if there is less. Throws `std::bad_alloc`; what is there
    /// stays.
    void Grow(int32_t capacity);

    /// Gives back the room behind the first `count` records.
    void Trim(int32_t count);

    /// REQUIRES: 0 <= position < Capacity().
    [[nodiscard]] ElementPosition& operator[](int32_t position) {
        return m_Segments[position >> kSegmentBits].get()[position & (kSegmentSize - 1)];
    }
    [[nodiscard]] const ElementPosition& operator[](int32_t position) const {
        return m_Segments[position >> kSegmentBits].get()[position & (kSegmentSize - 1)];
    }

  private:
    using Segment = UniqueMemory<ElementPosition>;

    std::unique_ptr<Segment[]> m_Segments;  ///< all full but the last
    int32_t m_Capacity = 0;                 ///< records
    int32_t m_TableSize = 0;                ///< segments that the table has room for

    void GrowTable(int32_t segments);
    [[nodiscard]] bool Resize(int32_t segment, int32_t records);
};

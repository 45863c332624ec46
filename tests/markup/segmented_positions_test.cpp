#include "markup/segmented_positions.h"

#include <new>

#include <gtest/gtest.h>

#include "support/libc_fault.h"

namespace {

constexpr int32_t kSegment = SegmentedPositions::kSegmentSize;

/// Writes to each record from `begin` on what tells its place.
void Fill(SegmentedPositions& positions, int32_t begin = 0) {
    for (int32_t i = begin; i < positions.Capacity(); ++i) {
        positions[i] = {i, i + 1, static_cast<uint32_t>(i) + 2, 3, i + 4, i + 5, i + 6, i + 7};
    }
}

/// Whether the first `count` records are as they were filled.
bool IsFilled(const SegmentedPositions& positions, int32_t count) {
    for (int32_t i = 0; i < count; ++i) {
        const ElementPosition& record = positions[i];
        if (record.start != i || record.length != i + 1 ||
            record.tagLengths != static_cast<uint32_t>(i) + 2 || record.levelFlags != 3 ||
            record.parent != i + 4 || record.firstChild != i + 5 || record.nextSibling != i + 6 ||
            record.previousSibling != i + 7) {
            return false;
        }
    }
    return true;
}

}  // namespace

TEST(ElementPosition, KeepsBothTagLengthsInOneWord) {
    ElementPosition element{};
    element.tagLengths = 0x3FFFFF | 0x3FFU << 22;
    EXPECT_EQ(element.StartTagLength(), 4'194'303);
    EXPECT_EQ(element.EndTagLength(), 1023);
    element.tagLengths = 5 | 1U << 22;
    EXPECT_EQ(element.StartTagLength(), 5);
    EXPECT_EQ(element.EndTagLength(), 1);
}

TEST(ElementPosition, IsHollowWithoutAnEndTag) {
    ElementPosition element{};
    EXPECT_FALSE(element.IsHollow());
    element.levelFlags = kElementEmpty;
    EXPECT_TRUE(element.IsHollow());
    element.levelFlags = kElementNonEnded;
    EXPECT_TRUE(element.IsHollow());
    element.levelFlags = ~(kElementEmpty | kElementNonEnded);
    EXPECT_FALSE(element.IsHollow());
}

TEST(ElementPosition, HasFlagsOfTheirOwnBits) {
    EXPECT_EQ(kElementEmpty, 0x00010000U);
    EXPECT_EQ(kElementFree, 0x00020000U);
    EXPECT_EQ(kElementFirstSibling, 0x00080000U);
    EXPECT_EQ(kElementNonEnded, 0x00100000U);
    EXPECT_EQ(kElementMissesEnd, 0x00200000U);
    EXPECT_EQ(kElementIllFormed, 0x00800000U);
}

TEST(SegmentedPositions, HasSegmentsOfTwoMebibytes) {
    EXPECT_EQ(kSegment, 65536);
    EXPECT_EQ(sizeof(ElementPosition) * kSegment, size_t{2} << 20);
}

TEST(SegmentedPositions, HasTheRoomThatIsAskedFor) {
    SegmentedPositions positions;
    EXPECT_EQ(positions.Capacity(), 0);
    for (const int32_t capacity : {1, 8, 9, 1000, kSegment - 1, kSegment, kSegment + 1,
                                   2 * kSegment, 5 * kSegment + 7, 12 * kSegment}) {
        positions.Grow(capacity);
        EXPECT_EQ(positions.Capacity(), capacity);
    }
}

TEST(SegmentedPositions, NeverShrinks) {
    SegmentedPositions positions;
    positions.Grow(0);
    positions.Grow(-1);
    EXPECT_EQ(positions.Capacity(), 0);
    positions.Grow(100);
    Fill(positions);
    for (const int32_t capacity : {100, 99, 1, 0}) {
        positions.Grow(capacity);
        EXPECT_EQ(positions.Capacity(), 100);
    }
    EXPECT_TRUE(IsFilled(positions, 100));
}

TEST(SegmentedPositions, KeepsItsRecordsWhenItGrows) {
    SegmentedPositions positions;
    int32_t filled = 0;
    for (int32_t capacity = 8; capacity < 6 * kSegment; capacity += capacity / 2) {
        positions.Grow(capacity);
        ASSERT_TRUE(IsFilled(positions, filled)) << capacity;
        Fill(positions, filled);
        filled = capacity;
    }
    EXPECT_TRUE(IsFilled(positions, filled));
}

TEST(SegmentedPositions, LeavesFullSegmentsWhereTheyAre) {
    SegmentedPositions positions;
    positions.Grow(2 * kSegment + 1);
    const ElementPosition* const first = &positions[0];
    const ElementPosition* const second = &positions[kSegment];
    const ElementPosition* const third = &positions[2 * kSegment];
    positions.Grow(40 * kSegment);
    EXPECT_EQ(&positions[0], first);
    EXPECT_EQ(&positions[kSegment], second);
    EXPECT_NE(&positions[2 * kSegment], third);
    EXPECT_EQ(&positions[kSegment - 1], first + (kSegment - 1));
}

TEST(SegmentedPositions, GivesBackTheRoomBehindWhatIsNeeded) {
    SegmentedPositions positions;
    positions.Grow(3 * kSegment + 10);
    Fill(positions);
    for (const int32_t count :
         {3 * kSegment + 10, 3 * kSegment + 9, 3 * kSegment, 2 * kSegment + 1, kSegment - 1, 1}) {
        positions.Trim(count + 100'000'000);
        positions.Trim(count);
        EXPECT_EQ(positions.Capacity(), count);
        EXPECT_TRUE(IsFilled(positions, count));
    }
    positions.Grow(2 * kSegment + 1);
    Fill(positions, 1);
    EXPECT_TRUE(IsFilled(positions, 2 * kSegment + 1));
}

TEST(SegmentedPositions, KeepsTheRoomThatCannotBeGivenBack) {
    if (!LibcFault::kHeapFaults) GTEST_SKIP() << LibcFault::kNoHeapFaults;
    SegmentedPositions positions;
    positions.Grow(kSegment);
    Fill(positions);
    FaultOf<&::realloc> fault;
    fault.Fail(ENOMEM);
    positions.Trim(10);
    EXPECT_EQ(positions.Capacity(), kSegment);
    EXPECT_TRUE(IsFilled(positions, kSegment));
}

TEST(SegmentedPositions, KeepsWhatIsThereWhenThereIsNoMemory) {
    if (!LibcFault::kHeapFaults) GTEST_SKIP() << LibcFault::kNoHeapFaults;
    SegmentedPositions positions;
    positions.Grow(100);
    Fill(positions);
    for (const int first : {0, 1}) {
        FaultOf<&::realloc> fault;
        fault.Only([](void*, size_t size) { return size > size_t{64} * 1024; });
        fault.PassThrough(first);
        fault.Fail(ENOMEM);
        EXPECT_THROW(positions.Grow(3 * kSegment), std::bad_alloc);
        EXPECT_EQ(positions.Capacity(), first == 0 ? 100 : kSegment);
        EXPECT_TRUE(IsFilled(positions, 100));
    }
    positions.Grow(3 * kSegment);
    EXPECT_EQ(positions.Capacity(), 3 * kSegment);
    EXPECT_TRUE(IsFilled(positions, 100));
}

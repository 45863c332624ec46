#include "markup/saved_positions.h"

#include <string>

#include <gtest/gtest.h>

namespace {

constexpr uint32_t kInUse = SavedPosition::kInUse;
constexpr uint32_t kLast = SavedPosition::kLast;

int BucketOf(SavedPositionMap& map, const std::string& name) {
    return static_cast<int>(&map.ChainOf(name) - map.chains.data());
}

/// Names and flags of a chain.
std::string Shown(const SavedPositionMap::Chain& chain) {
    std::string shown;
    for (const SavedPosition& saved : chain) {
        shown += saved.name + "=" + std::to_string(saved.position);
        shown += (saved.flags & kInUse) != 0 ? "" : "?";
        shown += (saved.flags & kLast) != 0 ? ". " : " ";
    }
    return shown;
}

/// Names of one chain: their letter is 7 apart.
const std::string kNames[] = {"A", "H", "O", "V"};

}  // namespace

TEST(SavedPositionMap, HasSevenBucketsByTheSumOfTheBytesOfAName) {
    SavedPositionMap map;
    EXPECT_EQ(map.chains.size(), 7U);
    EXPECT_EQ(BucketOf(map, ""), 0);
    EXPECT_EQ(BucketOf(map, "a"), 97 % 7);
    EXPECT_EQ(BucketOf(map, "ab"), (97 + 98) % 7);
    EXPECT_EQ(BucketOf(map, "ba"), (97 + 98) % 7);
    EXPECT_EQ(BucketOf(map, "\xFF\xFE"), (255 + 254) % 7);
}

TEST(SavedPositionMap, FindsWhatANameStandsFor) {
    SavedPositionMap map;
    EXPECT_EQ(map.Find("a"), nullptr);
    map.Put("a", 5, PositionKind::kChild);
    map.Put("", 6, PositionKind::kParent);
    const SavedPosition* const saved = map.Find("a");
    ASSERT_NE(saved, nullptr);
    EXPECT_EQ(saved->name, "a");
    EXPECT_EQ(saved->position, 5);
    EXPECT_EQ(saved->Kind(), PositionKind::kChild);
    EXPECT_EQ(saved->flags, kInUse | kLast | 2U);
    ASSERT_NE(map.Find(""), nullptr);
    EXPECT_EQ(map.Find("")->Kind(), PositionKind::kParent);
    EXPECT_EQ(map.Find("A"), nullptr);
    EXPECT_EQ(map.Find("h"), nullptr);  // the same bucket
}

TEST(SavedPositionMap, MarksTheLastOfAChain) {
    SavedPositionMap map;
    int32_t position = 1;
    for (const std::string& name : kNames) map.Put(name, position++, PositionKind::kMain);
    EXPECT_EQ(Shown(map.ChainOf("A")), "A=1 H=2 O=3 V=4. ");
    for (const std::string& name : kNames) ASSERT_NE(map.Find(name), nullptr);
    EXPECT_EQ(map.Find("V")->position, 4);
}

TEST(SavedPositionMap, ReplacesWhatANameStoodFor) {
    SavedPositionMap map;
    int32_t position = 1;
    for (const std::string& name : kNames) map.Put(name, position++, PositionKind::kMain);
    map.Put("H", 20, PositionKind::kChild);
    map.Put("V", 40, PositionKind::kParent);
    EXPECT_EQ(Shown(map.ChainOf("A")), "A=1 H=20 O=3 V=40. ");
    EXPECT_EQ(map.Find("H")->Kind(), PositionKind::kChild);
    EXPECT_EQ(map.Find("V")->Kind(), PositionKind::kParent);
}

TEST(SavedPositionMap, FindsNothingThatIsNotInUse) {
    SavedPositionMap map;
    map.Put("a", 5, PositionKind::kMain);
    map.ChainOf("a")[0].flags &= ~kInUse;
    EXPECT_EQ(map.Find("a"), nullptr);
}

TEST(SavedPositions, MakesAMapWhenItIsWrittenTo) {
    SavedPositions maps;
    EXPECT_EQ(maps.Find(0), nullptr);
    EXPECT_EQ(maps.Find(-1), nullptr);
    maps.Make(3).Put("a", 1, PositionKind::kMain);
    EXPECT_EQ(maps.Find(0), nullptr);
    EXPECT_EQ(maps.Find(2), nullptr);
    EXPECT_EQ(maps.Find(4), nullptr);
    ASSERT_NE(maps.Find(3), nullptr);
    EXPECT_NE(maps.Find(3)->Find("a"), nullptr);
}

TEST(SavedPositions, KeepsEachMapApart) {
    SavedPositions maps;
    for (int map = 0; map < 50; ++map) maps.Make(map).Put("a", map + 1, PositionKind::kMain);
    for (int map = 0; map < 50; ++map) {
        EXPECT_EQ(&maps.Make(map), maps.Find(map));
        EXPECT_EQ(maps.Find(map)->Find("a")->position, map + 1);
    }
}

TEST(SavedPositions, ForgetsThePositionsThatAreGoneInAllMaps) {
    SavedPositions maps;
    for (const int map : {0, 2}) {
        int32_t position = 1;
        for (const std::string& name : kNames) {
            maps.Make(map).Put(name, position++, PositionKind::kMain);
        }
        maps.Make(map).Put("B", 4, PositionKind::kMain);
    }
    maps.Purge([](int32_t position) { return position == 2 || position == 4; });
    for (const int map : {0, 2}) {
        SavedPositionMap& names = *maps.Find(map);
        EXPECT_EQ(Shown(names.ChainOf("A")), "A=1 O=3. ");
        EXPECT_EQ(Shown(names.ChainOf("B")), "");
        EXPECT_EQ(names.Find("H"), nullptr);
        EXPECT_EQ(names.Find("V"), nullptr);
        ASSERT_NE(names.Find("O"), nullptr);
    }
    maps.Purge([](int32_t) { return true; });
    EXPECT_EQ(Shown(maps.Find(0)->ChainOf("A")), "");
    maps.Make(0).Put("H", 9, PositionKind::kMain);
    EXPECT_EQ(Shown(maps.Find(0)->ChainOf("A")), "H=9. ");
}

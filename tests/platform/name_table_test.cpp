#include "platform/name_table.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/libc_fault.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// A table as its heirs see it.
class OpenTable : public CNameTable {
  public:
    using CNameTable::m_Capacity;
    using CNameTable::m_Entries;
    using CNameTable::m_Lock;
    using CNameTable::m_Size;

    int32_t Capacity() {
        const RecursiveLockGuard hold{m_Lock};
        return m_Capacity;
    }
    int32_t Size() {
        const RecursiveLockGuard hold{m_Lock};
        return m_Size;
    }
    const NameTableEntry* Array() {
        const RecursiveLockGuard hold{m_Lock};
        return m_Entries;
    }
};

std::vector<std::string> Names(CNameTable& table) {
    const RecursiveLockGuard hold{table.Lock()};
    std::vector<std::string> names;
    for (const NameTableEntry& entry : table.Entries()) names.emplace_back(entry.Name);
    return names;
}

void Fill(CNameTable& table, int count) {
    for (int i = 0; i < count; ++i) {
        table.Insert(("name" + std::to_string(i)).c_str(), static_cast<uint64_t>(i), 0);
    }
}

}  // namespace

TEST(NameTable, BeginsEmptyAndWithoutAnArray) {
    OpenTable table;
    EXPECT_EQ(table.Size(), 0);
    EXPECT_EQ(table.Capacity(), 0);
    EXPECT_EQ(table.Array(), nullptr);
    EXPECT_EQ(table.Find("a"), nullptr);
    EXPECT_FALSE(table.Remove("a"));
    EXPECT_THAT(Names(table), IsEmpty());
}

TEST(NameTable, HasItsFieldsAtTheOffsetsThatModulesKnow) {
    static_assert(std::is_standard_layout_v<OpenTable>);
    static_assert(std::is_standard_layout_v<NameTableEntry>);
    static_assert(sizeof(CNameTable) == 72 && sizeof(NameTableEntry) == 24);
    const struct {
        size_t offset, expected;
    } cases[] = {
        {offsetof(OpenTable, m_Lock), 0},      {offsetof(OpenTable, m_Entries), 56},
        {offsetof(OpenTable, m_Capacity), 64}, {offsetof(OpenTable, m_Size), 68},
        {offsetof(NameTableEntry, Name), 0},   {offsetof(NameTableEntry, Value), 8},
        {offsetof(NameTableEntry, Type), 16},
    };
    for (const auto& [offset, expected] : cases) EXPECT_EQ(offset, expected);
}

TEST(NameTable, CannotBeCopied) {
    EXPECT_FALSE(std::is_copy_constructible_v<CNameTable>);
    EXPECT_FALSE(std::is_copy_assignable_v<CNameTable>);
}

TEST(NameTable, FindsWhatWasInserted) {
    CNameTable table;
    const NameTableEntry* const inserted = table.Insert("key", 0xFEDCBA9876543210, 666);
    ASSERT_NE(inserted, nullptr);
    EXPECT_EQ(table.Find("key"), inserted);
    EXPECT_STREQ(inserted->Name, "key");
    EXPECT_EQ(inserted->Value, 0xFEDCBA9876543210);
    EXPECT_EQ(inserted->Type, 666U);
}

TEST(NameTable, KeepsItsOwnCopyOfTheName) {
    CNameTable table;
    char name[] = "abc";
    table.Insert(name, 1, 0);
    name[0] = 'x';
    EXPECT_NE(table.Find("abc"), nullptr);
    EXPECT_EQ(table.Find("xbc"), nullptr);
}

TEST(NameTable, IsSortedByteByteSoThatCaseMatters) {
    CNameTable table;
    for (const char* name : {"b", "a", "\xFF", "B", "", "ab", "_", "a b"}) table.Insert(name, 0, 0);
    EXPECT_THAT(Names(table), ElementsAre("", "B", "_", "a", "a b", "ab", "b", "\xFF"));
    table.Insert("A", 7, 0);
    ASSERT_NE(table.Find("A"), nullptr);
    EXPECT_EQ(table.Find("A")->Value, 7U);
    EXPECT_EQ(table.Find("a")->Value, 0U);
}

TEST(NameTable, ANullNameNeverMatches) {
    OpenTable table;
    EXPECT_EQ(table.Insert(nullptr, 1, 2), nullptr);
    EXPECT_EQ(table.Size(), 0);
    table.Insert("a", 1, 2);
    EXPECT_EQ(table.Find(nullptr), nullptr);
    EXPECT_FALSE(table.Remove(nullptr));
    EXPECT_EQ(table.Size(), 1);
}

TEST(NameTable, InsertOfANameThatIsThereReusesItsEntry) {
    OpenTable table;
    table.Insert("a", 1, 2);
    table.Insert("b", 3, 4);
    const NameTableEntry* const entry = table.Find("a");
    EXPECT_EQ(table.Insert("a", 5, 6), entry);
    EXPECT_EQ(entry->Value, 5U);
    EXPECT_EQ(entry->Type, 6U);
    EXPECT_EQ(table.Size(), 2);
}

TEST(NameTable, AnEntryCanBeChangedInItsPlace) {
    CNameTable table;
    table.Insert("a", 1, 2);
    {
        const RecursiveLockGuard hold{table.Lock()};
        table.Find("a")->Value = 9;
    }
    EXPECT_EQ(table.Find("a")->Value, 9U);
}

TEST(NameTable, GrowsFrom16To32WithThe17thName) {
    OpenTable table;
    table.Insert("name0", 0, 0);
    EXPECT_EQ(table.Capacity(), 16);
    Fill(table, 16);
    EXPECT_EQ(table.Size(), 16);
    EXPECT_EQ(table.Capacity(), 16);
    table.Insert("seventeenth", 17, 1);
    EXPECT_EQ(table.Size(), 17);
    EXPECT_EQ(table.Capacity(), 32);
    for (uint64_t i = 0; i < 16; ++i) {
        const NameTableEntry* const entry = table.Find(("name" + std::to_string(i)).c_str());
        ASSERT_NE(entry, nullptr) << i;
        EXPECT_EQ(entry->Value, i);
    }
    EXPECT_EQ(table.Find("seventeenth")->Value, 17U);
}

TEST(NameTable, HasZeroesBehindItsNamesWhenItHasGrown) {
    OpenTable table;
    for (const int count : {1, 17, 40}) {
        Fill(table, count);
        for (int32_t i = table.Size(); i < table.Capacity(); ++i) {
            EXPECT_EQ(table.Array()[i].Name, nullptr) << i;
            EXPECT_EQ(table.Array()[i].Value, 0U) << i;
            EXPECT_EQ(table.Array()[i].Type, 0U) << i;
        }
    }
}

TEST(NameTable, GrowsBy16EachTime) {
    OpenTable table;
    Fill(table, 33);
    EXPECT_EQ(table.Capacity(), 48);
}

TEST(NameTable, AFullTableDoesNotGrowForANameThatIsThere) {
    OpenTable table;
    Fill(table, 16);
    table.Insert("name3", 99, 0);
    EXPECT_EQ(table.Capacity(), 16);
    EXPECT_EQ(table.Find("name3")->Value, 99U);
}

TEST(NameTable, WithoutMemoryInsertThrowsAndLeavesTheTableAsItWas) {
    if (!LibcFault::kHeapFaults) GTEST_SKIP() << LibcFault::kNoHeapFaults;
    OpenTable table;
    Fill(table, 16);
    const NameTableEntry* const array = table.Array();
    const std::vector<std::string> names = Names(table);
    for (const int allocationsThatPass : {0, 1}) {  // the copy of the name, the larger array
        FaultOf<&::malloc> fault;
        if (allocationsThatPass > 0) fault.PassThrough(allocationsThatPass);
        fault.Fail(ENOMEM);
        EXPECT_THROW(table.Insert("new", 1, 2), std::bad_alloc);
        EXPECT_EQ(table.Array(), array);
        EXPECT_EQ(table.Size(), 16);
        EXPECT_EQ(table.Capacity(), 16);
    }
    EXPECT_EQ(Names(table), names);
    std::thread{[&] { table.Insert("new", 1, 2); }}.join();  // the lock is free
    EXPECT_EQ(table.Size(), 17);
}

TEST(NameTable, RemovingTheOnlyEntryKeepsTheArray) {
    OpenTable table;
    table.Insert("a", 1, 2);
    const NameTableEntry* const array = table.Array();
    EXPECT_TRUE(table.Remove("a"));
    EXPECT_EQ(table.Size(), 0);
    EXPECT_EQ(table.Capacity(), 16);
    EXPECT_EQ(table.Array(), array);
    EXPECT_EQ(table.Find("a"), nullptr);
    table.Insert("b", 3, 4);
    EXPECT_EQ(table.Array(), array);
}

TEST(NameTable, RemoveKeepsTheOrderOfTheOthersAndFreesThePlace) {
    OpenTable table;
    for (const char* name : {"a", "b", "c", "d"}) table.Insert(name, 1, 1);
    EXPECT_TRUE(table.Remove("b"));
    EXPECT_THAT(Names(table), ElementsAre("a", "c", "d"));
    EXPECT_EQ(table.Array()[3].Name, nullptr);
    EXPECT_EQ(table.Array()[3].Value, 0U);
    EXPECT_EQ(table.Array()[3].Type, 0U);
    EXPECT_TRUE(table.Remove("d"));
    EXPECT_TRUE(table.Remove("a"));
    EXPECT_THAT(Names(table), ElementsAre("c"));
    EXPECT_FALSE(table.Remove("a"));
}

TEST(NameTable, BehavesLikeAMapOfNames) {
    OpenTable table;
    std::map<std::string, uint64_t> model;
    std::mt19937 random{1};
    for (uint64_t step = 0; step < 5000; ++step) {
        const std::string name = std::to_string(random() % 100);
        if (random() % 2 == 0) {
            table.Insert(name.c_str(), step, 0);
            model[name] = step;
        } else {
            EXPECT_EQ(table.Remove(name.c_str()), model.erase(name) == 1);
        }
    }
    const RecursiveLockGuard hold{table.Lock()};
    std::map<std::string, uint64_t> found;
    std::string former;
    for (const NameTableEntry& entry : table.Entries()) {
        EXPECT_LE(former, entry.Name);
        former = entry.Name;
        found[entry.Name] = entry.Value;
    }
    EXPECT_EQ(found, model);
    EXPECT_EQ(static_cast<size_t>(table.Size()), model.size());
}

TEST(NameTable, ItsOperationsMayBeCalledWithItsLockHeld) {
    CNameTable table;
    const RecursiveLockGuard hold{table.Lock()};
    table.Insert("a", 1, 0);
    EXPECT_NE(table.Find("a"), nullptr);
    EXPECT_TRUE(table.Remove("a"));
}

TEST(NameTable, HoldsBackOthersWhileItsLockIsHeld) {
    OpenTable table;
    std::thread other;
    {
        const RecursiveLockGuard hold{table.Lock()};
        table.Insert("a", 1, 0);
        other = std::thread{[&] { table.Insert("a", 2, 0); }};
        EXPECT_EQ(table.Find("a")->Value, 1U);
        table.Insert("a", 3, 0);
    }
    other.join();
    EXPECT_EQ(table.Find("a")->Value, 2U);
}

TEST(NameTable, ServesManyThreads) {
    OpenTable table;
    std::vector<std::thread> threads;
    for (int id = 0; id < 8; ++id) {
        threads.emplace_back([&table, id] {
            const std::string own = "own" + std::to_string(id);
            for (int i = 0; i < 500; ++i) {
                table.Insert(own.c_str(), static_cast<uint64_t>(i), 0);
                table.Insert("shared", 1, 0);
                table.Remove("shared");
                if (i % 2 == 1) table.Remove(own.c_str());
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    table.Remove("shared");
    EXPECT_EQ(table.Size(), 0);
}

TEST(NameTable, IsHarmlessInZeroedStorageBeforeItsConstructor) {
    alignas(OpenTable) std::byte storage[sizeof(OpenTable)] = {};
    auto* const table = reinterpret_cast<OpenTable*>(storage);
    EXPECT_EQ(table->Find("a"), nullptr);
    EXPECT_FALSE(table->Remove("a"));
    EXPECT_EQ(table->Size(), 0);
    EXPECT_NE(table->Insert("a", 1, 0), nullptr);
    EXPECT_NE(table->Find("a"), nullptr);
    EXPECT_TRUE(table->Remove("a"));
    delete[] table->Array();
}

TEST(NameTable, LooksEmptyAfterItsDestructor) {
    alignas(OpenTable) std::byte storage[sizeof(OpenTable)] = {};
    auto* const table = new (storage) OpenTable;
    table->Insert("a", 1, 0);
    std::destroy_at(table);
    EXPECT_EQ(table->Find("a"), nullptr);
    EXPECT_FALSE(table->Remove("a"));
    EXPECT_EQ(table->Size(), 0);
    EXPECT_EQ(table->Capacity(), 0);
    EXPECT_EQ(table->Array(), nullptr);
}

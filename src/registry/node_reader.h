#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "registry/disposal.h"
#include "registry/line_source.h"

/// Reads the content of one key, with all keys below it, from a stream.
///
///     const unsigned hasValues = NodeReader{node, file}.Read();
///
/// Thread-safety: one thread; others may use the key meanwhile.
class NodeReader {
  public:
    /// Throws `std::bad_alloc` without memory, `Read` does not.
    NodeReader(CRegistryNode& top, FILE* file);
    ~NodeReader();
    NodeReader(const NodeReader&) = delete;
    NodeReader& operator=(const NodeReader&) = delete;

    /// 1 if there was a value at any depth, 0 else. To be called once. Without memory for a line that
    /// line is passed over; without memory for a key at its end the read ends with 0, and what it has
    /// replaced in the top by then stays replaced.
    unsigned Read();

  private:
    using NameIndex = std::unordered_map<std::string_view, size_t>;

    /// A key whose end has not been read.
    struct Level {
        std::unique_ptr<RegistryKey> key;  ///< null for the one that is read into
        std::unique_ptr<char[]> name;
        size_t begin = 0;                 ///< its first item in `m_Items`
        size_t firstKey = kNone;          ///< its first subkey there
        size_t lastKey = kNone;           ///< its last subkey there
        bool isSorted = true;             ///< values, then subkeys, each in the order of names
        bool hasValues = false;           ///< here or below
        std::unique_ptr<NameIndex> keys;  ///< its subkeys, once an item has come out of order
    };
    static constexpr size_t kNone = SIZE_MAX;

    CRegistryNode& m_Top;
    LineSource m_Lines;
    std::vector<NameTableEntry> m_Items;  ///< of all levels, one behind the other
    std::vector<Level> m_Levels;

    void ReadLines();
    void TakeLine(const Line& line);
    void ParseLine(const Line& line);
    void BeginKey(std::string_view name);
    void EndKey();
    void TakeValue(std::string_view name, std::string_view tagAndText);
    template <typename Owner>
    void Store(std::unique_ptr<char[]> name, Owner owner, uint64_t type);
    void Store(std::unique_ptr<char[]> name, uint64_t value, uint64_t type);
    [[nodiscard]] bool ExchangeInTop(NameTableEntry& item);
    void DisposeFormerKey(const char* name, bool isKey);
    [[nodiscard]] NameIndex& KeysOf(Level& level);
    void Sort(const Level& level);
    [[nodiscard]] CRegistryNode::Table TakeTable(const Level& level);
    void MergeIntoTop();
    void MergeItems();
    void DropItems(size_t begin);
};

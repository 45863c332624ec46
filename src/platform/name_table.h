#pragma once

#include <cstdint>
#include <span>

#include "trace/api.h"
#include "trace/recursive_lock.h"

/// One name of a `CNameTable`.
struct NameTableEntry {
    char* Name;      ///< key, from `new[]`, owned by the table; null in a free entry
    uint64_t Value;  ///< the object or value of the key, owned by the table's user
    uint64_t Type;   ///< tells how to read `Value` where a table mixes kinds, 0 elsewhere
};

/// Names with a 64-bit value each, sorted byte by byte, so that letter case matters, with a lock
/// inside. The table owns the names; what a value stands for is its user's.
///
///     const RecursiveLockGuard hold{table.Lock()};  // while it is held, entries stay in place
///     if (NameTableEntry* entry = table.Find("a")) entry->Value = 1;
///     for (const NameTableEntry& entry : table.Entries()) Print(entry.Name);
///
/// Thread-safety: any thread may call any operation but construction and destruction; each takes
/// the table's own lock, which a caller may hold already. An object of static storage may be used
/// before its constructor has run (which then begins with an empty table) and after its destructor
/// has: it is an empty table then, without a lock.
class ZORN_API CNameTable {
  public:
    CNameTable() = default;
    /// Deletes all names. The values are left alone.
    ~CNameTable();
    CNameTable(const CNameTable&) = delete;  // names and values have one owner
    CNameTable& operator=(const CNameTable&) = delete;

    [[nodiscard]] CRecursiveLock& Lock() RETURN_CAPABILITY(m_Lock) { return m_Lock; }

    /// The entry of `name`, or null; a null name has none. `Value` and `Type` may be changed,
    /// `Name` may not. The pointer holds until the next `Insert` or `Remove`: hold `Lock()` while
    /// it is used.
    [[nodiscard]] NameTableEntry* Find(const char* name);

    /// Gives `name` that value and type, in a new entry if it has none yet (the former value of an
    /// entry is for the caller to dispose of: look with `Find` before). The name is copied. Room is
    /// made for 16 entries at a time. The entry, as from `Find`; null, and nothing done, for a null
    /// name. Throws `std::bad_alloc` without memory; the table is then as it was.
    NameTableEntry* Insert(const char* name, uint64_t value, uint64_t type);

    /// Takes the entry of `name` out; the room is kept. False if there is none.
    bool Remove(const char* name);

    /// All entries in the order of their names; holds as long as a pointer from `Find`.
    [[nodiscard]] std::span<NameTableEntry> Entries() REQUIRES(m_Lock) {
        return {m_Entries, static_cast<size_t>(m_Size)};
    }

  protected:
    CRecursiveLock m_Lock;
    NameTableEntry* m_Entries GUARDED_BY(m_Lock) = nullptr;  ///< from `new[]`, or null
    int32_t m_Capacity GUARDED_BY(m_Lock) = 0;               ///< entries allocated
    int32_t m_Size GUARDED_BY(m_Lock) = 0;                   ///< entries in use

  private:
    [[nodiscard]] NameTableEntry* LowerBound(const char* name) REQUIRES(m_Lock);
    [[nodiscard]] bool IsAt(const NameTableEntry* place, const char* name) REQUIRES(m_Lock);
    void MakeRoom() REQUIRES(m_Lock);
};

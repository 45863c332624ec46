#include "platform/name_table.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <utility>

namespace {

constexpr int32_t kGrowth = 16;

std::unique_ptr<char[]> CopyName(const char* name) {
    const size_t size = strlen(name) + 1;
    auto copy = std::make_unique_for_overwrite<char[]>(size);
    memcpy(copy.get(), name, size);
    return copy;
}

}  // namespace

CNameTable::~CNameTable() {
    for (const NameTableEntry& entry : Entries()) delete[] entry.Name;
    delete[] std::exchange(m_Entries, nullptr);
    m_Capacity = 0;
    m_Size = 0;  // objects destroyed later may still ask for their names
}

NameTableEntry* CNameTable::LowerBound(const char* name) {
    return std::lower_bound(
        m_Entries, m_Entries + m_Size, name,
        [](const NameTableEntry& entry, const char* key) { return strcmp(entry.Name, key) < 0; });
}

bool CNameTable::IsAt(const NameTableEntry* place, const char* name) {
    return place != m_Entries + m_Size && strcmp(place->Name, name) == 0;
}

void CNameTable::MakeRoom() {
    if (m_Size < m_Capacity) return;
    const int32_t capacity = m_Size + kGrowth;
    auto larger = std::make_unique<NameTableEntry[]>(static_cast<size_t>(capacity));
    std::copy_n(m_Entries, m_Capacity, larger.get());
    delete[] std::exchange(m_Entries, larger.release());
    m_Capacity = capacity;
}

NameTableEntry* CNameTable::Find(const char* name) {
    if (name == nullptr) return nullptr;
    const RecursiveLockGuard hold{m_Lock};
    NameTableEntry* const place = LowerBound(name);
    return IsAt(place, name) ? place : nullptr;
}

NameTableEntry* CNameTable::Insert(const char* name, uint64_t value, uint64_t type) {
    if (name == nullptr) return nullptr;
    const RecursiveLockGuard hold{m_Lock};
    if (NameTableEntry* const entry = Find(name)) {
        entry->Value = value;
        entry->Type = type;
        return entry;
    }
    std::unique_ptr<char[]> copy = CopyName(name);
    MakeRoom();  // the last thing that can fail
    NameTableEntry* const place = LowerBound(name);
    std::copy_backward(place, m_Entries + m_Size, m_Entries + m_Size + 1);
    *place = {copy.release(), value, type};
    ++m_Size;
    return place;
}

bool CNameTable::Remove(const char* name) {
    const RecursiveLockGuard hold{m_Lock};
    NameTableEntry* const entry = Find(name);
    if (entry == nullptr) return false;
    delete[] entry->Name;
    std::copy(entry + 1, m_Entries + m_Size, entry);
    --m_Size;
    m_Entries[m_Size] = {};
    return true;
}

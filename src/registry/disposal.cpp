// A tree is freed from its top down, in the order of its tables, a subkey's content at its entry. The
// table of a key is taken out of it first, so that nobody who still stands on the key sees it half
// freed. There is no stack: the entry of the subkey that is entered has given its name and value away,
// and its three words keep the way back.

#include "registry/disposal.h"

#include "registry/registry.h"
#include "trace/no_cancellation.h"
#include "trace/trace.h"

namespace {

/// Goes through the entries of a table and of those below it.
struct Cursor {
    NameTableEntry* at;
    NameTableEntry* begin;
    NameTableEntry* end;
    NameTableEntry* outer = nullptr;  ///< the entry whose child this table is of, or null

    explicit Cursor(const CRegistryNode::Table& table)
        : at(table.entries), begin(table.entries), end(table.entries + table.size) {}

    void Enter(const CRegistryNode::Table& table) {
        *at = {reinterpret_cast<char*>(outer), reinterpret_cast<uint64_t>(begin),
               static_cast<uint64_t>(end - begin)};
        NameTableEntry* const from = at;
        *this = Cursor{table};
        outer = from;
    }

    void Leave() {
        at = outer + 1;
        begin = reinterpret_cast<NameTableEntry*>(outer->Value);
        end = begin + outer->Type;
        outer = reinterpret_cast<NameTableEntry*>(outer->Name);
    }
};

/// Frees what a value's entry points to; a subkey's stays.
void FreeData(uint64_t value, uint64_t type) {
    switch (type) {
        case kRegistryString:
        case kRegistryExpandString:
        case kRegistryBinary:
            delete[] reinterpret_cast<char*>(value);
            break;
        default:
            break;
    }
}

/// Takes the content out of a key that is in no table any more, and lets go of the key.
CRegistryNode::Table Dismantle(CRegistryNode& key) {
    const CRegistryNode::Table content = key.Exchange({});
    g_RetiredKeys.Retire(static_cast<RegistryKey*>(&key));
    return content;
}

}  // namespace

void TraceDisposal(const NameTableEntry& entry) {
    if (entry.Type != kRegistryDoubleWord && entry.Value == 0) return;
    TRACE(2, "CRegistryNode::deleteNode \"%s\"\n", entry.Name);
}

RetiredKeys::~RetiredKeys() {
    for (RegistryKey* key = std::exchange(m_First, nullptr); key != nullptr;) {
        delete std::exchange(key, key->next);
    }
}

void RetiredKeys::HandleGone() {
    if (m_Handles.fetch_sub(1) != 1) return;
    RegistryKey* key = nullptr;
    {
        const std::lock_guard hold{m_Mutex};
        // A handle that came meanwhile has found none of these in the tree; one that was there
        // before may have retired some, and still counts.
        if (m_Handles.load() == 0) key = std::exchange(m_First, nullptr);
    }
    while (key != nullptr) delete std::exchange(key, key->next);
}

void RetiredKeys::Retire(RegistryKey* key) {
    if (m_Handles.load() == 0) {
        delete key;
        return;
    }
    const std::lock_guard hold{m_Mutex};
    key->next = std::exchange(m_First, key);
}

void DisposeTable(CRegistryNode::Table table, bool traced) {
    Cursor cursor{table};
    for (;;) {
        if (cursor.at == cursor.end) {
            delete[] cursor.begin;
            if (cursor.outer == nullptr) return;
            cursor.Leave();
            continue;
        }
        NameTableEntry& entry = *cursor.at;
        if (traced) TraceDisposal(entry);
        delete[] entry.Name;
        if (IsKey(entry)) {
            cursor.Enter(Dismantle(*Child(entry)));
        } else {
            FreeData(entry.Value, entry.Type);
            ++cursor.at;
        }
    }
}

void DisposeValue(const OldValue& old) {
    const NoCancellation untilFreed;  // the names are traced, and tracing can be cancelled
    if (old.type != kRegistrySubkey) {
        FreeData(old.value, old.type);
    } else if (old.value != 0) {
        CRegistryNode& key = *reinterpret_cast<CRegistryNode*>(old.value);
        CRegistry::ForgetHive(&key);
        DisposeTable(Dismantle(key), true);
    }
}

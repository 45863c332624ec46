#pragma once

#include <atomic>
#include <memory>
#include <mutex>

#include "registry/registry_node.h"

// How keys and values of the registry come and go. Nothing here recurses, whatever the depth of the
// tree, and nothing that frees needs memory to do so.

/// A key made with `new`.
struct RegistryKey final : CRegistryNode {
    RegistryKey* next = nullptr;  ///< of those that are retired
};

/// Keys that have left the tree while handles exist. Another handle may stand on one, or be on the
/// way to it, so they are kept, empty, until there has been a moment without any handle.
///
/// Thread-safety: any thread.
class RetiredKeys {
  public:
    RetiredKeys() = default;
    ~RetiredKeys();
    RetiredKeys(const RetiredKeys&) = delete;
    RetiredKeys& operator=(const RetiredKeys&) = delete;

    void HandleMade() { m_Handles.fetch_add(1); }
    /// The last handle frees the keys.
    void HandleGone();

    /// Takes over a key that is in no table any more; frees it at once if there is no handle.
    void Retire(RegistryKey* key);

  private:
    std::atomic<unsigned> m_Handles{0};
    std::mutex m_Mutex;
    RegistryKey* m_First = nullptr;  ///< guarded by `m_Mutex`
};

extern RetiredKeys g_RetiredKeys;

/// What an entry stood for before it was changed.
struct OldValue {
    uint64_t value = 0;
    uint64_t type = 0;
};

/// Frees what an entry stood for: a subkey with all below it, of which the names are traced at level 2.
/// REQUIRES: no entry holds it any more; the lock of no key is held.
void DisposeValue(const OldValue& old);

/// The same for a whole table; its own names are traced too if `traced`.
void DisposeTable(CRegistryNode::Table table, bool traced);

/// Traces the name of an entry that is about to go, if it stands for something.
void TraceDisposal(const NameTableEntry& entry);

/// Whether the entry is a subkey that is there.
[[nodiscard]] inline bool IsKey(const NameTableEntry& entry) {
    return entry.Type == kRegistrySubkey && entry.Value != 0;
}

/// The child of an entry of type subkey.
[[nodiscard]] inline CRegistryNode* Child(const NameTableEntry& entry) {
    return reinterpret_cast<CRegistryNode*>(entry.Value);
}

/// Sets an entry. The result is what was there.
inline OldValue Replace(NameTableEntry& entry, uint64_t value, uint64_t type) {
    return {std::exchange(entry.Value, value), std::exchange(entry.Type, type)};
}

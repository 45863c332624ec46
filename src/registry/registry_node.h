#pragma once

#include <cstdint>
#include <utility>

#include "platform/name_table.h"
#include "trace/api.h"

/// How to read the `Value` of an entry in a key: its `Type`.
inline constexpr unsigned kRegistryString = 1;        ///< NUL-terminated text
inline constexpr unsigned kRegistryExpandString = 2;  ///< the same; %NAME% is expanded on reading
inline constexpr unsigned kRegistryBinary = 3;  ///< from `new[]`: u32 length, then so many bytes
inline constexpr unsigned kRegistryDoubleWord = 4;  ///< the number itself, no pointer
inline constexpr unsigned kRegistrySubkey = 666;    ///< a child `CRegistryNode`, or null

/// Filter of `CRegistry::EnumValue`: values of all types, no subkeys.
inline constexpr unsigned kRegistryAllValues = 999;

/// A key of the registry: its values and subkeys by name, in one table, so that a value and a subkey
/// of one key cannot have the same name. Letter case matters. The key's own name stands in the
/// table of its parent.
///
/// An entry may be a subkey with a null child: what is left of a key that was deleted. It counts as
/// a missing key. Children are made by `CRegistry::CreateKey` and by the reading of a file only.
///
///     CRegistryNode tree;                                       // a tree of one's own
///     if (CRegistry::RestoreTree(path, &tree) != 0) Show(tree);  // freed with the object
///
/// Thread-safety: as `CNameTable`. A pointer to a subkey, taken from an entry, may be used as long as
/// a `CRegistry` lives that was there before the pointer was taken: a key that is deleted meanwhile
/// is empty then, and no longer in the tree.
class ZORN_API CRegistryNode : public CNameTable {
  public:
    CRegistryNode() = default;
    /// Frees everything below, without a line in the trace.
    ~CRegistryNode();

    /// The subkey `name`, or null if there is none or it has a null child.
    [[nodiscard]] CRegistryNode* FindChild(const char* name);

    /// An array of entries as a key has it.
    struct Table {
        NameTableEntry* entries = nullptr;  ///< from `new[]`, sorted by name, no name twice
        int32_t capacity = 0;
        int32_t size = 0;
    };

    /// Gives the key another table, with all that it owns; the former one is the caller's.
    [[nodiscard]] Table Exchange(Table table);
};

/// A handle on a key: good as long as the pointer is (see `CRegistryNode`).
using HKEY = CRegistryNode*;

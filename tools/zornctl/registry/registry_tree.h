#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "registry/registry_node.h"
#include "zornctl/registry/registry_value.h"

// A tree of one's own: finding and changing what is in it. Names and paths hold no NUL.
// Thread-safety of all here: one thread a tree. Nothing recurses, whatever the depth of the tree.

namespace zornctl {

/// The names on the way to a key, from a hive.
using KeyPath = std::vector<std::string>;

/// Parts a path as the service does: at backslashes or, if there is none, at slashes; one at the end
/// is passed over. Empty for the root.
[[nodiscard]] KeyPath SplitKeyPath(std::string_view path);

/// The names with backslashes between them.
[[nodiscard]] std::string JoinKeyPath(const KeyPath& path);

/// What stands in a key: a value, or a subkey.
struct RegistryItem {
    std::string name;
    RegistryValue value;           ///< only its type for a subkey
    CRegistryNode* key = nullptr;  ///< the subkey
};

/// Values and subkeys in the order of their names.
[[nodiscard]] std::vector<RegistryItem> ItemsOf(CRegistryNode& key);
[[nodiscard]] std::optional<RegistryItem> FindItem(CRegistryNode& key, const std::string& name);

/// The key at a path, or null.
[[nodiscard]] CRegistryNode* FindKey(CRegistryNode& root, const KeyPath& path);

/// Whether there is a value at any depth: the service takes no file without one.
[[nodiscard]] bool HasValues(CRegistryNode& root);

/// Sets a value, in place of what has that name. Throws as `FormatRegistryLine`.
void PutValue(CRegistryNode& key, const std::string& name, const RegistryValue& value);

/// The key at a path; keys that are missing are made. Throws `Failure`: kNotFound if a value has one of the
/// names, or as `CheckKeyName`. The keys above it stay made then.
CRegistryNode& MakeKey(CRegistryNode& root, const KeyPath& path);

/// Takes a value, or a subkey with all below it, out. REQUIRES: it is there.
void RemoveItem(CRegistryNode& key, const std::string& name);

/// The first value of one tree whose name a key has in the other.
[[nodiscard]] std::optional<KeyPath> FindConflict(CRegistryNode& one, CRegistryNode& other);

/// Moves all values of `from` into `to`, over those of the same names; keys that both have are merged.
/// A key in the place of a value, or the other way, is replaced.
void Merge(CRegistryNode& to, CRegistryNode& from);

/// The content of a tree, or of a key with its path, as a registry file holds it.
[[nodiscard]] std::string TextOf(CRegistryNode& root);
[[nodiscard]] std::string TextOf(CRegistryNode& key, const KeyPath& path);

/// Reads the text of a registry file into `root`, as the service reads a file.
void ReadText(CRegistryNode& root, const std::string& text);

}  // namespace zornctl

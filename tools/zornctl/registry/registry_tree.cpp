// Values and keys are set by letting the reader read the line that they are in a file: what is in the
// tree is what the service will find.

#include "zornctl/registry/registry_tree.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "platform/unique_memory.h"
#include "registry/disposal.h"
#include "registry/registry.h"
#include "trace/unique_file.h"
#include "zornctl/output/failure.h"

namespace zornctl {

namespace {

/// A value of an entry that is no subkey.
RegistryValue ValueOf(const NameTableEntry& entry) {
    RegistryValue value{static_cast<unsigned>(entry.Type), {}, 0};
    const char* const data = reinterpret_cast<const char*>(entry.Value);
    if (entry.Type == kRegistryDoubleWord) {
        value.number = static_cast<uint32_t>(entry.Value);
    } else if (entry.Type == kRegistryBinary) {
        uint32_t size = 0;
        memcpy(&size, data, sizeof size);
        value.bytes.assign(data + sizeof size, size);
    } else {
        value.bytes = data;
    }
    return value;
}

RegistryItem ItemOf(const NameTableEntry& entry) {
    if (IsKey(entry)) return {entry.Name, {kRegistrySubkey, {}, 0}, Child(entry)};
    return {entry.Name, ValueOf(entry), nullptr};
}

/// An entry of type subkey without a child counts as missing.
bool IsThere(const NameTableEntry& entry) {
    return entry.Type == kRegistryDoubleWord || entry.Value != 0;
}

/// Gives an entry of `key` what was taken out of another one.
void PutEntry(CRegistryNode& key, const char* name, const OldValue& content) {
    OldValue old;
    {
        const RecursiveLockGuard hold{key.Lock()};
        if (NameTableEntry* const entry = key.Find(name)) {
            old = Replace(*entry, content.value, content.type);
        } else {
            key.Insert(name, content.value, content.type);
        }
    }
    DisposeValue(old);
}

/// Two keys of the same path.
struct KeyPair {
    CRegistryNode* one;
    CRegistryNode* other;
    size_t parent;  ///< place of the pair above; of the first one its own
    std::string name;
};

/// The path of a name in the keys of a pair.
KeyPath PathOf(const std::vector<KeyPair>& pairs, size_t place, const std::string& name) {
    KeyPath path{name};
    for (; place != 0; place = pairs[place].parent) path.push_back(pairs[place].name);
    std::reverse(path.begin(), path.end());
    return path;
}

[[noreturn]] void ThrowError(int error) {
    throw std::system_error{error, std::generic_category()};
}

}  // namespace

KeyPath SplitKeyPath(std::string_view path) {
    const char separator = path.find('\\') != path.npos ? '\\' : '/';
    KeyPath names;
    while (!path.empty()) {
        const auto name = path.substr(0, path.find(separator));
        names.emplace_back(name);
        path.remove_prefix(std::min(name.size() + 1, path.size()));
    }
    return names;
}

std::string JoinKeyPath(const KeyPath& path) {
    std::string text;
    for (size_t i = 0; i < path.size(); ++i) text.append(i == 0 ? "" : "\\").append(path[i]);
    return text;
}

std::vector<RegistryItem> ItemsOf(CRegistryNode& key) {
    std::vector<RegistryItem> items;
    const RecursiveLockGuard hold{key.Lock()};
    for (const NameTableEntry& entry : key.Entries()) {
        if (IsThere(entry)) items.push_back(ItemOf(entry));
    }
    return items;
}

std::optional<RegistryItem> FindItem(CRegistryNode& key, const std::string& name) {
    const RecursiveLockGuard hold{key.Lock()};
    const NameTableEntry* const entry = key.Find(name.c_str());
    if (entry == nullptr || !IsThere(*entry)) return std::nullopt;
    return ItemOf(*entry);
}

CRegistryNode* FindKey(CRegistryNode& root, const KeyPath& path) {
    CRegistryNode* key = &root;
    for (const auto& name : path) {
        key = key->FindChild(name.c_str());
        if (key == nullptr) return nullptr;
    }
    return key;
}

bool HasValues(CRegistryNode& root) {
    std::vector<CRegistryNode*> open{&root};
    while (!open.empty()) {
        CRegistryNode* const key = open.back();
        open.pop_back();
        for (const auto& item : ItemsOf(*key)) {
            if (item.key == nullptr) return true;
            open.push_back(item.key);
        }
    }
    return false;
}

void PutValue(CRegistryNode& key, const std::string& name, const RegistryValue& value) {
    ReadText(key, FormatRegistryLine(name, value) + "\n");
}

CRegistryNode& MakeKey(CRegistryNode& root, const KeyPath& path) {
    CRegistryNode* key = &root;
    for (const auto& name : path) {
        CheckKeyName(name);
        const auto item = FindItem(*key, name);
        if (item && item->key == nullptr) {
            throw Failure{ExitStatus::kNotFound,
                          {},
                          "'" + name + "' is a value, and so no key",
                          "delete the value first, or take another name"};
        }
        if (!item) ReadText(*key, "[" + name + "]\n\n");
        key = key->FindChild(name.c_str());
        if (key == nullptr) ThrowError(ENOMEM);
    }
    return *key;
}

void RemoveItem(CRegistryNode& key, const std::string& name) {
    PutEntry(key, name.c_str(), {0, kRegistryDoubleWord});
    (void)key.Remove(name.c_str());
}

std::optional<KeyPath> FindConflict(CRegistryNode& one, CRegistryNode& other) {
    std::vector<KeyPair> pairs{{&one, &other, 0, {}}};
    for (size_t place = 0; place < pairs.size(); ++place) {
        const auto [first, second, parent, name] = pairs[place];
        for (const auto& item : ItemsOf(*second)) {
            const auto there = FindItem(*first, item.name);
            if (!there) continue;
            if ((there->key == nullptr) != (item.key == nullptr)) {
                return PathOf(pairs, place, item.name);
            }
            if (item.key != nullptr) pairs.push_back({there->key, item.key, place, item.name});
        }
    }
    return std::nullopt;
}

void Merge(CRegistryNode& to, CRegistryNode& from) {
    std::vector<std::pair<CRegistryNode*, CRegistryNode*>> open{{&to, &from}};
    while (!open.empty()) {
        const auto [target, source] = open.back();
        open.pop_back();
        const RecursiveLockGuard hold{source->Lock()};
        for (NameTableEntry& entry : source->Entries()) {
            CRegistryNode* const both = IsKey(entry) ? target->FindChild(entry.Name) : nullptr;
            if (both != nullptr) {
                open.emplace_back(both, Child(entry));
            } else if (IsThere(entry)) {
                PutEntry(*target, entry.Name, Replace(entry, 0, entry.Type));
            }
        }
    }
}

std::string TextOf(CRegistryNode& root) {
    char* text = nullptr;
    size_t size = 0;
    UniqueFile file{open_memstream(&text, &size)};
    if (file == nullptr) ThrowError(errno);
    const bool isWritten = CRegistry::WriteNode(&root, file.get());
    const bool isWhole = CloseFile(file) && isWritten;
    const UniqueMemory<char> owner{text};
    if (!isWhole) ThrowError(ENOMEM);
    return {text, size};
}

std::string TextOf(CRegistryNode& key, const KeyPath& path) {
    std::string text;
    for (const auto& name : path) text += "[" + name + "]\n";
    return text + TextOf(key) + std::string(path.size(), '\n');
}

void ReadText(CRegistryNode& root, const std::string& text) {
    if (text.empty()) return;
    const UniqueFile file{fmemopen(const_cast<char*>(text.data()), text.size(), "r")};
    if (file == nullptr) ThrowError(errno);
    (void)CRegistry::ReadNode(&root, file.get());
}

}  // namespace zornctl

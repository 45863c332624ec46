// The handle. An operation looks at or changes one key in one step, under that key's lock; what it took
// out is disposed of, and most lines are traced, behind it. Where a change is announced to the next save
// both before and behind it: a save that runs meanwhile has either written it or is told again.

#include "registry/registry.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "registry/disposal.h"
#include "trace/no_cancellation.h"
#include "trace/trace.h"

namespace {

constexpr int kFailed = -1;
constexpr const char* kUuidPath =
    R"(SYSTEM\CurrentControlSet\Control\UUID\C3681B60-0D26-11D3-8319-00A0C9B61E25)";

/// Reads a handle that may be an element of `MHives`, which other threads change.
HKEY Load(const HKEY& key) {
    return std::atomic_ref{const_cast<HKEY&>(key)}.load();
}

const char* Shown(const char* text) {
    return text != nullptr ? text : "<null>";
}

bool IsText(uint64_t type) {
    return type == kRegistryString || type == kRegistryExpandString;
}

std::unique_ptr<char[]> CopyBytes(const void* data, size_t size) {
    auto copy = std::make_unique_for_overwrite<char[]>(size + 1);
    if (size > 0) memcpy(copy.get(), data, size);
    copy[size] = '\0';
    return copy;
}

std::unique_ptr<char[]> CopyText(const char* text) {
    return CopyBytes(text, strlen(text));
}

/// What the `Value` of an entry points to, and its bytes as a reader gets them.
struct Data {
    const void* bytes;
    uint32_t size;
};

Data DataOf(const NameTableEntry& entry) {
    if (entry.Type == kRegistryDoubleWord) return {&entry.Value, sizeof(uint32_t)};
    const char* const value = reinterpret_cast<const char*>(entry.Value);
    if (value == nullptr) return {nullptr, 0};
    if (IsText(entry.Type)) return {value, static_cast<uint32_t>(strlen(value)) + 1};
    if (entry.Type != kRegistryBinary) return {nullptr, 0};
    uint32_t size = 0;
    memcpy(&size, value, sizeof size);
    return {value + sizeof size, size};
}

/// Takes the names off a path, one after the other.
class PathWalk {
  public:
    /// `path` is changed: a separator is a NUL while the name before it is looked at, and a slash
    /// afterwards.
    explicit PathWalk(char* path)
        : m_At(path), m_Separator(strchr(path, '\\') != nullptr ? '\\' : '/') {}

    /// Null at the end of the path, also behind a separator that ends it.
    const char* Next() {
        if (m_End != nullptr) {
            *m_End = '/';
            m_At = m_End + 1;
        } else if (m_HasBegun) {
            return nullptr;
        }
        m_HasBegun = true;
        if (*m_At == '\0') return nullptr;
        m_End = strchr(m_At, m_Separator);
        if (m_End != nullptr) *m_End = '\0';
        return m_At;
    }

  private:
    char* m_At;
    char m_Separator;
    char* m_End = nullptr;  ///< the separator behind the name, if any
    bool m_HasBegun = false;
};

/// Null if a value has that name. Throws without memory.
CRegistryNode* FindOrMakeChild(CRegistryNode& node, const char* name, std::atomic<bool>& isDirty) {
    const RecursiveLockGuard hold{node.Lock()};
    const NameTableEntry* const entry = node.Find(name);
    if (entry != nullptr && entry->Value != 0) return IsKey(*entry) ? Child(*entry) : nullptr;
    auto child = std::make_unique<RegistryKey>();
    node.Insert(name, reinterpret_cast<uint64_t>(child.get()), kRegistrySubkey);
    isDirty = true;
    return child.release();
}

void TraceRead(const char* name, uint32_t length) {
    TRACE(4, "CRegistry::GetValue \"%s\" --> len %d\n", Shown(name), static_cast<int>(length));
}

/// Finds the entry with number `index` among those that count.
struct Search {
    size_t place = 0;   ///< of the entry; the table's size if there is none
    unsigned hits = 0;  ///< entries that count up to and with it
};

template <typename Counts>
Search FindNumber(std::span<const NameTableEntry> entries, unsigned index, Counts counts) {
    Search search;
    for (; search.place < entries.size(); ++search.place) {
        if (counts(entries[search.place]) && search.hits++ == index) return search;
    }
    return search;
}

void StoreName(const char* from, char* name, unsigned& nameLength) {
    if (from == nullptr) from = "";
    if (nameLength == 0) return;
    nameLength = static_cast<unsigned>(strnlen(from, nameLength - 1));
    memcpy(name, from, nameLength);
    name[nameLength] = '\0';
}

/// The text with the variables of the environment in it.
std::string Expand(const char* text) {
    std::string result;
    while (const char* const mark = strchr(text, '%')) {
        result.append(text, mark);
        text = mark + 1;
        const char* const partner = strchr(text, '%');
        if (partner == nullptr) break;
        if (partner == text) {
            result += '%';
        } else if (const char* const value = getenv(std::string{text, partner}.c_str())) {
            result += value;
        }
        text = partner + 1;
    }
    return result.append(text);
}

/// The `Value` of an entry for that many bytes; `owner` has what it points to. False for what no
/// value can be made of.
bool MakeValue(const void* data, unsigned size, unsigned type, std::unique_ptr<char[]>& owner,
               uint64_t& value) {
    if (data == nullptr && size > 0) return false;
    switch (type) {
        case kRegistryString:
        case kRegistryExpandString:
            owner = CopyBytes(data, size);
            break;
        case kRegistryBinary:
            owner = std::make_unique_for_overwrite<char[]>(sizeof size + size);
            memcpy(owner.get(), &size, sizeof size);
            if (size > 0) memcpy(owner.get() + sizeof size, data, size);
            break;
        case kRegistryDoubleWord:
            if (size != sizeof(uint32_t)) return false;
            value = 0;
            memcpy(&value, data, sizeof(uint32_t));
            return true;
        default:
            return false;
    }
    value = reinterpret_cast<uint64_t>(owner.get());
    return true;
}

}  // namespace

// --- Construction ------------------------------------------------------------------------------

CRegistry::CRegistry() {
    const NoCancellation untilMade;  // what is counted here is counted down by the destructor only
    g_RetiredKeys.HandleMade();
    InitClass();
}

CRegistry::CRegistry(const HKEY& key) : CRegistry() {
    m_Node = Load(key);
}

CRegistry::CRegistry(const char* path, const HKEY& key, unsigned access) : CRegistry() {
    m_LastError = Open(path, Load(key), access);
}

CRegistry::CRegistry(const CRegistry& other) : CRegistry() {
    CopyPosition(other);
}

CRegistry& CRegistry::operator=(const CRegistry& other) {
    if (this == &other) return *this;
    InitClass();
    CopyPosition(other);
    return *this;
}

CRegistry::~CRegistry() {
    const NoCancellation untilGone;
    SaveTree();
    g_RetiredKeys.HandleGone();
}

void CRegistry::CopyPosition(const CRegistry& other) {
    m_Node = other.m_Node;
    try {
        if (other.m_KeyPath != nullptr) m_KeyPath = CopyText(other.m_KeyPath.get());
    } catch (const std::bad_alloc&) {
        m_KeyPath = nullptr;  // the key is what counts
    }
}

void CRegistry::Clear() {
    m_LastError = 0;
    m_ValueLength = 0;
    m_ValueType = 0;
    m_ExpandStrings = true;
    m_KeyIndex = 0;
    m_KeyPosition = 0;
    m_ValueIndex = 0;
    m_ValueFilter = 0;
    m_ValuePosition = 0;
    m_Node = nullptr;
    m_KeyPath = nullptr;
}

void CRegistry::InitClass() {
    TRACE(2, "\nCRegistry::InitClass");
    Clear();
    SetupTree(false);
    if (MRoot.FindChild("HKEY_LOCAL_MACHINE") != nullptr) return;
    TRACE(1, "CRegistry::InitClass() : re-initialize the registry-tree\n");
    RestoreHives();
}

HKEY CRegistry::Detach() {
    return std::exchange(m_Node, nullptr);
}

bool CRegistry::DetachChecked() {
    return Detach() != nullptr;
}

// --- Keys --------------------------------------------------------------------------------------

int CRegistry::FailOpen() {
    m_Node = nullptr;
    m_KeyPath = nullptr;
    m_LastError = kFailed;
    return kFailed;
}

int CRegistry::Open(const char* path, HKEY key, unsigned /*access*/) {
    m_LastError = 0;
    TRACE(2, "\nCRegistry::Open \"%s\", hKey = %d\n", Shown(path),
          static_cast<int>(reinterpret_cast<intptr_t>(key)));
    if (path == nullptr) return FailOpen();
    try {
        m_KeyPath = CopyText(path);
    } catch (const std::bad_alloc&) {
        TRACE(2, "\nCRegistry::Open ##ERROR while opening !!!\n");
        return FailOpen();
    }
    m_Node = key != nullptr ? key : &MRoot;
    PathWalk walk{m_KeyPath.get()};
    while (const char* const name = walk.Next()) {
        m_Node = m_Node->FindChild(name);
        if (m_Node == nullptr) return FailOpen();
    }
    return 0;
}

int CRegistry::CreateKey(HKEY parent, const char* path) {
    TRACE(2, "CRegistry::CreateKey \"%s\"\n", Shown(path));
    CRegistryNode* node = NodeOr(parent);
    if (node == nullptr || path == nullptr) return kFailed;
    try {
        const std::unique_ptr<char[]> copy = CopyText(path);
        PathWalk walk{copy.get()};
        while (const char* const name = walk.Next()) {
            node = FindOrMakeChild(*node, name, MIsDirty);
            if (node == nullptr) return kFailed;
        }
    } catch (const std::bad_alloc&) {
        return kFailed;
    }
    m_Node = node;
    return 0;
}

int CRegistry::OpenPointer(const char* path, const char* valueName, HKEY key, unsigned access) {
    TRACE(2, "CRegistry::OpenPointer \"%s\"\n", Shown(path));
    if (Open(path, key, access) != 0) return kFailed;
    char* const text = GetValue(valueName, nullptr);
    m_Node = nullptr;
    m_LastError = kFailed;
    if (text == nullptr) return kFailed;
    char* separator = strchr(text, '\\');
    if (separator == nullptr) separator = strchr(text, '/');
    if (separator == nullptr) return kFailed;
    for (char* at = text; at != separator; ++at) {
        *at = static_cast<char>(toupper(static_cast<unsigned char>(*at)));
    }
    *separator = '/';
    return Open(text, nullptr, static_cast<unsigned>(-1));
}

int CRegistry::OpenPointerUuid(const char* valueName, HKEY key, unsigned access) {
    return OpenPointer(kUuidPath, valueName, key, access);
}

int CRegistry::DeleteKey(const char* name) {
    TRACE(2, "CRegistry::DeleteKey \"%s\"\n", Shown(name));
    if (m_Node == nullptr || name == nullptr) return EINVAL;
    OldValue old;
    {
        const RecursiveLockGuard hold{m_Node->Lock()};
        NameTableEntry* const entry = m_Node->Find(name);
        if (entry == nullptr || entry->Type != kRegistrySubkey) return EINVAL;
        old = Replace(*entry, 0, kRegistrySubkey);
    }
    MIsDirty = true;
    DisposeValue(old);
    return 0;
}

int CRegistry::EnumKey(char* name, unsigned* nameLength, unsigned index, unsigned* /*reserved*/,
                       unsigned* classLength) {
    if (m_Node == nullptr || name == nullptr || nameLength == nullptr) return EINVAL;
    const RecursiveLockGuard hold{m_Node->Lock()};
    const auto entries = m_Node->Entries();
    const Search found = FindNumber(entries, index, IsKey);
    if (found.place == entries.size()) return ENODATA;
    StoreName(entries[found.place].Name, name, *nameLength);
    if (classLength != nullptr) *classLength = 0;
    m_KeyIndex = static_cast<int32_t>(found.hits);
    m_KeyPosition = static_cast<int32_t>(found.place) + 1;
    return 0;
}

int CRegistry::EnumKeyByValue(char* name, unsigned nameLength, unsigned index, unsigned* reserved,
                              unsigned classLength) {
    return EnumKey(name, &nameLength, index, reserved, &classLength);
}

int CRegistry::QuerySubkeyCount(unsigned* count) {
    if (m_Node == nullptr || count == nullptr) return EINVAL;
    const RecursiveLockGuard hold{m_Node->Lock()};
    *count = FindNumber(m_Node->Entries(), UINT32_MAX, IsKey).hits;
    return 0;
}

// --- Reading values ----------------------------------------------------------------------------

unsigned CRegistry::GetValueSize(const char* name, HKEY node) {
    CRegistryNode* const key = NodeOr(node);
    if (key == nullptr) return 0;
    const RecursiveLockGuard hold{key->Lock()};
    const NameTableEntry* const entry = key->Find(name);
    return entry != nullptr ? DataOf(*entry).size : 0;
}

char* CRegistry::GetValue(const char* name, HKEY node) {
    m_ValueLength = 0;
    CRegistryNode* const key = NodeOr(node);
    if (key == nullptr) {
        TraceRead(name, 0);
        return nullptr;
    }
    if (!ReadValue(name, *key)) return nullptr;
    if (m_ValueType == static_cast<int32_t>(kRegistryExpandString) && m_ExpandStrings) {
        if (!ExpandValue()) return nullptr;
    }
    return m_ValueBuffer.get();
}

/// Copies a value into the buffer. False if there is none or no memory.
bool CRegistry::ReadValue(const char* name, CRegistryNode& key) {
    const RecursiveLockGuard hold{key.Lock()};
    const NameTableEntry* const entry = key.Find(name);
    const Data data = entry != nullptr ? DataOf(*entry) : Data{nullptr, 0};
    m_ValueLength = data.size;
    TraceRead(name, data.size);
    // From here on `name` is not used: it may be the value read before.
    if (data.size == 0 || !StoreInBuffer(data.bytes, data.size)) return false;
    m_ValueType = static_cast<int32_t>(entry->Type);
    return true;
}

/// Stores bytes and a NUL. False without memory.
bool CRegistry::StoreInBuffer(const void* bytes, size_t size) {
    if (size >= m_BufferSize) {
        try {
            const size_t larger = std::max<size_t>(size + 1, 64);
            m_ValueBuffer = std::make_unique_for_overwrite<char[]>(larger);
            m_BufferSize = larger;
        } catch (const std::bad_alloc&) {
            return false;
        }
    }
    memcpy(m_ValueBuffer.get(), bytes, size);
    m_ValueBuffer[size] = '\0';
    return true;
}

bool CRegistry::ExpandValue() {
    try {
        const std::string text = Expand(m_ValueBuffer.get());
        m_ValueLength = static_cast<uint32_t>(text.size());
        return StoreInBuffer(text.data(), text.size());
    } catch (const std::bad_alloc&) {
        return false;
    }
}

/// Reads a text into the buffer.
int CRegistry::ReadText(const char* name, HKEY node) {
    if (NodeOr(node) == nullptr || name == nullptr) return EINVAL;
    if (GetValue(name, node) == nullptr || !IsText(ValueType())) return ENODATA;
    return 0;
}

int CRegistry::GetValue(unsigned* out, const char* name, HKEY node) {
    if (out == nullptr || name == nullptr || NodeOr(node) == nullptr) return EINVAL;
    // The value itself counts, not what it would be expanded to.
    const bool expand = std::exchange(m_ExpandStrings, false);
    const char* const value = GetValue(name, node);
    m_ExpandStrings = expand;
    if (value == nullptr || m_ValueLength != sizeof *out) return ENODATA;
    memcpy(out, value, sizeof *out);
    return 0;
}

int CRegistry::GetValue(std::string& out, const char* name, HKEY node) {
    const int result = ReadText(name, node);
    if (result != 0) return result;
    try {
        out = m_ValueBuffer.get();
        return 0;
    } catch (const std::bad_alloc&) {
        return ENODATA;
    }
}

int CRegistry::GetValue(char* dst, const char* name, unsigned size, HKEY node) {
    const int result = ReadText(name, node);
    if (result != 0 || dst == nullptr) return result;
    const size_t length = strlen(m_ValueBuffer.get());
    memcpy(dst, m_ValueBuffer.get(), std::min<size_t>(length + 1, size));
    return length < size ? 0 : ERANGE;
}

int CRegistry::QueryValue(char* dst, const char* name, unsigned* count, HKEY node) {
    const int result = ReadText(name, node);
    if (result != 0) return result;
    if (count == nullptr) {
        TRACE(1, "CRegistry::QueryValue: ** ERROR **  pdwCount is a NULL pointer\n");
        return ERANGE;
    }
    const size_t length = strlen(m_ValueBuffer.get());
    if (dst == nullptr) {
        *count = static_cast<unsigned>(length) + 1;
        return 0;
    }
    memcpy(dst, m_ValueBuffer.get(), std::min<size_t>(length + 1, *count));
    if (*count <= length) return ERANGE;
    *count = static_cast<unsigned>(length);
    return 0;
}

int CRegistry::EnumValue(char* name, unsigned* nameLength, unsigned index, unsigned filter,
                         char* data, unsigned* dataLength) {
    if (m_Node == nullptr || name == nullptr || nameLength == nullptr) return EINVAL;
    m_ValueFilter = static_cast<int32_t>(filter);
    m_ValueIndex = 0;
    m_ValuePosition = 0;
    const RecursiveLockGuard hold{m_Node->Lock()};
    const auto entries = m_Node->Entries();
    Search found = FindNumber(entries, index, [filter](const NameTableEntry& entry) {
        if (filter == kRegistryAllValues) return entry.Type != kRegistrySubkey;
        return entry.Type == filter && (filter != kRegistrySubkey || entry.Value != 0);
    });
    NameTableEntry none{};
    const NameTableEntry* entry = &none;
    if (found.place < entries.size()) {
        entry = &entries[found.place];
    } else {
        // Callers of old end their loops at an empty name, others at the result: both get theirs.
        const bool hasEnd = filter == kRegistryAllValues || filter == 0;
        if (!hasEnd || found.hits++ != index) return ENODATA;
    }
    StoreName(entry->Name, name, *nameLength);
    m_ValueIndex = static_cast<int32_t>(found.hits);
    m_ValuePosition = static_cast<int32_t>(found.place) + 1;
    if (data == nullptr || dataLength == nullptr) return 0;
    return StoreEntryData(*entry, data, *dataLength);
}

int CRegistry::StoreEntryData(const NameTableEntry& entry, char* data, unsigned& dataLength) {
    if (IsText(entry.Type)) return QueryValue(data, entry.Name, &dataLength, nullptr);
    const bool isStored = entry.Type == kRegistryDoubleWord && dataLength >= sizeof(uint32_t);
    if (isStored) memcpy(data, &entry.Value, sizeof(uint32_t));
    dataLength = isStored ? sizeof(uint32_t) : 0;
    return 0;
}

int CRegistry::EnumValueByValue(char* name, unsigned nameLength, unsigned index, unsigned filter,
                                char* data, unsigned dataLength) {
    return EnumValue(name, &nameLength, index, filter, data, &dataLength);
}

// --- Changing values ---------------------------------------------------------------------------

bool CRegistry::SetValue(const char* name, const void* data, unsigned size, unsigned type,
                         HKEY node) {
    CRegistryNode* const key = NodeOr(node);
    if (key == nullptr) return false;
    const NoCancellation untilFreed;
    MIsDirty = true;
    TRACE(2, "CRegistry::SetValue \"%s\" %d %d\n", Shown(name), static_cast<int>(size),
          static_cast<int>(type));
    OldValue old;
    try {
        std::unique_ptr<char[]> owner;
        uint64_t value = 0;
        if (!MakeValue(data, size, type, owner, value)) return false;
        if (name == nullptr) return true;
        const RecursiveLockGuard hold{key->Lock()};
        if (NameTableEntry* const entry = key->Find(name)) {
            old = Replace(*entry, value, type);
        } else {
            key->Insert(name, value, type);
        }
        (void)owner.release();
    } catch (const std::bad_alloc&) {
        return false;
    }
    MIsDirty = true;
    if (old.value == 0) return true;
    TRACE(2, "CRegistry::SetValue oEntry = %p\n", reinterpret_cast<void*>(old.value));
    DisposeValue(old);
    return true;
}

int CRegistry::SetValue(const char* name, int value) {
    return SetValue(name, &value, sizeof value, kRegistryDoubleWord, nullptr) ? 0 : EINVAL;
}

int CRegistry::SetValue(const char* name, const char* text) {
    if (text == nullptr) return EINVAL;
    const auto size = static_cast<unsigned>(strlen(text));
    return SetValue(name, text, size, kRegistryString, nullptr) ? 0 : EINVAL;
}

int CRegistry::DeleteValue(const char* name) {
    TRACE(2, "CRegistry::DeleteValue \"%s\"\n", Shown(name));
    if (m_Node == nullptr) return EINVAL;
    MIsDirty = true;
    if (name == nullptr) return 0;
    OldValue old;
    {
        const RecursiveLockGuard hold{m_Node->Lock()};
        NameTableEntry* const entry = m_Node->Find(name);
        if (entry == nullptr) return 0;
        old = Replace(*entry, 0, 0);
        m_Node->Remove(name);
    }
    MIsDirty = true;
    DisposeValue(old);
    return 0;
}

bool CRegistry::GetUuidValue(std::string& out, const char* name) {
    constexpr int kTries = 2;
    for (int i = 0; i < kTries; ++i) {
        CRegistry key;
        if (key.Open(kUuidPath, Load(MHives[kHiveLocalMachine]), 0) != 0) continue;
        if (key.GetValue(out, name, nullptr) == 0) return true;
    }
    return false;
}

// A node ends with an empty line, so a file is a tree in the order of its lines. The open keys are a list
// of levels; what has been read of them stands in one list of items, each key's behind those of the key
// above it. At the end of a key its items are sorted and become its table; the key is then an item of the
// level above.
//
// A later item takes the place of an earlier one with the same name. For values that is done when the
// items are sorted. A subkey goes at once, since what is below it is traced as it goes; it need not be
// looked for as long as subkeys come in the order of their names behind the values, as files written
// here have them.
//
// The key that is read into may be in use: it is changed under its lock, and what it has already is
// replaced at once.

#include "registry/node_reader.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

namespace {

bool IsBefore(const NameTableEntry& one, const NameTableEntry& other) {
    return strcmp(one.Name, other.Name) < 0;
}

std::unique_ptr<char[]> Copy(std::string_view text) {
    auto copy = std::make_unique_for_overwrite<char[]>(text.size() + 1);
    memcpy(copy.get(), text.data(), text.size());
    copy[text.size()] = '\0';
    return copy;
}

int HexDigit(char digit) {
    if (digit >= '0' && digit <= '9') return digit - '0';
    if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
    return -1;
}

/// Takes one number off the front of `text`. False if there is none.
bool TakeByte(const char*& text, char& byte) {
    const int high = HexDigit(text[0]);
    const int low = high < 0 ? -1 : HexDigit(text[1]);
    if (low >= 0 && text[2] == ' ') {  // as it is written here
        byte = static_cast<char>(high * 16 + low);
        text += 3;
        return true;
    }
    char* end = nullptr;
    const long number = strtol(text, &end, 16);
    if (end == text) return false;
    byte = static_cast<char>(number);
    text = end;
    return true;
}

std::unique_ptr<char[]> ParseBinary(const char* text) {
    uint32_t count = 0;
    // A number takes two characters at least, but for the first.
    auto block = std::make_unique_for_overwrite<char[]>(sizeof count + strlen(text) / 2 + 1);
    while (TakeByte(text, block[sizeof count + count])) ++count;
    memcpy(block.get(), &count, sizeof count);
    return block;
}

void DropItem(const NameTableEntry& item) {
    delete[] item.Name;
    DisposeValue({item.Value, item.Type});
}

}  // namespace

NodeReader::NodeReader(CRegistryNode& top, FILE* file) : m_Top(top), m_Lines(file) {
    m_Levels.emplace_back();
}

NodeReader::~NodeReader() {
    DropItems(0);
}

unsigned NodeReader::Read() {
    try {
        ReadLines();
        while (m_Levels.size() > 1) EndKey();
        MergeIntoTop();
    } catch (const std::bad_alloc&) {
        return 0;
    }
    return m_Levels.front().hasValues ? 1 : 0;
}

void NodeReader::ReadLines() {
    Line line{};
    while (m_Lines.Next(line)) {
        if (line.length != 0) {
            TakeLine(line);
        } else if (m_Levels.size() > 1) {
            EndKey();
        } else {
            return;
        }
    }
}

void NodeReader::TakeLine(const Line& line) {
    try {
        ParseLine(line);
    } catch (const std::bad_alloc&) {
        return;  // this line is lost, not the file
    }
}

void NodeReader::ParseLine(const Line& line) {
    const auto* const end =
        static_cast<char*>(line.text[0] == '[' ? memchr(line.text, ']', line.length) : nullptr);
    if (end != nullptr) {
        BeginKey({line.text + 1, end});
        return;
    }
    const std::string_view text{line.text, line.length};
    const size_t tag = text.find('=');
    if (tag != text.npos) TakeValue(text.substr(0, tag), text.substr(tag));
}

void NodeReader::BeginKey(std::string_view name) {
    Level level;
    level.key = std::make_unique<RegistryKey>();
    level.name = Copy(name);
    level.begin = m_Items.size();
    m_Levels.push_back(std::move(level));
}

void NodeReader::EndKey() {
    Level level = std::move(m_Levels.back());
    m_Levels.pop_back();
    if (level.hasValues) m_Levels.back().hasValues = true;
    (void)level.key->Exchange(TakeTable(level));
    Store(std::move(level.name), std::move(level.key), kRegistrySubkey);
}

/// REQUIRES: a NUL stands behind the text.
void NodeReader::TakeValue(std::string_view name, std::string_view tagAndText) {
    if (tagAndText.starts_with("=s=")) {
        Store(Copy(name), Copy(tagAndText.substr(3)), kRegistryString);
    } else if (tagAndText.starts_with("=es=")) {
        Store(Copy(name), Copy(tagAndText.substr(4)), kRegistryExpandString);
    } else if (tagAndText.starts_with("=d=")) {
        const char* const text = tagAndText.data() + 3;
        char* end = nullptr;
        const auto number = static_cast<uint32_t>(strtol(text, &end, 10));
        if (end != text) Store(Copy(name), uint64_t{number}, kRegistryDoubleWord);
    } else if (tagAndText.starts_with("=b=")) {
        Store(Copy(name), ParseBinary(tagAndText.data() + 3), kRegistryBinary);
    } else {
        return;
    }
    m_Levels.back().hasValues = true;  // also by a number without a digit
}

template <typename Owner>
void NodeReader::Store(std::unique_ptr<char[]> name, Owner owner, uint64_t type) {
    Store(std::move(name), reinterpret_cast<uint64_t>(owner.get()), type);
    (void)owner.release();
}

/// Throws `std::bad_alloc` before anything has changed.
void NodeReader::Store(std::unique_ptr<char[]> name, uint64_t value, uint64_t type) {
    NameTableEntry item{name.get(), value, type};
    if (m_Levels.size() == 1 && ExchangeInTop(item)) {
        (void)name.release();
        DropItem(item);
        return;
    }
    if (m_Items.size() == m_Items.capacity())
        m_Items.reserve(std::max<size_t>(64, 2 * m_Items.size()));
    Level& level = m_Levels.back();
    const bool isKey = type == kRegistrySubkey;
    const size_t former = isKey                          ? level.lastKey
                          : m_Items.size() > level.begin ? m_Items.size() - 1
                                                         : kNone;
    const bool isNext = former == kNone || IsBefore(m_Items[former], item);
    if (level.lastKey != kNone && (level.keys != nullptr || !isKey || !isNext)) {
        DisposeFormerKey(item.Name, isKey);
    }
    if (!isNext || (!isKey && level.lastKey != kNone)) level.isSorted = false;
    if (isKey) {
        level.lastKey = m_Items.size();
        if (level.firstKey == kNone) level.firstKey = level.lastKey;
    }
    m_Items.push_back(item);
    (void)name.release();
}

/// Puts the item in the place of one that the top has already. False if there is none; `item` then is
/// as it was, and what was there otherwise.
bool NodeReader::ExchangeInTop(NameTableEntry& item) {
    const RecursiveLockGuard hold{m_Top.Lock()};
    NameTableEntry* const entry = m_Top.Find(item.Name);
    if (entry == nullptr) return false;
    std::swap(*entry, item);
    return true;
}

/// Makes way for an item that is the next to be stored.
void NodeReader::DisposeFormerKey(const char* name, bool isKey) {
    NameIndex& keys = KeysOf(m_Levels.back());
    const auto former = keys.find(name);
    if (former == keys.end()) {
        if (isKey) keys.emplace(name, m_Items.size());
        return;
    }
    const OldValue old = Replace(m_Items[former->second], 0, kRegistrySubkey);
    if (isKey) {
        former->second = m_Items.size();
    } else {
        keys.erase(former);
    }
    DisposeValue(old);
}

NodeReader::NameIndex& NodeReader::KeysOf(Level& level) {
    if (level.keys != nullptr) return *level.keys;
    auto keys = std::make_unique<NameIndex>();
    for (size_t i = level.firstKey; i < m_Items.size(); ++i) {
        if (IsKey(m_Items[i])) keys->emplace(m_Items[i].Name, i);
    }
    level.keys = std::move(keys);
    return *level.keys;
}

/// Sorts the items of a level and drops those that a later one overrides.
void NodeReader::Sort(const Level& level) {
    const auto begin = m_Items.begin() + static_cast<ptrdiff_t>(level.begin);
    if (!level.isSorted) {
        std::stable_sort(begin, m_Items.end(), IsBefore);
    } else if (level.firstKey != kNone) {
        const auto middle = m_Items.begin() + static_cast<ptrdiff_t>(level.firstKey);
        std::inplace_merge(begin, middle, m_Items.end(), IsBefore);
    } else {
        return;
    }
    auto to = begin;
    for (auto at = begin; at != m_Items.end(); ++at) {
        const bool isLast = at + 1 == m_Items.end() || IsBefore(*at, *(at + 1));
        if (isLast) {
            *to++ = *at;
        } else {
            DropItem(*at);
        }
    }
    m_Items.erase(to, m_Items.end());
}

CRegistryNode::Table NodeReader::TakeTable(const Level& level) {
    Sort(level);
    CRegistryNode::Table table;
    const size_t size = m_Items.size() - level.begin;
    if (size == 0) return table;
    table.entries = new NameTableEntry[size];
    std::copy(m_Items.end() - static_cast<ptrdiff_t>(size), m_Items.end(), table.entries);
    m_Items.resize(level.begin);
    table.capacity = table.size = static_cast<int32_t>(size);
    return table;
}

void NodeReader::MergeIntoTop() {
    Sort(m_Levels.front());
    MergeItems();
    DropItems(0);
}

/// Gives the top the items; what they replace there, or nothing, is left in their place.
void NodeReader::MergeItems() {
    if (m_Items.empty()) return;
    const RecursiveLockGuard hold{m_Top.Lock()};
    const auto there = m_Top.Entries();
    const size_t size = there.size() + m_Items.size();
    auto merged = std::make_unique<NameTableEntry[]>(size);
    auto from = there.begin();
    NameTableEntry* to = merged.get();
    for (NameTableEntry& item : m_Items) {
        while (from != there.end() && IsBefore(*from, item)) *to++ = *from++;
        // Somebody else may have set that name while the file was read.
        const bool isThere = from != there.end() && !IsBefore(item, *from);
        *to++ = std::exchange(item, isThere ? *from++ : NameTableEntry{});
    }
    to = std::copy(from, there.end(), to);
    const auto count = static_cast<int32_t>(to - merged.get());
    delete[] m_Top.Exchange({merged.release(), static_cast<int32_t>(size), count}).entries;
}

void NodeReader::DropItems(size_t begin) {
    for (size_t i = begin; i < m_Items.size(); ++i) DropItem(m_Items[i]);
    m_Items.resize(begin);
}

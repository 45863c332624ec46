// A list of tasks takes the place of a recursion. A key's values are written, and its subkeys listed with
// their names, in one go under its lock; the subkeys follow one by one, each under its own lock only.

#include "registry/node_writer.h"

#include <charconv>
#include <cstring>

#include "registry/disposal.h"

namespace {

constexpr size_t kBufferSize = size_t{64} * 1024;

}  // namespace

NodeWriter::NodeWriter(FILE* file)
    : m_File(file), m_Buffer(std::make_unique_for_overwrite<char[]>(kBufferSize)) {}

bool NodeWriter::Write(CRegistryNode& top) {
    WriteContent(top);
    while (!m_Tasks.empty() && m_IsWhole) {
        const Task task = m_Tasks.back();
        m_Tasks.pop_back();
        Write(task);
    }
    Flush();
    return m_IsWhole;
}

void NodeWriter::Write(const Task& task) {
    if (task.key == nullptr) {
        Put('\n');
        return;
    }
    Put('[');
    Put({m_Names.data() + task.nameBegin, m_Names.size() - task.nameBegin});
    Put("]\n");
    m_Names.resize(task.nameBegin);
    WriteContent(*task.key);
}

void NodeWriter::WriteContent(CRegistryNode& node) {
    m_Tasks.push_back({nullptr, 0});
    const RecursiveLockGuard hold{node.Lock()};
    const auto entries = node.Entries();
    for (const NameTableEntry& entry : entries) WriteValue(entry);
    for (size_t place = entries.size(); place-- > 0;) {
        const NameTableEntry& entry = entries[place];
        if (!IsKey(entry)) continue;
        m_Tasks.push_back({Child(entry), m_Names.size()});
        m_Names.insert(m_Names.end(), entry.Name, entry.Name + strlen(entry.Name));
    }
}

void NodeWriter::WriteValue(const NameTableEntry& entry) {
    const bool isNumber = entry.Type == kRegistryDoubleWord;
    const char* const text = reinterpret_cast<const char*>(entry.Value);
    if (!isNumber && text == nullptr) return;
    if (isNumber) {
        char digits[16];
        const auto end = std::to_chars(digits, digits + sizeof digits,
                                       static_cast<int32_t>(static_cast<uint32_t>(entry.Value)));
        Put(entry.Name);
        Put("=d=");
        Put({digits, end.ptr});
    } else if (entry.Type == kRegistryString || entry.Type == kRegistryExpandString) {
        Put(entry.Name);
        Put(entry.Type == kRegistryString ? "=s=" : "=es=");
        Put(text);
    } else if (entry.Type == kRegistryBinary) {
        Put(entry.Name);
        Put("=b=");
        WriteBytes(text);
    } else {
        return;
    }
    Put('\n');
}

void NodeWriter::WriteBytes(const char* block) {
    constexpr const char* kDigits = "0123456789abcdef";
    uint32_t count = 0;
    memcpy(&count, block, sizeof count);
    for (uint32_t i = 0; i < count; ++i) {
        const auto byte = static_cast<unsigned char>(block[sizeof count + i]);
        const char shown[] = {kDigits[byte >> 4], kDigits[byte & 15], ' '};
        Put({shown, sizeof shown});
    }
}

void NodeWriter::Put(std::string_view text) {
    while (!text.empty()) {
        if (m_Used == kBufferSize) Flush();
        const size_t size = std::min(text.size(), kBufferSize - m_Used);
        memcpy(m_Buffer.get() + m_Used, text.data(), size);
        m_Used += size;
        text.remove_prefix(size);
    }
}

void NodeWriter::Put(char character) {
    Put({&character, 1});
}

void NodeWriter::Flush() {
    if (m_IsWhole) m_IsWhole = fwrite(m_Buffer.get(), 1, m_Used, m_File) == m_Used;
    m_Used = 0;
}

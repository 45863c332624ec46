#include "platform/profile_file.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "platform/open_file.h"
#include "platform/private_profile.h"

namespace {

constexpr uint32_t kStep = 1024;
constexpr uint32_t kMemberLimit = 65535;
constexpr uint32_t kStringLimit = 65536;

struct Question {
    const char* section;
    const char* key;
    const char* defaultText;
    const char* fileName;
};

/// The buffer of one call.
struct ScratchBuffer {
    char* data = nullptr;
    uint32_t size = 0;
    ScratchBuffer() = default;
    ~ScratchBuffer() { free(data); }
    ScratchBuffer(const ScratchBuffer&) = delete;
    ScratchBuffer& operator=(const ScratchBuffer&) = delete;
};

/// Makes a buffer one step larger. Past `limit`, or without memory, it is freed and cleared: false.
bool Grow(char*& buffer, uint32_t& size, uint32_t limit) {
    const bool isAllowed = size + kStep <= limit;
    auto* const grown = isAllowed ? static_cast<char*>(realloc(buffer, size + kStep)) : nullptr;
    if (grown == nullptr) {
        free(buffer);
        buffer = nullptr;
        size = 0;
        return false;
    }
    buffer = grown;
    size += kStep;
    return true;
}

/// Reads until the text fits. Its length, or nothing, and no buffer, if it never does.
std::optional<size_t> Read(const Question& question, char*& buffer, uint32_t& size,
                           uint32_t limit) {
    if (buffer == nullptr && !Grow(buffer, size, limit)) return std::nullopt;
    for (;;) {
        const auto length = static_cast<uint32_t>(GetPrivateProfileString(
            question.section, question.key, question.defaultText, buffer, size, question.fileName));
        if (length != size - 1 && length != size - 2) return length;
        if (!Grow(buffer, size, limit)) return std::nullopt;
    }
}

}  // namespace

CProfileFile::CProfileFile()
    : m_FileName{nullptr},
      m_ValueBuffer{nullptr},
      m_ListBuffer{nullptr},
      m_ListCursor{nullptr},
      m_ValueBufferSize{0},
      m_ListBufferSize{0},
      m_IsOpen{false} {}

CProfileFile::~CProfileFile() {
    free(m_FileName);
    free(m_ValueBuffer);
    free(m_ListBuffer);
}

bool CProfileFile::SetFileName(const char* name, bool mustExist) {
    char* const copy = name != nullptr ? strdup(name) : nullptr;
    free(m_FileName);
    m_FileName = copy;
    return Open(mustExist);
}

bool CProfileFile::Open(bool mustExist) {
    m_IsOpen = m_FileName != nullptr && (!mustExist || OpenFile(m_FileName, "r") != nullptr);
    return m_IsOpen;
}

bool CProfileFile::IsOpen() const {
    return m_IsOpen;
}

void CProfileFile::Close() {
    m_IsOpen = false;
}

const char* CProfileFile::GetFileName() const {
    return m_FileName != nullptr ? m_FileName : "";
}

int32_t CProfileFile::GetInt(const char* section, const char* key, int32_t defaultValue) {
    if (!m_IsOpen || section == nullptr || key == nullptr) return defaultValue;
    std::array<char, 32> text;
    if (GetPrivateProfileString(section, key, nullptr, text.data(), text.size(), m_FileName) == 0) {
        return defaultValue;
    }
    return static_cast<int32_t>(strtoul(text.data(), nullptr, 0));
}

bool CProfileFile::GetString(std::string& out, const char* section, const char* key,
                             const char* defaultText) {
    ScratchBuffer buffer;
    const Question question{section, key, defaultText, m_FileName};
    const auto length =
        m_IsOpen ? Read(question, buffer.data, buffer.size, kStringLimit) : std::nullopt;
    if (length) {
        out.assign(buffer.data, *length);
    } else {
        out = defaultText != nullptr ? defaultText : "";
    }
    return length.has_value();
}

const char* CProfileFile::GetValue(const char* section, const char* key, const char* defaultText) {
    if (!m_IsOpen) return defaultText;
    const Question question{section, key, defaultText, m_FileName};
    return Read(question, m_ValueBuffer, m_ValueBufferSize, kMemberLimit) ? m_ValueBuffer
                                                                          : defaultText;
}

const char* CProfileFile::GetKeyList(const char* section) {
    m_ListCursor = nullptr;
    if (!m_IsOpen) return "";
    const Question question{section, nullptr, nullptr, m_FileName};
    if (!Read(question, m_ListBuffer, m_ListBufferSize, kMemberLimit)) return "";
    m_ListCursor = m_ListBuffer;
    return m_ListCursor;
}

const char* CProfileFile::NextKey() {
    if (m_ListCursor == nullptr || *m_ListCursor == '\0') return "";
    m_ListCursor += strlen(m_ListCursor) + 1;
    return m_ListCursor;
}

bool CProfileFile::AppendList(std::vector<std::string>& out, const char* section) {
    const char* name = GetKeyList(section);
    const bool isAny = *name != '\0';
    for (; *name != '\0'; name = NextKey()) out.emplace_back(name);
    return isAny;
}

bool CProfileFile::GetSections(std::vector<std::string>& out) {
    return AppendList(out, nullptr);
}

bool CProfileFile::GetKeys(std::vector<std::string>& out, const char* section) {
    return section != nullptr && AppendList(out, section);
}

bool CProfileFile::CopySection(const char* from, const char* to) {
    if (!m_IsOpen) return false;
    std::vector<std::string> keys;
    (void)GetKeys(keys, from);
    for (const std::string& key : keys)
        (void)WriteString(to, key.c_str(), GetValue(from, key.c_str(), ""));
    return true;
}

bool CProfileFile::DeleteSection(const char* section) {
    return WriteString(section, nullptr, nullptr);
}

bool CProfileFile::DeleteKey(const char* section, const char* key) {
    return WriteString(section, key, nullptr);
}

bool CProfileFile::WriteString(const char* section, const char* key, const char* value) {
    return WritePrivateProfileString(section, key, value, m_FileName) != 0;
}

bool CProfileFile::WriteUInt(const char* section, const char* key, uint32_t value) {
    if (section == nullptr || key == nullptr) return false;
    std::array<char, 16> text;
    (void)snprintf(text.data(), text.size(), "%u", value);
    return WriteString(section, key, text.data());
}

bool CProfileFile::WriteInt(const char* section, const char* key, int32_t value) {
    if (section == nullptr || key == nullptr) return false;
    std::array<char, 16> text;
    (void)snprintf(text.data(), text.size(), "%d", value);
    return WriteString(section, key, text.data());
}

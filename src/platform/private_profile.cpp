#include "platform/private_profile.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <span>
#include <string>

#include "platform/open_file.h"
#include "platform/profile_edit.h"
#include "platform/profile_text.h"
#include "platform/stream_text.h"
#include "trace/no_cancellation.h"
#include "trace/trace.h"

namespace {

constexpr mode_t kFileMode = 0644;

size_t CopyDefault(const char* section, const char* key, const char* text, std::span<char> buffer) {
    if (section == nullptr || key == nullptr || text == nullptr || buffer.empty()) return 0;
    const size_t length = std::min(strlen(text), buffer.size() - 1);
    memmove(buffer.data(), text, length);
    buffer[length] = '\0';
    return length;
}

size_t ReadProfile(const char* section, const char* key, std::span<char> buffer,
                   const char* fileName) {
    const UniqueFile file = OpenFile(fileName, "r");
    if (!file) {
        TRACE(4, "GetPrivateProfileString: Cannot open %s\n", fileName);
        return 0;
    }
    const StreamText read{file.get()};
    return ReadProfileText(read.Text(), section, key, buffer);
}

const char* Shown(const char* text) {
    return text != nullptr ? text : "<nil>";
}

std::string EntryText(const char* key, const char* value) {
    return std::string{key} + "=" + value + "\n";
}

std::string SectionText(const char* section, const char* key, const char* value) {
    return std::string{"\n["} + section + "]\n\n" + EntryText(key, value);
}

enum class Target { kOldFile, kNewFile };

/// False, and traced, if the file cannot be opened.
bool Append(const char* fileName, const std::string& text, Target target = Target::kOldFile) {
    const UniqueFile file = OpenFile(fileName, "a");
    if (!file) {
        TRACE(1, "WritePrivateProfileString: ## WARNING: append open error: %s\n", fileName);
        return false;
    }
    if (target == Target::kNewFile) (void)fchmod(fileno(file.get()), kFileMode);
    (void)fputs(text.c_str(), file.get());
    return true;
}

bool WriteProfile(const char* section, const char* key, const char* value, const char* fileName) {
    UniqueFile file = OpenFile(fileName, "r+");
    if (!file) {
        if (key == nullptr || value == nullptr) return true;
        return Append(fileName, SectionText(section, key, value), Target::kNewFile);
    }
    const StreamText read{file.get()};
    if (!read.IsWhole()) return false;
    const ProfileEdit edit = PlanProfileEdit(read.Text(), section, key, value);
    switch (edit.kind) {
        case ProfileEdit::Kind::kSplice:
            return SpliceFile(file.get(), static_cast<long>(edit.from), static_cast<long>(edit.to),
                              edit.withEntry ? key : nullptr, value, edit.addEmptyLine);
        case ProfileEdit::Kind::kAppendEntry:
            file.reset();
            return Append(fileName, EntryText(key, value));
        case ProfileEdit::Kind::kAppendSection:
            file.reset();
            return Append(fileName, SectionText(section, key, value));
        case ProfileEdit::Kind::kNothing:
            break;
    }
    return false;
}

}  // namespace

int GetPrivateProfileString(const char* section, const char* key, const char* defaultText,
                            char* buffer, uint32_t size, const char* fileName) {
    if (buffer == nullptr || fileName == nullptr) return 0;
    const std::span<char> out{buffer, size};
    if (size > 0) buffer[0] = '\0';
    size_t length = ReadProfile(section, key, out, fileName);
    if (length == 0) length = CopyDefault(section, key, defaultText, out);
    return static_cast<int>(length);
}

int WritePrivateProfileString(const char* section, const char* key, const char* value,
                              const char* fileName) {
    if (section == nullptr) {
        TRACE(4, "WritePrivateProfileString: ## WARNING: invalid pointer to AppName\n");
        return 0;
    }
    if (fileName == nullptr) {
        TRACE(4, "WritePrivateProfileString: ## WARNING: invalid pointer to FileName\n");
        return 0;
    }
    const NoCancellation untilDone;
    TRACE(4, "WritePrivateProfileString(%s, %s, %s, %s)\n", section, Shown(key), Shown(value),
          fileName);
    const int result = WriteProfile(section, key, value, fileName) ? 1 : 0;
    TRACE(4, "WritePrivateProfileString rc=0x%04x\n", static_cast<unsigned>(result));
    return result;
}

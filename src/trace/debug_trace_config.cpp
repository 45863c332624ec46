#include "trace/debug_trace_config.h"

#include <dirent.h>
#include <strings.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string_view>
#include <utility>

#include "trace/ini_section.h"
#include "trace/no_cancellation.h"
#include "trace/unique_file.h"

namespace {

constexpr const char* kConfigDirectory =
    "/opt/Corvanthimex/vital/etc/kelmora/TarnhollowSuite/TraceConfig";
constexpr const char* kGlobalIni = "global_trace.ini";
constexpr const char* kGlobalSection = "GlobalDebugSettings";
constexpr const char* kDefaultLogDirectory = "/var/log/tolbrin";
constexpr uint32_t kDefaultLogMaxSize = 0x1400000;
constexpr std::string_view kEndMark = "## TRACE-END ##\n";
static_assert(kEndMark.size() == kEndMarkSize);
constexpr size_t kZeroBytesBehindFile = 16;

/// The names that `scandir` gave.
class NameList {
  public:
    NameList(dirent** names, int count) : m_Names(names, static_cast<size_t>(std::max(count, 0))) {}
    ~NameList() {
        for (dirent* name : m_Names) free(name);
        free(m_Names.data());
    }
    NameList(const NameList&) = delete;
    NameList& operator=(const NameList&) = delete;

    [[nodiscard]] auto begin() const { return m_Names.begin(); }
    [[nodiscard]] auto end() const { return m_Names.end(); }

  private:
    std::span<dirent*> m_Names;
};

/// An editor's lock file `.#x.ini` is none; a backup `x.ini.bak` is one.
int IsIniName(const dirent* entry) {
    return strncmp(entry->d_name, ".#", 2) != 0 && strstr(entry->d_name, ".ini") != nullptr;
}

/// Reads exactly `size` bytes of a file. Nothing without a size is opened: it has no trailer, and a
/// pipe would stop the process.
bool ReadExactly(const char* path, char* buffer, size_t size) {
    if (size == 0) return false;
    const UniqueFile file{fopen(path, "re")};
    return file && fread(buffer, 1, size, file.get()) == size;
}

void FreeBuffer(TraceIniFile& ini) {
    free(ini.pBuffer);
    ini.pBuffer = ini.pSection = ini.pSectionEnd = nullptr;
}

std::string_view Body(const TraceIniFile& ini) {
    return {ini.pSection, static_cast<size_t>(ini.pSectionEnd - ini.pSection)};
}

/// Takes over the number of `key`; an absent one leaves `value` as it is.
template <typename Number>
bool TakeNumber(const TraceIniFile& ini, const char* key, Number& value) {
    const auto number = FindIniNumber(Body(ini), key);
    if (number) value = *number;
    return number.has_value();
}

/// The environment's word counts even if it is empty or no number (then it is 0).
long Setting(const char* variable, uint32_t iniValue, long fallback) {
    if (const char* text = getenv(variable)) return strtol(text, nullptr, 10);
    return iniValue == kIniAbsent ? fallback : static_cast<long>(iniValue);
}

/// Copies at most `size` - 1 characters and terminates.
void CopyText(char* dst, size_t size, std::string_view text) {
    const size_t length = std::min(text.size(), size - 1);
    memcpy(dst, text.data(), length);
    dst[length] = '\0';
}

template <size_t Size>
void ClearText(char (&text)[Size]) {
    memset(text, 0, Size);
}

void SettleDirectory(char (&directory)[kTracePathSize], const char* variable,
                     const char* iniDirectory) {
    const char* text = getenv(variable);
    if (text == nullptr) text = iniDirectory[0] != '\0' ? iniDirectory : kDefaultLogDirectory;
    CopyText(directory, sizeof directory, text);
}

}  // namespace

void CDebugTraceConfig::SetInitialValues() {
    m_TraceLevel = m_TraceLevelSaved = 0;
    m_FileDebugLevel = kIniAbsent;
    m_TraceFlags = 0;
    m_Enabled = false;
    m_ProgramName = nullptr;
    m_DynamicUpdate = 0;
    m_LastUpdateCheck = 0;
    m_Pid = m_Argc = 0;
    m_Argv = nullptr;
    ClearText(m_StartTime);
    m_TraceTarget = 0;
    m_InitDone = false;
    m_RingFd = -1;
    m_RingFactor = m_RingWeight = 0;
    m_RingSize = m_RingPos = m_RingStart = 0;
    ClearText(m_InternalDebugBuffer);
    m_RingBase = nullptr;
    m_RingWrapCount = 0;
    ClearText(m_RingPath);
    ClearText(m_RingStartupPath);
    m_NoHeader = 0;
    m_IniRingFactor = m_IniRingWeight = 0;
    ClearText(m_IniRingDirectory);
    m_IniNoHeader = m_IniDynamicUpdate = m_MemoryTraces = 0;
    ClearText(m_LogDirectory);
    m_EndMarkLength = kEndMark.size();
    ClearText(m_EndMark);
    CopyText(m_EndMark, sizeof m_EndMark, kEndMark);
    ClearText(m_LogPath);
    m_LogFile = nullptr;
    m_LogInitEndOffset = 0;
    m_LogMaxSize = kDefaultLogMaxSize;
    m_LogInitEndCount = m_LogByteCount = m_LogCycle = 0;
}

void CDebugTraceConfig::FreeIniFile(TraceIniFile& ini) {
    FreeBuffer(ini);
    ini.Path.clear();
    ini.Size = 0;
    ini.MTime = 0;
}

bool CDebugTraceConfig::LoadIniSection(TraceIniFile& ini, const char* section, const char* file,
                                       const char* directory) {
    if (ini.Path.empty()) {
        std::string path = std::string{directory} + "/" + file;
        struct stat status;
        if (stat(path.c_str(), &status) != 0) {
            FreeIniFile(ini);
            return false;
        }
        ini.Path = std::move(path);
        ini.Size = status.st_size;
        ini.MTime = status.st_mtime;
    }
    FreeBuffer(ini);
    const auto size = static_cast<size_t>(ini.Size);
    ini.pBuffer = static_cast<char*>(calloc(size + kZeroBytesBehindFile, 1));
    if (ini.pBuffer == nullptr || !ReadExactly(ini.Path.c_str(), ini.pBuffer, size)) {
        FreeIniFile(ini);
        return false;
    }
    const auto body = FindIniSection({ini.pBuffer, size}, section);
    if (!body) {
        FreeIniFile(ini);
        return false;
    }
    ini.pSection = ini.pBuffer + (body->data() - ini.pBuffer);
    ini.pSectionEnd = ini.pSection + body->size();
    *ini.pSectionEnd = '\0';
    return true;
}

int CDebugTraceConfig::ReadTraceConfig(const char* name) {
    dirent** found = nullptr;
    const int count = scandir(kConfigDirectory, &found, IsIniName, alphasort);
    const NameList names{found, count};
    if (count == 0) return 1;  // an empty directory means no settings, not the default ones

    m_IniRingFactor = m_IniRingWeight = m_IniNoHeader = m_MemoryTraces = kIniAbsent;
    m_IniRingDirectory[0] = '\0';
    if (LoadIniSection(m_GlobalIni, kGlobalSection, kGlobalIni, kConfigDirectory)) {
        TakeNumber(m_GlobalIni, "DynamicUpdate", m_IniDynamicUpdate);
    }
    m_DynamicUpdate =
        static_cast<uint32_t>(Setting("QX_LOG_DYNAMIC_UPDATE", m_IniDynamicUpdate, 0));
    if (m_DynamicUpdate == kIniAbsent) m_DynamicUpdate = 0;
    for (const dirent* entry : names) {
        if (!LoadIniSection(m_ProgramIni, name, entry->d_name, kConfigDirectory)) continue;
        ReadProgramSection();
        break;
    }
    SettleValues();
    return 1;
}

void CDebugTraceConfig::ReadProgramSection() {
    m_IniRingDirectory[0] = '\0';
    const auto directory =
        FindIniText(Body(m_ProgramIni), "RingBufferDirectory", sizeof m_IniRingDirectory - 1);
    if (directory) CopyText(m_IniRingDirectory, sizeof m_IniRingDirectory, *directory);
    TakeNumber(m_ProgramIni, "FileDebugLevel", m_FileDebugLevel);
    TakeNumber(m_ProgramIni, "TraceFlags", m_TraceFlags);
    TakeNumber(m_ProgramIni, "RingBufferSizeFactor", m_IniRingFactor);
    TakeNumber(m_ProgramIni, "RingBufferSizeWeight", m_IniRingWeight);
    TakeNumber(m_ProgramIni, "NoHeaderToStderr", m_IniNoHeader);
    TakeNumber(m_ProgramIni, "MemoryTracesFlag", m_MemoryTraces);
}

void CDebugTraceConfig::SettleValues() {
    // One directory serves the log file and the rings, so the second word of the environment always
    // wins: the first is read for the sake of its name alone.
    SettleDirectory(m_LogDirectory, "QX_LOG_FILE_DIR", m_IniRingDirectory);
    m_LogMaxSize =
        static_cast<uint32_t>(Setting("QX_LOG_FILE_MAX_SIZE", kIniAbsent, kDefaultLogMaxSize));
    SettleDirectory(m_LogDirectory, "QX_LOG_RINGBUF_DIR", m_IniRingDirectory);
    m_TraceLevel = static_cast<uint32_t>(Setting("QX_LOG_DEBUG_LEVEL", m_FileDebugLevel, 0));
    // The names of these two variables are in the field as they are: one without the prefix, one
    // misspelled.
    m_RingFactor = static_cast<int32_t>(Setting("TraceFileLimit", m_IniRingFactor, 0));
    m_RingWeight = static_cast<int32_t>(Setting("QX_LOG_RINGBUF_WEIGHT", m_IniRingWeight, 0));
    m_NoHeader = static_cast<int32_t>(Setting("QX_LOG_NOHDR_TOSDTERR", m_IniNoHeader, 1));
    m_TraceLevelSaved = m_TraceLevel.load();
}

void CDebugTraceConfig::DynamicUpdateCheck() {
    const time_t now = time(nullptr);
    const RecursiveLockGuard hold{m_Lock};
    if (m_DynamicUpdate == 0) return;  // switched off while this thread waited for the lock
    // A clock that went back forces a look.
    if (now >= m_LastUpdateCheck && now < m_LastUpdateCheck + time_t{m_DynamicUpdate}) return;
    const NoCancellation untilTakenOver;
    m_LastUpdateCheck = now;
    if (HasBecomeNewer(m_GlobalIni)) UpdateGlobalIni();
    if (HasBecomeNewer(m_ProgramIni)) UpdateProgramIni();
}

bool CDebugTraceConfig::HasBecomeNewer(TraceIniFile& ini) {
    if (ini.Path.empty()) return false;
    struct stat status;
    if (stat(ini.Path.c_str(), &status) != 0) {
        FreeIniFile(ini);
        return false;
    }
    if (status.st_mtime <= ini.MTime) return false;
    ini.MTime = status.st_mtime;
    ini.Size = status.st_size;
    return true;
}

void CDebugTraceConfig::UpdateGlobalIni() {
    if (!LoadIniSection(m_GlobalIni, kGlobalSection, kGlobalIni, kConfigDirectory)) return;
    if (TakeNumber(m_GlobalIni, "DynamicUpdate", m_IniDynamicUpdate)) {
        m_DynamicUpdate = m_IniDynamicUpdate;
    }
}

void CDebugTraceConfig::UpdateProgramIni() {
    const char* name = m_ProgramName != nullptr ? m_ProgramName : "";
    if (!LoadIniSection(m_ProgramIni, name, "", kConfigDirectory)) return;
    // A level above 0 does not switch on a trace that was off: `m_Enabled` stays.
    if (TakeNumber(m_ProgramIni, "FileDebugLevel", m_FileDebugLevel)) {
        m_TraceLevel = m_TraceLevelSaved = m_FileDebugLevel;
    }
    TakeNumber(m_ProgramIni, "TraceFlags", m_TraceFlags);
    TakeNumber(m_ProgramIni, "MemoryTracesFlag", m_MemoryTraces);
}

void AppendNameSuffix(char* dst, size_t size, const char* name) {
    if (size == 0) return;
    size_t length = strnlen(dst, size - 1);
    if (length < size - 1) dst[length++] = '_';
    for (; *name != '\0' && length < size - 1; ++name) {
        const char c = *name;
        dst[length++] = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    }
    dst[length] = '\0';
}

void ToLowerInPlace(char* text) {
    for (; *text != '\0'; ++text) {
        if (*text >= 'A' && *text <= 'Z') *text = static_cast<char>(*text - 'A' + 'a');
    }
}

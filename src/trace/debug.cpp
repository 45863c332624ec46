#include "trace/debug.h"

#include <syslog.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "trace/no_cancellation.h"
#include "trace/startup_header.h"
#include "trace/unique_file.h"

namespace {

/// `asctime_r` text of now into a buffer that holds at least 26 bytes and is zero before.
void FormatStartTime(char (&text)[44]) {
    memset(text, 0, sizeof text);
    const time_t now = time(nullptr);
    tm local;
    if (now != -1 && localtime_r(&now, &local) != nullptr && asctime_r(&local, text) != nullptr)
        return;
    memset(text, 0, sizeof text);
    memcpy(text, "\nwww mmm dd hh:mm:ss yyyy", sizeof "\nwww mmm dd hh:mm:ss yyyy");
}

}  // namespace

CDebug::CDebug() = default;

CDebug::CDebug(const char* name) : CDebug() {
    if (name == nullptr || *name == '\0') return;
    if (CDebug::Init(name) == 0) {
        syslog(LOG_ERR, "ERROR: Error during initialization of the CDebug instance.\n");
    }
}

CDebug::~CDebug() {
    const NoCancellation atOnce;
    const RecursiveLockGuard hold{m_Lock};
    m_Argc = 0;
    m_Argv = nullptr;
    m_TraceTarget = kTargetNone;
    m_TraceLevel = 0;
    m_DynamicUpdate = 0;  // late callers must not look at the freed caches
    CloseRing();
    m_RingSize = 0;
    const UniqueFile closing{std::exchange(m_LogFile, nullptr)};
    FreeIniFile(m_GlobalIni);
    FreeIniFile(m_ProgramIni);
    delete[] std::exchange(m_ProgramName, nullptr);
}

void CDebug::ResetMembers() {
    const NoCancellation atOnce;
    const RecursiveLockGuard hold{m_Lock};
    CloseRing();
    const UniqueFile closing{std::exchange(m_LogFile, nullptr)};
    const std::unique_ptr<char[]> name{std::exchange(m_ProgramName, nullptr)};
    SetInitialValues();
}

int CDebug::IsTraceAvailable() {
    return 1;
}

int CDebug::Init(const char* name) {
    if (name == nullptr) name = "";
    const RecursiveLockGuard hold{m_Lock};
    if (*name != '\0') SetProgramName(name);
    m_Pid = getpid();
    FormatStartTime(m_StartTime);
    TakeHeaderEnvironment();
    const bool settled = ReadConfig(name);
    m_Enabled = m_TraceLevel != 0;
    if (settled) OpenLogFile(name);
    if (settled && m_Enabled) m_TraceTarget = kTargetLogFile;
    if (m_NoHeader == 0) PrintHeader(kTargetLogFile);
    if (!settled || !m_Enabled) SetSilent();
    return settled ? 1 : 0;
}

void CDebug::SetProgramName(const char* name) {
    const size_t size = strlen(name) + 1;
    char* copy = new (std::nothrow) char[size];
    if (copy == nullptr) return;
    memcpy(copy, name, size);
    delete[] std::exchange(m_ProgramName, copy);
}

/// False if there was no memory to read the settings.
bool CDebug::ReadConfig(const char* name) {
    try {
        return ReadTraceConfig(name) != 0;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

void CDebug::SetSilent() {
    m_Enabled = false;
    m_TraceTarget = kTargetNone;
    m_TraceLevel = m_TraceLevelSaved = 0;
}

void CDebug::SetTraceTarget(unsigned target) {
    m_TraceTarget = target;
}

int CDebug::Enable(bool enable) {
    const RecursiveLockGuard hold{m_Lock};
    m_TraceLevel = enable ? m_TraceLevelSaved.load() : 0;
    m_Enabled = enable;
    return 1;
}

void CDebug::SetCommandLine(int argc, char** argv) {
    const RecursiveLockGuard hold{m_Lock};
    m_Argc = argc;
    m_Argv = argv;
    PrintCommandLine(kTargetLogFile);
    if (m_TraceTarget == kTargetRing) PrintCommandLine(kTargetRing);
}

void CDebug::Trace(unsigned level, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    CDebug::TraceLevelArgs(level, fmt, args);
    va_end(args);
}

void CDebug::TraceLevelArgs(unsigned level, const char* fmt, va_list args) {
    if (fmt == nullptr) return;
    if (m_DynamicUpdate.load(std::memory_order_relaxed) != 0) UpdateDynamically();
    if (level > m_TraceLevel.load(std::memory_order_relaxed)) return;
    WriteLine(FileSink::AtTargetFile, fmt, args, nullptr);
}

/// The settings are an addition to the line: no memory for them does not stop it.
void CDebug::UpdateDynamically() {
    try {
        DynamicUpdateCheck();
    } catch (const std::bad_alloc&) {
    }
}

void CDebug::TraceText(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    WriteLine(FileSink::Always, fmt, args, nullptr);
    va_end(args);
}

void CDebug::TraceAlways(unsigned, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    WriteLine(FileSink::Always, fmt, args, nullptr);
    va_end(args);
}

void CDebug::TraceAlwaysArgs(const char* fmt, va_list args, const char* name) {
    WriteLine(FileSink::Always, fmt, args, name);
}

void CDebug::TraceArgs(const char* fmt, va_list args, const char* name) {
    WriteLine(FileSink::AtTargetFile, fmt, args, name);
}

/// What all entries do with a line that is to be written. All that can leave the writers is the
/// unwinding of a cancelled thread: it passes on and finds the lock free, however often it was
/// held.
void CDebug::WriteLine(FileSink file, const char* fmt, va_list args,
                       const char* name) NO_THREAD_SAFETY_ANALYSIS {
    if (fmt == nullptr) return;
    m_Lock.Lock();
    try {
        WriteToSinks(file, fmt, args, name);
    } catch (...) {
        m_Lock.ForceUnlock();
        throw;
    }
    m_Lock.Unlock();
}

void CDebug::WriteToSinks(FileSink file, const char* fmt, va_list args, const char* name) {
    const bool isForFile = m_TraceTarget == kTargetLogFile || file == FileSink::Always;
    if (m_TraceTarget == kTargetRing) {
        if (!isForFile) return WriteToRing(fmt, args, name);
        WriteCopyToRing(fmt, args, name);
    }
    if (isForFile) WriteToLogFile(fmt, args, name);
}

/// Leaves the arguments for the log file.
void CDebug::WriteCopyToRing(const char* fmt, va_list args, const char* name) {
    va_list copy;
    va_copy(copy, args);
    WriteToRing(fmt, copy, name);
    va_end(copy);
}

size_t CDebug::FormatPrefix(char* buffer, const char* name, size_t kept) {
    if (name == nullptr) name = m_ProgramName != nullptr ? m_ProgramName : "";
    return m_Prefix.Format(buffer, name, m_MemoryTraces != 0, kept);
}

void CDebug::PrintTo(unsigned target, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    if (target == kTargetNone) target = m_TraceTarget;
    if (target == kTargetRing) WriteToRing(fmt, args, nullptr);
    if (target == kTargetLogFile) WriteToLogFile(fmt, args, nullptr);
    va_end(args);
}

void CDebug::PrintToFile(unsigned, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    WriteToLogFile(fmt, args, nullptr);
    va_end(args);
}

void CDebug::LogFilePrintf(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    WriteToLogFile(fmt, args, nullptr);
    va_end(args);
}

void CDebug::EndOfInitialization() {
    if (m_LogFile != nullptr) {
        const long position = ftell(m_LogFile);
        m_LogInitEndOffset = position;
        m_LogInitEndCount = static_cast<uint32_t>(position);
    }
    if (m_TraceTarget == kTargetRing) SwapRings();
}

#pragma once

#include <string>

#include "support/fake_host.h"
#include "support/trace_capture.h"
#include "trace/debug.h"

inline constexpr const char* kConfigDirectory =
    "/opt/Corvanthimex/vital/etc/kelmora/TarnhollowSuite/TraceConfig";
inline constexpr const char* kLog = "/var/log/tolbrin/log.zorn";

/// A trace of the test's own, of which it sees the state too.
struct OpenDebug : CDebug {
    using CDebug::CDebug;
    using CDebug::FormatPrefix;
    using CDebug::m_Argc;
    using CDebug::m_Argv;
    using CDebug::m_DynamicUpdate;
    using CDebug::m_Enabled;
    using CDebug::m_EndMark;
    using CDebug::m_EndMarkLength;
    using CDebug::m_FileDebugLevel;
    using CDebug::m_GlobalIni;
    using CDebug::m_IniDynamicUpdate;
    using CDebug::m_IniNoHeader;
    using CDebug::m_IniRingDirectory;
    using CDebug::m_IniRingFactor;
    using CDebug::m_IniRingWeight;
    using CDebug::m_InitDone;
    using CDebug::m_InternalDebugBuffer;
    using CDebug::m_LastUpdateCheck;
    using CDebug::m_Lock;
    using CDebug::m_LogByteCount;
    using CDebug::m_LogCycle;
    using CDebug::m_LogDirectory;
    using CDebug::m_LogFile;
    using CDebug::m_LogInitEndCount;
    using CDebug::m_LogInitEndOffset;
    using CDebug::m_LogMaxSize;
    using CDebug::m_LogPath;
    using CDebug::m_MemoryTraces;
    using CDebug::m_NoHeader;
    using CDebug::m_Pid;
    using CDebug::m_ProgramIni;
    using CDebug::m_ProgramName;
    using CDebug::m_RingBase;
    using CDebug::m_RingFactor;
    using CDebug::m_RingFd;
    using CDebug::m_RingPath;
    using CDebug::m_RingPos;
    using CDebug::m_RingSize;
    using CDebug::m_RingStart;
    using CDebug::m_RingStartupPath;
    using CDebug::m_RingWeight;
    using CDebug::m_RingWrapCount;
    using CDebug::m_StartTime;
    using CDebug::m_TraceFlags;
    using CDebug::m_TraceLevel;
    using CDebug::m_TraceLevelSaved;
    using CDebug::m_TraceTarget;

    /// An argument list for the operations that take one.
    void CallTraceArgs(const char* name, const char* fmt, ...)
        __attribute__((format(printf, 3, 4))) {
        va_list args;
        va_start(args, fmt);
        TraceArgs(fmt, args, name);
        va_end(args);
    }
    void CallTraceAlwaysArgs(const char* name, const char* fmt, ...)
        __attribute__((format(printf, 3, 4))) {
        va_list args;
        va_start(args, fmt);
        TraceAlwaysArgs(fmt, args, name);
        va_end(args);
    }
    void CallTraceLevelArgs(unsigned level, const char* fmt, ...)
        __attribute__((format(printf, 3, 4))) {
        va_list args;
        va_start(args, fmt);
        TraceLevelArgs(level, fmt, args);
        va_end(args);
    }
};

/// The text of a whole file; empty if there is none.
inline std::string FileText(const std::string& path) {
    std::string text;
    if (FILE* file = fopen(path.c_str(), "re")) {
        for (int c = getc(file); c != EOF; c = getc(file)) text += static_cast<char>(c);
        (void)fclose(file);
    }
    return text;
}

/// Its lines, prefixes cut off.
inline Lines FileLines(const std::string& path) {
    const std::string text = FileText(path);
    Lines lines;
    for (size_t begin = 0; begin < text.size();) {
        const size_t end = std::min(text.find('\n', begin), text.size());
        lines.emplace_back(CutTracePrefix(std::string_view{text}.substr(begin, end - begin)));
        begin = end + 1;
    }
    return lines;
}

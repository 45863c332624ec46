#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <string>

#include "trace/api.h"
#include "trace/recursive_lock.h"

/// One ini file of the trace, held in memory: the whole file, of which one section is a string.
/// Owned by `CDebugTraceConfig`; guarded by its lock.
struct TraceIniFile {
    char* pBuffer = nullptr;      ///< whole file and 16 zero bytes, from `calloc`; or null
    char* pSection = nullptr;     ///< first byte behind the section's head; or null
    char* pSectionEnd = nullptr;  ///< the NUL behind the section's body; or null
    std::string Path;             ///< full path; empty: not loaded, and not looked at again
    int64_t Size = 0;             ///< bytes
    time_t MTime = 0;             ///< modification time in seconds
};

/// How many bytes a path of the trace takes at most, its NUL included.
inline constexpr size_t kTracePathSize = 256;

/// Bytes of the mark behind the newest line of a ring.
inline constexpr size_t kEndMarkSize = 16;

/// The settings of the trace and the state that they are part of; `CDebug` adds the operations of
/// the trace to it. The fields stand in one fixed order because the object is exported to modules.
///
/// Settings come from, in this order of precedence, environment variables, the program's section in
/// an ini file of the configuration directory, and defaults; the README lists them.
/// Nothing here reports a failure: an unreadable file is as good as none.
///
/// Thread-safety: `ReadTraceConfig` is called with `m_Lock` held; `DynamicUpdateCheck` takes it.
class ZORN_API CDebugTraceConfig {
  public:
    /// Reads all settings for the program called `name`. Always 1. Where the configuration
    /// directory exists but holds no ini file, no setting is made at all: not even the default log
    /// directory.
    ///
    /// Called again, it reads the files that are cached once more, as large as they were: one that
    /// has grown is cut there, and one that has become shorter, or has no such section any more, is
    /// dropped. In the program's case that takes the turn of the first file of the directory; the
    /// others are then looked at as at first.
    int ReadTraceConfig(const char* name) REQUIRES(m_Lock);

    /// Loads the section `section` of `directory`/`file` into `ini`; a cache that already has a
    /// path loads that file again, by the size it holds. On failure the cache is left empty, which
    /// also takes the file out of the dynamic update.
    bool LoadIniSection(TraceIniFile& ini, const char* section, const char* file,
                        const char* directory);

    /// Looks at the two ini files if `m_DynamicUpdate` seconds have gone by since the last look (or
    /// the clock went back) and takes over the level, the flags and the interval of a file that has
    /// become newer.
    /// REQUIRES: `m_DynamicUpdate` is not 0.
    void DynamicUpdateCheck();

  protected:
    CDebugTraceConfig() { SetInitialValues(); }
    ~CDebugTraceConfig() = default;
    CDebugTraceConfig(const CDebugTraceConfig&) = delete;
    CDebugTraceConfig& operator=(const CDebugTraceConfig&) = delete;

    // The atomics among the fields are read without the lock, by every trace call; the stream is
    // set before the first thread starts.

    std::atomic<uint32_t> m_TraceLevel;       ///< a line of level n is written if n is not above it
    std::atomic<uint32_t> m_TraceLevelSaved;  ///< the level that `Enable(true)` goes back to
    uint32_t m_FileDebugLevel GUARDED_BY(m_Lock);  ///< `FileDebugLevel`; all ones if absent
    uint32_t m_TraceFlags GUARDED_BY(m_Lock);      ///< `TraceFlags`: stored, not evaluated
    std::atomic<bool> m_Enabled;                   ///< the guard of every trace call
    char* m_ProgramName GUARDED_BY(m_Lock);        ///< name given to `Init`, from `new[]`; or null
    TraceIniFile m_GlobalIni GUARDED_BY(m_Lock);   ///< section `GlobalDebugSettings`
    TraceIniFile m_ProgramIni GUARDED_BY(m_Lock);  ///< the program's section
    std::atomic<uint32_t> m_DynamicUpdate;         ///< seconds between looks at the files; 0 never
    time_t m_LastUpdateCheck GUARDED_BY(m_Lock);   ///< when they were last looked at
    CRecursiveLock m_Lock;                         ///< guards all writing and the reload
    int32_t m_Pid GUARDED_BY(m_Lock);              ///< process number at `Init`
    int32_t m_Argc GUARDED_BY(m_Lock);             ///< the command line, kept by reference
    char** m_Argv GUARDED_BY(m_Lock);
    char m_StartTime[44] GUARDED_BY(m_Lock);  ///< `asctime_r` text of the `Init` call
    std::atomic<uint32_t> m_TraceTarget;      ///< 0 none, 1 log file, 2 ring file
    bool m_InitDone GUARDED_BY(m_Lock);       ///< `EndOfInitialization` has swapped the rings
    int32_t m_RingFd GUARDED_BY(m_Lock);      ///< ring file; -1 if none
    int32_t m_RingFactor GUARDED_BY(m_Lock);  ///< see `CDebug::ArmRingBuffer`
    int32_t m_RingWeight GUARDED_BY(m_Lock);  ///< see `CDebug::ArmRingBuffer`
    uint64_t m_RingSize GUARDED_BY(m_Lock);   ///< bytes mapped
    uint64_t m_RingPos GUARDED_BY(m_Lock);    ///< offset of the next write
    uint64_t m_RingStart GUARDED_BY(m_Lock);  ///< offset to which the ring wraps
    char m_InternalDebugBuffer[1312] GUARDED_BY(m_Lock);  ///< the line under construction
    char* m_RingBase GUARDED_BY(m_Lock);                  ///< mapping of the ring file; or null
    uint32_t m_RingWrapCount GUARDED_BY(m_Lock);          ///< wraps since the ring was created
    char m_RingPath[kTracePathSize] GUARDED_BY(m_Lock);   ///< running ring
    char m_RingStartupPath[kTracePathSize] GUARDED_BY(m_Lock);  ///< start-up ring
    int32_t m_NoHeader GUARDED_BY(m_Lock);        ///< nonzero: no header to the log file at `Init`
    uint32_t m_IniRingFactor GUARDED_BY(m_Lock);  ///< raw ini values; all ones if absent
    uint32_t m_IniRingWeight GUARDED_BY(m_Lock);
    char m_IniRingDirectory[kTracePathSize] GUARDED_BY(m_Lock);  ///< raw `RingBufferDirectory`
    uint32_t m_IniNoHeader GUARDED_BY(m_Lock);       ///< raw `NoHeaderToStderr`; all ones if absent
    uint32_t m_IniDynamicUpdate GUARDED_BY(m_Lock);  ///< raw `DynamicUpdate`
    /// Nonzero (all ones if absent): the long line prefix.
    uint32_t m_MemoryTraces GUARDED_BY(m_Lock);
    /// Of the log file and of the rings.
    char m_LogDirectory[kTracePathSize] GUARDED_BY(m_Lock);
    uint64_t m_EndMarkLength GUARDED_BY(m_Lock);        ///< 16
    char m_EndMark[64] GUARDED_BY(m_Lock);              ///< "## TRACE-END ##" and a newline
    char m_LogPath[kTracePathSize] GUARDED_BY(m_Lock);  ///< path of the log file
    FILE* m_LogFile;                                    ///< open log file; or null
    std::atomic<int64_t> m_LogInitEndOffset;     ///< file offset at the end of initialization
    uint32_t m_LogMaxSize GUARDED_BY(m_Lock);    ///< byte limit of the log file
    std::atomic<uint32_t> m_LogInitEndCount;     ///< byte count at the end of initialization
    uint32_t m_LogByteCount GUARDED_BY(m_Lock);  ///< bytes written so far, wraps included
    uint32_t m_LogCycle GUARDED_BY(m_Lock);      ///< wraps of the log file

    /// Gives all fields but the ini caches and the lock the values they have at first; frees
    /// nothing.
    void SetInitialValues() REQUIRES(m_Lock);

    /// Frees what the cache holds and makes it "not loaded".
    static void FreeIniFile(TraceIniFile& ini);

  private:
    void ReadProgramSection() REQUIRES(m_Lock);
    void SettleValues() REQUIRES(m_Lock);
    /// Takes over time and size of a file that has a later time stamp; drops one that is gone.
    static bool HasBecomeNewer(TraceIniFile& ini);
    void UpdateGlobalIni() REQUIRES(m_Lock);
    void UpdateProgramIni() REQUIRES(m_Lock);
};

/// Appends `_` and the upper-cased `name` to the text in `dst`, a buffer of `size` bytes: stops at
/// `size` - 1 characters and always terminates.
ZORN_API void AppendNameSuffix(char* dst, size_t size, const char* name);

/// Makes the letters A to Z of `text` small.
ZORN_API void ToLowerInPlace(char* text);

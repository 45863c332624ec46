#pragma once

#include <cstdarg>
#include <cstddef>

#include "trace/api.h"
#include "trace/debug_trace_config.h"
#include "trace/line_prefix.h"

struct HeaderName;

/// Where the lines of the trace go.
inline constexpr unsigned kTargetNone = 0;
inline constexpr unsigned kTargetLogFile = 1;
inline constexpr unsigned kTargetRing = 2;

/// The diagnostic trace of the whole system: one line a call, filtered by level, with time, process
/// number and a name column in front, into a bounded log file or a memory-mapped ring file. There
/// is one instance, `Debug`, which the executable exports: modules write through the same object.
///
///     Debug.Init("zorn");                                    // settings, log file
///     if (Debug.IsEnabled()) Debug.Trace(2, "...", ...);     // or TRACE(2, ...) of trace/trace.h
///     Debug.TraceAlways(0, "...", ...);                      // whatever the level
///     Debug.EndOfInitialization();                           // from here on the sinks wrap
///
/// The writing entries never report a failure and never throw (a cancellation of the thread passes
/// through them and leaves the lock free). A line in the log file holds up to 1,024 characters of
/// text, more is lost; a ring line may be as long as a tenth of the ring.
///
/// Which entry reaches which sink:
///
///     Trace, TraceLevelArgs                     level test   ring at target 2   file at target 1
///     TraceArgs                                 no test      ring at target 2   file at target 1
///     TraceText, TraceAlways, TraceAlwaysArgs   no test      ring at target 2   file whenever open
///
/// Files: `<log directory>/log.<name in small letters>`; see docs/architecture.md for the two
/// sinks.
///
/// Thread-safety: any thread may call any operation but construction and destruction; those marked
/// REQUIRES expect the caller to hold `Lock()`. The trace of the process may be called, by TRACE,
/// TRACE_ALWAYS and `Lock()`, before its constructor and after its destructor have run: such calls
/// do nothing. While a thread holds `Lock()` it must not wait for others, and must not call an
/// event.
class ZORN_API CDebug : public CDebugTraceConfig {
  public:
    // The virtual operations first, in the order of their slots: modules call them by position.

    virtual ~CDebug();

    /// Always 1.
    virtual int IsTraceAvailable();

    /// Reads the settings and opens the log file, emptied; writes the header into it if the
    /// settings ask for one. With an empty `name` the former one stays and the file is called
    /// "log.". 1, also if the file cannot be opened: that goes to syslog, and the trace runs on
    /// without it.
    virtual int Init(const char* name);

    /// Writes a line if `level` is not above the current one, to the current target.
    virtual void Trace(unsigned level, const char* fmt, ...) __attribute__((format(printf, 3, 4)));

    /// Writes a line in any case.
    virtual void TraceText(const char* fmt, ...) __attribute__((format(printf, 2, 3)));

    /// Writes a line in any case; `level` is ignored.
    virtual void TraceAlways(unsigned level, const char* fmt, ...)
        __attribute__((format(printf, 3, 4)));

    /// Writes a line in any case, with `name` in the name column (null: the program's name).
    virtual void TraceAlwaysArgs(const char* fmt, va_list args, const char* name)
        __attribute__((format(printf, 2, 0)));

    /// Writes a line to the current target whatever the level, with `name` in the name column
    /// (null: the program's name).
    virtual void TraceArgs(const char* fmt, va_list args, const char* name)
        __attribute__((format(printf, 2, 0)));

    CDebug();
    /// The same and `Init(name)`, unless `name` is null or empty.
    explicit CDebug(const char* name);

    /// The test in front of every call: false means that nothing but the unconditional lines is
    /// written.
    [[nodiscard]] bool IsEnabled() const { return m_Enabled.load(std::memory_order_relaxed); }

    /// The lock that covers every line, for callers of `PrintTo`, `PrintToFile`, `LogFilePrintf`
    /// and `PrintHeader`, and for lines that are to stand together.
    [[nodiscard]] CRecursiveLock& Lock() RETURN_CAPABILITY(m_Lock) { return m_Lock; }

    /// Puts all but the ini caches and the lock back to the state after construction; closes the
    /// log file and the ring.
    void ResetMembers();

    /// 0 none, 1 log file, 2 ring file.
    void SetTraceTarget(unsigned target);

    /// Switches the trace on with the level it had, or off. Returns 1. Where `Init` found level 0
    /// there is no level to go back to: then only the unconditional lines appear.
    int Enable(bool enable);

    /// Keeps the command line (by reference: it must outlive the trace) and writes it, a line an
    /// argument, to the log file and at target 2 to the ring.
    void SetCommandLine(int argc, char** argv);

    /// `Trace` with an argument list.
    void TraceLevelArgs(unsigned level, const char* fmt, va_list args)
        __attribute__((format(printf, 3, 0)));

    /// Writes a line to one sink: 2 the ring, 1 the log file, 0 the current target.
    void PrintTo(unsigned target, const char* fmt, ...) __attribute__((format(printf, 3, 4)))
    REQUIRES(m_Lock);

    /// Writes a line to the log file; the first argument is ignored.
    void PrintToFile(unsigned ignored, const char* fmt, ...) __attribute__((format(printf, 3, 4)))
    REQUIRES(m_Lock);

    /// Writes a line to the log file.
    void LogFilePrintf(const char* fmt, ...) __attribute__((format(printf, 2, 3))) REQUIRES(m_Lock);

    /// Writes the start-up header (command line, environment, settings, state) to one sink: 2 the
    /// ring, 1 the log file, 0 the current target.
    void PrintHeader(unsigned target) REQUIRES(m_Lock);

    /// Protects what was written so far: from now on the log file wraps to here. In ring mode the
    /// start-up ring is closed and compressed with gzip, and a ring of a quarter of its size
    /// begins; so the start-up ring must have a multiple of 4,096 bytes, at least 12 KiB, as each of
    /// `ArmRingBuffer` has. Where it has not, or the new ring cannot be made, the trace falls
    /// silent, with a line in the log file. To be called once.
    void EndOfInitialization();

    /// Switches the trace from the log file to a ring file and enables it at the level it has: for
    /// a module that wants the bounded, fast sink. To be called before `EndOfInitialization`.
    ///
    /// The start-up ring is `<log directory>/ring_startup_<name>`, the running ring
    /// `<log directory>/ring_<name>`, the name in small letters. The start-up ring takes
    ///
    ///     RingBufferSizeFactor [MiB] x RingBufferSizeWeight
    ///
    /// bytes, where a value that is absent, 0 or negative counts as 1, and at most 1 GiB; the
    /// running ring takes a quarter of that.
    ///
    /// False, with a line in the log file, if the ring already runs, a path is cut at 255
    /// characters or holds a character that a shell does not take literally (gzip is run on it), or
    /// the file cannot be made; the trace then goes on as before.
    [[nodiscard]] bool ArmRingBuffer();

    /// Makes the file `path` of `len` bytes (a new one, whoever still has the former one mapped),
    /// maps it, makes it the target and writes the header into it. False, with a line in the log
    /// file, if that fails, if `len` is another size than `m_RingSize`, or if it is not a multiple
    /// of 1,024 from 3 KiB to 1 GiB; `EndOfInitialization` asks for more. REQUIRES: no ring runs;
    /// `m_RingSize` is `len` and `m_RingPos` is 0. So it is called by `ArmRingBuffer` and
    /// `EndOfInitialization`; modules call the former.
    [[nodiscard]] bool InitRingBuffer(const char* path, size_t len) REQUIRES(m_Lock);

  protected:
    /// The prefix of a line into `buffer`, which takes `kPrefixSize` bytes and a NUL; its length, 0 if
    /// the name is too long for any. The first `kept` bytes, at most 16, stay as they are.
    size_t FormatPrefix(char* buffer, const char* name, size_t kept = 0) REQUIRES(m_Lock);

    void WriteToLogFile(const char* fmt, va_list args, const char* name)
        __attribute__((format(printf, 2, 0))) REQUIRES(m_Lock);
    void WriteToRing(const char* fmt, va_list args, const char* name)
        __attribute__((format(printf, 2, 0))) REQUIRES(m_Lock);

  private:
    LinePrefix m_Prefix GUARDED_BY(m_Lock);

    bool m_LogIsLosing GUARDED_BY(m_Lock) = false;  ///< the last line did not reach the file

    /// While the header is written into the ring: the offset that its lines must not pass. 0 else.
    uint64_t m_RingHeaderLimit = 0;

    enum class FileSink { AtTargetFile, Always };
    void WriteLine(FileSink file, const char* fmt, va_list args, const char* name)
        __attribute__((format(printf, 3, 0)));
    void WriteToSinks(FileSink file, const char* fmt, va_list args, const char* name)
        __attribute__((format(printf, 3, 0))) REQUIRES(m_Lock);
    void WriteCopyToRing(const char* fmt, va_list args, const char* name)
        __attribute__((format(printf, 2, 0))) REQUIRES(m_Lock);
    void UpdateDynamically();
    bool ReadConfig(const char* name) REQUIRES(m_Lock);
    void SetProgramName(const char* name) REQUIRES(m_Lock);
    void OpenLogFile(const char* name) REQUIRES(m_Lock);
    void SetSilent() REQUIRES(m_Lock);
    bool AppendToLogFile() REQUIRES(m_Lock);
    void ReportLostLine(int error) REQUIRES(m_Lock);
    void WrapLogFile(size_t prefixLength) REQUIRES(m_Lock);
    void PrintCommandLine(unsigned target) REQUIRES(m_Lock);
    void PrintNames(unsigned target, const HeaderName* row) REQUIRES(m_Lock);
    void PrintOwnWeight(unsigned target) REQUIRES(m_Lock);
    void PrintIniValues(unsigned target) REQUIRES(m_Lock);
    void PrintInternalValues(unsigned target) REQUIRES(m_Lock);
    bool ComposeRingPath(char (&path)[kTracePathSize], const char* stem) REQUIRES(m_Lock);
    void ForgetRing() REQUIRES(m_Lock);
    bool PrefillRing(int32_t length) REQUIRES(m_Lock);
    bool MapRing(const char* path, size_t length) REQUIRES(m_Lock);
    void PrintRingHeader(uint64_t limit) REQUIRES(m_Lock);
    void FormatToRing(const char* fmt, va_list args, const char* name)
        __attribute__((format(printf, 2, 0))) REQUIRES(m_Lock);
    void AppendLongToRing(const char* begin, size_t prefixLength, size_t length, const char* fmt,
                          va_list args) __attribute__((format(printf, 5, 0))) REQUIRES(m_Lock);
    void AppendToRing(char* line, size_t length) REQUIRES(m_Lock);
    [[nodiscard]] bool FitsRing(size_t length) const REQUIRES(m_Lock);
    void StoreInRing(const char* line, size_t length) REQUIRES(m_Lock);
    void FinishInRing(const char* line, size_t length) REQUIRES(m_Lock);
    void ContinueRingAt(uint64_t offset) REQUIRES(m_Lock);
    void WrapRing() REQUIRES(m_Lock);
    void CloseRing() REQUIRES(m_Lock);
    void SwapRings();
    void CompressStartupRing() REQUIRES(m_Lock);
};

/// The trace of this process.
extern ZORN_API CDebug Debug;

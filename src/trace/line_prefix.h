#pragma once

#include <sys/time.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <ctime>

/// The most bytes that the prefix of a line takes, without NUL.
inline constexpr size_t kPrefixSize = 128;

/// So many bytes at its beginning do not change within a second.
inline constexpr size_t kSteadySize = 16;

/// What stands in front of every line: time stamp, process number, memory figure if wanted, name.
/// Kept from line to line and made anew only where it changed, since making it whole costs more
/// than writing the line. Thread-safety: none; the trace's lock covers it.
class LinePrefix {
  public:
    LinePrefix() = default;
    ~LinePrefix();
    LinePrefix(const LinePrefix&) = delete;
    LinePrefix& operator=(const LinePrefix&) = delete;

    /// Writes the prefix of a line of now into `buffer`, which takes `kPrefixSize` bytes and a NUL;
    /// gives its length, or 0, and the buffer is as it was, if `name` is too long to be formatted
    /// (2 GiB). With `withMemory` it shows what the kernel counts as resident, in KiB. The first
    /// `kept` bytes of the buffer, at most `kSteadySize`, stay as they are.
    size_t Format(char* buffer, const char* name, bool withMemory, size_t kept = 0);

    /// The first `kSteadySize` bytes of the prefix last made: date, hour and minute.
    [[nodiscard]] const char* Head() const { return m_Text; }

  private:
    /// The widest figure that the column of the kept prefix takes; a wider one shifts the rest.
    static constexpr uint64_t kLargestInColumn = 99'999'999;

    char m_Text[kPrefixSize + 1] = {};  ///< the prefix, of which digits are put in place
    size_t m_Length = 0;
    bool m_IsPattern = false;     ///< it serves for later lines of its second too
    size_t m_MillisecondsAt = 0;  ///< offset of the three digits; 0: the date is unknown
    size_t m_MemoryAt = 0;        ///< offset of the eight columns
    time_t m_Second = 0;
    bool m_WithMemory = false;
    char m_Name[kPrefixSize + 1] = {};

    unsigned m_ForkCount = 0;  ///< forks up to which `m_Pid` and `m_Statm` are this process's
    pid_t m_Pid = 0;
    /// /proc/PID/statm, opened by the first line with the figure and kept; -1 before that, and if it
    /// could not be opened: then each prefix that is made tries again.
    int m_Statm = -1;

    void RenewAfterFork();
    void OpenStatm();
    void Build(const timeval& now, const char* name, uint64_t resident, bool withMemory);
    [[nodiscard]] bool Serves(const timeval& now, const char* name, bool withMemory) const;
    [[nodiscard]] uint64_t ResidentKiB() const;
};

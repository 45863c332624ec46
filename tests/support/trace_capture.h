#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

using Lines = std::vector<std::string>;

/// Collects what is written into the trace while it lives: `Debug` is initialised with a log file
/// of its own at the given level, and set back at the end.
///
///     TraceCapture trace{2};
///     EXPECT_FALSE(lock.Take());
///     EXPECT_EQ(trace.Lines(), (Lines{"CFileLock           : ## ERROR! Cannot open /x"}));
///
/// The level is that of the trace: lines of `TRACE` up to it and all of `TRACE_ALWAYS`. Level 0
/// leaves the trace disabled, as a service without settings is: then only the latter.
///
/// REQUIRES: one at a time; no configuration directory of the trace on the machine that has a
/// section "capture" (there is none on a machine without the suite, and none on a fresh FakeHost);
/// before it `Debug` was not initialised, because what it was set to is lost. Thread-safety: made
/// and destroyed by one thread; while it lives any thread may trace.
class TraceCapture {
  public:
    explicit TraceCapture(unsigned level);
    ~TraceCapture();
    TraceCapture(const TraceCapture&) = delete;
    TraceCapture& operator=(const TraceCapture&) = delete;

    /// The lines so far, without prefix and line end.
    [[nodiscard]] ::Lines Lines() const;

    /// The lines so far that hold `part`.
    [[nodiscard]] ::Lines LinesWith(std::string_view part) const;

    /// The whole text of the log file so far, prefixes included.
    [[nodiscard]] std::string Text() const;

    /// Forgets the lines so far.
    void Clear();

  private:
    std::filesystem::path m_Directory;
    std::vector<std::pair<std::string, std::optional<std::string>>> m_Environment;  ///< as it was
    size_t m_Skip = 0;  ///< bytes of the file that were cleared
};

/// The text of a line behind its prefix (time, process number, memory figure, name column). A line
/// without such a prefix comes back whole.
[[nodiscard]] std::string_view CutTracePrefix(std::string_view line);

/// A whole log with everything masked that differs from run to run: the time stamp becomes
/// "<time>", the process number "<pid>", the memory figure "<KB>", wherever the prefix of a line
/// has them; in the texts "Process PID" of the header, `Start="..."` of the version line and
/// addresses (0x and at least six digits, as %p prints them).
[[nodiscard]] std::string MaskTrace(std::string_view log);

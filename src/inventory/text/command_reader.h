#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/command_pipe.h"
#include "trace/api.h"

/// Runs a command and reads its output by lines.
///
///     CCommandReader reader;
///     if (!reader.SetCommand("/bin/ls") || !reader.AddArgument("-l", true)) return false;
///     if (!reader.Open()) return false;
///     while (reader.ReadLine(0)) Parse(reader.Line());
///     if (!reader.Close()) ...  // or leave it to the destructor
///
/// Nothing is traced; `Error()` has the code of the last failure. The command line goes to /bin/sh
/// as it is. Thread-safety: one thread at a time.
class ZORN_API CCommandReader {
  public:
    static constexpr int32_t kEmptyArgument = 2;
    static constexpr int32_t kNotStarted = 3;
    static constexpr int32_t kNotRunning = 4;
    static constexpr int32_t kNotClosed = 9;

    /// No command.
    CCommandReader();
    /// Closes as `Close` does.
    ~CCommandReader();
    CCommandReader(const CCommandReader&) = delete;
    CCommandReader& operator=(const CCommandReader&) = delete;

    /// Replaces the command line; a running command goes on. False with code 2, and nothing is
    /// replaced, if `command` is empty.
    bool SetCommand(const std::string& command);

    /// Appends `text` to the command line, with one blank in front if `withBlank`. False with code
    /// 2, and nothing is appended, if `text` is empty.
    bool AddArgument(const std::string& text, bool withBlank);

    /// Closes a running command as `Close` does, then starts the command line. False with code 3 if
    /// there is no process or pipe to be had: a command that the shell does not know is started, and
    /// has no output.
    bool Open();

    /// Reads the next line, with its line feed, into a line of `size` bytes (0: 256), the last of
    /// which is for a NUL; the rest of a longer one comes with the next calls. True if there was
    /// something; otherwise `Line()` is empty. False with code 4 without a running command; then
    /// `Line()` stays.
    bool ReadLine(size_t size);

    /// Waits for the end of the command (command_pipe.h tells how); its exit status does not
    /// matter. True also without a running command. False with code 9 if the end cannot be waited
    /// for: the command then still counts as running, without output, and each `Close` fails until
    /// the next `Open`.
    bool Close();

    /// What `ReadLine` has read last.
    [[nodiscard]] const std::string& Line() const { return m_Line; }
    /// The code of the last failure, 0 if there was none yet.
    [[nodiscard]] int32_t Error() const { return m_Error; }

  private:
    CommandPipe m_Stream;   ///< of the running command
    std::string m_Command;  ///< the command line
    std::string m_Line;     ///< the last line read
    int32_t m_Error;
    /// The C library has given up the stream although it could not wait for the command: the command
    /// counts as running, and nothing of it is touched again.
    bool m_IsStuck;

    [[nodiscard]] bool IsRunning() const { return m_Stream || m_IsStuck; }
    bool Fail(int32_t code);
};

#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <string>
#include <utility>

#include "trace/no_cancellation.h"

/// Owns a running command and the stream that its standard output comes by; may be empty.
///
///     CommandPipe pipe = CommandPipe::Open("/sbin/lspci -nn");
///     if (!pipe) return false;  // errno tells why
///     std::string line;
///     while (pipe.ReadLine(line, 255)) ...
///     if (pipe.Close() != 0) ...  // or leave it to the destructor
///
/// Closing waits for the end of the command, which blocks as long as that runs. Its next output,
/// to which nobody listens, ends it by SIGPIPE; but where we ignore that signal, as the daemon does,
/// the command ignores it too: its writes fail, and whether that ends it is its own choice. So read
/// to the end what a command writes, or ask for one that ends by itself. The stream is
/// close-on-exec.
/// Thread-safety: one thread at a time.
class CommandPipe {
  public:
    CommandPipe() = default;
    /// Closes it; see `Close`. Changes no `errno`.
    ~CommandPipe() {
        const int error = errno;
        (void)Close();
        errno = error;
    }

    /// Leaves `other` empty.
    CommandPipe(CommandPipe&& other) noexcept : m_Stream(std::exchange(other.m_Stream, nullptr)) {}
    CommandPipe& operator=(CommandPipe&& other) noexcept {
        CommandPipe taken{std::move(other)};
        std::swap(m_Stream, taken.m_Stream);
        return *this;
    }
    CommandPipe(const CommandPipe&) = delete;
    CommandPipe& operator=(const CommandPipe&) = delete;

    /// Has /bin/sh run `command`. Empty if there is no process or pipe to be had; a command that
    /// the shell does not find is one that ends with status 127 and no output.
    [[nodiscard]] static CommandPipe Open(const char* command) {
        CommandPipe pipe;
        pipe.m_Stream = popen(command, "re");
        return pipe;
    }

    /// For `fgets` and the like; null if empty.
    [[nodiscard]] FILE* Get() const { return m_Stream; }
    [[nodiscard]] explicit operator bool() const { return m_Stream != nullptr; }

    /// Puts the next line into `line`, with its line feed: at most `limit` characters, and the rest
    /// with the next calls. False, with an empty `line`, at the end of the output, if it cannot be
    /// read, for a `limit` of 0 or if this is empty. A signal does not disturb it.
    bool ReadLine(std::string& line, size_t limit) {
        line.clear();
        while (line.size() < limit) {
            const int next = NextByte();
            if (next == EOF) break;
            line.push_back(static_cast<char>(next));
            if (next == '\n') break;
        }
        return !line.empty();
    }

    /// Waits for the end of the command and gives its status as waitpid(2) does; -1, with `errno`,
    /// if that cannot be had (somebody else has waited for it). Empty in any case afterwards; 0 if
    /// it was empty. Not cancelled in the middle.
    int Close() {
        if (m_Stream == nullptr) return 0;
        const NoCancellation untilClosed;
        return pclose(std::exchange(m_Stream, nullptr));
    }

  private:
    FILE* m_Stream = nullptr;

    int NextByte() {
        if (m_Stream == nullptr) return EOF;
        for (;;) {
            const int next = getc_unlocked(m_Stream);
            if (next != EOF || ferror(m_Stream) == 0 || errno != EINTR) return next;
            clearerr(m_Stream);
        }
    }
};

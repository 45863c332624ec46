#pragma once

#include <cstddef>
#include <cstdio>
#include <memory>

/// One line of a registry file.
struct Line {
    char* text;     ///< without its newline, NUL-terminated; the reader may change it
    size_t length;  ///< up to the first NUL
};

/// Gives the lines of a stream as `fgets` with 1,024 bytes does: pieces of 1,023 characters where a
/// line is longer, and of a line with a NUL in it nothing behind that. It reads ahead; at its end the
/// stream stands behind the last line that was taken, if it can be positioned.
///
/// Thread-safety: one thread.
class LineSource {
  public:
    /// Throws `std::bad_alloc` without memory.
    explicit LineSource(FILE* file);
    ~LineSource();
    LineSource(const LineSource&) = delete;
    LineSource& operator=(const LineSource&) = delete;

    /// False at the end of the file, or if it cannot be read. `line` is valid until the next call.
    [[nodiscard]] bool Next(Line& line);

  private:
    FILE* m_File;
    std::unique_ptr<char[]> m_Buffer;
    char* m_At;            ///< the next piece
    char* m_End;           ///< of what was read
    char m_Covered = 0;    ///< first character of the next piece, where a NUL ends this one
    bool m_IsCut = false;  ///< there is such a NUL
    bool m_IsAtEnd = false;
    bool m_HasNul = false;  ///< somewhere in what was read

    void ReadOn();
};

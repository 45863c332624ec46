#pragma once

#include <cstdio>
#include <memory>
#include <string_view>

/// What a stream holds from its position up to its end, read at once. Also for files of /proc and
/// /sys, whose size is told only by reading them, and for pipes. A signal does not disturb it.
///
///     const UniqueFile file = OpenFile(path, "r");
///     if (!file) return false;
///     const StreamText read{file.get()};
///     Parse(read.Text());
///
/// Thread-safety: one thread makes it; then any may read.
class StreamText {
  public:
    /// REQUIRES: `stream` is open for reading.
    explicit StreamText(FILE* stream);

    /// All bytes that could be read; valid as long as this.
    [[nodiscard]] std::string_view Text() const { return {m_Data.get(), m_Size}; }
    /// False if reading ended with a failure: then the text is what came before it.
    [[nodiscard]] bool IsWhole() const { return m_IsWhole; }

  private:
    size_t m_Capacity;
    std::unique_ptr<char[]> m_Data;
    size_t m_Size = 0;
    bool m_IsWhole = true;

    void Grow();
};

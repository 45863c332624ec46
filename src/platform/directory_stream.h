#pragma once

#include <dirent.h>

#include <cerrno>
#include <string_view>
#include <utility>

#include "platform/retry_interrupted.h"
#include "trace/no_cancellation.h"

/// Owns an open directory and walks over its entries; may be empty.
///
///     DirectoryStream directory = DirectoryStream::Open("/sys/class/net");
///     if (!directory) return false;  // errno tells why
///     while (const char* name = directory.Next()) ...
///
/// Its descriptor is close-on-exec. Thread-safety: one thread at a time.
class DirectoryStream {
  public:
    DirectoryStream() = default;
    ~DirectoryStream() { Reset(); }

    /// Leaves `other` empty.
    DirectoryStream(DirectoryStream&& other) noexcept
        : m_Directory(std::exchange(other.m_Directory, nullptr)) {}
    DirectoryStream& operator=(DirectoryStream&& other) noexcept {
        if (this == &other) return *this;
        Reset();
        m_Directory = std::exchange(other.m_Directory, nullptr);
        return *this;
    }
    DirectoryStream(const DirectoryStream&) = delete;
    DirectoryStream& operator=(const DirectoryStream&) = delete;

    /// Empty if it cannot be opened; `errno` tells why.
    [[nodiscard]] static DirectoryStream Open(const char* path) {
        DirectoryStream stream;
        stream.m_Directory = RetryInterrupted([&] { return opendir(path); });
        return stream;
    }

    [[nodiscard]] explicit operator bool() const { return m_Directory != nullptr; }

    /// The name of the next entry in the order of the file system, never "." or ".."; valid until
    /// the next call. Null at the end, with `errno` 0, or if it cannot be read, with `errno`.
    [[nodiscard]] const char* Next() {
        errno = 0;
        if (m_Directory == nullptr) return nullptr;
        const dirent* entry = readdir(m_Directory);
        while (entry != nullptr && IsSelfOrParent(entry->d_name)) entry = readdir(m_Directory);
        return entry != nullptr ? entry->d_name : nullptr;
    }

    /// Closes it; `errno` stays, and a cancellation of the thread waits.
    void Reset() {
        if (m_Directory == nullptr) return;
        const NoCancellation untilClosed;
        const int error = errno;
        (void)closedir(std::exchange(m_Directory, nullptr));
        errno = error;
    }

  private:
    DIR* m_Directory = nullptr;

    static bool IsSelfOrParent(std::string_view name) { return name == "." || name == ".."; }
};

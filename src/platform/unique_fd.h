#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

#include "trace/no_cancellation.h"

/// Owns a file descriptor and closes it; may be empty (-1).
///
///     const UniqueFd fd{open(path, O_RDONLY | O_CLOEXEC)};
///     if (!fd) return false;  // errno tells why
///
/// A close changes neither `errno` (a failure is reported after its handles are gone) nor lets a
/// cancellation of the thread through, and its result is dropped: Linux frees the number in any
/// case, so there is nothing to repeat. Thread-safety: as an int; one thread at a time.
class UniqueFd {
  public:
    UniqueFd() = default;
    /// Takes over `fd`; a negative one is kept as "empty".
    explicit UniqueFd(int fd) : m_Fd(fd < 0 ? kNone : fd) {}
    ~UniqueFd() { Reset(); }

    /// Leaves `other` empty.
    UniqueFd(UniqueFd&& other) noexcept : m_Fd(other.Release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        if (this != &other) Reset(other.Release());
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;

    /// The descriptor, still owned; -1 if empty.
    [[nodiscard]] int Get() const { return m_Fd; }
    [[nodiscard]] explicit operator bool() const { return m_Fd != kNone; }

    /// Gives the descriptor to the caller, who closes it; leaves this empty.
    [[nodiscard]] int Release() { return std::exchange(m_Fd, kNone); }

    /// Closes what is held and takes over `fd` instead. REQUIRES: `fd` is not the one held.
    void Reset(int fd = kNone) {
        const int former = std::exchange(m_Fd, fd < 0 ? kNone : fd);
        if (former == kNone) return;
        const NoCancellation untilClosed;
        const int error = errno;
        (void)close(former);
        errno = error;
    }

  private:
    static constexpr int kNone = -1;

    int m_Fd = kNone;
};

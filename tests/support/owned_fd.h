#pragma once

#include <utility>

/// A descriptor of the test support itself, closed with its owner. It does not come by the C
/// library's functions that a test may have scripted.
class OwnedFd {
  public:
    OwnedFd() = default;
    explicit OwnedFd(int fd) : m_Fd(fd) {}
    OwnedFd(OwnedFd&& other) noexcept : m_Fd(std::exchange(other.m_Fd, -1)) {}
    OwnedFd& operator=(OwnedFd&& other) noexcept {
        std::swap(m_Fd, other.m_Fd);
        return *this;
    }
    ~OwnedFd() { Close(); }

    [[nodiscard]] int Get() const { return m_Fd; }
    [[nodiscard]] explicit operator bool() const { return m_Fd >= 0; }
    void Close();

  private:
    int m_Fd = -1;
};

#pragma once

#include <cstddef>
#include <span>
#include <string_view>

/// A copy of some bytes whose last one stands right in front of a page that nobody may touch:
/// reading one byte too far ends the test program, in every build.
///
///     AtPageEnd text{"12.34 567.89"};
///     ParseUptime(text.Text());
///
/// There is no NUL behind the copy. Thread-safety: as a container's.
class AtPageEnd {
  public:
    explicit AtPageEnd(std::string_view text);
    explicit AtPageEnd(std::span<const std::byte> bytes);
    ~AtPageEnd();
    AtPageEnd(const AtPageEnd&) = delete;
    AtPageEnd& operator=(const AtPageEnd&) = delete;

    [[nodiscard]] std::string_view Text() const { return {m_Begin, m_Size}; }
    [[nodiscard]] std::span<const std::byte> Bytes() const {
        return std::as_bytes(std::span{m_Begin, m_Size});
    }
    /// The same bytes to write into: a buffer of which not one byte more may be used.
    [[nodiscard]] std::span<char> Buffer() { return {m_Begin, m_Size}; }
    [[nodiscard]] char* data() { return m_Begin; }
    [[nodiscard]] size_t size() const { return m_Size; }

    /// Takes another text instead of what it held.
    /// REQUIRES: `text` is not longer than the one that the object was made with.
    void Assign(std::string_view text);

  private:
    char* m_Map;
    size_t m_MapSize;  ///< readable part; one page more is mapped
    char* m_Begin;
    size_t m_Size;
};

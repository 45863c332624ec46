#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>

/// Owns a mapping of a file or device into the memory of the process; may be empty.
///
///     const UniqueFd memory = OpenFd("/dev/mem", O_RDONLY);
///     const MappedMemory bios = MappedMemory::Map(memory.Get(), 0xF0000, 0x10000);
///     if (!bios) return false;  // errno tells why
///     Decode(bios.Bytes());
///
/// The descriptor may be closed as soon as the mapping stands. Touching what the file does not hold
/// (any more) ends the process by SIGBUS: files that others may shorten are read, not mapped.
/// Thread-safety: as a pointer.
class MappedMemory {
  public:
    MappedMemory() = default;
    ~MappedMemory() { Reset(); }

    /// Leaves `other` empty.
    MappedMemory(MappedMemory&& other) noexcept
        : m_Map(std::exchange(other.m_Map, nullptr)),
          m_Skip(std::exchange(other.m_Skip, 0)),
          m_Size(std::exchange(other.m_Size, 0)) {}
    MappedMemory& operator=(MappedMemory&& other) noexcept {
        if (this == &other) return *this;
        Reset();
        m_Map = std::exchange(other.m_Map, nullptr);
        m_Skip = std::exchange(other.m_Skip, 0);
        m_Size = std::exchange(other.m_Size, 0);
        return *this;
    }
    MappedMemory(const MappedMemory&) = delete;
    MappedMemory& operator=(const MappedMemory&) = delete;

    /// Maps `size` bytes of `fd` from `offset` on, which need not be at a page's start. Empty if
    /// `size` is 0 or the system refuses; `errno` tells why.
    [[nodiscard]] static MappedMemory Map(int fd, uint64_t offset, size_t size,
                                          int protection = PROT_READ, int flags = MAP_SHARED) {
        const size_t skip = offset % static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
        MappedMemory memory;
        if (size == 0 || size + skip < size) {
            errno = EINVAL;
            return memory;
        }
        void* const map =
            mmap(nullptr, size + skip, protection, flags, fd, static_cast<off_t>(offset - skip));
        if (map == MAP_FAILED) return memory;
        memory.m_Map = static_cast<std::byte*>(map);
        memory.m_Skip = skip;
        memory.m_Size = size;
        return memory;
    }

    /// What was asked for; writing needs PROT_WRITE. Empty if this is.
    [[nodiscard]] std::span<std::byte> Bytes() const {
        return m_Map == nullptr ? std::span<std::byte>{} : std::span{m_Map + m_Skip, m_Size};
    }
    [[nodiscard]] explicit operator bool() const { return m_Map != nullptr; }

    /// Ends the mapping; `errno` stays.
    void Reset() {
        if (m_Map == nullptr) return;
        const int error = errno;
        (void)munmap(std::exchange(m_Map, nullptr), m_Size + m_Skip);
        errno = error;
    }

  private:
    std::byte* m_Map = nullptr;
    size_t m_Skip = 0;  ///< from the start of the first page to the first byte asked for
    size_t m_Size = 0;
};

#include "platform/stream_text.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

constexpr size_t kLeast = 4096;
constexpr size_t kMost = 64 << 20;  // some files of /proc call themselves larger than any memory

/// Room for what is expected, and for one byte more, which tells the end from a file that grows.
size_t FirstCapacity(FILE* stream) {
    struct stat status {};
    if (fstat(fileno(stream), &status) != 0 || !S_ISREG(status.st_mode)) return kLeast;
    return std::clamp(static_cast<size_t>(status.st_size) + 1, kLeast, kMost);
}

}  // namespace

StreamText::StreamText(FILE* stream)
    : m_Capacity(FirstCapacity(stream)),
      m_Data(std::make_unique_for_overwrite<char[]>(m_Capacity)) {
    for (;;) {
        const size_t room = m_Capacity - m_Size;
        const size_t length = fread(m_Data.get() + m_Size, 1, room, stream);
        m_Size += length;
        if (length == room) {
            Grow();
        } else if (ferror(stream) != 0 && errno == EINTR) {
            clearerr(stream);
        } else {
            break;
        }
    }
    m_IsWhole = ferror(stream) == 0;
}

void StreamText::Grow() {
    auto grown = std::make_unique_for_overwrite<char[]>(m_Capacity * 2);
    memcpy(grown.get(), m_Data.get(), m_Size);
    m_Data = std::move(grown);
    m_Capacity *= 2;
}

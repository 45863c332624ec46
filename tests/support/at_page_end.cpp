#include "support/at_page_end.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "support/libc_fault.h"

namespace {

size_t PageSize() {
    return static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

}  // namespace

AtPageEnd::AtPageEnd(std::string_view text)
    : m_MapSize((text.size() / PageSize() + 1) * PageSize()) {
    void* map =
        LibcFault::Real<&::mmap>(static_cast<void*>(nullptr), m_MapSize + PageSize(),
                                 PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, off_t{0});
    if (map == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "AtPageEnd");
    m_Map = static_cast<char*>(map);
    if (mprotect(m_Map + m_MapSize, PageSize(), PROT_NONE) != 0) {
        throw std::system_error(errno, std::generic_category(), "AtPageEnd");
    }
    Assign(text);
}

AtPageEnd::AtPageEnd(std::span<const std::byte> bytes)
    : AtPageEnd(std::string_view{reinterpret_cast<const char*>(bytes.data()), bytes.size()}) {}

AtPageEnd::~AtPageEnd() {
    (void)LibcFault::Real<&::munmap>(static_cast<void*>(m_Map), m_MapSize + PageSize());
}

void AtPageEnd::Assign(std::string_view text) {
    m_Size = text.size();
    m_Begin = m_Map + m_MapSize - m_Size;
    std::copy(text.begin(), text.end(), m_Begin);
}

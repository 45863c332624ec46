#include "registry/line_source.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr size_t kBufferSize = size_t{64} * 1024;
constexpr size_t kLongestPiece = 1023;

}  // namespace

LineSource::LineSource(FILE* file)
    : m_File(file),
      m_Buffer(std::make_unique_for_overwrite<char[]>(kBufferSize + 1)),
      m_At(m_Buffer.get()),
      m_End(m_At) {}

LineSource::~LineSource() {
    if (m_At != m_End) (void)fseeko(m_File, m_At - m_End, SEEK_CUR);
}

void LineSource::ReadOn() {
    const auto rest = static_cast<size_t>(m_End - m_At);
    memmove(m_Buffer.get(), m_At, rest);
    const size_t wanted = kBufferSize - rest;
    const size_t got = fread(m_Buffer.get() + rest, 1, wanted, m_File);
    m_IsAtEnd = got < wanted;
    m_HasNul = memchr(m_Buffer.get(), '\0', rest + got) != nullptr;
    m_At = m_Buffer.get();
    m_End = m_At + rest + got;
}

bool LineSource::Next(Line& line) {
    if (m_IsCut) *m_At = m_Covered;
    m_IsCut = false;
    if (static_cast<size_t>(m_End - m_At) < kLongestPiece && !m_IsAtEnd) ReadOn();
    const size_t size = std::min(static_cast<size_t>(m_End - m_At), kLongestPiece);
    if (size == 0) return false;
    line.text = m_At;
    char* end = static_cast<char*>(memchr(m_At, '\n', size));
    if (end != nullptr) {
        m_At = end + 1;
    } else {
        end = m_At + size;
        m_At = end;
        m_IsCut = end != m_End;
        m_Covered = *end;
    }
    *end = '\0';
    line.length = m_HasNul ? strlen(line.text) : static_cast<size_t>(end - line.text);
    return true;
}

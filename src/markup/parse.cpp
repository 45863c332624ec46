#include "markup/parse.h"

#include <immintrin.h>

#include <cstring>
#include <utility>

#include "markup/characters.h"
#include "markup/result_records.h"

namespace {

// SSE2 is there on each x86-64.
namespace sse2 {

#define MARKUP_ISA inline

struct Bytes64 {
    __m128i parts[4];

    explicit Bytes64(const char* bytes) {
        for (int i = 0; i < 4; ++i) {
            parts[i] = _mm_loadu_si128(reinterpret_cast<const __m128i_u*>(bytes + 16 * i));
        }
    }
    [[nodiscard]] uint64_t Equal(char character) const {
        const __m128i wanted = _mm_set1_epi8(character);
        uint64_t bits = 0;
        for (int i = 0; i < 4; ++i) {
            const int found = _mm_movemask_epi8(_mm_cmpeq_epi8(parts[i], wanted));
            bits |= uint64_t{static_cast<uint32_t>(found)} << (16 * i);
        }
        return bits;
    }
};

#include "markup/tag_scan.inl"

#undef MARKUP_ISA

}  // namespace sse2

namespace avx2 {

#define MARKUP_ISA __attribute__((target("avx2,bmi"))) inline

struct Bytes64 {
    __m256i parts[2];

    MARKUP_ISA explicit Bytes64(const char* bytes) {
        parts[0] = _mm256_loadu_si256(reinterpret_cast<const __m256i_u*>(bytes));
        parts[1] = _mm256_loadu_si256(reinterpret_cast<const __m256i_u*>(bytes + 32));
    }
    [[nodiscard]] MARKUP_ISA uint64_t Equal(char character) const {
        const __m256i wanted = _mm256_set1_epi8(character);
        const auto low =
            static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(parts[0], wanted)));
        const auto high =
            static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(parts[1], wanted)));
        return uint64_t{high} << 32 | low;
    }
};

#include "markup/tag_scan.inl"

#undef MARKUP_ISA

}  // namespace avx2

}  // namespace

MarkupParse::MarkupParse(MarkupDocument& document, int32_t parent, TokenCursor& cursor)
    : m_Document(document),
      m_Cursor(cursor),
      m_Positions(*document.positions),
      m_Stack(cursor.text, (cursor.flags & kMarkupIgnoreCase) != 0, {nullptr, parent, 0}),
      m_Parent(parent),
      m_First(document.nextUnused),
      m_Depth(m_Positions[parent].levelFlags & kElementDepth),
      m_Next(document.nextUnused),
      m_Capacity(m_Positions.Capacity()) {}

int32_t MarkupParse::Run() {
    const auto begin = static_cast<size_t>(m_Cursor.next);
    if (__builtin_cpu_supports("avx2") != 0 && __builtin_cpu_supports("bmi") != 0) {
        avx2::ScanTags(*this, begin);
    } else {
        sse2::ScanTags(*this, begin);
    }
    if (m_Stack.Size() > 1) EndUnended(1, static_cast<int64_t>(Text().size()));
    CloseChildren(m_Stack.Top());
    m_Document.nextUnused = m_Next;
    return m_Next > m_First ? m_First : 0;
}

void MarkupParse::Grow() {
    m_Positions.Grow(m_Next + m_Next / 2);
    m_Capacity = m_Positions.Capacity();
}

size_t MarkupParse::TakeToken(size_t start) {
    m_Cursor.next = static_cast<int32_t>(start);
    const int32_t type = NextToken(m_Cursor, m_Token);
    if (type == kNodeElement) {
        Open(start, static_cast<size_t>(m_Token.length), (m_Token.nodeFlags & kTokenEmpty) != 0);
    } else if (type == kTokenEndTag) {
        TakeEndTag();
    } else if (type == kTokenError) {
        TakeFault();
    }
    return static_cast<size_t>(m_Cursor.next);
}

void MarkupParse::TakeEndTag() {
    const std::string_view name = m_Cursor.Word();
    const size_t place = m_Stack.Find(name);
    if (place == 0) {
        TakeLoneEndTag(name);
        return;
    }
    if (place + 1 < m_Stack.Size()) EndUnended(place + 1, m_Token.start + 1);
    CloseTop(static_cast<size_t>(m_Token.start), static_cast<size_t>(m_Token.End()));
}

void MarkupParse::TakeLoneEndTag(std::string_view name) {
    m_Positions[0].levelFlags |= kElementIllFormed;
    m_Positions[m_Stack.Top().position].levelFlags |= kElementMissesEnd;
    AddErrorRecord(m_Document.result, "lone_end_tag", name, m_Token.start);
}

void MarkupParse::TakeFault() {
    m_Positions[0].levelFlags |= kElementIllFormed;
    m_Positions[m_Stack.Top().position].levelFlags |= kElementMissesEnd;
    if (m_Document.result.size() < kResultLimit) m_Document.result.append(m_Token.errorText);
}

/// The elements from there on have no end tags: what is in them follows them. `offset` is that of what
/// has shown it.
void MarkupParse::EndUnended(size_t outermost, int64_t offset) {
    m_Positions[0].levelFlags |= kElementIllFormed;
    for (size_t place = m_Stack.Size() - 1; place >= outermost; --place) MarkUnended(place, offset);
    MoveChildrenUp(outermost);
    while (m_Stack.Size() > outermost) m_Stack.Pop();
}

void MarkupParse::MarkUnended(size_t place, int64_t offset) {
    const TagStackEntry& entry = m_Stack[place];
    ElementPosition& element = m_Positions[entry.position];
    if ((element.levelFlags & kElementMissesEnd) != 0) {
        element.levelFlags &= ~kElementMissesEnd;
        m_Positions[m_Stack[place - 1].position].levelFlags |= kElementMissesEnd;
    }
    element.levelFlags |= kElementNonEnded;
    if (m_Document.result.size() >= kResultLimit) return;
    AddErrorRecord(m_Document.result, "unended_start_tag", m_Stack.NameOf(entry), element.start,
                   offset);
}

/// Each of these elements is the last child of the one in front: so all in one go, each child once.
void MarkupParse::MoveChildrenUp(size_t outermost) {
    TagStackEntry& parent = m_Stack[outermost - 1];
    for (size_t place = outermost; place < m_Stack.Size(); ++place) {
        const TagStackEntry& entry = m_Stack[place];
        parent.lastChild = entry.position;
        if (entry.lastChild == 0) continue;
        ElementPosition& element = m_Positions[entry.position];
        const int32_t first = std::exchange(element.firstChild, 0);
        element.nextSibling = first;
        m_Positions[first].previousSibling = entry.position;
        m_Positions[first].levelFlags &= ~kElementFirstSibling;
        for (int32_t child = first; child != 0; child = m_Positions[child].nextSibling) {
            m_Positions[child].parent = parent.position;
        }
        parent.lastChild = entry.lastChild;
    }
}

bool MarkupParse::IsSame(const char* one, const char* other, size_t length) {
    return memcmp(one, other, length) == 0;
}

#include "markup/parse.h"

#include <immintrin.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "markup/characters.h"
#include "markup/free_records.h"
#include "markup/result_records.h"

namespace {

// SSE2 is there on each x86-64.
namespace sse2 {

#define MARKUP_SCAN
#define MARKUP_ISA __attribute__((always_inline)) inline

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

MARKUP_ISA uint32_t Equal32(const char* bytes, char character) {
    const __m128i wanted = _mm_set1_epi8(character);
    const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i_u*>(bytes));
    const __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i_u*>(bytes + 16));
    return static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(high, wanted))) << 16 |
           static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(low, wanted)));
}

#include "markup/tag_scan.inl"

#undef MARKUP_SCAN
#undef MARKUP_ISA

}  // namespace sse2

namespace avx2 {

#define MARKUP_SCAN __attribute__((target("avx2,bmi,bmi2")))
#define MARKUP_ISA __attribute__((target("avx2,bmi,bmi2"), always_inline)) inline

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

MARKUP_ISA uint32_t Equal32(const char* bytes, char character) {
    const __m256i part = _mm256_loadu_si256(reinterpret_cast<const __m256i_u*>(bytes));
    return static_cast<uint32_t>(
        _mm256_movemask_epi8(_mm256_cmpeq_epi8(part, _mm256_set1_epi8(character))));
}

#include "markup/tag_scan.inl"

#undef MARKUP_SCAN
#undef MARKUP_ISA

}  // namespace avx2

}  // namespace

void ScanTagsBySse2(MarkupParse& parse, size_t place) {
    sse2::ScanTags(parse, place);
}

void ScanTagsByAvx2(MarkupParse& parse, size_t place) {
    avx2::ScanTags(parse, place);
}

TagScan FastestTagScan() {
    const bool hasAvx2 = __builtin_cpu_supports("avx2") != 0 &&
                         __builtin_cpu_supports("bmi") != 0 && __builtin_cpu_supports("bmi2") != 0;
    return hasAvx2 ? ScanTagsByAvx2 : ScanTagsBySse2;
}

MarkupParse::MarkupParse(MarkupDocument& document, int32_t parent, TokenCursor& cursor)
    : m_Document(document),
      m_Cursor(cursor),
      m_Positions(*document.positions),
      m_Parent(parent),
      m_TakesFreed(document.freeList != 0),
      m_Stack(cursor.text, (cursor.flags & kMarkupIgnoreCase) != 0, m_Positions, parent),
      m_Edge(FirstEdge()) {}

int32_t MarkupParse::Run(TagScan scan) {
    const int32_t before = m_Edge.last;
    if (m_Parent != 0 || before != 0 || m_TakesFreed) m_Document.flags |= kMarkupChanged;
    scan(*this, static_cast<size_t>(m_Cursor.next));
    EndUnended(m_Parent, static_cast<int64_t>(m_Document.document.size()));
    if (!m_TakesFreed) m_Document.nextUnused = m_Edge.next;
    if (m_Edge.last == before) return 0;
    const int32_t first = m_Positions[m_Parent].firstChild;
    m_Positions[first].previousSibling = m_Edge.last;
    return before != 0 ? m_Positions[before].nextSibling : first;
}

/// Behind the last child of the parent.
MarkupParse::Edge MarkupParse::FirstEdge() const {
    const int32_t firstChild = m_Positions[m_Parent].firstChild;
    return EdgeAt({.next = m_Document.nextUnused,
                   .parent = m_Parent,
                   .last = firstChild != 0 ? m_Positions[firstChild].previousSibling : 0});
}

/// With the pointers that follow from the positions.
MarkupParse::Edge MarkupParse::EdgeAt(Edge edge) const {
    if (!m_TakesFreed) {
        const int32_t segmentEnd = (edge.next | (SegmentedPositions::kSegmentSize - 1)) + 1;
        const int32_t room = std::min(segmentEnd, m_Positions.Capacity()) - edge.next;
        edge.record = room > 0 ? &m_Positions[edge.next] : nullptr;
        edge.end = edge.record + room;
    }
    edge.open = &m_Positions[edge.parent];
    edge.link = edge.last != 0 ? &m_Positions[edge.last].nextSibling : &edge.open->firstChild;
    edge.levelFlags =
        ((edge.open->levelFlags + 1) & kElementDepth) | (edge.last == 0 ? kElementFirstSibling : 0);
    return edge;
}

MarkupParse::Edge MarkupParse::MakeRoom(Edge edge) {
    if (m_TakesFreed) {
        edge.next = FreeRecords{m_Document}.Take();
        if (edge.next != 0) {
            edge.record = &m_Positions[edge.next];
            edge.end = edge.record + 1;
            return edge;
        }
        m_TakesFreed = false;
        edge = EdgeAt({.next = m_Document.nextUnused, .parent = edge.parent, .last = edge.last});
        if (edge.record != edge.end) return edge;
    }
    if (edge.next == m_Positions.Capacity()) {
        m_Positions.Grow(edge.next + std::max(edge.next / 2, 1));
    }
    return EdgeAt(edge);
}

size_t MarkupParse::TakeToken(size_t start) {
    m_Cursor.next = static_cast<int32_t>(start);
    const int32_t type = NextToken(m_Cursor, m_Token);
    if (type == kNodeElement) {
        Open(m_Edge, start, static_cast<size_t>(m_Token.length),
             (m_Token.nodeFlags & kTokenEmpty) != 0);
    } else if (type == kTokenEndTag) {
        TakeEndTag();
    } else if (type == kTokenError) {
        TakeFault();
    }
    return static_cast<size_t>(m_Cursor.next);
}

void MarkupParse::TakeEndTag() {
    const std::string_view name = m_Cursor.Word();
    const int32_t position = m_Stack.Find(m_Edge.parent, name);
    if (position == 0) {
        TakeLoneEndTag(name);
        return;
    }
    EndUnended(position, m_Token.start + 1);
    Close(m_Edge, static_cast<size_t>(m_Token.start), static_cast<size_t>(m_Token.End()));
}

void MarkupParse::TakeLoneEndTag(std::string_view name) {
    m_Positions[0].levelFlags |= kElementIllFormed;
    m_Edge.open->levelFlags |= kElementMissesEnd;
    AddErrorRecord(m_Document.result, "lone_end_tag", name, m_Token.start);
}

void MarkupParse::TakeFault() {
    m_Positions[0].levelFlags |= kElementIllFormed;
    m_Edge.open->levelFlags |= kElementMissesEnd;
    if (m_Document.result.size() < kResultLimit) m_Document.result.append(m_Token.errorText);
}

/// The open elements in `parent` have no end tags: what is in them follows them. `offset` is that of
/// what has shown it.
void MarkupParse::EndUnended(int32_t parent, int64_t offset) {
    if (m_Edge.parent == parent) return;
    m_Positions[0].levelFlags |= kElementIllFormed;
    int32_t outermost = 0;
    for (int32_t position = m_Edge.parent; position != parent;
         position = m_Positions[position].parent) {
        MarkUnended(position, offset);
        MoveChildrenOut(position);
        if (m_Stack.IsCounting()) m_Stack.Count(position, -1);
        outermost = position;
    }
    m_Edge.parent = parent;
    for (int32_t child = outermost; child != 0; child = m_Positions[child].nextSibling) {
        m_Positions[child].parent = parent;
        m_Edge.last = child;
    }
    m_Edge = EdgeAt(m_Edge);
}

void MarkupParse::MarkUnended(int32_t position, int64_t offset) {
    ElementPosition& element = m_Positions[position];
    if ((element.levelFlags & kElementMissesEnd) != 0) {
        element.levelFlags &= ~kElementMissesEnd;
        m_Positions[element.parent].levelFlags |= kElementMissesEnd;
    }
    element.levelFlags |= kElementNonEnded;
    if (m_Document.result.size() >= kResultLimit) return;
    AddErrorRecord(m_Document.result, "unended_start_tag", m_Stack.NameOf(position), element.start,
                   offset);
}

/// Behind the element, which is the last child of its parent.
void MarkupParse::MoveChildrenOut(int32_t position) {
    ElementPosition& element = m_Positions[position];
    if (element.firstChild == 0) return;
    element.nextSibling = std::exchange(element.firstChild, 0);
    ElementPosition& first = m_Positions[element.nextSibling];
    first.previousSibling = position;
    first.levelFlags &= ~kElementFirstSibling;
}

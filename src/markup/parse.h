#pragma once

#include <cstdint>
#include <utility>

#include "markup/characters.h"
#include "markup/markup_document.h"
#include "markup/tag_stack.h"

class MarkupParse;

/// Hands all tags of a text from an offset on to a parse.
using TagScan = void (*)(MarkupParse& parse, size_t place);

/// One for each instruction set: what every x86-64 has, and AVX2 with BMI. Both find the same.
void ScanTagsBySse2(MarkupParse& parse, size_t place);
void ScanTagsByAvx2(MarkupParse& parse, size_t place);

/// The fastest that this processor has.
[[nodiscard]] TagScan FastestTagScan();

/// Makes the elements of a text.
///
/// What is common, tags without faults, is found by the structural characters of 64 bytes at a time;
/// all else by the tokenizer. Both find the same. Thread-safety: one thread.
class MarkupParse {
  public:
    /// Below the element at `parent`, behind the elements there, from `cursor.next` to the end of
    /// `cursor.text`, which begins with the document. Free records are used first.
    MarkupParse(MarkupDocument& document, int32_t parent, TokenCursor& cursor);

    /// Gives the first element made, 0 if there is none. Throws `std::bad_alloc`.
    int32_t Run(TagScan scan = FastestTagScan());

    // For the scans.

    [[nodiscard]] std::string_view Text() const { return m_Cursor.text; }

    /// Where the tree grows. A scan works on a copy, which a compiler can keep in registers.
    struct Edge {
        ElementPosition* record = nullptr;  ///< of the next element, or `end`
        ElementPosition* end = nullptr;     ///< of the records that lie behind each other
        ElementPosition* open = nullptr;    ///< the innermost open element, or the parent of all
        int32_t* link = nullptr;            ///< the word that is to lead to the next element
        int32_t next = 0;                   ///< position of `record`
        int32_t parent = 0;                 ///< position of `open`
        int32_t last = 0;                   ///< its last child, or 0
        uint32_t levelFlags = 0;            ///< of the next element
    };
    [[nodiscard]] Edge GetEdge() const { return m_Edge; }
    void SetEdge(const Edge& edge) { m_Edge = edge; }

    /// A start tag.
    void Open(Edge& edge, size_t start, size_t length, bool isEmpty) {
        if (edge.record == edge.end) edge = MakeRoom(edge);
        ElementPosition& element = *edge.record++;
        const int32_t position = edge.next++;
        *edge.link = position;
        element.start = static_cast<int32_t>(start);
        element.length = static_cast<int32_t>(length);
        element.tagLengths = static_cast<uint32_t>(length) & ElementPosition::kStartTagMask;
        element.levelFlags = edge.levelFlags | (isEmpty ? kElementEmpty : 0);
        element.parent = edge.parent;
        element.firstChild = 0;
        element.nextSibling = 0;
        element.previousSibling = edge.last;  // of the first one the last, once that is known
        if (isEmpty) {
            edge.last = position;
            edge.link = &element.nextSibling;
            edge.levelFlags &= kElementDepth;
            return;
        }
        edge.last = 0;
        edge.link = &element.firstChild;
        edge.levelFlags = ((edge.levelFlags + 1) & kElementDepth) | kElementFirstSibling;
        edge.parent = position;
        edge.open = &element;
        if (m_Stack.IsCounting()) m_Stack.Count(position, 1);
    }

    /// The end tag of the innermost open element. REQUIRES: there is one.
    void Close(Edge& edge, size_t start, size_t end) {
        if (m_Stack.IsCounting()) m_Stack.Count(edge.parent, -1);
        ElementPosition& element = *edge.open;
        element.length = static_cast<int32_t>(end) - element.start;
        element.tagLengths |= static_cast<uint32_t>(end - start) << ElementPosition::kStartTagBits;
        if (edge.last != 0) {
            RecordAt(element, edge.parent, element.firstChild).previousSibling = edge.last;
        }
        edge.open = &RecordAt(element, edge.parent, element.parent);
        edge.last = std::exchange(edge.parent, element.parent);
        edge.link = &element.nextSibling;
        edge.levelFlags = (edge.levelFlags - 1) & kElementDepth;
    }

    /// Whether there is an open element.
    [[nodiscard]] bool IsOpen(const Edge& edge) const { return edge.parent != m_Parent; }

    /// Takes the tag there by the tokenizer. Gives the offset behind it.
    size_t TakeToken(size_t start);

  private:
    MarkupDocument& m_Document;
    TokenCursor& m_Cursor;
    NodeToken m_Token;
    SegmentedPositions& m_Positions;
    const int32_t m_Parent;
    bool m_TakesFreed;  ///< records come from the free ones as long as there are such
    TagStack m_Stack;
    Edge m_Edge;

    /// The record at `position`; `other` is that at `otherPosition`, mostly of the same segment.
    [[nodiscard]] ElementPosition& RecordAt(ElementPosition& other, int32_t otherPosition,
                                            int32_t position) {
        const bool isNear = (position ^ otherPosition) >> SegmentedPositions::kSegmentBits == 0;
        return isNear ? (&other)[position - otherPosition] : m_Positions[position];
    }

    [[nodiscard]] Edge FirstEdge() const;
    [[nodiscard]] Edge EdgeAt(Edge edge) const;
    [[nodiscard]] Edge MakeRoom(Edge edge);
    void TakeEndTag();
    void TakeLoneEndTag(std::string_view name);
    void TakeFault();
    void EndUnended(int32_t parent, int64_t offset);
    void MarkUnended(int32_t position, int64_t offset);
    void MoveChildrenOut(int32_t position);
};

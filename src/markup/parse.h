#pragma once

#include <cstdint>

#include "markup/characters.h"
#include "markup/markup_document.h"
#include "markup/tag_stack.h"

/// Makes the elements of a text.
///
/// What is common, tags without faults, is found by the structural characters of 64 bytes at a time;
/// all else by the tokenizer. Both find the same. Thread-safety: one thread.
class MarkupParse {
  public:
    /// Below the element at `parent`, from `cursor.next` to the end of `cursor.text`, which is that of
    /// the document.
    MarkupParse(MarkupDocument& document, int32_t parent, TokenCursor& cursor);

    /// Gives the first element made, 0 if there is none. Throws `std::bad_alloc`.
    int32_t Run();

    // For the scans of each instruction set.

    [[nodiscard]] std::string_view Text() const { return m_Cursor.text; }

    /// A start tag.
    void Open(size_t start, size_t length, bool isEmpty) {
        if (m_Next == m_Capacity) Grow();
        const int32_t position = m_Next++;
        TagStackEntry& top = m_Stack.Top();
        ElementPosition& element = m_Positions[position];
        element.start = static_cast<int32_t>(start);
        element.length = static_cast<int32_t>(length);
        element.tagLengths = static_cast<uint32_t>(length) & ElementPosition::kStartTagMask;
        element.parent = top.position;
        element.firstChild = 0;
        element.nextSibling = 0;
        uint32_t flags = (m_Depth + static_cast<uint32_t>(m_Stack.Size())) & kElementDepth;
        if (isEmpty) flags |= kElementEmpty;
        if (top.lastChild == 0) {
            flags |= kElementFirstSibling;
            element.previousSibling = position;
            m_Positions[top.position].firstChild = position;
        } else {
            element.previousSibling = top.lastChild;
            m_Positions[top.lastChild].nextSibling = position;
        }
        element.levelFlags = flags;
        top.lastChild = position;
        if (!isEmpty) m_Stack.Push(Text().data() + start + 1, position);
    }

    /// Whether the name of `length` bytes there is that of the uppermost open element.
    [[nodiscard]] bool IsNameOfTop(const char* name, size_t length) {
        const char* const open = m_Stack.Top().name;
        return length != 0 && open != nullptr && IsSame(open, name, length) &&
               (kIsTagNameEnd(open[length]) || kIsPathNameEnd(open[length]));
    }

    /// The end tag of the uppermost open element.
    void CloseTop(size_t start, size_t end) {
        const TagStackEntry& top = m_Stack.Top();
        ElementPosition& element = m_Positions[top.position];
        element.length = static_cast<int32_t>(end) - element.start;
        element.tagLengths |= static_cast<uint32_t>(end - start) << ElementPosition::kStartTagBits;
        CloseChildren(top);
        m_Stack.Pop();
    }

    /// Takes the tag there by the tokenizer. Gives the offset behind it.
    size_t TakeToken(size_t start);

  private:
    MarkupDocument& m_Document;
    TokenCursor& m_Cursor;
    NodeToken m_Token;
    SegmentedPositions& m_Positions;
    TagStack m_Stack;
    const int32_t m_Parent;
    const int32_t m_First;
    const uint32_t m_Depth;  ///< of the parent
    int32_t m_Next;
    int32_t m_Capacity;

    static bool IsSame(const char* one, const char* other, size_t length);

    void CloseChildren(const TagStackEntry& entry) {
        if (entry.lastChild == 0) return;
        const int32_t first = m_Positions[entry.position].firstChild;
        m_Positions[first].previousSibling = entry.lastChild;
    }

    void Grow();
    void TakeEndTag();
    void TakeLoneEndTag(std::string_view name);
    void TakeFault();
    void EndUnended(size_t outermost, int64_t offset);
    void MarkUnended(size_t place, int64_t offset);
    void MoveChildrenUp(size_t outermost);
};

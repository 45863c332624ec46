#include "markup/find.h"

#include <algorithm>
#include <cstring>

#include "markup/characters.h"
#include "markup/entities.h"
#include "markup/name_compare.h"

/// Mostly its first eight bytes show at once that two names differ.
class MarkupFind::Name {
  public:
    Name(std::string_view text, const PathSegment& segment, bool ignoresCase)
        : m_Text(text),
          m_Name(segment.name),
          m_IsAny(segment.IsAny()),
          m_IgnoresCase(ignoresCase),
          m_HasHead(!m_IsAny && !ignoresCase) {
        memset(&m_HeadBits, 0, sizeof m_HeadBits);
        const size_t count = std::min(m_Name.size(), sizeof m_Head);
        memcpy(&m_Head, m_Name.data(), count);
        memset(&m_HeadBits, 0xFF, count);
    }

    /// Whether no element can have it.
    [[nodiscard]] bool IsNone() const { return tagNameEnd.IsIn(m_Name); }

    /// Whether the element has it. The name in the text ends with its tag at the latest.
    [[nodiscard]] bool IsOf(const ElementPosition& element) const {
        const size_t begin = static_cast<size_t>(element.start) + 1;
        const size_t rest = m_Text.size() - begin;
        if (m_HasHead && rest >= sizeof m_Head) {
            uint64_t head = 0;
            memcpy(&head, m_Text.data() + begin, sizeof head);
            if (((head ^ m_Head) & m_HeadBits) != 0) return false;
        }
        return m_IsAny || (rest > m_Name.size() && tagNameEnd.Has(m_Text[begin + m_Name.size()]) &&
                           IsSameName(m_Text.substr(begin, m_Name.size()), m_Name, m_IgnoresCase));
    }

  private:
    std::string_view m_Text;
    std::string_view m_Name;
    bool m_IsAny;
    bool m_IgnoresCase;
    bool m_HasHead;
    uint64_t m_Head = 0;
    uint64_t m_HeadBits = 0;
};

class MarkupFind::Condition {
  public:
    explicit Condition(const PathSegment& segment)
        : m_Attribute(segment.attribute),
          m_HasValue(segment.hasValue),
          m_Value(DecodeText(segment.value, 0)) {}

    [[nodiscard]] bool IsMet(const MarkupDocument& document, int32_t position) const {
        if (m_Attribute.empty()) return true;
        if (!document.HasAttribute(position, m_Attribute)) return false;
        return !m_HasValue || document.GetAttribute(position, m_Attribute) == m_Value;
    }

  private:
    std::string_view m_Attribute;
    bool m_HasValue;
    std::string m_Value;
};

/// Goes down a level with each name that fits. Where the next name fits nothing it goes up again and on,
/// unless the name there asked for one by its number: there is but one such.
int32_t MarkupFind::Among(int32_t sibling) const {
    int level = 0;
    int32_t parent = 0;  // from the second level on
    int32_t position = sibling;
    PathSegment segment = m_Path.Segment(0);
    for (;;) {
        const int32_t found = NextFitting(position, segment);
        if (found != 0 && level + 1 < m_Path.Size()) {
            segment = m_Path.Segment(++level);
            parent = found;
            position = m_Document.PositionOf(found).firstChild;
            continue;
        }
        if (found != 0 && HasWantedAttribute(found)) return found;
        position = found;
        while (position == 0 || segment.index != 0) {
            if (level == 0) return 0;
            segment = m_Path.Segment(--level);
            position = parent;
            parent = m_Document.PositionOf(position).parent;
        }
        position = m_Document.PositionOf(position).nextSibling;
    }
}

int32_t MarkupFind::Behind(int32_t position) const {
    const PathSegment segment = m_Path.Segment(0);
    const Name name{m_Document.document, segment, (m_Document.flags & kMarkupIgnoreCase) != 0};
    const Condition condition{segment};
    if (name.IsNone()) return 0;
    uint32_t fitting = 0;
    while ((position = FollowingCalled(position, name)) != 0) {
        if (!condition.IsMet(m_Document, position)) continue;
        if (++fitting < segment.index) continue;
        if (HasWantedAttribute(position)) return position;
        if (segment.index != 0) return 0;
    }
    return 0;
}

int32_t MarkupFind::FollowingCalled(int32_t position, const Name& name) const {
    do {
        position = m_Document.GetFollowing(position);
    } while (position != 0 && !name.IsOf(m_Document.PositionOf(position)));
    return position;
}

int32_t MarkupFind::NextFitting(int32_t sibling, const PathSegment& segment) const {
    const Name name{m_Document.document, segment, (m_Document.flags & kMarkupIgnoreCase) != 0};
    const Condition condition{segment};
    if (name.IsNone()) return 0;
    uint32_t fitting = 0;
    while ((sibling = NextCalled(sibling, name)) != 0) {
        if (condition.IsMet(m_Document, sibling) && ++fitting >= segment.index) return sibling;
        sibling = m_Document.PositionOf(sibling).nextSibling;
    }
    return 0;
}

/// `sibling` itself counts. The next one is mostly the next record: a processor that is let to guess that
/// need not wait for the link.
int32_t MarkupFind::NextCalled(int32_t sibling, const Name& name) const {
    while (sibling != 0) {
        const ElementPosition& element = m_Document.PositionOf(sibling);
        if (name.IsOf(element)) break;
        if (element.nextSibling == sibling + 1) {
            ++sibling;
            asm("" : "+r"(sibling));  // else the compiler sees that the link is the same
        } else {
            sibling = element.nextSibling;
        }
    }
    return sibling;
}

bool MarkupFind::HasWantedAttribute(int32_t position) const {
    return m_Path.Attribute().empty() || m_Document.HasAttribute(position, m_Path.Attribute());
}

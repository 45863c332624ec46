#include "markup/find.h"

#include <cstring>

#include "markup/characters.h"
#include "markup/entities.h"
#include "markup/name_compare.h"

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
    uint32_t fitting = 0;
    while ((position = Following(position)) != 0) {
        if (!Fits(position, segment)) continue;
        if (++fitting < segment.index) continue;
        if (HasWantedAttribute(position)) return position;
        if (segment.index != 0) return 0;
    }
    return 0;
}

/// In the order of the text; behind 0 comes the first element.
int32_t MarkupFind::Following(int32_t position) const {
    const int32_t child = m_Document.PositionOf(position).firstChild;
    if (child != 0) return child;
    while (position != 0) {
        const ElementPosition& element = m_Document.PositionOf(position);
        if (element.nextSibling != 0) return element.nextSibling;
        position = element.parent;
    }
    return 0;
}

int32_t MarkupFind::NextFitting(int32_t sibling, const PathSegment& segment) const {
    uint32_t fitting = 0;
    for (; sibling != 0; sibling = m_Document.PositionOf(sibling).nextSibling) {
        if (Fits(sibling, segment) && ++fitting >= segment.index) return sibling;
    }
    return 0;
}

bool MarkupFind::Fits(int32_t position, const PathSegment& segment) const {
    if (!segment.IsAny() && !HasName(position, segment.name)) return false;
    if (segment.attribute.empty()) return true;
    if (!segment.hasValue) return m_Document.HasAttribute(position, segment.attribute);
    return m_Document.HasAttribute(position, segment.attribute) &&
           m_Document.GetAttribute(position, segment.attribute) == DecodeText(segment.value, 0);
}

/// Compares with the name in the text, which ends with its tag at the latest.
bool MarkupFind::HasName(int32_t position, std::string_view name) const {
    const std::string& text = m_Document.document;
    const size_t begin = static_cast<size_t>(m_Document.PositionOf(position).start) + 1;
    if (text.size() - begin <= name.size() || !kIsTagNameEnd(text[begin + name.size()]))
        return false;
    return IsSameName({text.data() + begin, name.size()}, name,
                      (m_Document.flags & kMarkupIgnoreCase) != 0);
}

bool MarkupFind::HasWantedAttribute(int32_t position) const {
    return m_Path.Attribute().empty() || m_Document.HasAttribute(position, m_Path.Attribute());
}

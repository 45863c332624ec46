#include "markup/free_records.h"

#include <utility>

#include "markup/markup_document.h"

int32_t FreeRecords::Take() {
    const int32_t position = m_Document.freeList;
    if (position != 0) m_Document.freeList = m_Document.PositionOf(position).nextSibling;
    return position;
}

void FreeRecords::Add(int32_t position) {
    ElementPosition& element = (*m_Document.positions)[position];
    element.levelFlags = kElementFree;
    element.nextSibling = std::exchange(m_Document.freeList, position);
}

void FreeRecords::AddSubtree(int32_t position) {
    const auto innermost = [this](int32_t at) {
        while (m_Document.PositionOf(at).firstChild != 0) at = m_Document.PositionOf(at).firstChild;
        return at;
    };
    for (int32_t at = innermost(position); at != position;) {
        const ElementPosition element = m_Document.PositionOf(at);
        Add(at);
        at = element.nextSibling != 0 ? innermost(element.nextSibling) : element.parent;
    }
    Add(position);
    m_Document.flags |= kMarkupChanged;
    if (m_Document.savedPositions == nullptr) return;
    m_Document.savedPositions->Purge([this](int32_t saved) {
        return (m_Document.PositionOf(saved).levelFlags & kElementFree) != 0;
    });
}

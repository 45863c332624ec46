// Input: a document. Visits all nodes of all elements, in the order of the text.
#include "markup/markup_document.h"
#include "support/fuzz.h"

void Fuzz(std::string_view input) {
    MarkupDocument document;
    document.SetDocumentFlags(input.size() % 2 != 0 ? kMarkupIgnoreCase : 0);
    document.SetDocumentText(std::string{input});
    std::string name, value;
    const char* former = document.GetDocumentText().data();
    for (int32_t elements = 0;;) {
        const int32_t type = document.FindNextNode(255);
        const int32_t parent = document.MainParent();
        HOLDS(type != 0 || parent != 0 || elements == document.GetElementCount());
        if (type == 0 && parent == 0) return;
        if (type == 0) document.SetPositions(document.GetParentOf(parent), parent, 0);
        if (type == 0) continue;
        const std::string_view node = document.GetMarkup();
        HOLDS(IsPartOf(document.GetDocumentText(), node) && node.data() >= former);
        former = node.data();
        HOLDS(document.GetData().size() <= node.size());
        if (type != kNodeElement) continue;
        const int32_t element = document.MainPosition();
        for (int i = 0; i < 4 && document.GetAttributeAt(element, i, name, value); ++i)
            HOLDS(value.size() <= node.size());
        document.SetPositions(element, 0, 0);
        ++elements;
    }
}

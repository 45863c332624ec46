// Input: a path on a line of its own, then a document.
#include "markup/markup_document.h"
#include "support/fuzz.h"

void Fuzz(std::string_view input) {
    const std::string path{TakeArgument(input)};
    MarkupDocument document{std::string{input}};
    const int32_t count = document.GetElementCount();
    for (int32_t found = 0; document.FindSibling(path.c_str()); ++found) {
        const int32_t main = document.MainPosition();
        HOLDS(main > 0 && main <= count && document.GetParentOf(main) == document.MainParent());
        if (found == 8 || path.starts_with('/')) break;
    }
    document.ResetPosition();
    int32_t former = 0;
    for (int32_t found = 0; found < 8 && document.FindChild(path.c_str()); ++found) {
        const int32_t child = document.ChildPosition();
        HOLDS(child > 0 && child <= count &&
              document.GetParentOf(child) == document.MainPosition());
        HOLDS(child > former || (path.starts_with('/') && !path.starts_with("//")));
        former = child;
    }
    const bool isSomewhere = document.MainPosition() + document.ChildPosition() != 0;
    HOLDS(document.SavePosition(path) == isSomewhere);
    document.SetPositions(0, 0, 0);
    HOLDS(document.RestorePosition(path) == isSomewhere);
}

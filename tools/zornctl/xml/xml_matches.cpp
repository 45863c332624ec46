#include "zornctl/xml/xml_matches.h"

#include "markup/markup_path.h"

namespace zornctl {

namespace {

/// Each name of the path with its condition, the last one with the attribute behind it.
std::vector<std::string> StepsOf(const MarkupPath& path, const std::string& text) {
    std::vector<std::string> steps;
    const char* end = text.data() + text.size();
    for (int place = path.Size() - 1; place >= 0; --place) {
        const char* const begin = path.Segment(place).name.data();
        steps.insert(steps.begin(), std::string{begin, end});
        end = begin - 1;
    }
    return steps;
}

std::vector<int32_t> FindAnywhere(MarkupDocument& document, const MarkupPath& path,
                                  const std::string& text) {
    std::vector<int32_t> found;
    document.ResetPosition();
    while (document.FindSibling(text.c_str())) {
        found.push_back(document.MainPosition());
        if (path.Segment(0).index != 0) break;
    }
    return found;
}

/// Adds the children of `parent` (0: the elements at the top) that a step leads to.
void AddChildren(MarkupDocument& document, int32_t parent, const std::string& step, bool isOne,
                 std::vector<int32_t>& found) {
    document.SetPositions(parent != 0 ? document.GetParentOf(parent) : 0, parent, 0);
    const auto findNext = [&] {
        return parent == 0 ? document.FindSibling(step.c_str()) : document.FindChild(step.c_str());
    };
    while (findNext()) {
        found.push_back(parent == 0 ? document.MainPosition() : document.ChildPosition());
        if (isOne) break;
    }
}

}  // namespace

std::vector<int32_t> FindAllElements(MarkupDocument& document, const std::string& path) {
    const MarkupPath parsed{path.c_str()};
    if (parsed.GetType() == MarkupPath::Type::kAnywhere)
        return FindAnywhere(document, parsed, path);
    const auto steps = StepsOf(parsed, path);
    std::vector<int32_t> parents{0};
    for (int place = 0; place < parsed.Size(); ++place) {
        std::vector<int32_t> found;
        const bool isOne = parsed.Segment(place).index != 0;
        for (const int32_t parent : parents) {
            AddChildren(document, parent, steps[static_cast<size_t>(place)], isOne, found);
        }
        parents = std::move(found);
    }
    return parents;
}

void TextPlace::MoveTo(size_t offset) {
    if (offset < m_Offset) *this = TextPlace{m_Text};
    for (;;) {
        const size_t newline = m_Text.substr(0, offset).find('\n', m_Offset);
        if (newline == m_Text.npos) break;
        ++m_Line;
        m_Offset = m_LineStart = newline + 1;
    }
    m_Offset = offset;
}

}  // namespace zornctl

#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "markup/markup_document.h"

namespace zornctl {

/// Every element that `path` leads to from the start of the document, in the order of the text; a
/// condition by number holds once in each parent. REQUIRES: the path is valid and not empty.
/// Thread-safety of all here: that of the document.
[[nodiscard]] std::vector<int32_t> FindAllElements(MarkupDocument& document,
                                                   const std::string& path);

/// Line and column of offsets in a text, both from 1, columns in bytes. Offsets that do not go back
/// cost no more than one pass over the text.
class TextPlace {
  public:
    explicit TextPlace(std::string_view text) : m_Text(text) {}

    /// REQUIRES: offset <= size of the text.
    void MoveTo(size_t offset);
    [[nodiscard]] size_t Line() const { return m_Line; }
    [[nodiscard]] size_t Column() const { return m_Offset - m_LineStart + 1; }

  private:
    std::string_view m_Text;
    size_t m_Offset = 0;
    size_t m_LineStart = 0;
    size_t m_Line = 1;
};

}  // namespace zornctl

#pragma once

#include <cstdint>

class MarkupDocument;

/// The records of a document that were an element's and are none's now, in a chain from `freeList` on:
/// so that adding and removing again and again takes no memory.
///
/// Thread-safety: as the document.
class FreeRecords {
  public:
    explicit FreeRecords(MarkupDocument& document) : m_Document(document) {}

    /// The record that was freed last, 0 if there is none. What it holds is to be set anew.
    [[nodiscard]] int32_t Take();

    /// Frees the records of an element and of all in it, its own as the last one; names of positions that
    /// stood for them are forgotten. The element must no longer be linked with others.
    void AddSubtree(int32_t position);

  private:
    MarkupDocument& m_Document;

    void Add(int32_t position);
};

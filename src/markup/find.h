#pragma once

#include <cstdint>
#include <string_view>

#include "markup/markup_document.h"
#include "markup/markup_path.h"

/// Looks for an element of a document by a path. Thread-safety: one thread.
class MarkupFind {
  public:
    MarkupFind(const MarkupDocument& document, const MarkupPath& path)
        : m_Document(document), m_Path(path) {}

    /// The first of `sibling` and those that follow it to which a relative path leads, or 0.
    [[nodiscard]] int32_t Among(int32_t sibling) const;

    /// The next element behind `position`, in the order of the text, that the only name of the path
    /// fits, or 0.
    [[nodiscard]] int32_t Behind(int32_t position) const;

  private:
    /// A name that many others are compared with.
    class Name;
    /// What an element must have besides.
    class Condition;

    const MarkupDocument& m_Document;
    const MarkupPath& m_Path;

    [[nodiscard]] bool HasWantedAttribute(int32_t position) const;
    [[nodiscard]] int32_t NextFitting(int32_t sibling, const PathSegment& segment) const;
    [[nodiscard]] int32_t NextCalled(int32_t sibling, const Name& name) const;
    [[nodiscard]] int32_t FollowingCalled(int32_t position, const Name& name) const;
};

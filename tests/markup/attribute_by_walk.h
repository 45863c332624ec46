#pragma once

#include <optional>
#include <string_view>

#include "markup/attribute_scan.h"

/// The first attribute called `name`, as a walk over all of them meets it.
inline std::optional<AttributeText> AttributeByWalk(std::string_view text, std::string_view name) {
    TokenCursor cursor{.text = text};
    AttributeText attribute;
    while (FindAttribute(cursor, nullptr, 0, &attribute)) {
        if (attribute.name == name) return attribute;
    }
    return std::nullopt;
}

/// Whether a search by name finds the same, and leaves the cursor behind it.
inline bool FindsAsAWalk(std::string_view text, std::string_view name) {
    TokenCursor cursor{.text = text};
    AttributeText found;
    const auto wanted = AttributeByWalk(text, name);
    if (FindAttribute(cursor, name, &found) != wanted.has_value()) return false;
    if (!wanted) return static_cast<size_t>(cursor.next) == text.size();
    return found.name.data() == wanted->name.data() && found.value.data() == wanted->value.data() &&
           found.value.size() == wanted->value.size() &&
           cursor.Word().data() == wanted->value.data();
}

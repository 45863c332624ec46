#pragma once

#include <optional>
#include <string_view>

#include "markup/attribute_scan.h"
#include "markup/name_compare.h"

/// The first attribute called `name`, as a walk over all of them meets it.
inline std::optional<AttributeText> AttributeByWalk(TokenCursor& cursor, std::string_view name) {
    AttributeText attribute;
    while (FindAttribute(cursor, nullptr, 0, &attribute)) {
        if (IsSameName(attribute.name, name, (cursor.flags & kMarkupIgnoreCase) != 0))
            return attribute;
    }
    return std::nullopt;
}

/// Whether a search by name from `begin` on finds the same, and leaves the cursor as the walk does.
inline bool FindsAsAWalk(std::string_view text, std::string_view name, int32_t begin = 0,
                         uint32_t flags = 0) {
    TokenCursor cursor{.next = begin, .text = text, .flags = flags};
    TokenCursor walked = cursor;
    AttributeText found;
    const auto wanted = AttributeByWalk(walked, name);
    if (FindAttribute(cursor, name, &found) != wanted.has_value()) return false;
    if (cursor.next != walked.next || cursor.flags != walked.flags) return false;
    return !wanted || (found.name.data() == wanted->name.data() && found.name == wanted->name &&
                       found.value.data() == wanted->value.data() && found.value == wanted->value &&
                       cursor.Word() == walked.Word());
}

#pragma once

#include <string_view>

#include "markup/tokenizer.h"
#include "trace/api.h"

/// An attribute as it stands in the document: its value without quotes, references not replaced.
struct AttributeText {
    std::string_view name;
    /// Of an attribute without "=" empty, and right behind the name.
    std::string_view value;
};

/// Looks for an attribute in a start tag or an instruction: for the first one called `name`, or, if
/// that is null, for the one that `index` others stand in front of. `valueOut` (not for null) gets
/// it.
///
/// `cursor.next` is where the search begins, behind "<name". When an attribute is found it stands
/// behind it, the cursor has its value as its word, and `kCursorQuoted` is among its flags if there
/// are quotes: so searches with null and 0 give one attribute after the other. False, and
/// `valueOut` is unchanged, if there is none; the cursor is at the end of its text then.
///
/// REQUIRES: the text of the cursor ends where the tag does; with or without its "/>", ">" or "?>".
/// A value without quotes right in front of these goes up to the ">": it has the "/" or "?".
///
/// `kMarkupIgnoreCase` among the cursor's flags: letter case of names does not matter. `name` may
/// go on behind the name with a character that ends it in a path, as in "id='7']".
///
/// Anything goes that is no attribute in XML: a name without a value, a value without quotes, up to
/// white space or ">"; a quoted word where a name should be counts as a name, and a quote that is
/// not closed goes up to the end of the text.
///
/// Thread-safety: no state.
ZORN_API bool FindAttribute(TokenCursor& cursor, const char* name, int index,
                            AttributeText* valueOut);
/// The same for a name of any bytes.
ZORN_API bool FindAttribute(TokenCursor& cursor, std::string_view name, AttributeText* valueOut);

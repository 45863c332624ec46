#pragma once

#include <string>
#include <string_view>

#include "trace/api.h"

/// Makes the records of `MarkupDocument::Result` readable, in one line:
///
///     <unended_start_tag tagname="b" offset="3" offset2="17"/><root_has_sibling/>
///     start tag 'b' at offset 3 expecting end tag at offset 17, root element has sibling
///
/// Offsets are in bytes from 0. What a record does not tell is left out; a record of an unknown name is
/// shown as it stands. Names of tags and encodings may hold any bytes. Empty if there is no record.
///
/// Throws `std::bad_alloc`. Thread-safety: no state.
ZORN_API std::string ResultText(std::string_view result);

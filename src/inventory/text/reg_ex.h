#pragma once

#include <string>

#include "trace/api.h"

/// Extended regular expressions (regex(7)). Thread-safety: any thread; no state.
class ZORN_API CRegEx {
  public:
    CRegEx() = delete;

    /// Puts the last match of `pattern` in `text` into `match`: each search begins one byte behind
    /// the start of the match before, so matches may overlap, and `^` holds where a search begins.
    /// 256 searches are made at most. A match never reaches over a NUL in `text`; what stands behind
    /// one is searched only where `pattern` can match the empty text.
    ///
    /// True, with an empty `match`, if there is none. False, with a line at level 1 and `match`
    /// untouched, if `pattern` is no expression or the match cannot be taken.
    [[nodiscard]] static bool GetRegexFromString(std::string& match, const std::string& text,
                                                 const std::string& pattern);
};

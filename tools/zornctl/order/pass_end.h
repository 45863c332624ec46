#pragma once

#include <cstddef>
#include <string_view>

namespace zornctl {

/// Where the newest pass ends in lines that are overwritten from the front.
struct PassEnd {
    size_t at = 0;  ///< offset of the first byte that is older; the text's size if there is none
    bool isCut = false;  ///< what begins there is the rest of a line that was overwritten

    bool operator==(const PassEnd&) const = default;
};

/// Finds the end of the newest pass in `text`, which begins with the first line of that pass, by
/// its time stamps alone: see the head of the source file for the method. If there is no sign of an
/// older line, all is of the newest pass.
/// Thread-safety: any thread; no state.
[[nodiscard]] PassEnd FindPassEnd(std::string_view text);

}  // namespace zornctl

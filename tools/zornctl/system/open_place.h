#pragma once

#include <optional>
#include <string>

namespace zornctl {

/// The first place on the way to `path` at which somebody else than root decides what is found there:
/// a file, folder or link that is not root's, or a folder or file that its group or others may write.
/// A folder on the way may be written by all if it is sticky, and what is taken from it is root's.
/// All links are followed, at most 40, and the places on their way count too. Empty if there is none,
/// or none that can be told: what is missing counts for the folder that it is missing in.
/// Thread-safety: any thread; no state.
[[nodiscard]] std::optional<std::string> FindOpenPlace(const std::string& path);

}  // namespace zornctl

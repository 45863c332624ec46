#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace zornctl {

/// Asks the dynamic linker whether it can load a library and all that it needs, without running any
/// code of them or of what they name as auditors. With `program` (the path of the service, whose
/// symbols the library uses), it also looks for symbols that nobody defines. `libraryPath` is the
/// service's LD_LIBRARY_PATH, empty if it has none. Gives the linker's reason; empty if all is well.
/// Throws `Failure` if the linker cannot be asked.
/// REQUIRES: none of the paths leads to what others than root can change (`FindOpenPlace`): the linker
/// maps what it finds, and trusts it.
/// Thread-safety of all here: any thread; no state.
[[nodiscard]] std::optional<std::string> FindLoadProblem(const std::string& library,
                                                         const std::string& program,
                                                         const std::string& libraryPath);

/// The first problem in what the linker says when it lists what it loads or looks up symbols, as
/// "libx.so => not found", "undefined symbol: x (liby.so)" or why the library itself is none; empty if
/// there is none.
[[nodiscard]] std::optional<std::string> ParseLoadProblem(std::string_view text);

}  // namespace zornctl

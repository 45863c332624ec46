#pragma once

#include <string_view>
#include <vector>

namespace zornctl {

/// All of zornctl: reads the words behind the program's name, runs the subcommand and tells what
/// kept it from its work. Gives the exit status of the process.
/// Changes the process: SIGPIPE is ignored afterwards.
[[nodiscard]] int RunProgram(const std::vector<std::string_view>& words);

}  // namespace zornctl

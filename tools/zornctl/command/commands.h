#pragma once

#include "zornctl/command_line/arguments.h"
#include "zornctl/output/output.h"

// The subcommands, one source file each. They write their result to `output` and give the exit
// status; what keeps them from it they throw as `Failure`.

namespace zornctl {

[[nodiscard]] ExitStatus RunLog(const Arguments& arguments, Output& output);
[[nodiscard]] ExitStatus RunRing(const Arguments& arguments, Output& output);
[[nodiscard]] ExitStatus RunCheckConfig(const Arguments& arguments, Output& output);
[[nodiscard]] ExitStatus RunDoctor(const Arguments& arguments, Output& output);
[[nodiscard]] ExitStatus RunRegistry(const Arguments& arguments, Output& output);
[[nodiscard]] ExitStatus RunXml(const Arguments& arguments, Output& output);
[[nodiscard]] ExitStatus RunHelp(const Arguments& arguments, Output& output);
[[nodiscard]] ExitStatus RunGenerate(const Arguments& arguments, Output& output);

}  // namespace zornctl

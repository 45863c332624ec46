#include "zornctl/command/commands.h"
#include "zornctl/document/documents.h"

namespace zornctl {

ExitStatus RunHelp(const Arguments& arguments, Output& output) {
    const auto name = arguments.Operand(0);
    output.WriteDocument(name ? FormatCommandHelp(*FindCommand(*name)) : FormatProgramHelp());
    return ExitStatus::kDone;
}

}  // namespace zornctl

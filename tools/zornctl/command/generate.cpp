#include "zornctl/command/commands.h"
#include "zornctl/document/documents.h"

namespace zornctl {

ExitStatus RunGenerate(const Arguments& arguments, Output& output) {
    const auto document = arguments.Operand(0);
    if (document == "man") output.WriteDocument(FormatManualPage());
    if (document == "bash") output.WriteDocument(FormatBashCompletion());
    if (document == "zsh") output.WriteDocument(FormatZshCompletion());
    return ExitStatus::kDone;
}

}  // namespace zornctl

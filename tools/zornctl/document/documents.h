#pragma once

#include <string>

#include "zornctl/command_line/command_table.h"

// The texts that are made from the table of commands. Hidden subcommands are in none of them.
// Thread-safety of all here: any thread; no state.

namespace zornctl {

/// What --help shows without a subcommand: how to call zornctl, its subcommands, what they share.
[[nodiscard]] std::string FormatProgramHelp();

/// What --help shows for a subcommand. Lines have at most 80 columns.
[[nodiscard]] std::string FormatCommandHelp(const CommandRow& command);

/// The manual page zornctl(1), for man(1) and groff_man(7).
[[nodiscard]] std::string FormatManualPage();

/// The completion for bash, which needs nothing but bash itself.
[[nodiscard]] std::string FormatBashCompletion();

/// The completion for zsh: a file `_zornctl` for a directory of its `fpath`.
[[nodiscard]] std::string FormatZshCompletion();

/// "log [OPTION]... [FILE]"
[[nodiscard]] std::string FormatSynopsis(const CommandRow& command);

/// "get KEY [NAME]"
[[nodiscard]] std::string FormatSynopsis(const ActionRow& action);

/// "-n, --lines N"
[[nodiscard]] std::string FormatOption(const OptionRow& option);

}  // namespace zornctl

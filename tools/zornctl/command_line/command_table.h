#pragma once

#include <span>
#include <string_view>

namespace zornctl {

class Arguments;
class Output;
enum class ExitStatus;

/// What a value on the command line is: decides what a completion offers and what is refused.
enum class ValueKind {
    kNone,       ///< an option that is there or not
    kNumber,     ///< decimal digits, at most nine
    kFile,       ///< path of a file
    kDirectory,  ///< path of a directory
    kProcess,    ///< number of a process, decimal digits, at most nine
    kCommand,    ///< name of a subcommand
    kWord,       ///< one of the row's words
};

/// An option, written --name, --name VALUE, --name=VALUE, or by its letter -n, -n VALUE, -nVALUE.
struct OptionRow {
    std::string_view name;
    char letter = '\0';  ///< '\0': none
    ValueKind kind = ValueKind::kNone;
    std::string_view valueName = {};
    std::string_view help;                           ///< one line, without a full stop
    std::span<const std::string_view> words = {};    ///< for `kWord`
    std::span<const std::string_view> actions = {};  ///< those that it is for; empty: all
};

/// An argument that is no option.
struct OperandRow {
    std::string_view name;
    ValueKind kind = ValueKind::kNone;             ///< `kNone`: any text
    bool isRequired = false;                       ///< REQUIRES: so are those before it
    std::span<const std::string_view> words = {};  ///< for `kWord`
    bool isRepeated = false;                       ///< one or more. REQUIRES: the last one
};

/// What a subcommand with several things to do does: its first argument names it.
struct ActionRow {
    std::string_view name;
    std::string_view text;                      ///< one paragraph, without a full stop at its end
    std::span<const OperandRow> operands = {};  ///< REQUIRES: none of kind `kWord`
};

struct CommandRow {
    std::string_view name;
    std::string_view summary;                   ///< one line, without a full stop
    std::string_view text;                      ///< paragraphs, parted by an empty line
    std::span<const OperandRow> operands = {};  ///< REQUIRES: none beside actions
    std::span<const ActionRow> actions = {};    ///< empty: it does one thing
    std::span<const OptionRow> options = {};    ///< besides those of all subcommands
    ExitStatus (*run)(const Arguments& arguments, Output& output);
    bool isHidden = false;  ///< in no help and no completion
};

/// A term of the manual and what it means.
struct ManualRow {
    std::string_view term;
    std::string_view text;
};

/// The table that the help, the manual page, the completions and the reading of the command line
/// are all made from.
[[nodiscard]] std::span<const CommandRow> Commands();

/// The options of every subcommand.
[[nodiscard]] std::span<const OptionRow> CommonOptions();

/// The options that stand without a subcommand, besides the common ones.
[[nodiscard]] std::span<const OptionRow> ProgramOptions();

[[nodiscard]] std::span<const ManualRow> ExitStatusRows();
[[nodiscard]] std::span<const ManualRow> EnvironmentRows();
[[nodiscard]] std::span<const ManualRow> FileRows();
[[nodiscard]] std::span<const ManualRow> ExampleRows();

/// The subcommand called `name`; null if there is none.
[[nodiscard]] const CommandRow* FindCommand(std::string_view name);

/// The action called `name`; null if there is none.
[[nodiscard]] const ActionRow* FindAction(const CommandRow& command, std::string_view name);

/// One line on what the program is for, without a full stop.
inline constexpr std::string_view kProgramSummary = "look into and after the zorn service";

}  // namespace zornctl

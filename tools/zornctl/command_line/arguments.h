#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "zornctl/command_line/command_table.h"
#include "zornctl/output/failure.h"

namespace zornctl {

/// What stands on a command line, read by the table of commands.
///
///     const auto arguments = Arguments::Parse({"log", "-f", "-n", "20"});
///     arguments.Has("follow");                // true
///     arguments.Number("lines");              // 20
///
/// Thread-safety: as a container's.
class Arguments {
  public:
    /// Reads the words behind the program's name. Options may stand before and behind the
    /// subcommand and its operands; "--" ends them, and a minus with a digit begins none. Throws
    /// `Failure` (kWrongUse) for what the table does not have, with the nearest name that it has.
    [[nodiscard]] static Arguments Parse(const std::vector<std::string_view>& words);

    /// The subcommand; null if there is none.
    [[nodiscard]] const CommandRow* Command() const { return m_Command; }

    /// Whether an option was given.
    [[nodiscard]] bool Has(std::string_view option) const { return m_Options.contains(option); }

    /// The value of an option; empty result if it was not given. The last one counts.
    [[nodiscard]] std::optional<std::string> Value(std::string_view option) const;
    /// The same for a value of kind `kNumber` or `kProcess`.
    [[nodiscard]] std::optional<uint32_t> Number(std::string_view option) const;

    /// What the subcommand is to do; null if that is not said, or is but one thing.
    [[nodiscard]] const ActionRow* Action() const { return m_Action; }

    /// An operand by its place, from 0, an action not counted; empty result if it is not given.
    [[nodiscard]] std::optional<std::string> Operand(size_t place) const;

    /// Throws `Failure` (kWrongUse) unless the subcommand has an action, if it has some to choose
    /// from, and all operands that are required. Apart, since help is given without them too.
    /// REQUIRES: there is a subcommand.
    void CheckComplete() const;

  private:
    class Reader;

    const CommandRow* m_Command = nullptr;
    std::map<std::string, std::string, std::less<>> m_Options;
    const ActionRow* m_Action = nullptr;
    std::vector<std::string> m_Operands;

    [[nodiscard]] std::string Subject() const;
    [[nodiscard]] std::span<const OperandRow> OperandRows() const;
};

/// The name that differs least from `name`; empty if none is near enough to be meant: it begins
/// with `name`, or at most a third of its letters (one at least) are missing, added, other or
/// swapped with their neighbour.
[[nodiscard]] std::string_view NearestName(std::string_view name,
                                           const std::vector<std::string_view>& names);

}  // namespace zornctl

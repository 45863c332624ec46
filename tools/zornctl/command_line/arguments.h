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
    /// subcommand and its operand; "--" ends them. Throws `Failure` (kWrongUse) for what the table
    /// does not have, with the nearest name that it has.
    [[nodiscard]] static Arguments Parse(const std::vector<std::string_view>& words);

    /// The subcommand; null if there is none.
    [[nodiscard]] const CommandRow* Command() const { return m_Command; }

    /// Whether an option was given.
    [[nodiscard]] bool Has(std::string_view option) const { return m_Options.contains(option); }

    /// The value of an option; empty result if it was not given. The last one counts.
    [[nodiscard]] std::optional<std::string> Value(std::string_view option) const;
    /// The same for a value of kind `kNumber` or `kProcess`.
    [[nodiscard]] std::optional<uint32_t> Number(std::string_view option) const;

    /// The operand; empty result if there is none.
    [[nodiscard]] std::optional<std::string> Operand() const { return m_Operand; }

  private:
    class Reader;

    const CommandRow* m_Command = nullptr;
    std::map<std::string, std::string, std::less<>> m_Options;
    std::optional<std::string> m_Operand;
};

/// The name that differs least from `name`; empty if none is near enough to be meant: it begins
/// with `name`, or at most a third of its letters (one at least) are missing, added, other or
/// swapped with their neighbour.
[[nodiscard]] std::string_view NearestName(std::string_view name,
                                           const std::vector<std::string_view>& names);

}  // namespace zornctl

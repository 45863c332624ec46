#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

#include "zornctl/output/failure.h"
#include "zornctl/output/table.h"

namespace zornctl {

/// The version of what --json writes; a change that a reader must know of raises it.
inline constexpr int kFormatVersion = 1;

/// Where a subcommand writes: its result to standard output, for people or as JSON, and notes to
/// standard error.
///
///     if (output.IsJson()) output.WriteJson({{"settings", rows}});
///     else output.WriteText(FormatTable(titles, rows, output.Style()));
///
/// Standard output is written in large blocks and at `Flush`; a write that fails throws `Failure`,
/// or `ReaderGone` if nobody reads any more. REQUIRES: SIGPIPE is ignored.
/// Thread-safety: one thread.
class Output {
  public:
    Output(bool isJson, std::string command) : m_IsJson(isJson), m_Command(std::move(command)) {}
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    [[nodiscard]] bool IsJson() const { return m_IsJson; }

    /// What text for people may use: the width of the terminal (COLUMNS, where it is a number,
    /// comes first), and colours unless NO_COLOR is set to something or TERM is "dumb". No limit
    /// and no colours where standard output is no terminal.
    [[nodiscard]] TextStyle Style() const;

    void WriteText(std::string_view text);

    /// A text that stands alone: as it is, or with --json as {"text": ...}.
    void WriteDocument(std::string_view text);

    /// Writes the members of `object` behind "format_version" and "command", as one line of ASCII.
    /// REQUIRES: the strings in it are UTF-8 (`JsonText`).
    void WriteJson(const nlohmann::ordered_json& object);

    /// One line on standard error, escaped.
    static void WriteNote(std::string_view text);

    /// Tells a failure as described above `Failure`. Standard output that cannot be written is
    /// passed over.
    void WriteFailure(const Failure& failure);

    void Flush();

  private:
    bool m_IsJson;
    std::string m_Command;
    std::string m_Buffer;
};

/// Any bytes as a string for JSON: what is no UTF-8 stands as \xNN.
[[nodiscard]] std::string JsonText(std::string_view text);

}  // namespace zornctl

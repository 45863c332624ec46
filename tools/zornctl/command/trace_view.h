#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "zornctl/command_line/arguments.h"
#include "zornctl/order/ordered_trace.h"
#include "zornctl/output/output.h"

// What the subcommands log and ring share: showing entries, and following a file.

namespace zornctl {

/// The text of a file with its order restored.
struct TraceLook {
    TraceLook() = default;
    TraceLook(const TraceLook&) = delete;  // the views would point into the other text
    TraceLook& operator=(const TraceLook&) = delete;

    std::string file;                 ///< whole text of the file; the entries point into it
    std::vector<TraceEntry> entries;  ///< in the order of writing
    std::string identity;             ///< the same as long as one service writes; empty: unknown
    std::string note;                 ///< what a reader should know; empty: nothing
};

/// One entry as lines for people, each with its newline; a terminal acts upon nothing in them but
/// what `Emphasize` adds. Pure.
[[nodiscard]] std::string FormatEntry(const TraceEntry& entry, const TextStyle& style);

/// One entry as --json shows it; all its strings are UTF-8. "escaped" tells that "text" is none in
/// the file and stands as by `EscapeReversibly`. Pure.
[[nodiscard]] nlohmann::ordered_json EntryObject(const TraceEntry& entry);

/// The last entry that was shown, so that a later look tells what is new.
struct SeenMark {
    std::string identity;
    size_t offset = 0;   ///< of the entry in the file
    std::string prefix;  ///< of the entry: time stamp and the rest
};

/// The mark of the last entry; empty if there is none.
[[nodiscard]] std::optional<SeenMark> MarkOf(const TraceLook& look);

/// Which entries of a look were not seen yet.
struct Unseen {
    enum class Kind {
        kMore,  ///< those behind the last seen one
        kLost,  ///< more than the file keeps was written meanwhile: all of the passes is new
        kAnew,  ///< another service has begun the file, or there was nothing: all is new
    } kind = Kind::kAnew;
    size_t first = 0;  ///< index of the first one
};

/// Compares a look with what was seen before. Pure.
[[nodiscard]] Unseen FindUnseen(const TraceLook& look, const std::optional<SeenMark>& seen);

/// The whole of a log or ring file. Throws `Failure`.
[[nodiscard]] std::string ReadTraceFile(const std::string& path, size_t limit);

/// How a subcommand looks at its file.
struct TraceSource {
    std::string path;
    /// Reads the file; null if it is just being made or is none of that kind. Throws `Failure`.
    std::function<std::unique_ptr<TraceLook>()> read;
    std::string kind;  ///< "ring file": for the failure then
    /// How often to ask `hasChanged` while no event tells of a change.
    std::chrono::milliseconds interval{};
    /// Whether something was written since the last `read`, found out cheaply.
    std::function<bool()> hasChanged;
};

/// Shows the file as the options of `log` and `ring` tell. With --follow it ends when nobody reads
/// any more (`ReaderGone`).
[[nodiscard]] ExitStatus ShowTrace(const TraceSource& source, const Arguments& arguments,
                                   Output& output);

}  // namespace zornctl

// Following: after each event the whole file is read and put in order, and what stands behind the
// last entry shown is new. That needs no assumption on how the writer went on, so it holds over
// wraps, lost lines and restarts. A look is followed by a pause of ten times what it took, so that
// a large file and a busy service cost a tenth of a processor at most.

#include "zornctl/command/trace_view.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <thread>

#include "zornctl/output/escape.h"
#include "zornctl/system/file_watch.h"
#include "zornctl/system/whole_file.h"

namespace zornctl {

namespace {

using Clock = std::chrono::steady_clock;
using nlohmann::ordered_json;

constexpr int kPauseFactor = 10;
constexpr std::chrono::seconds kLongestPause{2};

std::string_view NameOf(TracePart part) {
    switch (part) {
        case TracePart::kHead:
            return "head";
        case TracePart::kHeader:
            return "header";
        case TracePart::kBegin:
            return "begin";
        case TracePart::kOlder:
            return "older";
        case TracePart::kNewest:
            break;
    }
    return "newest";
}

Emphasis EmphasisOf(std::string_view text) {
    if (text.find("ERROR") != text.npos) return Emphasis::kBad;
    if (text.find("WARNING") != text.npos) return Emphasis::kWarning;
    if (text.find("------ WRAP -----") != text.npos) return Emphasis::kFaint;
    return Emphasis::kNone;
}

std::string_view TextOf(const TraceEntry& entry) {
    return entry.text.substr(entry.prefix ? entry.prefix->length : 0);
}

/// Shows entries, all from one on.
class EntryWriter {
  public:
    EntryWriter(const TraceSource& source, Output& output, bool follows)
        : m_Source(source), m_Output(output), m_Style(output.Style()), m_Follows(follows) {}

    void Write(const TraceLook& look, size_t first) {
        const bool isNew = first < look.entries.size();
        if (isNew && !look.note.empty()) Output::WriteNote(m_Source.path + ": " + look.note);
        if (m_Output.IsJson() && !m_Follows) {
            WriteWhole(look, first);
        } else {
            for (size_t i = first; i < look.entries.size(); ++i) WriteEntry(look.entries[i]);
        }
        m_Output.Flush();
    }

  private:
    void WriteWhole(const TraceLook& look, size_t first) {
        auto lines = ordered_json::array();
        for (size_t i = first; i < look.entries.size(); ++i) {
            lines.push_back(EntryObject(look.entries[i]));
        }
        m_Output.WriteJson(
            {{"path", JsonText(m_Source.path)}, {"note", look.note}, {"lines", std::move(lines)}});
    }

    void WriteEntry(const TraceEntry& entry) {
        if (m_Output.IsJson())
            m_Output.WriteJson(EntryObject(entry));
        else
            m_Output.WriteText(FormatEntry(entry, m_Style));
    }

    const TraceSource& m_Source;
    Output& m_Output;
    TextStyle m_Style;
    bool m_Follows;
};

/// Nothing for a file that is away for the moment.
std::unique_ptr<TraceLook> ReadAgain(const TraceSource& source) {
    try {
        return source.read();
    } catch (const Failure& failure) {
        if (failure.status != ExitStatus::kNotFound) throw;
        return nullptr;
    }
}

void TellLoss(const TraceSource& source, Unseen::Kind kind) {
    if (kind == Unseen::Kind::kLost) {
        Output::WriteNote(source.path + ": lines are missing here: they were overwritten too soon");
    } else if (kind == Unseen::Kind::kAnew) {
        Output::WriteNote(source.path + ": begins anew: the service was started again");
    }
}

[[noreturn]] void Follow(const TraceSource& source, FileWatch& watch, std::optional<SeenMark> seen,
                         EntryWriter& writer) {
    for (;;) {
        if (!watch.Wait(source.interval) && !source.hasChanged()) continue;
        const auto start = Clock::now();
        if (const auto look = ReadAgain(source)) {
            const auto unseen = FindUnseen(*look, seen);
            if (seen) TellLoss(source, unseen.kind);
            writer.Write(*look, unseen.first);
            seen = MarkOf(*look);
        }
        const auto pause = kPauseFactor * (Clock::now() - start);
        std::this_thread::sleep_for(std::min<Clock::duration>(pause, kLongestPause));
    }
}

size_t FirstOf(const TraceLook& look, std::optional<uint32_t> count) {
    return count && *count < look.entries.size() ? look.entries.size() - *count : 0;
}

}  // namespace

std::string FormatEntry(const TraceEntry& entry, const TextStyle& style) {
    const auto emphasis = EmphasisOf(entry.text);
    std::string text = entry.isCut ? "[...] " : "";
    std::string out;
    for (auto rest = entry.text; !rest.empty();) {
        text += Escape(BareLine(TakeLine(rest)));
        out.append(Emphasize(text, emphasis, style)).append("\n");
        text.clear();
    }
    return out;
}

ordered_json EntryObject(const TraceEntry& entry) {
    const auto text = TextOf(entry);
    const bool isEscaped = !IsUtf8(text);
    ordered_json object{{"part", NameOf(entry.part)}};
    const auto& prefix = entry.prefix;
    object["time"] = prefix && prefix->hasTime ? ordered_json(prefix->stamp) : ordered_json();
    object["pid"] = prefix ? ordered_json(prefix->pid) : ordered_json();
    object["memory_kib"] =
        prefix && prefix->memoryKiB ? ordered_json(*prefix->memoryKiB) : ordered_json();
    object["name"] = prefix ? ordered_json(JsonText(prefix->name)) : ordered_json();
    object["text"] = isEscaped ? EscapeReversibly(text) : std::string{text};
    object["cut"] = entry.isCut;
    object["escaped"] = isEscaped;
    return object;
}

std::optional<SeenMark> MarkOf(const TraceLook& look) {
    if (look.entries.empty()) return std::nullopt;
    const auto& last = look.entries.back();
    return SeenMark{look.identity, static_cast<size_t>(last.text.data() - look.file.data()),
                    std::string{last.text.substr(0, last.prefix ? last.prefix->length : 0)}};
}

Unseen FindUnseen(const TraceLook& look, const std::optional<SeenMark>& seen) {
    const auto& entries = look.entries;
    const bool isOther = seen && !seen->identity.empty() && !look.identity.empty() &&
                         seen->identity != look.identity;
    if (!seen || isOther || entries.empty()) return {Unseen::Kind::kAnew, 0};
    const auto place = [&](const TraceEntry& entry) {
        return static_cast<size_t>(entry.text.data() - look.file.data()) == seen->offset &&
               entry.text.starts_with(seen->prefix);
    };
    const auto found = std::find_if(entries.begin(), entries.end(), place);
    if (found != entries.end()) {
        return {Unseen::Kind::kMore, static_cast<size_t>(found - entries.begin()) + 1};
    }
    const auto passes = std::find_if(entries.begin(), entries.end(), [](const TraceEntry& entry) {
        return entry.part == TracePart::kOlder || entry.part == TracePart::kNewest;
    });
    return {Unseen::Kind::kLost, static_cast<size_t>(passes - entries.begin())};
}

std::string ReadTraceFile(const std::string& path, size_t limit) {
    try {
        return ReadWholeFile(path, limit);
    } catch (Failure& failure) {
        if (failure.status == ExitStatus::kNotFound) {
            failure.remedy += "; zornctl check-config tells where the service writes";
        }
        throw;
    }
}

ExitStatus ShowTrace(const TraceSource& source, const Arguments& arguments, Output& output) {
    const bool follows = arguments.Has("follow");
    std::optional<FileWatch> watch;
    if (follows) watch.emplace(source.path);
    auto look = source.read();
    if (!look) {
        throw Failure{ExitStatus::kNoAccess, source.path, "is no " + source.kind,
                      "name one that the service wrote"};
    }
    EntryWriter writer{source, output, follows};
    writer.Write(*look, FirstOf(*look, arguments.Number("lines")));
    if (!follows) return ExitStatus::kDone;
    auto seen = MarkOf(*look);
    look.reset();
    Follow(source, *watch, std::move(seen), writer);
}

}  // namespace zornctl

#include <algorithm>

#include "service/version_record.h"
#include "zornctl/document/documents.h"

namespace zornctl {

namespace {

/// A text in roff: what begins a request or an escape there stands for itself.
std::string Roff(std::string_view text) {
    std::string out;
    if (text.starts_with('.') || text.starts_with('\'')) out = "\\&";
    for (const char c : text) {
        switch (c) {
            case '\\':
                out += "\\e";
                break;
            case '-':
                out += "\\-";
                break;
            case '\'':
                out += "\\(aq";
                break;
            case '"':
                out += "\\(dq";
                break;
            case '^':
                out += "\\(ha";
                break;
            case '~':
                out += "\\(ti";
                break;
            default:
                out += c;
        }
    }
    return out;
}

std::string Section(std::string_view title) {
    return std::string{".SH "}.append(title).append("\n");
}

std::string Term(std::string_view name, std::string_view text) {
    return ".TP\n.B " + Roff(name) + "\n" + Roff(text) + ".\n";
}

std::string Paragraphs(std::string_view text) {
    std::string out;
    while (!text.empty()) {
        const auto paragraph = text.substr(0, text.find("\n\n"));
        text.remove_prefix(std::min(paragraph.size() + 2, text.size()));
        out += ".PP\n" + Roff(paragraph) + "\n";
    }
    return out;
}

std::string Options(std::span<const OptionRow> options) {
    std::string out;
    for (const auto& option : options) out += Term(FormatOption(option), option.help);
    return out;
}

std::string Rows(std::span<const ManualRow> rows) {
    std::string out;
    for (const auto& row : rows) out += Term(row.term, row.text);
    return out;
}

std::string Actions(const CommandRow& command) {
    std::string out;
    for (const auto& action : command.actions) out += Term(FormatSynopsis(action), action.text);
    return out;
}

std::string Command(const CommandRow& command) {
    return ".SS " + Roff(command.name) + "\n.B zornctl " + Roff(FormatSynopsis(command)) + "\n" +
           Paragraphs(command.text) + Actions(command) + Options(command.options);
}

/// "2024-04-16", the day of the version.
std::string Date() {
    constexpr size_t kLength = sizeof "yyyy/mm/dd" - 1;
    auto date = std::string{kVersionRecord.Built}.substr(0, kLength);
    std::replace(date.begin(), date.end(), '/', '-');
    return date;
}

}  // namespace

std::string FormatManualPage() {
    std::string page = ".TH ZORNCTL 1 \"" + Date() + "\" \"zorn " +
                       std::string{kVersionRecord.Version} + "\" \"User Commands\"\n";
    page += Section("NAME") + "zornctl \\- " + Roff(kProgramSummary) + "\n";
    page +=
        Section("SYNOPSIS") + ".B zornctl\n.I COMMAND\n[\\fIOPTION\\fR]... [\\fIARGUMENT\\fR]...\n";
    page += Section("COMMANDS");
    for (const auto& command : Commands()) {
        if (!command.isHidden) page += Command(command);
    }
    page += Section("OPTIONS") + Options(CommonOptions()) + Options(ProgramOptions());
    page += Section("EXIT STATUS") + Rows(ExitStatusRows());
    page += Section("ENVIRONMENT") + Rows(EnvironmentRows());
    page += Section("FILES") + Rows(FileRows());
    page += Section("EXAMPLES") + Rows(ExampleRows());
    return page;
}

}  // namespace zornctl

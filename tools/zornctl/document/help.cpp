#include <algorithm>
#include <vector>

#include "zornctl/document/documents.h"
#include "zornctl/output/table.h"

namespace zornctl {

namespace {

constexpr size_t kWidth = 80;

struct Term {
    std::string name;
    std::string text;
};

/// Terms in a column, their texts beside them.
std::string FormatTerms(const std::vector<Term>& terms) {
    size_t width = 0;
    for (const auto& term : terms) width = std::max(width, term.name.size());
    const size_t indent = width + 4;
    std::string out;
    for (const auto& term : terms) {
        out.append("  ").append(term.name).append(indent - 2 - term.name.size(), ' ');
        const auto lines = BreakLines(term.text, kWidth - indent);
        for (size_t i = 0; i < lines.size(); ++i) {
            if (i != 0) out.append(indent, ' ');
            out.append(lines[i]).append("\n");
        }
    }
    return out;
}

std::string FormatParagraphs(std::string_view text) {
    std::string out;
    while (!text.empty()) {
        const auto paragraph = text.substr(0, text.find("\n\n"));
        text.remove_prefix(std::min(paragraph.size() + 2, text.size()));
        for (const auto& line : BreakLines(paragraph, kWidth)) out.append(line).append("\n");
        if (!text.empty()) out += '\n';
    }
    return out;
}

void AddOptions(std::vector<Term>& terms, std::span<const OptionRow> options) {
    for (const auto& option : options) {
        const bool hasLetter = option.letter != '\0';
        terms.push_back(
            {(hasLetter ? "" : "    ") + FormatOption(option), std::string{option.help}});
    }
}

/// " FILE [NAME]", " FILE..."
std::string FormatOperands(std::span<const OperandRow> operands) {
    std::string text;
    for (const auto& operand : operands) {
        const std::string name{operand.name};
        text += operand.isRequired ? " " + name : " [" + name + "]";
        if (operand.isRepeated) text += "...";
    }
    return text;
}

std::string FormatActions(const CommandRow& command) {
    if (command.actions.empty()) return {};
    std::vector<Term> terms;
    for (const auto& action : command.actions) {
        terms.push_back({FormatSynopsis(action), std::string{action.text}});
    }
    return "\nActions:\n" + FormatTerms(terms);
}

std::string FormatExitStatus() {
    std::vector<Term> terms;
    for (const auto& row : ExitStatusRows()) {
        terms.push_back({std::string{row.term}, std::string{row.text}});
    }
    return FormatTerms(terms);
}

}  // namespace

std::string FormatSynopsis(const CommandRow& command) {
    const auto text = std::string{command.name} + " [OPTION]...";
    if (!command.actions.empty()) return text + " ACTION [ARGUMENT]...";
    return text + FormatOperands(command.operands);
}

std::string FormatSynopsis(const ActionRow& action) {
    return std::string{action.name} + FormatOperands(action.operands);
}

std::string FormatOption(const OptionRow& option) {
    std::string text;
    if (option.letter != '\0') text = std::string{'-', option.letter} + ", ";
    text.append("--").append(option.name);
    if (!option.valueName.empty()) text.append(" ").append(option.valueName);
    return text;
}

std::string FormatProgramHelp() {
    std::vector<Term> commands;
    for (const auto& command : Commands()) {
        if (command.isHidden) continue;
        commands.push_back({std::string{command.name}, std::string{command.summary}});
    }
    std::vector<Term> options;
    AddOptions(options, CommonOptions());
    AddOptions(options, ProgramOptions());
    return "Usage: zornctl COMMAND [OPTION]... [ARGUMENT]...\n\nzornctl: " +
           std::string{kProgramSummary} + "\n\nCommands:\n" + FormatTerms(commands) +
           "\nOptions:\n" + FormatTerms(options) + "\nExit status:\n" + FormatExitStatus() +
           "\nzornctl help COMMAND tells more.\n";
}

std::string FormatCommandHelp(const CommandRow& command) {
    std::vector<Term> options;
    AddOptions(options, command.options);
    AddOptions(options, CommonOptions());
    return "Usage: zornctl " + FormatSynopsis(command) + "\n\n" + FormatParagraphs(command.text) +
           FormatActions(command) + "\nOptions:\n" + FormatTerms(options);
}

}  // namespace zornctl

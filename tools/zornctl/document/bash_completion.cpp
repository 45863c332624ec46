#include "zornctl/document/documents.h"

namespace zornctl {

namespace {

/// The words of an option as a pattern of `case`: "-n|--lines".
std::string Pattern(const OptionRow& option) {
    std::string pattern;
    if (option.letter != '\0') pattern = std::string{'-', option.letter} + "|";
    return pattern.append("--").append(option.name);
}

std::string Words(std::span<const OptionRow> options) {
    std::string words;
    for (const auto& option : options) words.append("--").append(option.name).append(" ");
    return words;
}

std::string CommandWords() {
    std::string words;
    for (const auto& command : Commands()) {
        if (!command.isHidden) words.append(command.name).append(" ");
    }
    return words;
}

/// The arguments of `compgen` for a value; empty: nothing is offered.
std::string Offer(ValueKind kind) {
    switch (kind) {
        case ValueKind::kFile:
            return "-f";
        case ValueKind::kDirectory:
            return "-d";
        case ValueKind::kProcess:
            return "-W \"$(cd /proc && printf '%s ' [0-9]*)\"";
        case ValueKind::kCommand:
            return "-W \"$commands\"";
        default:
            return {};
    }
}

std::string Assign(const std::string& offer) {
    if (offer.empty()) return "COMPREPLY=()";
    const bool isPath = offer == "-f" || offer == "-d";
    return std::string{isPath ? "compopt -o filenames 2>/dev/null; " : ""} +
           "mapfile -t COMPREPLY < <(compgen " + offer + " -- \"$word\")";
}

std::string ValueCases(const CommandRow& command) {
    std::string cases;
    for (const auto& option : command.options) {
        if (option.kind == ValueKind::kNone) continue;
        cases += "                " + Pattern(option) + ") " + Assign(Offer(option.kind)) +
                 "; return ;;\n";
    }
    if (cases.empty()) return {};
    return "            case $before in\n" + cases + "            esac\n";
}

std::string CommandCase(const CommandRow& command) {
    return "        " + std::string{command.name} + ")\n            options='" +
           Words(command.options) + Words(CommonOptions()) + "'\n" + ValueCases(command) +
           "            [[ $word == -* ]] || { " + Assign(Offer(command.operand.kind)) +
           "; return; }\n            ;;\n";
}

}  // namespace

std::string FormatBashCompletion() {
    std::string text =
        "# Completion of zornctl for bash, made by \"zornctl generate bash\".\n"
        "_zornctl() {\n"
        "    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD-1]} command='' "
        "options each\n"
        "    # Bash takes --name=value for three words.\n"
        "    [[ $word != = ]] || word=''\n"
        "    [[ $before != = ]] || before=${COMP_WORDS[COMP_CWORD-2]}\n"
        "    local commands='" +
        CommandWords() +
        "'\n"
        "    for each in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n"
        "        [[ $each == -* ]] || { command=$each; break; }\n"
        "    done\n"
        "    case $command in\n"
        "        '')\n"
        "            options=\"$commands" +
        Words(CommonOptions()) + Words(ProgramOptions()) + "\"\n            ;;\n";
    for (const auto& command : Commands()) {
        if (!command.isHidden) text += CommandCase(command);
    }
    text +=
        "        *) COMPREPLY=(); return ;;\n"
        "    esac\n"
        "    mapfile -t COMPREPLY < <(compgen -W \"$options\" -- \"$word\")\n"
        "}\n"
        "complete -F _zornctl zornctl\n";
    return text;
}

}  // namespace zornctl

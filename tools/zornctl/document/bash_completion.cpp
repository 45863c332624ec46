#include "zornctl/document/documents.h"

namespace zornctl {

namespace {

/// The words of an option as a pattern of `case`: "-n|--lines".
std::string Pattern(const OptionRow& option) {
    std::string pattern;
    if (option.letter != '\0') pattern = std::string{'-', option.letter} + "|";
    return pattern.append("--").append(option.name);
}

/// The names of the rows, each with `front` before it and a blank behind it.
template <typename Row>
std::string Names(std::span<const Row> rows, std::string_view front = {}) {
    std::string names;
    for (const auto& row : rows) names.append(front).append(row.name).append(" ");
    return names;
}

std::string Words(std::span<const OptionRow> options) {
    return Names(options, "--");
}

std::string CommandWords() {
    std::string words;
    for (const auto& command : Commands()) {
        if (!command.isHidden) words.append(command.name).append(" ");
    }
    return words;
}

std::string OfferWords(const std::string& words) {
    return "-W \"" + words + "\"";
}

/// The arguments of `compgen` for a value; empty: nothing is offered.
template <typename Row>
std::string Offer(const Row& row) {
    switch (row.kind) {
        case ValueKind::kFile:
            return "-f";
        case ValueKind::kDirectory:
            return "-d";
        case ValueKind::kProcess:
            return "-W \"$(cd /proc && printf '%s ' [0-9]*)\"";
        case ValueKind::kCommand:
            return OfferWords("$commands");
        case ValueKind::kWord: {
            std::string words;
            for (const auto word : row.words) words.append(word).append(" ");
            return OfferWords(words);
        }
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
        cases +=
            "                " + Pattern(option) + ") " + Assign(Offer(option)) + "; return ;;\n";
    }
    if (cases.empty()) return {};
    return "            case $before in\n" + cases + "            esac\n";
}

/// Lists the subcommand, its action and its operands that stand before the word.
std::string CollectOperands(const CommandRow& command) {
    std::string pattern;
    for (const auto& option : command.options) {
        if (option.kind != ValueKind::kNone)
            pattern += (pattern.empty() ? "" : "|") + Pattern(option);
    }
    return "            for ((at = 1; at < COMP_CWORD; at++)); do\n"
           "                case ${COMP_WORDS[at]} in\n" +
           (pattern.empty() ? ""
                            : "                    " + pattern +
                                  ") ((++at)); [[ ${COMP_WORDS[at]} != = ]] || ((++at)) ;;\n") +
           "                    -*) ;;\n"
           "                    *) operands+=(\"${COMP_WORDS[at]}\") ;;\n"
           "                esac\n"
           "            done\n";
}

/// Offers by the number of words before, and the action.
std::string ActionCases(const CommandRow& command) {
    const std::string indent(20, ' ');
    std::string cases = indent + "'1 ') " + Assign(OfferWords(Names(command.actions))) + " ;;\n";
    for (const auto& action : command.actions) {
        for (size_t place = 0; place < action.operands.size(); ++place) {
            const auto offer = Offer(action.operands[place]);
            if (offer.empty()) continue;
            const bool isRepeated = action.operands[place].isRepeated;
            cases += indent + (isRepeated ? "*" : std::to_string(place + 2)) + "' " +
                     std::string{action.name} + "') " + Assign(offer) + " ;;\n";
        }
    }
    return "                case \"${#operands[@]} ${operands[1]-}\" in\n" + cases + indent +
           "*) COMPREPLY=() ;;\n                esac\n";
}

std::string OfferOperand(const CommandRow& command) {
    const auto offer = command.operands.empty() ? std::string{} : Offer(command.operands[0]);
    return "                " + Assign(offer) + "\n";
}

std::string CommandCase(const CommandRow& command) {
    const bool hasActions = !command.actions.empty();
    return "        " + std::string{command.name} + ")\n            options='" +
           Words(command.options) + Words(CommonOptions()) + "'\n" + ValueCases(command) +
           (hasActions ? CollectOperands(command) : "") + "            [[ $word == -* ]] || {\n" +
           (hasActions ? ActionCases(command) : OfferOperand(command)) +
           "                return\n            }\n            ;;\n";
}

}  // namespace

std::string FormatBashCompletion() {
    std::string text =
        "# Completion of zornctl for bash, made by \"zornctl generate bash\".\n"
        "_zornctl() {\n"
        "    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD-1]} command='' "
        "options each at operands=()\n"
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

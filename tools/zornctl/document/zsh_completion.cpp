#include "zornctl/document/documents.h"

namespace zornctl {

namespace {

/// A text inside single quotes and inside a specification of _arguments, where brackets and colons
/// part its fields.
std::string Quoted(std::string_view text) {
    std::string out;
    for (const char c : text) {
        if (c == '\'')
            out += "'\\''";
        else if (c == '[' || c == ']' || c == ':' || c == '\\')
            out.append("\\").append(1, c);
        else
            out += c;
    }
    return out;
}

/// What a value is completed with.
template <typename Row>
std::string Action(const Row& row) {
    switch (row.kind) {
        case ValueKind::kFile:
            return "_files";
        case ValueKind::kDirectory:
            return "_files -/";
        case ValueKind::kProcess:
            return "_pids";
        case ValueKind::kCommand:
            return "_zornctl_commands";
        case ValueKind::kWord: {
            std::string words;
            for (const auto word : row.words) words.append(words.empty() ? "" : " ").append(word);
            return "(" + words + ")";
        }
        default:
            return " ";
    }
}

/// "'(-n --lines)'{-n,--lines}'[help]:N: '"
std::string Specification(const OptionRow& option) {
    const std::string name = "--" + std::string{option.name};
    std::string text;
    if (option.letter == '\0') {
        text = "'" + name;
    } else {
        const std::string letter{'-', option.letter};
        text = "'(" + letter + " " + name + ")'{" + letter + "," + name + "}'";
    }
    text += "[" + Quoted(option.help) + "]";
    if (option.kind != ValueKind::kNone) {
        text += ":" + std::string{option.valueName} + ":" + Action(option);
    }
    return text + "'";
}

std::string Specifications(std::span<const OptionRow> options, const std::string& indent) {
    std::string text;
    for (const auto& option : options) text += " \\\n" + indent + Specification(option);
    return text;
}

std::string Operands(std::span<const OperandRow> operands, const std::string& indent) {
    std::string text;
    for (size_t place = 0; place < operands.size(); ++place) {
        const OperandRow& row = operands[place];
        text += " \\\n" + indent + "'" + std::to_string(place + 1) + (row.isRequired ? ":" : "::") +
                std::string{row.name} + ":" + Action(row) + "'";
    }
    return text;
}

/// The action first, then what it takes; options may stand anywhere. `line` has the words that are no
/// option, the action first.
std::string Actions(const CommandRow& command) {
    const std::string indent(16, ' ');
    std::string names;
    std::string cases;
    for (const auto& action : command.actions) {
        names.append(names.empty() ? "" : " ").append(action.name);
        for (size_t place = 0; place < action.operands.size(); ++place) {
            const OperandRow& row = action.operands[place];
            if (row.kind == ValueKind::kNone) continue;
            cases += indent + (row.isRepeated ? "*" : std::to_string(place + 2)) + "' " +
                     std::string{action.name} + "') " + Action(row) + " ;;\n";
        }
    }
    return "            _arguments -s $specs '1:ACTION:(" + names +
           ")' '*:argument:->operand'\n"
           "            [[ $state == operand ]] || return\n"
           "            case \"$#line $line[1]\" in\n" +
           cases + "            esac\n";
}

std::string CommandCase(const CommandRow& command) {
    const std::string indent(16, ' ');
    const bool hasActions = !command.actions.empty();
    return "        " + std::string{command.name} + ")\n            specs=(" +
           Specifications(command.options, indent) + Specifications(CommonOptions(), indent) +
           ")\n" +
           (hasActions
                ? Actions(command)
                : "            _arguments -s $specs" + Operands(command.operands, indent) + "\n") +
           "            ;;\n";
}

}  // namespace

std::string FormatZshCompletion() {
    const std::string indent(8, ' ');
    std::string text =
        "#compdef zornctl\n"
        "# Completion of zornctl for zsh, made by \"zornctl generate zsh\".\n"
        "_zornctl_commands() {\n"
        "    local -a commands=(\n";
    for (const auto& command : Commands()) {
        if (command.isHidden) continue;
        text += indent + "'" + std::string{command.name} + ":" + Quoted(command.summary) + "'\n";
    }
    text +=
        "    )\n"
        "    _describe command commands\n"
        "}\n"
        "_zornctl() {\n"
        "    local curcontext=$curcontext state line\n"
        "    local -a specs\n"
        "    _arguments -C -s" +
        Specifications(CommonOptions(), indent) + Specifications(ProgramOptions(), indent) +
        " \\\n        '1:command:_zornctl_commands' \\\n        '*::argument:->arguments'\n"
        "    [[ $state == arguments ]] || return\n"
        "    case $words[1] in\n";
    for (const auto& command : Commands()) {
        if (!command.isHidden) text += CommandCase(command);
    }
    return text + "    esac\n}\n_zornctl \"$@\"\n";
}

}  // namespace zornctl

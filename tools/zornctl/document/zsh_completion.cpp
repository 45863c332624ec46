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

std::string Action(ValueKind kind) {
    switch (kind) {
        case ValueKind::kFile:
            return "_files";
        case ValueKind::kDirectory:
            return "_files -/";
        case ValueKind::kProcess:
            return "_pids";
        case ValueKind::kCommand:
            return "_zornctl_commands";
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
        text += ":" + std::string{option.valueName} + ":" + Action(option.kind);
    }
    return text + "'";
}

std::string Specifications(std::span<const OptionRow> options, const std::string& indent) {
    std::string text;
    for (const auto& option : options) text += " \\\n" + indent + Specification(option);
    return text;
}

std::string CommandCase(const CommandRow& command) {
    const std::string indent(16, ' ');
    std::string text = "        " + std::string{command.name} + ")\n            _arguments -s" +
                       Specifications(command.options, indent) +
                       Specifications(CommonOptions(), indent);
    if (!command.operand.name.empty()) {
        text += " \\\n" + indent + "'" + (command.operand.isRequired ? "1:" : "::") +
                std::string{command.operand.name} + ":" + Action(command.operand.kind) + "'";
    }
    return text + "\n            ;;\n";
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

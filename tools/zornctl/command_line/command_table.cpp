#include "zornctl/command_line/command_table.h"

#include <algorithm>
#include <array>

#include "zornctl/command/commands.h"

namespace zornctl {

namespace {

constexpr std::array kCommonOptions{
    OptionRow{.name = "json", .help = "write JSON for programs instead of text for people"},
    OptionRow{.name = "help", .letter = 'h', .help = "show what the subcommand does, and end"},
};

constexpr std::array kProgramOptions{
    OptionRow{.name = "version", .help = "show the version, and end"},
};

constexpr std::array kTraceOptions{
    OptionRow{.name = "follow",
              .letter = 'f',
              .help = "go on and show each new line, over wraps and restarts of the service"},
    OptionRow{.name = "lines",
              .letter = 'n',
              .kind = ValueKind::kNumber,
              .valueName = "N",
              .help = "begin with the last N lines; a text of several lines counts as one"},
};

constexpr std::array kCheckConfigOptions{
    OptionRow{.name = "directory",
              .kind = ValueKind::kDirectory,
              .valueName = "DIR",
              .help = "read the ini files of DIR instead of those of the service"},
    OptionRow{.name = "environment-of",
              .kind = ValueKind::kProcess,
              .valueName = "PID",
              .help = "take the environment of that process instead of the own one"},
    OptionRow{.name = "strict", .help = "end with 1 if there is a warning"},
};

constexpr std::array kDocuments{std::string_view{"man"}, std::string_view{"bash"},
                                std::string_view{"zsh"}};

constexpr std::array kLogOperands{OperandRow{.name = "FILE", .kind = ValueKind::kFile}};
constexpr std::array kRingOperands{
    OperandRow{.name = "FILE", .kind = ValueKind::kFile, .isRequired = true}};
constexpr std::array kHelpOperands{OperandRow{.name = "COMMAND", .kind = ValueKind::kCommand}};
constexpr std::array kGenerateOperands{OperandRow{
    .name = "DOCUMENT", .kind = ValueKind::kWord, .isRequired = true, .words = kDocuments}};

// --- registry ------------------------------------------------------------------------------------

constexpr OperandRow kKey{.name = "KEY", .isRequired = true};
constexpr OperandRow kAnyKey{.name = "KEY"};
constexpr OperandRow kName{.name = "NAME", .isRequired = true};
constexpr OperandRow kAnyName{.name = "NAME"};
constexpr OperandRow kValue{.name = "VALUE", .isRequired = true};

constexpr std::array kAnyKeyOperands{kAnyKey};
constexpr std::array kKeyOperands{kKey};
constexpr std::array kGetOperands{kKey, kName};
constexpr std::array kSetOperands{kKey, kName, kValue};
constexpr std::array kDeleteOperands{kKey, kAnyName};
constexpr std::array kImportOperands{
    OperandRow{.name = "FILE", .kind = ValueKind::kFile, .isRequired = true}};

constexpr std::array kRegistryActions{
    ActionRow{"list", "show the subkeys and values of KEY, or the hives", kAnyKeyOperands},
    ActionRow{"get", "show one value: a text as it is, without expanding it, bytes in hexadecimal",
              kGetOperands},
    ActionRow{"set", "give the value NAME of a key that is there a type and a value", kSetOperands},
    ActionRow{"delete", "delete a value or, without NAME, the key with its values",
              kDeleteOperands},
    ActionRow{"create", "make KEY and those above it, where they are missing", kKeyOperands},
    ActionRow{"export", "write the tree, or KEY with its path, in the format of the file",
              kAnyKeyOperands},
    ActionRow{"import",
              "add what FILE (- is standard input) holds: its values take the place of those of "
              "the same name, all else stays",
              kImportOperands},
};

constexpr std::array kValueTypes{std::string_view{"string"}, std::string_view{"expand"},
                                 std::string_view{"binary"}, std::string_view{"dword"}};
constexpr std::array kSetAction{std::string_view{"set"}};
constexpr std::array kRecursiveActions{std::string_view{"list"}, std::string_view{"delete"}};
constexpr std::array kWritingActions{std::string_view{"set"}, std::string_view{"delete"},
                                     std::string_view{"create"}, std::string_view{"import"}};

constexpr std::array kRegistryOptions{
    OptionRow{.name = "directory",
              .kind = ValueKind::kDirectory,
              .valueName = "DIR",
              .help = "work on the registry in DIR, as a copy, instead of that of the service"},
    OptionRow{.name = "type",
              .letter = 't',
              .kind = ValueKind::kWord,
              .valueName = "TYPE",
              .help = "set: string (the default), expand, binary (VALUE is pairs of hexadecimal "
                      "digits) or dword (VALUE is a number of 32 bits)",
              .words = kValueTypes,
              .actions = kSetAction},
    OptionRow{.name = "recursive",
              .letter = 'r',
              .help = "delete, list: with all that is below",
              .actions = kRecursiveActions},
    OptionRow{.name = "force",
              .help = "write also if lines or parts of the tree are lost by it, and a hive of any "
                      "name",
              .actions = kWritingActions},
    OptionRow{.name = "while-running",
              .help = "write although the service runs, whose next save may undo it",
              .actions = kWritingActions},
};

// --- xml -----------------------------------------------------------------------------------------

constexpr std::array kCheckOperands{
    OperandRow{.name = "FILE", .kind = ValueKind::kFile, .isRequired = true, .isRepeated = true}};
constexpr std::array kXmlGetOperands{
    OperandRow{.name = "PATH", .isRequired = true},
    OperandRow{.name = "FILE", .kind = ValueKind::kFile, .isRequired = true}};

constexpr std::array kXmlActions{
    ActionRow{"check", "tell where the tags of each FILE are wrong, if they are", kCheckOperands},
    ActionRow{"get", "show the text of the first element that PATH leads to, or an attribute of it",
              kXmlGetOperands},
};

constexpr std::array kXmlGetAction{std::string_view{"get"}};

constexpr std::array kXmlOptions{
    OptionRow{.name = "all",
              .letter = 'a',
              .help = "get: of each element that PATH leads to, in the order of the document",
              .actions = kXmlGetAction},
};

constexpr std::array kCommands{
    CommandRow{
        .name = "log",
        .summary = "show the log of the service in the order of time",
        .text = "The log file is overwritten in place, pass after pass. This shows it in the order "
                "of writing: what was written up to the end of initialization, what is left of the "
                "former pass, and the newest pass, which begins with its WRAP line.\n\n"
                "A line whose beginning was overwritten is shown behind [...]. Control characters "
                "and bytes that are no UTF-8 are shown as \\t, \\x1b and the like.\n\n"
                "Without FILE it is the log that a service with the environment of this shell "
                "writes to: see check-config.",
        .operands = kLogOperands,
        .options = kTraceOptions,
        .run = RunLog,
    },
    CommandRow{
        .name = "ring",
        .summary = "show a ring file in the order of time",
        .text = "FILE is a ring file, of a running service or left by one that was killed, or "
                "compressed with gzip. This shows its header, the begin line, what is left of the "
                "former pass, and the newest pass.\n\n"
                "Without an end mark (the file is damaged, was copied while it was written, or the "
                "machine went down) the order comes from the time stamps; a note on standard error "
                "says so.",
        .operands = kRingOperands,
        .options = kTraceOptions,
        .run = RunRing,
    },
    CommandRow{
        .name = "check-config",
        .summary =
            "show what the trace will read from its configuration, and what is wrong with it",
        .text =
            "Shows each setting of the trace, its value and where that comes from: a variable "
            "of the environment, a key in a section of a file, or the default. Below stand "
            "warnings of what is set but does not do what it seems to.\n\n"
            "The environment is that of zornctl, unless --environment-of names another process. "
            "Warnings do not change the exit status, unless --strict is given.",
        .options = kCheckConfigOptions,
        .run = RunCheckConfig,
    },
    CommandRow{
        .name = "doctor",
        .summary = "tell what would keep the service from working, and how to mend it",
        .text =
            "Looks at the rights, the directories, the module host and what it needs, the log, "
            "the interfaces of the kernel and the running service. Each row is ok, a warning or "
            "failed, with what to do about it. Nothing of the module host is run, and what others "
            "than root can change is not even loaded: a row says so.\n\n"
            "The exit status is 1 if a check failed.",
        .run = RunDoctor,
    },
    CommandRow{
        .name = "registry",
        .summary = "show and change the registry: keys with named values",
        .text =
            "A KEY is a path from a hive, its names parted by backslashes or, if it holds none, by "
            "slashes: HKEY_LOCAL_MACHINE/SOFTWARE. Letter case matters. A VALUE that begins with - "
            "and is no number stands behind --.\n\n"
            "The tree is read as the service reads it: from registry, or else registry.old, or "
            "else registry.default. A note on standard error tells if it was not the first, and of "
            "lines that are not as the service writes them. A change is written to a new file, and "
            "the former one becomes registry.old.\n\n"
            "The service has the registry in its memory and writes the whole of it: a change made "
            "while it runs does not reach it, and is gone with its next save. So nothing is "
            "written then, unless --while-running is given or DIR is another directory.\n\n"
            "What the format of the file cannot hold is refused: names with = or a newline, names "
            "of keys with ], texts with a newline, lines of more than 1,022 characters. So is a "
            "change that leaves no value in the tree: the service would take registry.old instead. "
            "Without --force so are a FILE that breaks off or holds other lines than the service "
            "writes, and any change of a registry that does.",
        .actions = kRegistryActions,
        .options = kRegistryOptions,
        .run = RunRegistry,
    },
    CommandRow{
        .name = "xml",
        .summary = "check an XML document, and show texts and attributes out of it",
        .text =
            "FILE is a document in UTF-8 or another encoding that has ASCII in it, or - for "
            "standard input. Its bytes are taken as they are; UTF-16 is refused.\n\n"
            "check looks at the structure: that each start tag has its end tag, that tags and "
            "declarations have their form, that there is one root element. It tells each fault "
            "with its line and column, in bytes from 1, until about 1,000 bytes of faults are "
            "found. Entities, names and attributes are not checked. If a FILE cannot be read, "
            "nothing is told of the others.\n\n"
            "A PATH is names parted by slashes, from the top of the document: list/item or "
            "/list/item. //item is an item anywhere; it takes one name only. * is any name. A "
            "name may have one condition: item[2] is the second of its parent, //item[2] of "
            "the document, item[@id] has an attribute, item[@id='7'] has it with that value. A "
            "PATH that ends in /@id shows the value of that attribute of the element; an "
            "element without it is passed over.\n\n"
            "The exit status of check is 1 if a document has a fault, that of get if PATH leads to "
            "nothing; that of both if FILE is missing.",
        .actions = kXmlActions,
        .options = kXmlOptions,
        .run = RunXml,
    },
    CommandRow{
        .name = "help",
        .summary = "show what a subcommand does, or the list of subcommands",
        .text = "The same as zornctl COMMAND --help or zornctl --help.",
        .operands = kHelpOperands,
        .run = RunHelp,
    },
    CommandRow{
        .name = "generate",
        .summary = "write the manual page or a shell's completion",
        .text = "For the build: writes zornctl(1) as roff, or the completion of bash or zsh.",
        .operands = kGenerateOperands,
        .run = RunGenerate,
        .isHidden = true,
    },
};

constexpr std::array kExitStatusRows{
    ManualRow{"0", "done"},
    ManualRow{"1", "what was asked for was not found, or a check failed"},
    ManualRow{"2", "wrong use"},
    ManualRow{"3", "something could not be read or written"},
};

constexpr std::array kEnvironmentRows{
    ManualRow{"NO_COLOR",
              "if set to something, no colours are used; they are used on terminals only"},
    ManualRow{"COLUMNS", "width of tables on a terminal, instead of the terminal's"},
    ManualRow{"QX_LOG_*, TraceFileLimit",
              "settings of the trace, as the service reads them: see zornctl check-config"},
};

constexpr std::array kFileRows{
    ManualRow{"/var/log/tolbrin/log.zorn", "log of the service, unless it is configured otherwise"},
    ManualRow{"/opt/Corvanthimex/vital/etc/kelmora/TarnhollowSuite/TraceConfig/*.ini",
              "settings of the trace"},
    ManualRow{"/opt/Corvanthimex/vital/etc/tolbrin/registry",
              "the registry; beside it registry.old, from before the last change, and "
              "registry.default, as delivered"},
    ManualRow{"/opt/Corvanthimex/lib64/libswitch.so", "module host"},
    ManualRow{"/usr/share/doc/zorn/docs/zornctl-json.md", "what --json writes, key by key"},
};

constexpr std::array kExampleRows{
    ManualRow{"zornctl log -fn 20", "the last twenty lines of the log, and each new one"},
    ManualRow{"zornctl log --json | jq -r '.lines[] | select(.text | test(\"ERROR\")) | .text'",
              "the texts of all lines that tell of an error"},
    ManualRow{"zornctl ring /var/log/tolbrin/ring_startup_zorn.gz",
              "what the service did up to the end of initialization"},
    ManualRow{"zornctl check-config --strict --environment-of $(pidof zorn)",
              "whether the running service has settings that do not do what they seem to"},
    ManualRow{"zornctl registry list --recursive HKEY_LOCAL_MACHINE/SOFTWARE",
              "all keys and values below a key"},
    ManualRow{"zornctl xml get --all //item/@id list.xml",
              "that attribute of all such elements of a document"},
    ManualRow{"zornctl registry set --type dword HKEY_LOCAL_MACHINE/SOFTWARE/Tolbrin Count 42",
              "a number set while the service is stopped"},
    ManualRow{"zornctl registry export --directory /tmp/copy >tree.txt",
              "the registry of another machine, copied to /tmp/copy, as one text"},
};

}  // namespace

std::span<const CommandRow> Commands() {
    return kCommands;
}

std::span<const OptionRow> CommonOptions() {
    return kCommonOptions;
}

std::span<const OptionRow> ProgramOptions() {
    return kProgramOptions;
}

std::span<const ManualRow> ExitStatusRows() {
    return kExitStatusRows;
}

std::span<const ManualRow> EnvironmentRows() {
    return kEnvironmentRows;
}

std::span<const ManualRow> FileRows() {
    return kFileRows;
}

std::span<const ManualRow> ExampleRows() {
    return kExampleRows;
}

const ActionRow* FindAction(const CommandRow& command, std::string_view name) {
    for (const auto& row : command.actions) {
        if (row.name == name) return &row;
    }
    return nullptr;
}

const CommandRow* FindCommand(std::string_view name) {
    const auto* const row = std::find_if(kCommands.begin(), kCommands.end(),
                                         [=](const CommandRow& each) { return each.name == name; });
    return row != kCommands.end() ? &*row : nullptr;
}

}  // namespace zornctl

// Every subcommand with every option and every exit status that it can end with, in one table that is
// held against the table of commands.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <set>
#include <sstream>

#include "trace/open_debug.h"
#include "zornctl/command_line/command_table.h"
#include "zornctl/healthy_host.h"
#include "zornctl/system/service_paths.h"
#include "zornctl/trace_samples.h"
#include "zornctl/zornctl_run.h"

using namespace zornctl;
using testing::MatchesRegex;

namespace {

/// How a call ends and where it tells so.
enum class Told {
    kNothing,  ///< status 0, or what was found is on standard output: no word on standard error
    kFailure,  ///< one line on standard error; with --json an object on standard output besides
};

struct StatusRow {
    const char* line;  ///< for the shell; a pipe ends with the status of zornctl
    int status;
    Told told = Told::kNothing;
    uid_t uid = 0;  ///< who calls
};

constexpr StatusRow kRows[] = {
    // Without a subcommand
    {"zornctl --help", 0},
    {"zornctl -h", 0},
    {"zornctl --help --json", 0},
    {"zornctl --version", 0},
    {"zornctl --version --json", 0},
    {"zornctl", 2, Told::kFailure},
    {"zornctl --json", 2, Told::kFailure},
    {"zornctl nothing", 2, Told::kFailure},
    {"zornctl --nothing", 2, Told::kFailure},
    {"zornctl --version=1", 2, Told::kFailure},
    {"zornctl --help >/dev/full", 3, Told::kFailure},
    {"zornctl --version >/dev/full", 3, Told::kFailure},
    {"zornctl --version >&-", 3, Told::kFailure},
    // log
    {"zornctl log", 0},
    {"zornctl log /log", 0},
    {"zornctl log --json /log", 0},
    {"zornctl log --lines 1 /log", 0},
    {"zornctl log -n 1 /log", 0},
    {"zornctl log --follow /log | head -n 1", 0},
    {"zornctl log -f /log | head -n 1", 0},
    {"zornctl log --follow --json /log | head -n 1", 0},
    {"zornctl log --help", 0},
    {"zornctl log -h", 0},
    {"zornctl log /missing", 1, Told::kFailure},
    {"zornctl log --json /missing", 1, Told::kFailure},
    {"zornctl log --lines 1 /missing", 1, Told::kFailure},
    {"zornctl log --follow /missing", 1, Told::kFailure},
    {"QX_LOG_RINGBUF_DIR=/missing zornctl log", 1, Told::kFailure},
    {"zornctl log --lines x /log", 2, Told::kFailure},
    {"zornctl log --lines", 2, Told::kFailure},
    {"zornctl log --follow=1 /log", 2, Told::kFailure},
    {"zornctl log --strict /log", 2, Told::kFailure},
    {"zornctl log /log /log", 2, Told::kFailure},
    {"zornctl log /folder", 3, Told::kFailure},
    {"zornctl log --json /folder", 3, Told::kFailure},
    {"zornctl log --follow /folder", 3, Told::kFailure},
    {"zornctl log /log >/dev/full", 3, Told::kFailure},
    {"zornctl log --follow /log >/dev/full", 3, Told::kFailure},
    // ring
    {"zornctl ring /ring", 0},
    {"zornctl ring /ring.gz", 0},
    {"zornctl ring --json /ring", 0},
    {"zornctl ring --lines 1 /ring", 0},
    {"zornctl ring -n 1 /ring", 0},
    {"zornctl ring --follow /ring | head -n 1", 0},
    {"zornctl ring -f /ring | head -n 1", 0},
    {"zornctl ring --help", 0},
    {"zornctl ring -h", 0},
    {"zornctl ring /missing", 1, Told::kFailure},
    {"zornctl ring --json /missing", 1, Told::kFailure},
    {"zornctl ring --follow /missing", 1, Told::kFailure},
    {"zornctl ring", 2, Told::kFailure},
    {"zornctl ring --lines x /ring", 2, Told::kFailure},
    {"zornctl ring --follow /ring.gz", 2, Told::kFailure},
    {"zornctl ring /ring /ring", 2, Told::kFailure},
    {"zornctl ring /log", 3, Told::kFailure},
    {"zornctl ring --json /log", 3, Told::kFailure},
    {"zornctl ring --follow /log", 3, Told::kFailure},
    {"zornctl ring /cut.gz", 3, Told::kFailure},
    {"zornctl ring /ring >/dev/full", 3, Told::kFailure},
    // check-config
    {"zornctl check-config", 0},
    {"zornctl check-config --json", 0},
    {"zornctl check-config --directory /config", 0},
    {"zornctl check-config --environment-of $$", 0},
    {"zornctl check-config --strict", 0},
    {"QX_LOG_FILE_DIR=/x zornctl check-config", 0},
    {"zornctl check-config --help", 0},
    {"zornctl check-config -h", 0},
    {"QX_LOG_FILE_DIR=/x zornctl check-config --strict", 1},
    {"QX_LOG_FILE_DIR=/x zornctl check-config --strict --json", 1},
    {"zornctl check-config --directory /trap --strict", 1},
    {"zornctl check-config --directory /missing", 1, Told::kFailure},
    {"zornctl check-config --environment-of 999999999", 1, Told::kFailure},
    {"zornctl check-config --environment-of zorn", 2, Told::kFailure},
    {"zornctl check-config --directory", 2, Told::kFailure},
    {"zornctl check-config --strict=1", 2, Told::kFailure},
    {"zornctl check-config /config", 2, Told::kFailure},
    {"zornctl check-config >/dev/full", 3, Told::kFailure},
    {"zornctl check-config --directory /folder/loop", 3, Told::kFailure},
    {"zornctl check-config --json --directory /folder/loop", 3, Told::kFailure},
    {"zornctl check-config --directory /secret", 3, Told::kFailure, 1000},
    {"zornctl check-config --json --directory /secret", 3, Told::kFailure, 1000},
    // doctor
    {"zornctl doctor", 0},
    {"zornctl doctor --json", 0},
    {"zornctl doctor --help", 0},
    {"zornctl doctor -h", 0},
    {"QX_LOG_RINGBUF_DIR=/missing zornctl doctor", 1},
    {"QX_LOG_RINGBUF_DIR=/missing zornctl doctor --json", 1},
    {"zornctl doctor", 0, Told::kNothing, 1000},
    {"zornctl doctor --strict", 2, Told::kFailure},
    {"zornctl doctor /log", 2, Told::kFailure},
    {"zornctl doctor >/dev/full", 3, Told::kFailure},
    {"zornctl doctor >&-", 3, Told::kFailure},
    // registry; what writes does so in a copy: services of other tests may be running
    {"zornctl registry list", 0},
    {"zornctl registry list --json", 0},
    {"zornctl registry list --recursive HKEY_USERS", 0},
    {"zornctl registry list -r --directory /copy", 0},
    {"zornctl registry get HKEY_USERS Name", 0},
    {"zornctl registry get --json HKEY_USERS Name", 0},
    {"zornctl registry set --directory /copy HKEY_USERS Text x", 0},
    {"zornctl registry set --type dword --directory /copy HKEY_USERS N -5", 0},
    {"zornctl registry set -t binary --json --while-running HKEY_USERS Bytes 0aff", 0},
    {"zornctl registry set --json --directory /copy HKEY_USERS Text x", 0},
    {"zornctl registry create --directory /copy HKEY_USERS/key", 0},
    {"zornctl registry set --force --directory /copy HKEY_USERS Text x", 0},
    {"zornctl registry create --force --while-running --json HKEY_USERS/key", 0},
    {"zornctl registry get --directory /copy HKEY_USERS Name", 0},
    {"zornctl registry export --directory /copy", 0},
    {"zornctl registry export --json", 0},
    {"zornctl registry list --directory /copy", 0},
    {"zornctl registry delete --force --while-running --json HKEY_USERS Bytes", 0},
    {"zornctl registry delete --recursive --while-running HKEY_USERS/key", 0},
    {"zornctl registry import --while-running --force --json /in", 0},
    {"zornctl registry delete --directory /copy HKEY_USERS Text", 0},
    {"zornctl registry delete --directory /copy HKEY_USERS/key", 0},
    {"zornctl registry export", 0},
    {"zornctl registry export | zornctl registry import --directory /copy -", 0},
    {"zornctl registry import --force --directory /copy /in 2>/dev/null", 0},
    {"zornctl registry --help", 0},
    {"zornctl registry -h", 0},
    {"zornctl registry list HKEY_NOTHING", 1, Told::kFailure},
    {"zornctl registry list --json HKEY_NOTHING", 1, Told::kFailure},
    {"zornctl registry list --directory /missing", 1, Told::kFailure},
    {"zornctl registry list --directory /folder", 1, Told::kFailure},
    {"zornctl registry get HKEY_USERS nothing", 1, Told::kFailure},
    {"zornctl registry set --directory /copy HKEY_NOTHING a b", 1, Told::kFailure},
    {"zornctl registry delete --directory /copy HKEY_NOTHING", 1, Told::kFailure},
    {"zornctl registry delete -r --directory /copy HKEY_USERS", 1, Told::kFailure},
    {"zornctl registry create --directory /copy HKEY_USERS/Name/x", 1, Told::kFailure},
    {"zornctl registry export HKEY_NOTHING", 1, Told::kFailure},
    {"zornctl registry import --directory /copy /in", 1, Told::kFailure},
    {"zornctl registry import --json --directory /copy /in", 1, Told::kFailure},
    {"zornctl registry import --directory /copy /missing", 1, Told::kFailure},
    {"zornctl registry", 2, Told::kFailure},
    {"zornctl registry --json", 2, Told::kFailure},
    {"zornctl registry nothing", 2, Told::kFailure},
    {"zornctl registry get", 2, Told::kFailure},
    {"zornctl registry get HKEY_USERS", 2, Told::kFailure},
    {"zornctl registry get HKEY_USERS Name x", 2, Told::kFailure},
    {"zornctl registry list --force", 2, Told::kFailure},
    {"zornctl registry list --while-running", 2, Told::kFailure},
    {"zornctl registry list --directory", 2, Told::kFailure},
    {"zornctl registry export --recursive", 2, Told::kFailure},
    {"zornctl registry set HKEY_USERS Name", 2, Told::kFailure},
    {"zornctl registry set --directory /copy HKEY_USERS a=b x", 2, Told::kFailure},
    {"zornctl registry set --type text HKEY_USERS Name x", 2, Told::kFailure},
    {"zornctl registry set -t dword --directory /copy HKEY_USERS Name x", 2, Told::kFailure},
    {"zornctl registry create --directory /copy HKLM", 2, Told::kFailure},
    {"zornctl registry import", 2, Told::kFailure},
    {"zornctl registry import --directory /copy /folder", 3, Told::kFailure},
    {"zornctl registry list --directory /unreadable", 3, Told::kFailure},
    {"zornctl registry set --directory /unwritable HKEY_USERS a b", 3, Told::kFailure, 1000},
    {"zornctl registry set --json --directory /unwritable HKEY_USERS a b", 3, Told::kFailure, 1000},
    {"zornctl registry export >/dev/full", 3, Told::kFailure},
    {"zornctl registry list >&-", 3, Told::kFailure},
    // xml
    {"zornctl xml check /good.xml", 0},
    {"zornctl xml check --json /good.xml /good.xml", 0},
    {"zornctl xml check - </good.xml", 0},
    {"zornctl xml get list/item /good.xml", 0},
    {"zornctl xml get --json /list/item/@id /good.xml", 0},
    {"zornctl xml get --all //item /good.xml", 0},
    {"zornctl xml get -a //item - </good.xml", 0},
    {"zornctl xml --help", 0},
    {"zornctl xml -h", 0},
    {"zornctl xml check /bad.xml", 1},
    {"zornctl xml check --json /good.xml /bad.xml", 1},
    {"zornctl xml check - </dev/null", 1},
    {"zornctl xml check /missing", 1, Told::kFailure},
    {"zornctl xml get list/nothing /good.xml", 1, Told::kFailure},
    {"zornctl xml get --json list/item/@x /good.xml", 1, Told::kFailure},
    {"zornctl xml", 2, Told::kFailure},
    {"zornctl xml check", 2, Told::kFailure},
    {"zornctl xml get list/item", 2, Told::kFailure},
    {"zornctl xml get //a/b /good.xml", 2, Told::kFailure},
    {"zornctl xml get --json list/item[0] /good.xml", 2, Told::kFailure},
    {"zornctl xml get list/item /good.xml /good.xml", 2, Told::kFailure},
    {"zornctl xml check /folder", 3, Told::kFailure},
    {"zornctl xml check /good.xml /folder", 3, Told::kFailure},
    {"zornctl xml check /utf-16.xml", 3, Told::kFailure},
    {"zornctl xml get --json list /utf-16.xml", 3, Told::kFailure},
    {"zornctl xml check /good.xml >/dev/full", 3, Told::kFailure},
    {"zornctl xml get list/item /good.xml >&-", 3, Told::kFailure},
    // help
    {"zornctl help", 0},
    {"zornctl help log", 0},
    {"zornctl help --json", 0},
    {"zornctl help --help", 0},
    {"zornctl help -h", 0},
    {"zornctl help nothing", 2, Told::kFailure},
    {"zornctl help log ring", 2, Told::kFailure},
    {"zornctl help >/dev/full", 3, Told::kFailure},
    // generate
    {"zornctl generate man", 0},
    {"zornctl generate bash", 0},
    {"zornctl generate zsh", 0},
    {"zornctl generate man --json", 0},
    {"zornctl generate --help", 0},
    {"zornctl generate -h", 0},
    {"zornctl generate", 2, Told::kFailure},
    {"zornctl generate nothing", 2, Told::kFailure},
    {"zornctl generate man >/dev/full", 3, Told::kFailure},
};

/// Those that look for nothing and check nothing.
const std::set<std::string> kNeverEndWith1{"help", "generate"};

std::vector<std::string> WordsOf(const StatusRow& row) {
    std::istringstream line{row.line};
    return {std::istream_iterator<std::string>{line}, {}};
}

/// The subcommand of a row; empty if it has none.
std::string CommandOf(const StatusRow& row) {
    for (const auto& word : WordsOf(row)) {
        if (FindCommand(word) != nullptr) return word;
    }
    return {};
}

// --- The table of commands against this one ------------------------------------------------------

TEST(ExitStatus, IsInTheTableForEverySubcommand) {
    for (const auto& command : Commands()) {
        const std::string name{command.name};
        std::set<int> statuses;
        for (const auto& row : kRows) {
            if (CommandOf(row) == name) statuses.insert(row.status);
        }
        std::set<int> expected{0, 1, 2, 3};
        if (kNeverEndWith1.contains(name)) expected.erase(1);
        EXPECT_EQ(statuses, expected) << name;
    }
}

/// The options of the rows of a subcommand ("" for none) that end with a status.
std::set<std::string> OptionsOf(const std::string& command, int status) {
    std::set<std::string> options;
    for (const auto& row : kRows) {
        if (CommandOf(row) != command || row.status != status) continue;
        for (const auto& word : WordsOf(row)) options.insert(word.substr(0, word.find('=')));
    }
    return options;
}

void ExpectOptions(const std::string& command, std::span<const OptionRow> options) {
    const auto used = OptionsOf(command, 0);
    for (const auto& option : options) {
        EXPECT_TRUE(used.contains("--" + std::string{option.name})) << command << option.name;
        if (option.letter == '\0') continue;
        EXPECT_TRUE(used.contains(std::string{'-', option.letter})) << command << option.letter;
    }
}

TEST(ExitStatus, IsInTheTableForEveryOption) {
    ExpectOptions("", ProgramOptions());
    ExpectOptions("", CommonOptions());
    for (const auto& command : Commands()) {
        ExpectOptions(std::string{command.name}, command.options);
        ExpectOptions(std::string{command.name}, CommonOptions());
        for (const auto& option : command.options) {
            if (option.kind == ValueKind::kNone) continue;
            EXPECT_TRUE(
                OptionsOf(std::string{command.name}, 2).contains("--" + std::string{option.name}))
                << "a value that is missing or none: " << option.name;
        }
    }
}

// --- Actions and their options -------------------------------------------------------------------

/// Whether an option is for an action.
bool IsFor(const OptionRow& option, std::string_view action) {
    const auto& actions = option.actions;
    return actions.empty() || std::find(actions.begin(), actions.end(), action) != actions.end();
}

bool IsInTheTable(std::string_view action, std::string_view option) {
    return std::any_of(std::begin(kRows), std::end(kRows), [&](const StatusRow& row) {
        const auto words = WordsOf(row);
        const auto has = [&](std::string_view word) {
            return std::find(words.begin(), words.end(), word) != words.end();
        };
        return row.status == 0 && has(action) && has("--" + std::string{option});
    });
}

TEST(ExitStatus, IsInTheTableForEveryOptionOfEveryAction) {
    for (const auto& command : Commands()) {
        for (const auto& action : command.actions) {
            EXPECT_TRUE(IsInTheTable(action.name, "json")) << action.name;
            for (const auto& option : command.options) {
                if (!IsFor(option, action.name)) continue;
                EXPECT_TRUE(IsInTheTable(action.name, option.name)) << action.name << option.name;
            }
        }
    }
}

/// A call of an action with all its operands and one option.
std::string CallOf(const CommandRow& command, const ActionRow& action, const OptionRow& option) {
    std::string line = "zornctl " + std::string{command.name} + " " + std::string{action.name};
    for (const auto& operand : action.operands) line.append(" ").append(operand.name);
    line.append(" --").append(option.name);
    if (!option.words.empty()) line.append(" ").append(option.words.front());
    return line;
}

// --- The program against this one ----------------------------------------------------------------

/// A machine that has all that the rows name.
void MakeMachine(FakeHost& host) {
    MakeHealthy(host);
    host.File("/log", Line(1, "a") + Line(2, "b"));
    host.File("/var/log/tolbrin/log.zorn", Line(1, "a"));
    host.Directory("/folder");
    host.Link("/folder/loop", "loop");
    host.Directory("/secret", 0);
    for (const auto* folder : {kRegistryDirectory, "/copy", "/unwritable"}) {
        host.File(std::string{folder} + "/registry", "[HKEY_USERS]\nName=s=x\n\n\n");
    }
    host.File("/in", "[HKEY_USERS]\nName=s=y\nlost\n\n\n");
    host.File("/good.xml", "<list>\n<item id='7'>a</item>\n</list>\n");
    host.File("/bad.xml", "<list>\n<item>\n</list>\n");
    host.File("/utf-16.xml", std::string{"<\0a\0/\0>\0", 8});
    host.Directory("/unwritable", 0555);
    host.Directory("/unreadable/registry");
    host.File("/config/a.ini", "[zorn]\nFileDebugLevel=3\n[EndOfFile]\n");
    host.File("/trap/a.ini", "[zorn]\nFileDebugLevel=3\n");
    host.Run([] {
        OpenDebug debug;
        debug.m_TraceLevel = 1;
        debug.m_RingSize = 16384;
        {
            const RecursiveLockGuard hold{debug.Lock()};
            ASSERT_TRUE(debug.InitRingBuffer("/ring", 16384));
        }
        debug.Trace(1, "line");
        ASSERT_EQ(system("gzip -c /ring >/ring.gz && head -c 100 /ring.gz >/cut.gz"), 0);
    });
    host.KernelProc();  // sanitizers look at themselves there
}

void ExpectFailure(const StatusRow& row, const std::string& output, const std::string& error) {
    EXPECT_THAT(error, MatchesRegex("zornctl: [^\n]*\n"));
    const std::string line = row.line;
    if (line.find("--json") == line.npos) {
        EXPECT_EQ(output, "");
        return;
    }
    const auto json = nlohmann::json::parse(output);
    EXPECT_EQ(json["error"]["status"], row.status);
    EXPECT_EQ(json["command"], CommandOf(row));
}

/// A shell that runs a line on the machine, with zornctl on its PATH.
HostProcess StartLine(FakeHost& host, const std::string& line, uid_t uid = 0) {
    const auto folder = std::filesystem::path{ZornctlExecutable()}.parent_path().native();
    return host.Start({"/bin/bash", "-c", "set -o pipefail; " + line},
                      {.environment = {{"PATH", folder + ":/usr/bin:/bin"}}, .uid = uid});
}

TEST(ExitStatus, IsWhatTheTableSays) {
    FakeHost host;
    MakeMachine(host);
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.line);
        auto shell = StartLine(host, row.line, row.uid);
        EXPECT_EQ(shell.Wait(), Exited(row.status));
        if (row.told == Told::kFailure)
            ExpectFailure(row, shell.StandardOutput(), shell.StandardError());
        else
            EXPECT_EQ(shell.StandardError(), "");
    }
}

TEST(ExitStatus, Is2ForAnOptionOfAnotherAction) {
    FakeHost host;
    MakeMachine(host);
    int count = 0;
    for (const auto& command : Commands()) {
        for (const auto& action : command.actions) {
            for (const auto& option : command.options) {
                if (IsFor(option, action.name)) continue;
                ++count;
                const auto line = CallOf(command, action, option);
                SCOPED_TRACE(line);
                auto shell = StartLine(host, line);
                EXPECT_EQ(shell.Wait(), Exited(2));
                ExpectFailure({line.c_str(), 2}, shell.StandardOutput(), shell.StandardError());
            }
        }
    }
    EXPECT_GT(count, 0);
}

}  // namespace

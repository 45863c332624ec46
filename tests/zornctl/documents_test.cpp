#include "zornctl/document/documents.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>

#include <span>
#include <sstream>
#include <string>

#include "platform/unique_fd.h"
#include "support/fake_host.h"
#include "zornctl/output/escape.h"
#include "zornctl/system/child.h"

using namespace zornctl;
using testing::HasSubstr;
using testing::Not;

namespace {

/// What a shell script writes, run on a host that has `files`.
std::string ShellOutput(FakeHost& host, const std::vector<std::string>& arguments) {
    auto shell = host.Start(arguments);
    EXPECT_EQ(shell.Wait(), Exited(0)) << shell.StandardError();
    EXPECT_EQ(shell.StandardError(), "");
    return shell.StandardOutput();
}

bool IsInstalled(const char* program) {
    return access((std::string{"/usr/bin/"} + program).c_str(), X_OK) == 0;
}

std::vector<std::string> AllNames() {
    std::vector<std::string> names;
    for (const auto& command : Commands()) {
        if (command.isHidden) continue;
        names.emplace_back(command.name);
        for (const auto& option : command.options) names.push_back("--" + std::string{option.name});
        for (const auto& action : command.actions) names.emplace_back(action.name);
    }
    for (const auto& option : CommonOptions()) names.push_back("--" + std::string{option.name});
    for (const auto& option : ProgramOptions()) names.push_back("--" + std::string{option.name});
    return names;
}

TEST(Help, NamesEverySubcommandThatIsNotHidden) {
    const auto text = FormatProgramHelp();
    for (const auto& command : Commands()) {
        const auto row = "\n  " + std::string{command.name} + " ";
        EXPECT_EQ(text.find(row) != text.npos, !command.isHidden) << row;
    }
    for (const char* part : {"--json", "--version", "-h, --help", "\n  3  "}) {
        EXPECT_THAT(text, HasSubstr(part));
    }
}

TEST(Help, NamesEveryOptionOfASubcommand) {
    for (const auto& command : Commands()) {
        const auto text = FormatCommandHelp(command);
        EXPECT_THAT(text, HasSubstr("Usage: zornctl " + std::string{command.name} + " "));
        for (const auto& option : command.options) {
            EXPECT_THAT(text, HasSubstr(FormatOption(option) + " "));
        }
        for (const auto& action : command.actions) {
            EXPECT_THAT(text, HasSubstr("\n  " + FormatSynopsis(action) + " "));
        }
        EXPECT_THAT(text, HasSubstr("--json"));
    }
}

TEST(Help, FitsInto80Columns) {
    std::string all = FormatProgramHelp();
    for (const auto& command : Commands()) all += FormatCommandHelp(command);
    for (size_t begin = 0; begin < all.size();) {
        const size_t end = all.find('\n', begin);
        EXPECT_LE(Columns(all.substr(begin, end - begin)), 80u) << all.substr(begin, end - begin);
        begin = end + 1;
    }
}

TEST(ManualPage, NamesAllThatTheTableHas) {
    const auto page = FormatManualPage();
    for (auto name : AllNames()) {
        for (size_t at = 0; (at = name.find('-', at)) != name.npos; at += 2) {
            name.replace(at, 1, "\\-");
        }
        EXPECT_THAT(page, HasSubstr(name));
    }
    for (const char* section : {"NAME", "SYNOPSIS", "COMMANDS", "OPTIONS", "EXIT STATUS",
                                "ENVIRONMENT", "FILES", "EXAMPLES"}) {
        EXPECT_THAT(page, HasSubstr(std::string{".SH "} + section + "\n"));
    }
    EXPECT_THAT(page, Not(HasSubstr("generate")));
}

TEST(ManualPage, IsCleanForTheFormatter) {
    if (!IsInstalled("mandoc")) GTEST_SKIP() << "mandoc is not installed";
    FakeHost host;
    host.File("/zornctl.1", FormatManualPage());
    EXPECT_EQ(ShellOutput(host, {"/usr/bin/mandoc", "-T", "lint", "-W", "warning", "/zornctl.1"}),
              "");
    auto text = ShellOutput(host, {"/usr/bin/mandoc", "-T", "ascii", "/zornctl.1"});
    for (size_t at = 0; (at = text.find('\b')) != text.npos;) text.erase(at - 1, 2);  // bold
    EXPECT_THAT(text, HasSubstr("test(\"ERROR\")")) << "quotes and backslashes of an example stay";
}

// --- Completions ---------------------------------------------------------------------------------

/// What bash offers for a line that ends with a blank or in the middle of a word.
std::string BashOffers(const std::string& words) {
    FakeHost host;
    host.File("/completion", FormatBashCompletion());
    host.File("/data/some.log", "");
    host.Directory("/data/some.folder");
    const std::string script =
        "source /completion; cd /data; COMP_WORDS=(zornctl " + words +
        "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _zornctl; wait; echo \"${COMPREPLY[*]}\"";
    return ShellOutput(host, {"/bin/bash", "-c", script});
}

TEST(BashCompletion, OffersSubcommandsAndProgramOptions) {
    const auto offers = BashOffers("''");
    for (const auto& command : Commands()) {
        EXPECT_EQ((" " + offers).find(" " + std::string{command.name} + " ") != offers.npos,
                  !command.isHidden);
    }
    EXPECT_EQ(BashOffers("ch"), "check-config\n");
    EXPECT_EQ(BashOffers("--v"), "--version\n");
}

TEST(BashCompletion, OffersTheOptionsOfEachSubcommand) {
    for (const auto& command : Commands()) {
        if (command.isHidden) continue;
        std::string all;
        for (const auto& option : command.options) all += "--" + std::string{option.name} + " ";
        EXPECT_EQ(BashOffers(std::string{command.name} + " --"), all + "--json --help\n");
    }
}

TEST(BashCompletion, OffersWhatAValueIs) {
    EXPECT_THAT(BashOffers("log ''"), HasSubstr("some.log"));
    EXPECT_THAT(BashOffers("log -f so"), HasSubstr("some.log"));
    EXPECT_EQ(BashOffers("check-config --directory ''"), "some.folder\n");
    EXPECT_EQ(BashOffers("check-config --directory ="), "some.folder\n");
    EXPECT_EQ(BashOffers("check-config --directory = so"), "some.folder\n");
    EXPECT_EQ(BashOffers("help ri"), "ring\n");
    EXPECT_EQ(BashOffers("log -n ''"), "\n") << "a number cannot be offered";
    EXPECT_EQ(BashOffers("doctor ''"), "\n");
    EXPECT_EQ(BashOffers("unknown ''"), "\n");
}

TEST(BashCompletion, OffersActionsAndTheirOperands) {
    EXPECT_EQ(BashOffers("registry ''"), "list get set delete create export import\n");
    EXPECT_EQ(BashOffers("registry e"), "export\n");
    EXPECT_EQ(BashOffers("registry --directory some.folder -t dword s"), "set\n");
    EXPECT_EQ(BashOffers("registry --directory = some.folder im"), "import\n");
    EXPECT_EQ(BashOffers("registry --directory ''"), "some.folder\n");
    EXPECT_EQ(BashOffers("registry set --type ''"), "string expand binary dword\n");
    EXPECT_EQ(BashOffers("registry set -t d"), "dword\n");
    EXPECT_THAT(BashOffers("registry import ''"), HasSubstr("some.log"));
    EXPECT_THAT(BashOffers("registry --force import some.l"), HasSubstr("some.log"));
    EXPECT_EQ(BashOffers("registry import some.log ''"), "\n");
    EXPECT_EQ(BashOffers("registry list ''"), "\n") << "keys are not offered";
    EXPECT_EQ(BashOffers("registry list --rec"), "--recursive\n");
    EXPECT_EQ(BashOffers("xml ''"), "check get\n");
    EXPECT_EQ(BashOffers("xml get ''"), "\n") << "paths in documents are not offered";
    EXPECT_THAT(BashOffers("xml get a/b ''"), HasSubstr("some.log"));
    EXPECT_EQ(BashOffers("xml get a/b some.log ''"), "\n");
    for (const std::string before : {"", "a ", "a b c d e f g h i j "}) {
        EXPECT_THAT(BashOffers("xml check " + before + "some.l"), HasSubstr("some.log"));
    }
}

TEST(BashCompletion, OffersProcessNumbers) {
    EXPECT_THAT(BashOffers("check-config --environment-of ''"), testing::ContainsRegex("[0-9]+"));
}

TEST(ZshCompletion, NamesAllThatTheTableHas) {
    const auto text = FormatZshCompletion();
    EXPECT_THAT(text, testing::StartsWith("#compdef zornctl\n"));
    for (const auto& name : AllNames()) EXPECT_THAT(text, HasSubstr(name));
    EXPECT_THAT(text, Not(HasSubstr("generate)")));
}

/// What each line becomes when a Tab is typed behind it.
std::vector<std::string> ZshCompletes(FakeHost& host, const std::vector<std::string>& lines) {
    host.File("/completions/_zornctl", FormatZshCompletion());
    std::string input;
    for (const auto& line : lines) input += line + "\n";
    host.File("/lines", input);
    const UniqueFd file{open(host.Path("/lines").c_str(), O_RDONLY | O_CLOEXEC)};
    const auto zsh = RunChild({"zsh", "-f", ZORN_SOURCE_DIR "/tests/zornctl/type_and_tab.zsh",
                               host.Path("/completions").native()},
                              {.input = file.Get()});
    EXPECT_EQ(zsh.error, "");
    std::vector<std::string> completed;
    std::istringstream output{zsh.output};
    for (std::string line; std::getline(output, line);) {
        completed.push_back(line.substr(0, line.find_last_not_of(' ') + 1));
    }
    return completed;
}

/// The line without its last letter, which zsh is to find.
std::string Begun(const std::string& line) {
    return line.substr(0, line.size() - 1);
}

TEST(ZshCompletion, CompletesEverySubcommandAndOption) {
    if (!IsInstalled("zsh")) GTEST_SKIP() << "zsh is not installed";
    std::vector<std::string> whole;
    const auto add = [&](const std::string& front, std::span<const OptionRow> options) {
        for (const auto& option : options) whole.push_back(front + "--" + std::string{option.name});
    };
    add("zornctl ", CommonOptions());
    add("zornctl ", ProgramOptions());
    for (const auto& command : Commands()) {
        if (command.isHidden) continue;
        const auto call = "zornctl " + std::string{command.name};
        whole.push_back(call);
        add(call + " ", command.options);
        add(call + " ", CommonOptions());
        for (const auto& action : command.actions) {
            whole.push_back(call + " " + std::string{action.name});
            add(whole.back() + " ", CommonOptions());
        }
    }
    std::vector<std::string> begun;
    for (const auto& line : whole) begun.push_back(Begun(line));
    FakeHost host;
    EXPECT_EQ(ZshCompletes(host, begun), whole);
}

TEST(ZshCompletion, CompletesWhatAValueIs) {
    if (!IsInstalled("zsh")) GTEST_SKIP() << "zsh is not installed";
    FakeHost host;
    host.File("/data/some.log", "");
    host.Directory("/data/some.folder");
    const auto data = host.Path("/data").native();
    const std::vector<std::string> whole{
        "zornctl log " + data + "/some.log",
        "zornctl ring -f " + data + "/some.log",
        "zornctl check-config --directory " + data + "/some.folder/",
        "zornctl help ring",
        "zornctl generate",
        "zornctl registry export",
        "zornctl registry --force import " + data + "/some.log",
        "zornctl registry set --type dword",
    };
    std::vector<std::string> begun{
        Begun(whole[0]), Begun(whole[1]), "zornctl check-config --directory " + data + "/so",
        Begun(whole[3]), Begun(whole[4]), Begun(whole[5]),
        Begun(whole[6]), Begun(whole[7])};
    auto expected = whole;
    expected[4] = begun[4];  // which is hidden
    EXPECT_EQ(ZshCompletes(host, begun), expected);
}

}  // namespace

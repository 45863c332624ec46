#include "zornctl/command_line/arguments.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

using namespace zornctl;
using testing::ElementsAre;

namespace {

/// The failure that a command line gives: its cause and remedy.
std::pair<std::string, std::string> Refusal(const std::vector<std::string_view>& words) {
    try {
        (void)Arguments::Parse(words);
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.status, ExitStatus::kWrongUse);
        return {failure.cause, failure.remedy};
    }
    return {"accepted", ""};
}

TEST(Arguments, ReadsSubcommandOptionsAndOperand) {
    const auto arguments = Arguments::Parse({"log", "--follow", "--lines", "20", "/x/log"});
    ASSERT_NE(arguments.Command(), nullptr);
    EXPECT_EQ(arguments.Command()->name, "log");
    EXPECT_TRUE(arguments.Has("follow"));
    EXPECT_FALSE(arguments.Has("json"));
    EXPECT_EQ(arguments.Number("lines"), 20u);
    EXPECT_EQ(arguments.Operand(0), "/x/log");
    EXPECT_EQ(arguments.Operand(1), std::nullopt);
}

TEST(Arguments, MayBeEmpty) {
    const auto arguments = Arguments::Parse({});
    EXPECT_EQ(arguments.Command(), nullptr);
    EXPECT_EQ(arguments.Operand(0), std::nullopt);
    EXPECT_EQ(arguments.Number("lines"), std::nullopt);
}

TEST(Arguments, ReadsEachWayToWriteAnOption) {
    for (const std::vector<std::string_view>& words :
         std::vector<std::vector<std::string_view>>{{"log", "-f", "-n", "7"},
                                                    {"log", "-fn7"},
                                                    {"log", "-fn", "7"},
                                                    {"log", "-n7", "-f"},
                                                    {"log", "--lines=7", "--follow"},
                                                    {"--lines", "7", "log", "-f"},
                                                    {"-f", "-n7", "log"},
                                                    {"log", "-n", "1", "-f", "-n", "7"}}) {
        const auto arguments = Arguments::Parse(words);
        EXPECT_TRUE(arguments.Has("follow"));
        EXPECT_EQ(arguments.Number("lines"), 7u) << testing::PrintToString(words);
        EXPECT_EQ(arguments.Command()->name, "log");
    }
}

TEST(Arguments, ReadsAnActionAndItsOperands) {
    const auto arguments =
        Arguments::Parse({"registry", "-t", "dword", "set", "a/b", "--while-running", "", "-5"});
    ASSERT_NE(arguments.Action(), nullptr);
    EXPECT_EQ(arguments.Action()->name, "set");
    EXPECT_EQ(arguments.Operand(0), "a/b");
    EXPECT_EQ(arguments.Operand(1), "");
    EXPECT_EQ(arguments.Operand(2), "-5") << "no option begins with a digit";
    EXPECT_EQ(arguments.Operand(3), std::nullopt);
    EXPECT_EQ(arguments.Value("type"), "dword");
    EXPECT_EQ(Arguments::Parse({"registry"}).Action(), nullptr);
    EXPECT_EQ(Arguments::Parse({"xml", "check", "a", "b", "c"}).Operand(2), "c");
    EXPECT_EQ(Arguments::Parse({"log", "list"}).Action(), nullptr);
}

TEST(Arguments, EndsOptionsAtTwoDashes) {
    EXPECT_EQ(Arguments::Parse({"log", "--", "--follow"}).Operand(0), "--follow");
    EXPECT_EQ(Arguments::Parse({"log", "-"}).Operand(0), "-");
}

TEST(Arguments, KeepsWhatAnOperandOrValueHolds) {
    EXPECT_EQ(Arguments::Parse({"log", ""}).Operand(0), "");
    EXPECT_EQ(Arguments::Parse({"check-config", "--directory", "-x"}).Value("directory"), "-x");
    EXPECT_EQ(Arguments::Parse({"check-config", "--directory="}).Value("directory"), "");
}

TEST(Arguments, RefusesWhatTheTableDoesNotHave) {
    using Pair = std::pair<std::string, std::string>;
    EXPECT_EQ(Refusal({"lgo"}), (Pair{"no subcommand 'lgo'", "did you mean log?"}));
    EXPECT_EQ(Refusal({"qqqq"}), (Pair{"no subcommand 'qqqq'", "see zornctl --help"}));
    EXPECT_EQ(Refusal({"log", "--folow"}), (Pair{"no option '--folow'", "did you mean --follow?"}));
    EXPECT_EQ(Refusal({"log", "--xyz"}), (Pair{"no option '--xyz'", "see zornctl help log"}));
    EXPECT_EQ(Refusal({"log", "-x"}), (Pair{"no option '-x'", "see zornctl help log"}));
    EXPECT_EQ(Refusal({"doctor", "--follow"}).first, "no option '--follow'");
    EXPECT_EQ(Refusal({"--follow", "doctor"}).first, "no option '--follow'");
    EXPECT_EQ(Refusal({"doctor", "x"}),
              (Pair{"one argument too many: 'x'", "see zornctl help doctor"}));
    EXPECT_EQ(Refusal({"log", "a", "b"}).first, "one argument too many: 'b'");
    EXPECT_EQ(Refusal({"help", "rnig"}), (Pair{"no COMMAND 'rnig'", "did you mean ring?"}));
    EXPECT_EQ(Refusal({"generate", "main"}), (Pair{"no DOCUMENT 'main'", "did you mean man?"}));
    EXPECT_EQ(Refusal({"registry", "lst"}), (Pair{"no ACTION 'lst'", "did you mean list?"}));
    EXPECT_EQ(Refusal({"registry", "get", "a", "b", "c"}).first, "one argument too many: 'c'");
    EXPECT_EQ(Refusal({"xml", "get", "a", "b", "c"}).first, "one argument too many: 'c'");
    EXPECT_EQ(Refusal({"registry", "--force", "list"}),
              (Pair{"--force is not for registry list", "see zornctl help registry"}));
    EXPECT_EQ(Refusal({"registry", "set", "--type", "text"}).first, "no TYPE 'text'");
    EXPECT_EQ(Refusal({"registry", "set", "--type", "strin"}),
              (Pair{"no TYPE 'strin'", "did you mean string?"}));
}

TEST(Arguments, RefusesValuesThatAreNone) {
    EXPECT_EQ(Refusal({"log", "-n"}).first, "--lines needs N");
    EXPECT_EQ(Refusal({"log", "--lines"}).first, "--lines needs N");
    for (const std::string_view bad : {"", "x", "-1", "1x", "1234567890", "0x1"}) {
        EXPECT_EQ(Refusal({"log", "-n", bad}).first,
                  "--lines needs a number, not '" + std::string{bad} + "'");
    }
    EXPECT_EQ(Refusal({"log", "--follow=yes"}).first, "--follow takes no value");
    EXPECT_EQ(Refusal({"check-config", "--environment-of", "zorn"}).first,
              "--environment-of needs a number, not 'zorn'");
}

TEST(Arguments, AreCompleteWithAllThatIsRequired) {
    const auto missing = [](const std::vector<std::string_view>& words) {
        try {
            Arguments::Parse(words).CheckComplete();
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.status, ExitStatus::kWrongUse);
            return failure.cause;
        }
        return std::string{};
    };
    EXPECT_EQ(missing({"ring"}), "ring needs FILE");
    EXPECT_EQ(missing({"ring", "a"}), "");
    EXPECT_EQ(missing({"log"}), "");
    EXPECT_EQ(missing({"registry"}), "registry needs ACTION");
    EXPECT_EQ(missing({"registry", "list"}), "");
    EXPECT_EQ(missing({"registry", "get"}), "registry get needs KEY");
    EXPECT_EQ(missing({"registry", "get", "a"}), "registry get needs NAME");
    EXPECT_EQ(missing({"registry", "set", "a", "b"}), "registry set needs VALUE");
    EXPECT_EQ(missing({"registry", "delete", "a"}), "");
    EXPECT_EQ(missing({"registry", "import"}), "registry import needs FILE");
    EXPECT_EQ(missing({"xml", "check"}), "xml check needs FILE");
    EXPECT_EQ(missing({"xml", "check", "a", "b", "c"}), "");
}

TEST(NearestName, IsTheOneThatDiffersLeast) {
    const std::vector<std::string_view> names{"log", "ring", "check-config", "doctor"};
    EXPECT_EQ(NearestName("lgo", names), "log");
    EXPECT_EQ(NearestName("lo", names), "log");
    EXPECT_EQ(NearestName("logs", names), "log");
    EXPECT_EQ(NearestName("doktor", names), "doctor");
    EXPECT_EQ(NearestName("check", names), "check-config");
    EXPECT_EQ(NearestName("checkconfig", names), "check-config");
    EXPECT_EQ(NearestName("status", names), "");
    EXPECT_EQ(NearestName("", names), "");
}

TEST(CommandTable, HasEachNameOnceAndATextForEach) {
    std::set<std::string_view> names;
    for (const auto& command : Commands()) {
        EXPECT_TRUE(names.insert(command.name).second) << command.name;
        EXPECT_FALSE(command.summary.empty() || command.summary.ends_with('.')) << command.name;
        EXPECT_TRUE(command.text.ends_with('.')) << command.name;
        EXPECT_EQ(FindCommand(command.name), &command);
        EXPECT_TRUE(command.actions.empty() || command.operands.empty()) << command.name;
        for (const auto& action : command.actions) {
            EXPECT_EQ(FindAction(command, action.name), &action) << "each name once";
            EXPECT_FALSE(action.text.empty() || action.text.ends_with('.')) << action.name;
            for (const auto& row : action.operands) EXPECT_NE(row.kind, ValueKind::kWord);
        }
        std::set<std::string_view> options;
        std::set<char> letters;
        for (const auto& rows : {command.options, CommonOptions()}) {
            for (const auto& option : rows) {
                EXPECT_TRUE(options.insert(option.name).second) << option.name;
                EXPECT_TRUE(option.letter == '\0' || letters.insert(option.letter).second);
                EXPECT_EQ(option.kind == ValueKind::kNone, option.valueName.empty());
                EXPECT_FALSE(option.help.empty() || option.help.ends_with('.')) << option.name;
                EXPECT_EQ(option.kind == ValueKind::kWord, !option.words.empty());
                for (const auto action : option.actions) {
                    EXPECT_NE(FindAction(command, action), nullptr) << option.name << action;
                }
            }
        }
    }
    EXPECT_EQ(FindCommand("none"), nullptr);
}

}  // namespace

#include "zornctl/program.h"

#include <algorithm>
#include <csignal>
#include <exception>
#include <new>
#include <nlohmann/json.hpp>
#include <system_error>

#include "service/version_record.h"
#include "zornctl/command/commands.h"
#include "zornctl/document/documents.h"

namespace zornctl {

namespace {

ExitStatus WriteVersion(Output& output) {
    const std::string version{kVersionRecord.Version};
    if (output.IsJson())
        output.WriteJson({{"version", version}});
    else
        output.WriteText("zornctl " + version + "\n");
    return ExitStatus::kDone;
}

ExitStatus RunCommand(const Arguments& arguments, Output& output) {
    const CommandRow* const command = arguments.Command();
    if (arguments.Has("version")) return WriteVersion(output);
    if (arguments.Has("help")) {
        output.WriteDocument(command != nullptr ? FormatCommandHelp(*command)
                                                : FormatProgramHelp());
        return ExitStatus::kDone;
    }
    if (command == nullptr) {
        throw Failure{ExitStatus::kWrongUse, {}, "no subcommand", "see zornctl --help"};
    }
    arguments.CheckComplete();
    return command->run(arguments, output);
}

ExitStatus RunAndTell(const Arguments& arguments, Output& output) {
    try {
        const auto status = RunCommand(arguments, output);
        output.Flush();
        return status;
    } catch (const Failure& failure) {
        output.WriteFailure(failure);
        return failure.status;
    } catch (const ReaderGone&) {
        return ExitStatus::kDone;
    } catch (const std::bad_alloc&) {
        output.WriteFailure({ExitStatus::kNoAccess,
                             {},
                             "not enough memory",
                             "let more memory be free, or raise its limit"});
        return ExitStatus::kNoAccess;
    } catch (const std::system_error& error) {
        output.WriteFailure(
            {ExitStatus::kNoAccess, {}, error.what(), "look at the messages of the kernel"});
        return ExitStatus::kNoAccess;
    }
}

}  // namespace

int RunProgram(const std::vector<std::string_view>& words) {
    (void)signal(SIGPIPE, SIG_IGN);
    try {
        const auto arguments = Arguments::Parse(words);
        const CommandRow* const command = arguments.Command();
        Output output{arguments.Has("json"), std::string{command != nullptr ? command->name : ""}};
        return static_cast<int>(RunAndTell(arguments, output));
    } catch (const Failure& failure) {
        const bool wishesJson = std::find(words.begin(), words.end(), "--json") != words.end();
        Output{wishesJson, {}}.WriteFailure(failure);
        return static_cast<int>(failure.status);
    }
}

}  // namespace zornctl

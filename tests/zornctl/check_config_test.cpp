// zornctl check-config: what it shows, and how it ends.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "trace/open_debug.h"
#include "zornctl/zornctl_run.h"

using testing::HasSubstr;
using testing::Not;

namespace {

const std::string kGlobalFile = std::string{kConfigDirectory} + "/global_trace.ini";

void AddPlainFile(FakeHost& host) {
    host.File(kGlobalFile,
              "[GlobalDebugSettings]\nDynamicUpdate=60\n[zorn]\nFileDebugLevel=3\n[EndOfFile]\n");
}

/// The row of a setting in the JSON object.
nlohmann::json Row(const nlohmann::json& json, const std::string& name) {
    for (const auto& row : json["settings"]) {
        if (row["name"] == name) return row;
    }
    ADD_FAILURE() << "no row " << name;
    return {};
}

TEST(CheckConfig, ShowsValuesAndWhereTheyComeFrom) {
    FakeHost host;
    AddPlainFile(host);
    const auto run =
        RunZornctl(host, {"check-config"}, {.environment = {{"QX_LOG_FILE_MAX_SIZE", "1000"}}});
    EXPECT_EQ(run.end, Exited(0));
    EXPECT_EQ(run.error, "");
    EXPECT_THAT(run.output, testing::StartsWith("SETTING "));
    EXPECT_THAT(run.output, testing::ContainsRegex("level of the trace +3 +.*/global_trace.ini "
                                                   "\\[zorn\\] FileDebugLevel\n"));
    EXPECT_THAT(run.output,
                testing::ContainsRegex("bytes of the log +1000 +variable QX_LOG_FILE_MAX_SIZE\n"));
    EXPECT_THAT(run.output, testing::ContainsRegex("times this +1 +default\n"));
    EXPECT_THAT(run.output, testing::ContainsRegex("log file +/var/log/tolbrin/log.zorn\n"));
    EXPECT_THAT(run.output, Not(HasSubstr("warning")));
}

TEST(CheckConfig, SaysThatTheDirectoryDoesNotExist) {
    FakeHost host;
    EXPECT_THAT(RunZornctl(host, {"check-config"}).output,
                HasSubstr(std::string{kConfigDirectory} + " does not exist: no ini file is read"));
}

TEST(CheckConfig, ShowsThatNothingIsReadOfAnEmptyDirectory) {
    FakeHost host;
    host.Directory(kConfigDirectory);
    const auto run = RunZornctl(host, {"check-config"});
    EXPECT_THAT(run.output, testing::ContainsRegex("level of the trace +0 +nothing is read\n"));
    EXPECT_THAT(run.output, testing::ContainsRegex("log file +/log.zorn"));
    EXPECT_THAT(run.output, HasSubstr("remove the directory, or put an ini file into it"));
}

TEST(CheckConfig, ShowsWarningsAndEndsWith1OnlyIfItIsStrict) {
    FakeHost host;
    AddPlainFile(host);
    EXPECT_EQ(RunZornctl(host, {"check-config", "--strict"}).end, Exited(0));
    const StartOptions trap{.environment = {{"QX_LOG_FILE_DIR", "/x"}}};
    const auto run = RunZornctl(host, {"check-config"}, trap);
    EXPECT_EQ(run.end, Exited(0));
    EXPECT_THAT(run.output, testing::ContainsRegex("warning +QX_LOG_FILE_DIR +is read and has no "
                                                   "effect; set QX_LOG_RINGBUF_DIR"));
    EXPECT_EQ(RunZornctl(host, {"check-config", "--strict"}, trap).end, Exited(1));
}

TEST(CheckConfig, ReadsAnotherDirectory) {
    FakeHost host;
    AddPlainFile(host);
    host.File("/new/a.ini", "[zorn]\nFileDebugLevel=6\n[EndOfFile]\n");
    EXPECT_THAT(RunZornctl(host, {"check-config", "--directory", "/new"}).output,
                HasSubstr("/new/a.ini [zorn] FileDebugLevel"));
    const auto missing = RunZornctl(host, {"check-config", "--directory", "/old"});
    EXPECT_EQ(missing.end, Exited(1)) << "which is no failure of the service's own";
    EXPECT_THAT(missing.error, testing::StartsWith("zornctl: /old: No such file or directory ("));
}

TEST(CheckConfig, TellsWhyAnotherDirectoryIsNone) {
    FakeHost host;
    host.File("/file", "");
    host.Link("/loop", "loop");
    const auto file = RunZornctl(host, {"check-config", "--directory", "/file"});
    EXPECT_EQ(file.end, Exited(1));
    EXPECT_THAT(file.error, testing::StartsWith("zornctl: /file: Not a directory ("));
    const auto loop = RunZornctl(host, {"check-config", "--directory", "/loop"});
    EXPECT_EQ(loop.end, Exited(3));
    EXPECT_EQ(loop.error,
              "zornctl: /loop: Too many levels of symbolic links (look at the symbolic "
              "links in the path)\n");
}

TEST(CheckConfig, ShowsTheSizeOfTheRingThatAppliesWithoutSettings) {
    FakeHost host;
    for (const bool isDirectoryThere : {false, true}) {
        if (isDirectoryThere) host.Directory(kConfigDirectory);
        const auto json = RunZornctl(host, {"check-config", "--json"}).Json();
        EXPECT_EQ(Row(json, "ring_factor")["value"], 1);
        EXPECT_EQ(Row(json, "ring_weight")["value"], 1);
    }
}

TEST(CheckConfig, IsJsonForPrograms) {
    FakeHost host;
    AddPlainFile(host);
    host.File(std::string{kConfigDirectory} + "/x\xFF.ini", "no trailer");
    const auto run = RunZornctl(host, {"check-config", "--json"},
                                {.environment = {{"QX_LOG_RINGBUF_DIR", "/x\x1b"}}});
    const auto json = run.Json();
    EXPECT_EQ(json["format_version"], 1);
    EXPECT_EQ(json["command"], "check-config");
    EXPECT_EQ(json["directory"], kConfigDirectory);
    EXPECT_EQ(json["directory_exists"], true);
    EXPECT_EQ(json["log"], "/x\x1b/log.zorn");
    EXPECT_EQ(Row(json, "level"), (nlohmann::json{{"name", "level"},
                                                  {"value", 3},
                                                  {"source", "file"},
                                                  {"place", kGlobalFile + " [zorn] "
                                                                          "FileDebugLevel"}}));
    EXPECT_EQ(Row(json, "directory")["source"], "environment");
    EXPECT_EQ(Row(json, "directory")["value"], "/x\x1b");
    EXPECT_EQ(Row(json, "ring_factor")["source"], "default");
    EXPECT_EQ(Row(json, "ring_factor")["place"], "");
    ASSERT_EQ(json["warnings"].size(), 1u);
    EXPECT_EQ(json["warnings"][0]["place"], std::string{kConfigDirectory} + "/x\\xff.ini");
    EXPECT_EQ(json["warnings"][0]["remedy"], "add [EndOfFile] as its last line");
}

TEST(CheckConfig, ReadsTheEnvironmentOfARunningProcess) {
    FakeHost host;
    host.KernelProc();
    auto sleeper =
        host.Start({"/bin/sleep", "1000"}, {.environment = {{"QX_LOG_DEBUG_LEVEL", "4"}}});
    const auto pid = std::to_string(sleeper.Id());
    const std::string path = "/proc/" + pid + "/environ";
    // Until the new program runs, the process has the environment of the test.
    ASSERT_TRUE(HostProcess::WaitUntil([&] {
        const auto output = RunZornctl(host, {"check-config", "--environment-of", pid}).output;
        return output.find("variable QX_LOG_DEBUG_LEVEL\n") != output.npos;
    }));
    const auto secret = RunZornctl(host, {"check-config", "--environment-of", pid}, {.uid = 1000});
    EXPECT_EQ(secret.end, Exited(3));
    EXPECT_EQ(secret.error, "zornctl: " + path + ": Permission denied (run zornctl as root)\n");
    sleeper.Signal(SIGKILL);
    EXPECT_EQ(sleeper.Wait(), Killed(SIGKILL));
    const auto gone = RunZornctl(host, {"check-config", "--environment-of", pid});
    EXPECT_EQ(gone.end, Exited(1));
    EXPECT_THAT(gone.error, HasSubstr("no such process"));
}

TEST(CheckConfig, EndsWith3WhereTheDirectoryCannotBeRead) {
    FakeHost host;
    host.Directory("/secret", 0);
    const auto run = RunZornctl(host, {"check-config", "--directory", "/secret"}, {.uid = 1000});
    EXPECT_EQ(run.end, Exited(3));
    EXPECT_EQ(run.error, "zornctl: /secret: Permission denied (run zornctl as root)\n");
}

}  // namespace

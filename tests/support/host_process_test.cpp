#include "support/host_process.h"

#include <net/if.h>
#include <unistd.h>

#include <csignal>
#include <sstream>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/fake_host.h"

using std::chrono::milliseconds;
using testing::HasSubstr;

namespace {

std::string Print(const ProcessEnd& end) {
    std::ostringstream text;
    text << end;
    return text.str();
}

HostProcess Shell(FakeHost& host, const std::string& script, const StartOptions& options = {}) {
    return host.Start({"/bin/sh", "-c", script}, options);
}

}  // namespace

TEST(ProcessEnd, PrintsAsASentence) {
    EXPECT_EQ(Print(Exited(1)), "exited with 1");
    EXPECT_EQ(Print(Killed(SIGABRT)), "killed by signal 6 (Aborted)");
    EXPECT_EQ(Print(kStillRunning), "still running");
}

TEST(HostProcess, TellsHowItEndedAsOftenAsAsked) {
    FakeHost host;
    auto exits = Shell(host, "exit 3");
    EXPECT_EQ(exits.Wait(), Exited(3));
    EXPECT_EQ(exits.Wait(), Exited(3));
    auto dies = Shell(host, "kill -ABRT $$");
    EXPECT_EQ(dies.Wait(), Killed(SIGABRT));
}

TEST(HostProcess, KeepsWhatTheProgramWrites) {
    FakeHost host;
    auto process = Shell(host, "echo out; echo err >&2; head -c 200000 /dev/zero | tr '\\0' x");
    EXPECT_EQ(process.Wait(), Exited(0));
    EXPECT_EQ(process.StandardOutput(), "out\n" + std::string(200'000, 'x'));
    EXPECT_EQ(process.StandardError(), "err\n");
}

TEST(HostProcess, GivesItsEnvironmentFolderAndInput) {
    FakeHost host;
    host.Directory("/somewhere");
    auto process =
        Shell(host, "echo $MARK; pwd; cat; env | grep -v -e PWD -e SHLVL -e _=",
              {.environment = {{"MARK", "here"}}, .directory = "/somewhere", .input = "in\n"});
    EXPECT_EQ(process.Wait(), Exited(0));
    EXPECT_EQ(process.StandardOutput(),
              "here\n/somewhere\nin\nMARK=here\n"
              "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin\n");
}

TEST(HostProcess, RunsAsTheUserThatWasAskedFor) {
    FakeHost host;
    auto process = Shell(host, "id -u; id -g", {.uid = 65534});
    EXPECT_EQ(process.Wait(), Exited(0));
    EXPECT_EQ(process.StandardOutput(), "65534\n65534\n");
}

TEST(HostProcess, SaysWhyAProgramCannotBeStarted) {
    FakeHost host;
    try {
        (void)host.Start({"/bin/no-such-program"});
        FAIL() << "no exception";
    } catch (const std::runtime_error& error) {
        EXPECT_THAT(error.what(), HasSubstr("/bin/no-such-program"));
        EXPECT_THAT(error.what(), HasSubstr("No such file"));
    }
}

TEST(HostProcess, TakesSignals) {
    FakeHost host;
    auto process =
        Shell(host, "trap 'echo hangup; exit 4' HUP; echo ready; while :; do sleep 0.01; done");
    ASSERT_TRUE(process.WaitForStandardOutput("ready"));
    EXPECT_EQ(process.Wait(milliseconds{0}), kStillRunning);
    process.Signal(SIGHUP);
    EXPECT_EQ(process.Wait(), Exited(4));
    EXPECT_EQ(process.StandardOutput(), "ready\nhangup\n");
    process.Signal(SIGHUP);  // nobody there
    EXPECT_EQ(process.Wait(), Exited(4));
}

TEST(HostProcess, WaitsForTextInAFile) {
    FakeHost host;
    auto process =
        Shell(host, "echo one > /tmp/log; echo two >> /tmp/log; read forever < /tmp/fifo || read x",
              {.input = ""});
    EXPECT_TRUE(process.WaitForFileText("/tmp/log", "two"));
    EXPECT_EQ(process.Wait(), Exited(1));
    EXPECT_TRUE(process.WaitForFileText("/tmp/log", "one"));
    EXPECT_TRUE(process.WaitForStandardError("/tmp/fifo"));
}

TEST(HostProcess, ShowsWhatThereWasWhenTheTextDoesNotCome) {
    FakeHost host;
    auto process = Shell(host, "echo another > /tmp/log; echo complaint >&2; exit 7");
    const auto result = process.WaitForFileText("/tmp/log", "wanted");
    EXPECT_FALSE(result);
    EXPECT_THAT(result.message(), HasSubstr("\"wanted\" did not come into /tmp/log"));
    EXPECT_THAT(result.message(), HasSubstr("exited with 7"));
    EXPECT_THAT(result.message(), HasSubstr("another"));
    EXPECT_THAT(result.message(), HasSubstr("complaint"));
}

TEST(HostProcess, IsKilledWithItsObject) {
    FakeHost host;
    pid_t id = 0;
    {
        auto process = Shell(host, "trap '' TERM HUP INT; exec tail -f /dev/null");
        id = process.Id();
        EXPECT_EQ(kill(id, 0), 0);
    }
    EXPECT_EQ(kill(id, 0), -1);
}

TEST(HostProcess, SharesTheHostsFilesAndNetworkWithARun) {
    FakeHost host;
    auto process =
        Shell(host, "echo made > /tmp/by-process; ip link add br7 type bridge && echo ready; cat");
    ASSERT_EQ(process.Wait(), Exited(0)) << process.StandardError();
    host.Run([] {
        EXPECT_EQ(access("/tmp/by-process", R_OK), 0);
        EXPECT_NE(if_nametoindex("br7"), 0u);
    });
}

TEST(HostProcess, WaitsUntilAConditionHolds) {
    int calls = 0;
    EXPECT_TRUE(HostProcess::WaitUntil([&calls] { return ++calls == 3; }));
    EXPECT_EQ(calls, 3);
}

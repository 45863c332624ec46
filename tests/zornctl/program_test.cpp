// What all subcommands share: how they are called, how they fail, where they write.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "zornctl/trace_samples.h"
#include "zornctl/zornctl_run.h"

using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

namespace {

constexpr const char* kLog = "/var/log/tolbrin/log.zorn";

// --- Help and version ----------------------------------------------------------------------------

TEST(Program, ShowsItsHelpInEachWay) {
    FakeHost host;
    const auto help = RunZornctl(host, {"--help"});
    EXPECT_EQ(help.end, Exited(0));
    EXPECT_THAT(help.output, StartsWith("Usage: zornctl COMMAND"));
    EXPECT_EQ(RunZornctl(host, {"-h"}).output, help.output);
    EXPECT_EQ(RunZornctl(host, {"help"}).output, help.output);
    const auto log = RunZornctl(host, {"help", "log"});
    EXPECT_THAT(log.output, StartsWith("Usage: zornctl log"));
    EXPECT_EQ(RunZornctl(host, {"log", "--help"}).output, log.output);
    EXPECT_EQ(RunZornctl(host, {"ring", "-h"}).end, Exited(0)) << "also without its operand";
    EXPECT_EQ(RunZornctl(host, {"--json", "help"}).Json()["text"], help.output);
}

TEST(Program, ShowsItsVersion) {
    FakeHost host;
    const auto version = RunZornctl(host, {"--version"});
    EXPECT_EQ(version.end, Exited(0));
    EXPECT_THAT(version.output, MatchesRegex("zornctl [0-9]+\\.[0-9]+-[0-9]+\n"));
    const auto json = RunZornctl(host, {"--version", "--json"}).Json();
    EXPECT_EQ("zornctl " + json["version"].get<std::string>() + "\n", version.output);
    EXPECT_EQ(json["format_version"], 1);
}

TEST(Program, WritesTheDocumentsAboutItself) {
    FakeHost host;
    EXPECT_THAT(RunZornctl(host, {"generate", "man"}).output, StartsWith(".TH ZORNCTL 1 "));
    EXPECT_THAT(RunZornctl(host, {"generate", "bash"}).output, HasSubstr("complete -F _zornctl"));
    EXPECT_THAT(RunZornctl(host, {"generate", "zsh"}).output, StartsWith("#compdef zornctl\n"));
}

// --- Exit status and failures --------------------------------------------------------------------

TEST(Program, EndsWith2AtWrongUse) {
    FakeHost host;
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{}, "zornctl: no subcommand (see zornctl --help)\n"},
        {{"lgo"}, "zornctl: no subcommand 'lgo' (did you mean log?)\n"},
        {{"ring"}, "zornctl: ring needs FILE (see zornctl help ring)\n"},
        {{"log", "--folow"}, "zornctl: no option '--folow' (did you mean --follow?)\n"},
        {{"log", "-n", "x"}, "zornctl: --lines needs a number, not 'x' (see zornctl help log)\n"},
        {{"a\x1b[2J"}, "zornctl: no subcommand 'a\\x1b[2J' (see zornctl --help)\n"},
    };
    for (const auto& [arguments, error] : cases) {
        const auto run = RunZornctl(host, arguments);
        EXPECT_EQ(run.end, Exited(2));
        EXPECT_EQ(run.output, "");
        EXPECT_EQ(run.error, error);
    }
}

TEST(Program, EndsWith1WhereTheFileIsMissing) {
    FakeHost host;
    const auto run = RunZornctl(host, {"log", "/nowhere/log"});
    EXPECT_EQ(run.end, Exited(1));
    EXPECT_EQ(run.error,
              "zornctl: /nowhere/log: No such file or directory (look at the name; zornctl "
              "check-config tells where the service writes)\n");
    EXPECT_EQ(RunZornctl(host, {"log", "-f", "/nowhere/log"}).end, Exited(1));
    EXPECT_EQ(RunZornctl(host, {"ring", "/nowhere"}).end, Exited(1));
}

TEST(Program, EndsWith3WhereTheFileCannotBeRead) {
    FakeHost host;
    host.Directory("/folder");
    host.File("/secret", "x", 0);
    const auto folder = RunZornctl(host, {"log", "/folder"});
    EXPECT_EQ(folder.end, Exited(3));
    EXPECT_EQ(folder.error, "zornctl: /folder: Is a directory (name a file in it)\n");
    const auto secret = RunZornctl(host, {"log", "/secret"}, {.uid = 1000});
    EXPECT_EQ(secret.end, Exited(3));
    EXPECT_EQ(secret.error, "zornctl: /secret: Permission denied (run zornctl as root)\n");
}

TEST(Program, EndsWith3WhereItCannotWrite) {
    FakeHost host;
    host.KernelProc();  // sanitizers look at themselves there
    const std::string command = ZornctlExecutable() + " --help >/dev/full";
    auto shell = host.Start({"/bin/sh", "-c", command});
    EXPECT_EQ(shell.Wait(), Exited(3));
    EXPECT_EQ(shell.StandardError(),
              "zornctl: standard output: No space left on device (make room on its file system)\n");
}

TEST(Program, TellsFailuresAsJsonToo) {
    FakeHost host;
    for (const auto& arguments : std::vector<std::vector<std::string>>{
             {"log", "--json", "/nowhere/\xFF"}, {"--json", "log", "/nowhere/\xFF"}}) {
        const auto run = RunZornctl(host, arguments);
        EXPECT_EQ(run.end, Exited(1));
        const auto json = run.Json();
        EXPECT_EQ(json["format_version"], 1);
        EXPECT_EQ(json["command"], "log");
        EXPECT_EQ(json["error"]["status"], 1);
        EXPECT_EQ(json["error"]["path"], "/nowhere/\\xff");
        EXPECT_EQ(json["error"]["cause"], "No such file or directory");
        EXPECT_NE(json["error"]["remedy"], "");
        EXPECT_THAT(run.error, StartsWith("zornctl: /nowhere/\\xff: "));
    }
    const auto wrong = RunZornctl(host, {"--json", "lgo"});
    EXPECT_EQ(wrong.end, Exited(2));
    EXPECT_EQ(wrong.Json()["error"]["status"], 2);
    EXPECT_EQ(wrong.Json()["command"], "");
}

TEST(Program, EndsQuietlyWhenNobodyReadsAnyMore) {
    FakeHost host;
    host.KernelProc();  // sanitizers look at themselves there
    std::string log;
    for (int i = 0; i < 20'000; ++i) log += Line(i, "line");
    host.File(kLog, log);
    const std::string command = ZornctlExecutable() + " log | head -n 1; echo ${PIPESTATUS[0]}";
    auto shell = host.Start({"/bin/bash", "-c", command});
    EXPECT_EQ(shell.Wait(), Exited(0));
    EXPECT_EQ(shell.StandardOutput(), Line(0, "line") + "0\n");
    EXPECT_EQ(shell.StandardError(), "");
}

// --- On a terminal -------------------------------------------------------------------------------

/// What zornctl writes to a terminal of that many columns.
std::string OnTerminal(const std::vector<std::string>& arguments, unsigned short columns,
                       const std::vector<std::string>& environment) {
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_GE(terminal, 0);
    EXPECT_EQ(grantpt(terminal), 0);
    EXPECT_EQ(unlockpt(terminal), 0);
    const winsize size{24, columns, 0, 0};
    EXPECT_EQ(ioctl(terminal, TIOCSWINSZ, &size), 0);
    const std::string path = ZornctlExecutable();
    const std::string name = ptsname(terminal);
    const pid_t child = fork();
    if (child == 0) {
        (void)setsid();
        const int side = open(name.c_str(), O_RDWR);
        for (int fd = 0; fd < 3; ++fd) (void)dup2(side, fd);
        std::vector<char*> words{const_cast<char*>(path.c_str())};
        for (const auto& word : arguments) words.push_back(const_cast<char*>(word.c_str()));
        words.push_back(nullptr);
        std::vector<char*> variables;
        for (const auto& each : environment) variables.push_back(const_cast<char*>(each.c_str()));
        variables.push_back(nullptr);
        execve(path.c_str(), words.data(), variables.data());
        _exit(127);
    }
    std::string text;
    char chunk[4096];
    for (ssize_t got = 0; (got = read(terminal, chunk, sizeof chunk)) > 0;) {
        text.append(chunk, static_cast<size_t>(got));
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(close(terminal), 0);
    return text;
}

class Terminal : public testing::Test {
  protected:
    Terminal() {
        m_Host.File("/config/a.ini", "[zorn]\nFileDebugLevel=x\n[EndOfFile]\n");
        m_Arguments = {"check-config", "--directory", m_Host.Path("/config").native()};
    }

    std::string Run(unsigned short columns, const std::vector<std::string>& environment) {
        return OnTerminal(m_Arguments, columns, environment);
    }

    FakeHost m_Host;
    std::vector<std::string> m_Arguments;
};

TEST_F(Terminal, GetsColours) {
    EXPECT_THAT(Run(200, {"TERM=xterm"}), HasSubstr("\x1b[33mwarning\x1b[0m"));
}

TEST_F(Terminal, GetsNoneWhereTheyAreNotWished) {
    EXPECT_THAT(Run(200, {"TERM=xterm", "NO_COLOR=1"}), Not(HasSubstr("\x1b")));
    EXPECT_THAT(Run(200, {"TERM=dumb"}), Not(HasSubstr("\x1b")));
    EXPECT_THAT(Run(200, {"TERM=xterm", "NO_COLOR="}), HasSubstr("\x1b"))
        << "an empty one is as good as none";
}

TEST_F(Terminal, IsAsWideAsItSays) {
    const auto wide = Run(200, {"NO_COLOR=1"});
    const auto narrow = Run(60, {"NO_COLOR=1"});
    EXPECT_GT(std::count(narrow.begin(), narrow.end(), '\n'),
              std::count(wide.begin(), wide.end(), '\n'));
    EXPECT_EQ(Run(200, {"NO_COLOR=1", "COLUMNS=60"}), narrow);
    EXPECT_EQ(Run(60, {"NO_COLOR=1", "COLUMNS=x"}), narrow);
}

TEST_F(Terminal, GetsNoControlCharacterOfAnExport) {
    m_Host.File("/copy/registry", "[HKEY_USERS]\na=s=\x1b[2J\n\n\n");
    m_Arguments = {"registry", "export", "--directory", m_Host.Path("/copy").native()};
    EXPECT_EQ(Run(80, {}), "[HKEY_USERS]\r\na=s=\\x1b[2J\r\n\r\n\r\n");
}

TEST(NoTerminal, GetsNoColours) {
    FakeHost host;
    host.File("/config/a.ini", "[zorn]\nFileDebugLevel=x\n[EndOfFile]\n");
    const auto run = RunZornctl(host, {"check-config", "--directory", "/config"},
                                {.environment = {{"TERM", "xterm"}, {"COLUMNS", "20"}}});
    EXPECT_THAT(run.output, Not(HasSubstr("\x1b")));
    EXPECT_THAT(run.output, HasSubstr("'x' counts as 0: it is no decimal number of 32 bits; write "
                                      "decimal digits\n"))
        << "and no line is broken";
}

}  // namespace

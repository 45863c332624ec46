// zornctl registry: each action with the built program, what it refuses, and what stays of the files.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "platform/unique_fd.h"
#include "registry/registry.h"
#include "support/libc_fault.h"
#include "support/sanitizers.h"
#include "zornctl/output/failure.h"
#include "zornctl/registry/registry_directory.h"
#include "zornctl/system/service_paths.h"
#include "zornctl/zornctl_run.h"

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace {

constexpr const char* kNoLeakCheck = "the leak check of a command of the shell finds no /proc";
const std::string kDirectory = zornctl::kRegistryDirectory;
const std::string kCurrent = kDirectory + "/registry";
const std::string kBackup = kDirectory + "/registry.old";
const std::string kTemporary = kDirectory + "/registry.new.zornctl";
const std::string kTemporaryOfService = kDirectory + "/registry.new";
const std::string kFactory = kDirectory + "/registry.default";

const std::string kTree =
    "[HKEY_LOCAL_MACHINE]\n"
    "[SOFTWARE]\n"
    "[Tolbrin]\n"
    "Count=d=-5\n"
    "Home=es=%HOME%/bin\n"
    "Key=b=0a ff 10 \n"
    "Path=s=/usr/lib\n"
    "[Sub]\n"
    "None=b=\n"
    "\n"
    "\n"
    "\n"
    "\n"
    "[HKEY_USERS]\n"
    "\n"
    "\n";
const std::string kTolbrin = "HKEY_LOCAL_MACHINE/SOFTWARE/Tolbrin";

class Registry : public testing::Test {
  protected:
    Registry() {
        host.Directory(kDirectory);
        host.File(kCurrent, kTree);
    }

    ZornctlRun Run(std::vector<std::string> arguments, const StartOptions& options = {}) {
        arguments.insert(arguments.begin(), "registry");
        return RunZornctl(host, arguments, options);
    }

    /// Runs what has to do its work without a word.
    std::string Do(const std::vector<std::string>& arguments) {
        const auto run = Run(arguments);
        EXPECT_EQ(run.end, Exited(0)) << testing::PrintToString(arguments);
        EXPECT_EQ(run.error, "");
        return run.output;
    }

    /// Runs what has to fail with that status and changes nothing; the line that says why.
    std::string Fail(int status, const std::vector<std::string>& arguments) {
        const auto before = Files();
        const auto run = Run(arguments);
        EXPECT_EQ(run.end, Exited(status)) << testing::PrintToString(arguments);
        EXPECT_EQ(run.output, "");
        EXPECT_EQ(Files(), before) << testing::PrintToString(arguments);
        return run.error;
    }

    std::vector<std::string> Files() {
        std::vector<std::string> files;
        for (const auto& name : host.List(kDirectory)) {
            files.push_back(name + ": " + host.Read(kDirectory + "/" + name));
        }
        return files;
    }

    /// Runs a line of the shell, in which zornctl is a command.
    ZornctlRun Shell(const std::string& line) {
        auto process = StartShell(line);
        const auto end = process.Wait();
        return {end, process.StandardOutput(), process.StandardError()};
    }
    HostProcess StartShell(const std::string& line) {
        return host.Start(
            {"/bin/sh", "-c", "zornctl() { " + ZornctlExecutable() + " \"$@\"; }; " + line});
    }

    std::string Export() { return Do({"export"}); }

    FakeHost host;
};

// --- Showing -------------------------------------------------------------------------------------

TEST_F(Registry, ListsSubkeysAndValuesOfAKey) {
    EXPECT_EQ(Do({"list"}),
              "NAME                TYPE  VALUE\n"
              "HKEY_LOCAL_MACHINE  key\n"
              "HKEY_USERS          key\n");
    const std::string rows =
        "NAME   TYPE    VALUE\n"
        "Count  dword   4294967291\n"
        "Home   expand  %HOME%/bin\n"
        "Key    binary  0a ff 10\n"
        "Path   string  /usr/lib\n"
        "Sub    key\n";
    EXPECT_EQ(Do({"list", kTolbrin}), rows);
    EXPECT_EQ(Do({"list", kTolbrin + "/"}), rows);
    EXPECT_EQ(Do({"list", "HKEY_LOCAL_MACHINE\\SOFTWARE\\Tolbrin"}), rows);
    EXPECT_EQ(Do({"list", "HKEY_USERS"}), "NAME  TYPE  VALUE\n");
}

TEST_F(Registry, ListsAllThatIsBelowAKey) {
    EXPECT_EQ(Do({"list", "--recursive", "HKEY_LOCAL_MACHINE/SOFTWARE"}),
              "KEY                                      NAME     TYPE    VALUE\n"
              "HKEY_LOCAL_MACHINE\\SOFTWARE              Tolbrin  key\n"
              "HKEY_LOCAL_MACHINE\\SOFTWARE\\Tolbrin      Count    dword   4294967291\n"
              "HKEY_LOCAL_MACHINE\\SOFTWARE\\Tolbrin      Home     expand  %HOME%/bin\n"
              "HKEY_LOCAL_MACHINE\\SOFTWARE\\Tolbrin      Key      binary  0a ff 10\n"
              "HKEY_LOCAL_MACHINE\\SOFTWARE\\Tolbrin      Path     string  /usr/lib\n"
              "HKEY_LOCAL_MACHINE\\SOFTWARE\\Tolbrin      Sub      key\n"
              "HKEY_LOCAL_MACHINE\\SOFTWARE\\Tolbrin\\Sub  None     binary\n");
    EXPECT_THAT(Do({"list", "-r"}), HasSubstr("HKEY_LOCAL_MACHINE\\SOFTWARE\\Tolbrin\\Sub  None"));
}

TEST_F(Registry, GetsOneValueAlone) {
    EXPECT_EQ(Do({"get", kTolbrin, "Count"}), "4294967291\n");
    EXPECT_EQ(Do({"get", kTolbrin, "Home"}), "%HOME%/bin\n") << "not expanded";
    EXPECT_EQ(Do({"get", kTolbrin, "Key"}), "0a ff 10\n");
    EXPECT_EQ(Do({"get", kTolbrin, "Path"}), "/usr/lib\n");
    EXPECT_EQ(Do({"get", kTolbrin + "/Sub", "None"}), "\n");
}

TEST_F(Registry, TellsWhatIsNotThere) {
    EXPECT_EQ(Fail(1, {"list", "HKEY_LOCAL_MACHINE/Sofware/Tolbrin"}),
              "zornctl: " + kCurrent +
                  ": no key HKEY_LOCAL_MACHINE\\Sofware\\Tolbrin (see "
                  "zornctl registry list 'HKEY_LOCAL_MACHINE')\n");
    EXPECT_EQ(Fail(1, {"get", kTolbrin, "count"}),
              "zornctl: " + kCurrent +
                  ": no value 'count' in "
                  "HKEY_LOCAL_MACHINE\\SOFTWARE\\Tolbrin (see zornctl registry list "
                  "'HKEY_LOCAL_MACHINE\\SOFTWARE\\Tolbrin')\n");
    EXPECT_THAT(Fail(1, {"get", kTolbrin, "Sub"}), HasSubstr("'Sub' is a key (name it as KEY"));
    EXPECT_THAT(Fail(1, {"export", kTolbrin + "/Path"}), HasSubstr("no key "));
    EXPECT_THAT(Fail(1, {"set", "HKEY_USERS/me", "a", "b"}),
                HasSubstr("no key HKEY_USERS\\me (make it: zornctl registry create "
                          "'HKEY_USERS\\me')"));
    EXPECT_THAT(Fail(1, {"delete", "HKEY_USERS/me"}), HasSubstr("no key HKEY_USERS\\me"));
    EXPECT_THAT(Fail(1, {"delete", kTolbrin, "none"}), HasSubstr("no value 'none'"));
}

TEST_F(Registry, IsReadFromTheSameFilesAsTheServiceDoes) {
    const auto value = [this] { return Run({"get", "HKEY_LOCAL_MACHINE", "a"}); };
    host.File(kFactory, "[HKEY_LOCAL_MACHINE]\na=s=default\n\n\n");
    host.File(kBackup, "[HKEY_LOCAL_MACHINE]\na=s=old\n\n\n");
    host.Remove(kCurrent);
    auto run = value();
    EXPECT_EQ(run.output, "old\n");
    EXPECT_EQ(run.error, "zornctl: " + kCurrent + " does not exist: " + kBackup + " is taken\n");
    host.File(kCurrent, "");
    EXPECT_EQ(value().error, "zornctl: " + kCurrent + " is empty: " + kBackup + " is taken\n");
    host.File(kCurrent, "[HKEY_LOCAL_MACHINE]\n\n\n");
    host.File(kBackup, "nothing\n");
    run = value();
    EXPECT_EQ(run.output, "default\n");
    EXPECT_EQ(run.error, "zornctl: " + kCurrent + " holds no value: " + kFactory + " is taken\n");
    EXPECT_EQ(Run({"get", "--json", "HKEY_LOCAL_MACHINE", "a"}).Json()["path"], kFactory);
}

TEST_F(Registry, EndsWith1WhereNoFileHoldsAValue) {
    host.Remove(kCurrent);
    const auto line = "zornctl: " + kDirectory +
                      ": neither registry nor registry.old nor registry.default holds a value (see "
                      "zornctl doctor, or name another directory with --directory)\n";
    for (const char* action : {"list", "export"}) EXPECT_EQ(Fail(1, {action}), line);
    EXPECT_EQ(Fail(1, {"list", "HKEY_USERS"}), line);
    host.Remove(kDirectory);
    for (const auto& write :
         std::vector<std::vector<std::string>>{{"create", "HKEY_USERS"},
                                               {"set", "HKEY_USERS", "a", "b", "--while-running"},
                                               {"list"}}) {
        const auto run = Run(write);
        EXPECT_EQ(run.end, Exited(1));
        EXPECT_EQ(run.error, "zornctl: " + kDirectory +
                                 ": No such file or directory (make it, or name another one with "
                                 "--directory)\n");
    }
    host.File("/file", "");
    for (const std::string place : {"/file", "/file/below"}) {
        EXPECT_THAT(Run({"set", "--directory", place, "HKEY_USERS", "a", "b"}).error,
                    AllOf(StartsWith("zornctl: " + place + ": No"),
                          HasSubstr("(make it, or name another one with --directory)")));
    }
}

TEST_F(Registry, SaysWhichLinesTheServicePassesOver) {
    host.File(kCurrent, "[HKEY_USERS]\na=s=1\nlost\na=s=2\n\n\nbehind\n");
    const auto run = Run({"get", "HKEY_USERS", "a"});
    EXPECT_EQ(run.output, "2\n");
    EXPECT_EQ(run.error, "zornctl: " + kCurrent +
                             ": not as the service writes it: line 2 is overridden by line 4, line "
                             "3 holds neither a key nor a value, line 7 "
                             "stands behind the end of the tree\n");
}

TEST_F(Registry, EndsWith3WhereItCannotBeRead) {
    host.File(kCurrent, kTree, 0);
    auto run = Run({"list"}, {.uid = 1000});
    EXPECT_EQ(run.end, Exited(3));
    EXPECT_EQ(run.error, "zornctl: " + kCurrent + ": Permission denied (run zornctl as root)\n")
        << "registry.old is no stand-in: the service reads the file";
    host.Remove(kCurrent);
    host.Directory(kCurrent);
    run = Run({"list"});
    EXPECT_EQ(run.end, Exited(3));
    EXPECT_THAT(run.error, HasSubstr(kCurrent + ": is no regular file"));
    host.Remove(kCurrent);
    host.Run([] { ASSERT_EQ(mkfifo(kBackup.c_str(), 0600), 0); });
    EXPECT_THAT(Run({"list"}).error, HasSubstr(kBackup + ": is no regular file"))
        << "and is not waited for";
}

TEST_F(Registry, NoActionGoesOnWhereItCannotBeRead) {
    host.File(kCurrent, kTree, 0);
    host.Directory(kDirectory, 0777);
    for (const auto& arguments :
         std::vector<std::vector<std::string>>{{"get", kTolbrin, "Path"},
                                               {"export"},
                                               {"set", kTolbrin, "Path", "x"},
                                               {"delete", kTolbrin, "Path"},
                                               {"create", "HKEY_USERS/x"}}) {
        const auto run = Run(arguments, {.uid = 1000});
        EXPECT_EQ(run.end, Exited(3)) << arguments[0];
        EXPECT_EQ(run.error,
                  "zornctl: " + kCurrent + ": Permission denied (run zornctl as root)\n");
    }
    EXPECT_THAT(host.List(kDirectory), ElementsAre("registry"));
}

TEST_F(Registry, TakesNoOtherFileForOneThatItMayNotRead) {
    const std::string tree = "[HKEY_USERS]\na=s=default\n\n\n";
    host.Directory(kDirectory, 0777);
    host.Remove(kCurrent);
    host.File(kBackup, kTree, 0);
    host.File(kFactory, tree, 0644);
    auto run = Run({"set", "HKEY_USERS", "a", "b"}, {.uid = 1000});
    EXPECT_EQ(run.end, Exited(3));
    EXPECT_EQ(run.error, "zornctl: " + kBackup + ": Permission denied (run zornctl as root)\n");
    EXPECT_EQ(Run({"list"}, {.uid = 1000}).end, Exited(3));
    EXPECT_FALSE(host.Exists(kCurrent));
    host.File(kCurrent, "damaged\n");
    EXPECT_EQ(Run({"set", "HKEY_USERS", "a", "b"}, {.uid = 1000}).end, Exited(3));
    EXPECT_EQ(host.Read(kCurrent), "damaged\n");
    host.Remove(kBackup);
    host.File(kFactory, tree, 0);
    run = Run({"create", "HKEY_USERS/x"}, {.uid = 1000});
    EXPECT_EQ(run.end, Exited(3));
    EXPECT_EQ(run.error, "zornctl: " + kFactory + ": Permission denied (run zornctl as root)\n");
    EXPECT_EQ(host.Read(kCurrent), "damaged\n");
}

TEST_F(Registry, ChangesTheTreeOfTheDefaultAndLeavesThatFile) {
    const std::string tree = "[HKEY_USERS]\na=s=default\nodd\n\n\n";
    host.Remove(kCurrent);
    host.File(kFactory, tree);
    const auto run = Run({"set", "HKEY_USERS", "b", "c"});
    EXPECT_EQ(run.end, Exited(0));
    EXPECT_EQ(run.error, "zornctl: " + kCurrent + " does not exist: " + kFactory + " is taken; " +
                             kFactory +
                             ": not as the service writes it: line 3 holds neither a key nor a "
                             "value\n");
    EXPECT_THAT(Files(), ElementsAre("registry: [HKEY_USERS]\na=s=default\nb=s=c\n\n\n",
                                     "registry.default: " + tree));
}

TEST_F(Registry, TakesNoFileOfMoreThan256MiB) {
    constexpr uint64_t kTooMuch = (uint64_t{256} << 20U) + 1;
    host.Remove(kCurrent);
    host.Memory(kCurrent, {{0, kTree}}, kTooMuch);
    auto run = Run({"list"});
    EXPECT_EQ(run.end, Exited(3));
    EXPECT_THAT(run.error, HasSubstr(kCurrent + ": holds more than 268435456 bytes"));
    host.File(kCurrent, kTree);
    host.Memory("/in", {{0, kTree}}, kTooMuch);
    EXPECT_THAT(Fail(3, {"import", "/in"}), HasSubstr("/in: holds more than 268435456 bytes"));
}

TEST_F(Registry, LetsNoControlCharacterThrough) {
    host.File(kCurrent, "[HKEY_USERS]\nev\x1b[2J=s=te\x1b]0;x\axt\r\xC2\x9B\xFF\n[k\x1bz]\n\n\n\n");
    for (const auto& arguments :
         std::vector<std::vector<std::string>>{{"list", "HKEY_USERS"},
                                               {"list", "-r"},
                                               {"get", "HKEY_USERS", "ev\x1b[2J"},
                                               {"list", "--json", "-r"},
                                               {"get", "--json", "HKEY_USERS", "ev\x1b[2J"},
                                               {"export", "--json"},
                                               {"get", "HKEY_USERS\x1b", "a"},
                                               {"get", "HKEY_USERS", "k\x1bz"},
                                               {"create", "HKEY\x1b"},
                                               {"set", "HKEY_USERS", "a\x1b=", "b"},
                                               {"set", "-t", "dword", "HKEY_USERS", "a", "\x1b"}}) {
        const auto run = Run(arguments);
        const auto all = run.output + run.error;
        EXPECT_NE(all, "");
        const auto harmful = all.find_first_of("\x1b\a\r\x9B\xFF");
        EXPECT_EQ(harmful, all.npos) << testing::PrintToString(all);
    }
    EXPECT_EQ(Do({"get", "HKEY_USERS", "ev\x1b[2J"}), "te\\x1b]0;x\\x07xt\\r\\xc2\\x9b\\xff\n");
    EXPECT_EQ(Export(), host.Read(kCurrent)) << "into a file it is as it is";
}

// --- Setting -------------------------------------------------------------------------------------

TEST_F(Registry, SetsValuesOfEachType) {
    struct Row {
        std::vector<std::string> type;
        std::string value;
        std::string line;
    };
    const Row rows[] = {
        {{}, "some text", "v=s=some text"},
        {{}, "", "v=s="},
        {{}, "a=b=s=c", "v=s=a=b=s=c"},
        {{"--type", "string"}, "%A%", "v=s=%A%"},
        {{"-t", "expand"}, "%A%/b", "v=es=%A%/b"},
        {{"-t", "binary"}, "0Aff10", "v=b=0a ff 10 "},
        {{"-t", "binary"}, " 0a ff 10", "v=b=0a ff 10 "},
        {{"-t", "binary"}, "", "v=b="},
        {{"-t", "dword"}, "42", "v=d=42"},
        {{"-t", "dword"}, "-5", "v=d=-5"},
        {{"-t", "dword"}, "4294967295", "v=d=-1"},
        {{"-t", "dword"}, "-2147483648", "v=d=-2147483648"},
        {{"-t", "dword"}, "0xFFfffffe", "v=d=-2"},
        {{"-t", "dword"}, "+7", "v=d=7"},
    };
    for (const auto& row : rows) {
        std::vector<std::string> arguments{"set", "HKEY_USERS", "v", row.value};
        arguments.insert(arguments.end(), row.type.begin(), row.type.end());
        EXPECT_EQ(Do(arguments), "");
        EXPECT_THAT(host.Read(kCurrent), HasSubstr("[HKEY_USERS]\n" + row.line + "\n\n\n"));
    }
}

TEST_F(Registry, LeavesAllElseAsItWasAndKeepsTheFormerFile) {
    Do({"set", kTolbrin, "Path", "/usr/lib64"});
    auto expected = kTree;
    expected.replace(expected.find("/usr/lib"), 8, "/usr/lib64");
    EXPECT_EQ(host.Read(kCurrent), expected);
    EXPECT_EQ(host.Read(kBackup), kTree);
    EXPECT_FALSE(host.Exists(kTemporary));
    Do({"set", kTolbrin, "Path", "/usr/lib64"});
    EXPECT_EQ(host.Read(kBackup), kTree) << "nothing is written where nothing changes";
}

TEST_F(Registry, MakesTheFileThatTheServiceMakes) {
    Do({"set", "-t", "binary", "HKEY_USERS", "b", "00ff"});
    const auto mine = host.Read(kCurrent);
    host.File(kCurrent, kTree);
    host.Run([] {
        CRegistry registry{"HKEY_USERS", nullptr, 0};
        ASSERT_TRUE(registry.SetValue("b", "\0\xFF", 2, kRegistryBinary, nullptr));
    });
    EXPECT_EQ(host.Read(kCurrent), mine);
}

TEST_F(Registry, ReplacesAValueOfAnotherTypeButNoKey) {
    Do({"set", "-t", "dword", kTolbrin, "Path", "1"});
    EXPECT_EQ(Do({"get", kTolbrin, "Path"}), "1\n");
    EXPECT_THAT(Fail(1, {"set", kTolbrin, "Sub", "x"}),
                HasSubstr("'Sub' is a key, which a value would replace"));
}

TEST_F(Registry, TakesTheRootAndEmptyNamesAsTheServiceDoes) {
    Do({"set", "", "", "top"});
    EXPECT_THAT(host.Read(kCurrent), StartsWith("=s=top\n[HKEY_LOCAL_MACHINE]\n"));
    EXPECT_EQ(Do({"get", "", ""}), "top\n");
}

TEST_F(Registry, RefusesWhatIsNoValue) {
    for (const char* bad : {"", "x", "1x", "-", "0x", "4294967296", "-2147483649", "0x100000000",
                            "--1", "1 ", " 1", "18446744073709551617", "0x-1"}) {
        EXPECT_THAT(Fail(2, {"set", "-t", "dword", "--", "HKEY_USERS", "a", bad}),
                    HasSubstr("no number of 32 bits: '" + std::string{bad} + "'"));
    }
    for (const char* bad : {"0", "0g", "0 a", "0a f", "0x0a"}) {
        EXPECT_THAT(Fail(2, {"set", "-t", "binary", "HKEY_USERS", "a", bad}),
                    HasSubstr("no bytes: '" + std::string{bad} + "'"));
    }
}

TEST_F(Registry, RefusesWhatTheFileCannotHold) {
    const std::string long1016(1016, 'x');
    EXPECT_THAT(Fail(2, {"set", "HKEY_USERS", "a=b", "x"}),
                HasSubstr("cannot hold a name with = or a newline: 'a=b'"));
    EXPECT_THAT(Fail(2, {"set", "HKEY_USERS", "a\nb", "x"}), HasSubstr("'a\\nb'"));
    EXPECT_THAT(Fail(2, {"set", "HKEY_USERS", "a", "x\ny"}),
                HasSubstr("cannot hold a text with a newline"));
    EXPECT_THAT(Fail(2, {"set", "HKEY_USERS", "[a]", "x"}),
                HasSubstr("cannot hold a name that begins with [ if a ] follows"));
    EXPECT_THAT(Fail(2, {"set", "HKEY_USERS", "[a", "x]"}), HasSubstr("begins with ["));
    EXPECT_THAT(Fail(2, {"set", "HKEY_USERS", "abcd", long1016}),
                HasSubstr("cannot hold a line of 1023 characters"));
    EXPECT_THAT(Fail(2, {"create", "HKEY_USERS/a]"}), HasSubstr("with ] or a newline: 'a]'"));
    EXPECT_THAT(Fail(2, {"create", "HKEY_USERS/a\nb"}), HasSubstr("with ] or a newline"));
    EXPECT_THAT(Fail(2, {"create", "HKEY_USERS/" + std::string(1021, 'k')}),
                HasSubstr("more than 1,020 characters"));
}

TEST_F(Registry, HoldsWhatIsJustWithinTheLimits) {
    const std::string text(1016, 'x');
    const std::string key = "HKEY_USERS/" + std::string(1020, 'k');
    Do({"create", key});
    Do({"set", key, "abc", text});
    Do({"set", key, "[a", "x"});
    Do({"set", key, "a]", "[x]"});
    EXPECT_EQ(Do({"get", key, "abc"}), text + "\n");
    EXPECT_EQ(Do({"get", key, "[a"}), "x\n");
    EXPECT_EQ(Do({"get", key, "a]"}), "[x]\n");
}

TEST_F(Registry, RefusesToWriteWhatWouldGrowTooLong) {
    std::string bytes;
    for (int i = 0; i < 400; ++i) bytes += "1 ";  // which is written as "01 "
    host.File(kCurrent, "[HKEY_USERS]\na=s=1\nb=b=" + bytes + "\n\n\n");
    EXPECT_THAT(Fail(1, {"set", "HKEY_USERS", "a", "2"}),
                HasSubstr("would not come back as it is: line 3 is longer than 1,022"));
}

// --- Making and deleting -------------------------------------------------------------------------

TEST_F(Registry, CreatesKeysWithThoseAboveThem) {
    Do({"create", "HKEY_CURRENT_USER\\a b\\c/d"});
    EXPECT_THAT(host.Read(kCurrent), StartsWith("[HKEY_CURRENT_USER]\n[a b]\n[c/d]\n\n\n\n"));
    const auto before = Files();
    Do({"create", "HKEY_CURRENT_USER\\a b"});
    Do({"create", kTolbrin + "/"});
    EXPECT_EQ(Files(), before) << "they are there";
    EXPECT_THAT(Fail(1, {"create", kTolbrin + "/Path/x"}),
                HasSubstr("'Path' is a value, and so no key"));
}

TEST_F(Registry, CreatesNoHiveOfAnotherName) {
    EXPECT_EQ(
        Fail(2, {"create", "HKEY_LOCAL_MASCHINE/x"}),
        "zornctl: no hive 'HKEY_LOCAL_MASCHINE' (did you mean HKEY_LOCAL_MACHINE? --force takes "
        "it as it is)\n");
    EXPECT_THAT(Fail(2, {"create", "x"}), HasSubstr("the hives are HKEY_LOCAL_MACHINE, "));
    EXPECT_THAT(Fail(2, {"create", ""}), HasSubstr("KEY is empty"));
    host.File(kCurrent, "[own]\na=d=1\n\n\n");
    Do({"create", "own/x"});
    Do({"create", "--force", "x"});
    EXPECT_EQ(Export(), "[own]\na=d=1\n[x]\n\n\n[x]\n\n\n");
}

TEST_F(Registry, MakesATreeWhereThereIsNone) {
    host.Remove(kCurrent);
    const auto run = Run({"create", kTolbrin});
    EXPECT_EQ(run.end, Exited(0));
    EXPECT_THAT(run.error, HasSubstr("neither registry nor registry.old nor registry.default"));
    EXPECT_EQ(Run({"list"}).end, Exited(0));
    EXPECT_EQ(Run({"set", kTolbrin, "a", "b"}).end, Exited(0));
    EXPECT_EQ(Do({"get", kTolbrin, "a"}), "b\n");
}

TEST_F(Registry, DeletesValues) {
    Do({"delete", kTolbrin, "Home"});
    auto expected = kTree;
    expected.erase(expected.find("Home"), sizeof "Home=es=%HOME%/bin");
    EXPECT_EQ(host.Read(kCurrent), expected);
    EXPECT_THAT(Fail(1, {"delete", kTolbrin, "Sub"}), HasSubstr("'Sub' is a key"));
}

TEST_F(Registry, DeletesKeysWithSubkeysOnlyIfThatIsSaid) {
    EXPECT_EQ(Fail(1, {"delete", kTolbrin}),
              "zornctl: " + kCurrent +
                  ": HKEY_LOCAL_MACHINE\\SOFTWARE\\Tolbrin has subkeys (add --recursive to take "
                  "them away too)\n");
    Do({"set", "HKEY_USERS", "a", "b"});
    Do({"delete", kTolbrin + "/Sub"});
    Do({"delete", kTolbrin});
    EXPECT_EQ(Export(), "[HKEY_LOCAL_MACHINE]\n[SOFTWARE]\n\n\n[HKEY_USERS]\na=s=b\n\n\n");
    Do({"delete", "-r", "HKEY_LOCAL_MACHINE"});
    EXPECT_EQ(Export(), "[HKEY_USERS]\na=s=b\n\n\n");
    EXPECT_THAT(Fail(2, {"delete", "--recursive", ""}), HasSubstr("root cannot be deleted"));
}

TEST_F(Registry, KeepsOneValueSinceTheServiceWouldTakeTheBackup) {
    EXPECT_EQ(Fail(1, {"delete", "-r", "HKEY_LOCAL_MACHINE"}),
              "zornctl: " + kCurrent +
                  ": no value would be left: the service would take registry.old instead (set "
                  "another value first, or remove the files)\n");
}

// --- Export and import ---------------------------------------------------------------------------

TEST_F(Registry, ExportsTheTreeOrAKeyWithItsPath) {
    EXPECT_EQ(Export(), kTree);
    EXPECT_EQ(Do({"export", kTolbrin + "/Sub"}),
              "[HKEY_LOCAL_MACHINE]\n[SOFTWARE]\n[Tolbrin]\n[Sub]\nNone=b=\n\n\n\n\n\n");
}

TEST_F(Registry, ComesBackFromWhatWasExported) {
    const auto tree = Export();
    host.Directory("/copy");
    for (const auto& key : {std::string{}, kTolbrin, std::string{"HKEY_LOCAL_MACHINE"}}) {
        host.Directory("/copy");
        const auto part = Do({"export", key});
        host.File("/part", part);
        EXPECT_EQ(Run({"import", "--directory", "/copy", "/part"}).end, Exited(0));
        EXPECT_EQ(Do({"export", "--directory", "/copy", key}), part);
        host.Remove("/copy");
    }
    Do({"import", "/part"});
    EXPECT_EQ(Export(), tree) << "what is there already changes nothing";
    EXPECT_FALSE(host.Exists(kBackup));
    host.Directory("/copy");
    const auto run = Run({"import", "--directory", "/copy", "-"}, {.input = tree});
    EXPECT_EQ(run.end, Exited(0)) << run.error;
    EXPECT_EQ(host.Read("/copy/registry"), tree);
}

TEST_F(Registry, ImportsOverWhatIsThereAndLeavesTheRest) {
    host.File("/in",
              "[HKEY_LOCAL_MACHINE]\n[SOFTWARE]\n[Tolbrin]\nPath=d=1\nNew=s=x\n[Sub]\n[Deep]\n"
              "z=s=1\n\n\n\n\n\n[HKEY_USERS]\na=s=b\n\n\n");
    Do({"import", "/in"});
    EXPECT_EQ(Export(),
              "[HKEY_LOCAL_MACHINE]\n[SOFTWARE]\n[Tolbrin]\nCount=d=-5\nHome=es=%HOME%/bin\n"
              "Key=b=0a ff 10 \nNew=s=x\nPath=d=1\n[Sub]\nNone=b=\n[Deep]\nz=s=1\n\n\n\n\n\n"
              "[HKEY_USERS]\na=s=b\n\n\n");
    EXPECT_EQ(host.Read(kBackup), kTree);
}

TEST_F(Registry, ImportsNoFileOfWhichLinesWouldBeLost) {
    host.File("/in",
              "[HKEY_USERS]\na=s=" + std::string(1018, 'x') + "y=s=tail\nno tag\nb=s=1\n\n\n");
    EXPECT_EQ(
        Fail(1, {"import", "/in"}),
        "zornctl: /in: line 2 is longer than 1,022 characters, line 3 holds neither a key nor "
        "a value (mend that, or add --force to go on without)\n");
    const auto run = Run({"import", "--force", "/in"});
    EXPECT_EQ(run.end, Exited(0));
    EXPECT_EQ(run.error,
              "zornctl: left out: line 2 is longer than 1,022 characters, line 3 holds neither a "
              "key nor a value\n");
    EXPECT_EQ(Do({"get", "HKEY_USERS", "b"}), "1\n");
    EXPECT_THAT(Fail(1, {"get", "HKEY_USERS", "a"}), HasSubstr("no value 'a'"));
}

TEST_F(Registry, ImportsNoFileThatBreaksOff) {
    const std::string whole = "[HKEY_LOCAL_MACHINE]\na=s=good\n[k]\nb=d=42\n\n\n\n";
    for (size_t size = 1; size < whole.size(); size += 3) {
        host.File("/in", whole.substr(0, size));
        EXPECT_THAT(Fail(1, {"import", "/in"}),
                    Not(HasSubstr("holds neither a key nor a value (name")));
    }
    host.File("/in", "[HKEY_LOCAL_MACHINE]\nb=s=1\na=s=go");
    EXPECT_EQ(Fail(1, {"import", "/in"}),
              "zornctl: /in: line 3 has no newline at its end (mend that, or add --force to go on "
              "without)\n");
    EXPECT_EQ(Run({"import", "--force", "/in"}).error,
              "zornctl: left out: line 3 has no newline at its end\n");
    EXPECT_EQ(Do({"get", "HKEY_LOCAL_MACHINE", "b"}), "1\n");
    EXPECT_THAT(Fail(1, {"get", "HKEY_LOCAL_MACHINE", "a"}), HasSubstr("no value 'a'"));
}

TEST_F(Registry, ImportsNoKeyIntoTheOneAboveIt) {
    for (const std::string& line :
         {"[" + std::string(1021, 'k') + "]", std::string{"[key"}, "[a" + std::string(2000, 'x')}) {
        host.File("/in", "[HKEY_USERS]\n" + line + "\nsecret=s=1\n\n\n\n");
        for (const auto& arguments : std::vector<std::vector<std::string>>{
                 {"import", "/in"}, {"import", "--force", "/in"}}) {
            EXPECT_THAT(Fail(1, arguments),
                        AllOf(StartsWith("zornctl: /in: line 2 "),
                              HasSubstr(": what is in that key would get into the one above it "
                                        "(mend that line)\n")));
        }
    }
}

TEST_F(Registry, ImportsNoHiveOfAnotherNameUnlessItIsForced) {
    host.File("/in", "[HKEY_LOCAL_MASCHINE]\na=s=1\n\n\n");
    EXPECT_EQ(Fail(1, {"import", "/in"}),
              "zornctl: /in: no hive 'HKEY_LOCAL_MASCHINE' (did you mean HKEY_LOCAL_MACHINE? "
              "--force takes it as it is)\n");
    Do({"import", "--force", "/in"});
    EXPECT_EQ(Do({"get", "HKEY_LOCAL_MASCHINE", "a"}), "1\n");
    host.File("/in", "[HKEY_LOCAL_MASCHINE]\na=s=2\n\n\n");
    Do({"import", "/in"});
}

TEST_F(Registry, TellsThatItsStandardInputIsClosed) {
    if (kAddressSanitizer) GTEST_SKIP() << kNoLeakCheck;
    const auto run = Shell("zornctl registry import - <&-");
    EXPECT_EQ(run.end, Exited(3));
    EXPECT_EQ(
        run.error,
        "zornctl: standard input: Bad file descriptor (start zornctl with it open, or send it "
        "to a file)\n");
    EXPECT_THAT(Files(), ElementsAre("registry: " + kTree));
}

TEST_F(Registry, TakesNothingAwayThatTheServiceDidNotWriteUnlessItIsForced) {
    const std::string odd = "[HKEY_USERS]\na=s=1\nPort = 8080\n\n\n";
    host.File(kCurrent, odd);
    host.File("/in", "[HKEY_USERS]\na=s=2\n\n\n");
    const std::string line = ": line 3 holds neither a key nor a value";
    for (const auto& write : std::vector<std::vector<std::string>>{
             {"set", "HKEY_USERS", "a", "2"}, {"create", "HKEY_USERS/k"}, {"import", "/in"}}) {
        EXPECT_THAT(Fail(1, write),
                    HasSubstr("zornctl: " + kCurrent +
                              ": a change would take away what is not as the service writes it" +
                              line + " (mend that, or add --force to go on without)\n"));
        auto forced = write;
        forced.emplace_back("--force");
        const auto run = Run(forced);
        EXPECT_EQ(run.end, Exited(0)) << write[0];
        EXPECT_EQ(run.error,
                  "zornctl: " + kCurrent + ": not as the service writes it" + line + "\n");
        EXPECT_EQ(host.Read(kBackup), odd);
        EXPECT_EQ(host.Read(kCurrent).find("Port"), std::string::npos);
        host.File(kCurrent, odd);
        host.Remove(kBackup);
    }
    EXPECT_EQ(Run({"set", "HKEY_USERS", "a", "1"}).end, Exited(0)) << "nothing is written";
    host.File(kCurrent, "[HKEY_USERS]\na=s=1\n");
    EXPECT_THAT(Fail(1, {"delete", "HKEY_USERS", "a"}), HasSubstr("does not end the tree"));
}

TEST_F(Registry, ImportsNoValueInPlaceOfAKeyUnlessItIsForced) {
    host.File("/in", "[HKEY_LOCAL_MACHINE]\n[SOFTWARE]\nTolbrin=s=x\n\n\n\n");
    EXPECT_EQ(Fail(1, {"import", "/in"}),
              "zornctl: /in: HKEY_LOCAL_MACHINE\\SOFTWARE\\Tolbrin is a key here and a value there "
              "(delete one of the two, or add --force to replace what is there)\n");
    Do({"import", "--force", "/in"});
    EXPECT_EQ(Export(), "[HKEY_LOCAL_MACHINE]\n[SOFTWARE]\nTolbrin=s=x\n\n\n[HKEY_USERS]\n\n\n");
    host.File("/in", "[HKEY_LOCAL_MACHINE]\n[SOFTWARE]\n[Tolbrin]\na=s=1\n\n\n\n\n");
    EXPECT_THAT(Fail(1, {"import", "/in"}), HasSubstr("is a key here and a value there"));
    Do({"import", "--force", "/in"});
    EXPECT_EQ(Do({"get", kTolbrin, "a"}), "1\n");
}

TEST_F(Registry, ImportsNothingFromWhatHoldsNothing) {
    host.File("/in", "");
    EXPECT_THAT(Fail(1, {"import", "/in"}), HasSubstr("/in: holds neither a key nor a value"));
    EXPECT_THAT(Fail(1, {"import", "-"}), HasSubstr("standard input: holds neither"));
    host.File("/in", "x\n");
    EXPECT_THAT(Fail(1, {"import", "--force", "/in"}), HasSubstr("holds neither"));
    EXPECT_THAT(Fail(1, {"import", "/missing"}), HasSubstr("/missing: No such file"));
    EXPECT_THAT(Fail(3, {"import", "/etc"}), HasSubstr("/etc: Is a directory"));
}

// --- The service and other writers ---------------------------------------------------------------

const std::vector<std::vector<std::string>> kWrites{{"set", "HKEY_USERS", "a", "b"},
                                                    {"delete", kTolbrin, "Path"},
                                                    {"create", "HKEY_USERS/x"},
                                                    {"import", "/in"}};

class RunningService : public Registry {
  protected:
    RunningService() {
        host.File("/in", "[HKEY_USERS]\nb=s=c\n\n\n");
        host.File("/proc/4712/stat", "4712 (zorn) S 1 1 1 0");
        host.File("/proc/4712/status", "Uid:\t0\t0\t0\t0\n");
    }
};

TEST_F(RunningService, KeepsOthersFromWriting) {
    for (const auto& write : kWrites) {
        EXPECT_EQ(Fail(1, write), "zornctl: " + kCurrent +
                                      ": the service runs (process 4712): it would not see the "
                                      "change, and undo it with its next save (stop it first, or "
                                      "add --while-running)\n");
    }
    Do({"list"});
    Do({"get", kTolbrin, "Path"});
    Do({"export"});
}

TEST_F(RunningService, IsPassedOverIfThatIsSaid) {
    for (auto write : kWrites) {
        write.emplace_back("--while-running");
        const auto before = host.Read(kCurrent);
        Do(write);
        EXPECT_NE(host.Read(kCurrent), before) << write[0];
    }
}

TEST_F(RunningService, KeepsTheFileThatItIsWriting) {
    host.File(kTemporaryOfService, "half a tree");
    Do({"set", "HKEY_USERS", "a", "b", "--while-running"});
    EXPECT_EQ(host.Read(kTemporaryOfService), "half a tree");
    EXPECT_EQ(Do({"get", "HKEY_USERS", "a"}), "b\n");
}

TEST_F(RunningService, ThatStartsMeanwhileKeepsOthersFromWritingToo) {
    host.Remove("/proc/4712");
    const auto pipe = host.Path("/pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    UniqueFd input{open(pipe.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC)};
    auto import = StartShell("zornctl registry import - </pipe");
    std::string text = "[HKEY_USERS]\n";
    for (int i = 0; i < 400; ++i) text += std::to_string(i) + "=s=" + std::string(1000, 'x') + "\n";
    text += "\n\n";
    auto writeUpTo = [&, written = size_t{0}](size_t end) mutable {
        return HostProcess::WaitUntil([&] {
            const ssize_t count = write(input.Get(), text.data() + written, end - written);
            written += static_cast<size_t>(std::max<ssize_t>(count, 0));
            return written == end;
        });
    };
    ASSERT_TRUE(
        writeUpTo(300000));  // more than a pipe holds: it has looked for the service and reads
    host.File("/proc/4712/stat", "4712 (zorn) S 1 1 1 0");
    host.File("/proc/4712/status", "Uid:\t0\t0\t0\t0\n");
    ASSERT_TRUE(writeUpTo(text.size()));
    input.Reset();
    EXPECT_EQ(import.Wait(), Exited(1));
    EXPECT_THAT(import.StandardError(), HasSubstr("the service runs (process 4712)"));
    EXPECT_THAT(Files(), ElementsAre("registry: " + kTree));
}

TEST_F(RunningService, IsNotConcernedByACopy) {
    host.File("/copy/registry", kTree);
    for (auto write : kWrites) {
        write.insert(write.end(), {"--directory", "/copy"});
        Do(write);
    }
    EXPECT_EQ(host.Read(kCurrent), kTree);
    host.Link("/link", kDirectory);
    EXPECT_THAT(Fail(1, {"set", "--directory", "/link", "HKEY_USERS", "a", "b"}),
                HasSubstr("the service runs"))
        << "which is no copy";
}

TEST_F(Registry, WaitsForAnotherWriterAndGivesUp) {
    const UniqueFd directory{open(host.Path(kDirectory).c_str(), O_RDONLY | O_CLOEXEC)};
    ASSERT_EQ(flock(directory.Get(), LOCK_EX), 0);
    EXPECT_EQ(Fail(1, {"set", "HKEY_USERS", "a", "b"}),
              "zornctl: " + kDirectory +
                  ": another zornctl is at work on this registry (try again when it is done)\n");
    Do({"list"});
}

TEST_F(Registry, LosesNoChangeOfWritersAtTheSameTime) {
    std::vector<HostProcess> writers;
    for (int i = 0; i < 8; ++i) {
        const auto number = std::to_string(i);
        writers.push_back(
            StartZornctl(host, {"registry", "set", "HKEY_USERS", "v" + number, number}));
    }
    for (auto& writer : writers) EXPECT_EQ(writer.Wait(), Exited(0));
    const auto text = Do({"export", "HKEY_USERS"});
    for (int i = 0; i < 8; ++i) {
        const auto number = std::to_string(i);
        EXPECT_THAT(text, HasSubstr("v" + number + "=s=" + number + "\n"));
    }
}

// --- Writing -------------------------------------------------------------------------------------

TEST_F(Registry, WorksOnACopyAsAnOrdinaryUser) {
    host.File("/copy/registry", kTree, 0666);
    host.Directory("/copy", 0555);
    EXPECT_EQ(Run({"export", "--directory", "/copy"}, {.uid = 1000}).output, kTree);
    const auto run = Run({"set", "--directory", "/copy", "HKEY_USERS", "a", "b"}, {.uid = 1000});
    EXPECT_EQ(run.end, Exited(3));
    EXPECT_EQ(run.error,
              "zornctl: /copy/registry: cannot be replaced by registry.new.zornctl: Permission "
              "denied (run zornctl as root)\n");
    host.Directory("/copy", 0777);
    EXPECT_EQ(Run({"set", "--directory", "/copy", "HKEY_USERS", "a", "b"}, {.uid = 1000}).end,
              Exited(0));
    EXPECT_EQ(Do({"get", "--directory", "/copy", "HKEY_USERS", "a"}), "b\n");
}

TEST_F(Registry, EndsWith3WhereItCannotBeWritten) {
    if (kAddressSanitizer) GTEST_SKIP() << kNoLeakCheck;
    host.Directory(kTemporary);
    auto run = Run({"set", "HKEY_USERS", "a", "b"});
    EXPECT_EQ(run.end, Exited(3));
    EXPECT_EQ(run.error, "zornctl: " + kCurrent +
                             ": cannot be replaced by registry.new.zornctl: Is a directory (look "
                             "at the directory and its file system)\n");
    host.Remove(kTemporary);
    run = Shell("trap '' XFSZ; ulimit -f 1; zornctl registry set HKEY_USERS a $(printf %0900d 1)");
    EXPECT_EQ(run.end, Exited(3));
    EXPECT_THAT(run.error, HasSubstr("cannot be replaced by registry.new.zornctl: File too large"));
    EXPECT_THAT(Files(), ElementsAre("registry: " + kTree));
}

TEST_F(Registry, NeitherFollowsNorWaitsForWhatStandsInPlaceOfItsNewFile) {
    host.File("/target", "precious", 0600);
    host.Link(kTemporary, "/target");
    Do({"set", "HKEY_USERS", "a", "1"});
    EXPECT_EQ(host.Read("/target"), "precious");
    host.Run([] {
        struct stat status {};
        EXPECT_EQ(stat("/target", &status), 0);
        EXPECT_EQ(status.st_mode & 07777U, 0600U);
        EXPECT_EQ(lstat(kCurrent.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode, S_IFREG | 0644U);
        EXPECT_EQ(mkfifo(kTemporary.c_str(), 0600), 0);
    });
    Do({"set", "HKEY_USERS", "a", "2"});
    EXPECT_EQ(Do({"get", "HKEY_USERS", "a"}), "2\n");
    EXPECT_THAT(host.List(kDirectory), ElementsAre("registry", "registry.old"));
}

TEST_F(Registry, SaysSoWhereTheFormerFileHasMovedAndTheNewOneHasNot) {
    host.File(kBackup, "older");
    host.Run([] {
        zornctl::RegistryDirectory directory{kDirectory};
        CRegistryNode tree;
        EXPECT_TRUE(directory.Read(tree).isFound);
        FaultOf<&::rename> renames;
        renames.PassThrough();
        renames.Fail(EIO);
        try {
            directory.Save(tree);
            ADD_FAILURE() << "no failure";
        } catch (const zornctl::Failure& failure) {
            EXPECT_EQ(failure.status, zornctl::ExitStatus::kNoAccess);
            EXPECT_EQ(failure.cause,
                      "cannot be replaced by registry.new.zornctl: Input/output error; what it was "
                      "is registry.old now");
        }
    });
    EXPECT_FALSE(host.Exists(kCurrent));
    EXPECT_EQ(host.Read(kBackup), kTree);
    EXPECT_EQ(Run({"export"}).output, kTree);
}

TEST_F(Registry, PutsADamagedFileBehindTheNewOne) {
    host.File(kCurrent, "damaged\n");
    host.File(kBackup, kTree);
    EXPECT_EQ(Run({"set", "HKEY_USERS", "a", "b"}).end, Exited(0));
    EXPECT_EQ(Do({"get", "HKEY_USERS", "a"}), "b\n");
    EXPECT_EQ(host.Read(kBackup), "damaged\n") << "once the new file has its place";
    EXPECT_EQ(Do({"get", kTolbrin, "Path"}), "/usr/lib\n");
}

// --- For programs --------------------------------------------------------------------------------

TEST_F(Registry, IsJsonForPrograms) {
    const auto list = Run({"list", "--json", "-r", "HKEY_LOCAL_MACHINE\\SOFTWARE"}).Json();
    EXPECT_EQ(list["command"], "registry");
    EXPECT_EQ(list["action"], "list");
    EXPECT_EQ(list["path"], kCurrent);
    EXPECT_EQ(list["key"], "HKEY_LOCAL_MACHINE\\SOFTWARE");
    ASSERT_EQ(list["entries"].size(), 7U);
    EXPECT_EQ(list["entries"][0], (nlohmann::json{{"key", "HKEY_LOCAL_MACHINE\\SOFTWARE"},
                                                  {"key_escaped", false},
                                                  {"name", "Tolbrin"},
                                                  {"name_escaped", false},
                                                  {"type", "key"},
                                                  {"value", nullptr},
                                                  {"escaped", false}}));
    EXPECT_EQ(list["entries"][1]["value"], 4294967291);
    EXPECT_EQ(list["entries"][3]["value"], "0a ff 10");
    const auto get = Run({"get", "--json", kTolbrin, "Home"}).Json();
    EXPECT_EQ(get["type"], "expand");
    EXPECT_EQ(get["value"], "%HOME%/bin");
    const auto text = Run({"export", "--json", "HKEY_USERS"}).Json();
    EXPECT_EQ(text["text"], "[HKEY_USERS]\n\n\n");
    EXPECT_EQ(text["escaped"], false);
    const auto set = Run({"set", "--json", "HKEY_USERS", "a", "b\xFF\\"}).Json();
    EXPECT_EQ(set["path"], kCurrent);
    EXPECT_EQ(set["changed"], true);
    EXPECT_THAT(set["lost"], IsEmpty());
    EXPECT_EQ(Run({"create", "--json", "HKEY_USERS"}).Json()["changed"], false);
    const auto bytes = Run({"get", "--json", "HKEY_USERS", "a"}).Json();
    EXPECT_EQ(bytes["value"], "b\\xff\\\\");
    EXPECT_EQ(bytes["escaped"], true);
    const auto missing = Run({"get", "--json", "HKEY_USERS", "x"}).Json();
    EXPECT_EQ(missing["error"]["path"], kCurrent);
    EXPECT_EQ(missing["error"]["cause"], "no value 'x' in HKEY_USERS");
}

TEST_F(Registry, TellsBytesOfNamesFromTextsThatLookLikeThem) {
    host.File(kCurrent, "[HKEY_USERS]\na\\xff=s=text\na\xFF=s=byte\n[k\xFF]\n\\n=s=deep\n\n\n\n");
    const auto entries = Run({"list", "--json", "-r"}).Json()["entries"];
    const auto row = [&](size_t place) {
        const auto& entry = entries[place];
        return entry["key"].get<std::string>() +
               (entry["key_escaped"] == true ? " (escaped): " : ": ") +
               entry["name"].get<std::string>() +
               (entry["name_escaped"] == true ? " (escaped)" : "");
    };
    ASSERT_EQ(entries.size(), 5U);
    EXPECT_EQ(row(1), "HKEY_USERS: a\\xff");
    EXPECT_EQ(row(2), "HKEY_USERS: a\\xff (escaped)");
    EXPECT_EQ(row(3), "HKEY_USERS: k\\xff (escaped)");
    EXPECT_EQ(row(4), "HKEY_USERS\\\\k\\xff (escaped): \\n");
    for (const auto& entry : entries) EXPECT_EQ(entry["escaped"], false);
    const auto get = Run({"get", "--json", "HKEY_USERS/k\xFF", "\\n"}).Json();
    EXPECT_EQ(get["key"], "HKEY_USERS\\\\k\\xff");
    EXPECT_EQ(get["key_escaped"], true);
    EXPECT_EQ(get["name"], "\\n");
    EXPECT_EQ(get["name_escaped"], false);
}

TEST_F(Registry, TellsProgramsWhatAnImportHasLost) {
    host.File("/in", "[HKEY_USERS]\na=s=1\nx\n\n\n");
    const auto json = Run({"import", "--json", "--force", "/in"}).Json();
    EXPECT_EQ(json["path"], kCurrent);
    EXPECT_EQ(json["key"], "");
    EXPECT_EQ(json["changed"], true);
    EXPECT_EQ(json["lost"], nlohmann::json::parse(
                                R"([{"line": 3, "reason": "holds neither a key nor a value"}])"));
}

TEST_F(Registry, GoesAsDeepAsTheTree) {
    std::string deep;
    constexpr int kDepth = 20000;
    for (int i = 0; i < kDepth; ++i) deep += "[k]\n";
    deep += "v=d=1\n" + std::string(kDepth + 1, '\n');
    host.File(kCurrent, deep);
    EXPECT_EQ(Export(), deep);
    Do({"set", "k/k", "a", "b"});
    Do({"import", kBackup});
    EXPECT_EQ(Do({"get", "k/k", "a"}), "b\n");
    Do({"delete", "-r", "k/k/k"});
    EXPECT_EQ(Export(), "[k]\n[k]\na=s=b\n\n\n\n");
}

}  // namespace

// zornctl doctor: each check on a machine that is well, and on one that is not.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>

#include <fstream>

#include "support/every_prefix.h"
#include "trace/open_debug.h"
#include "zornctl/healthy_host.h"
#include "zornctl/system/child.h"
#include "zornctl/system/module_host.h"
#include "zornctl/system/service_processes.h"
#include "zornctl/zornctl_run.h"

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

/// A machine on which nothing is wrong but that the service does not run.
class Doctor : public testing::Test {
  protected:
    Doctor() { MakeHealthy(host); }

    ZornctlRun Run(const StartOptions& options = {}) {
        return RunZornctl(host, {"doctor", "--json"}, options);
    }

    /// "STATE FINDING" of one check; empty if there is no such row.
    static std::string RowOf(const ZornctlRun& run, const std::string& check) {
        std::string text;
        const auto json = run.Json();
        for (const auto& row : json["checks"]) {
            const bool isFine = row["state"] == "ok";
            EXPECT_TRUE(isFine || row["remedy"] != "") << row;
            if (row["check"] != check) continue;
            text = row["state"].get<std::string>() + " " + row["finding"].get<std::string>();
        }
        return text;
    }
    std::string Row(const std::string& check) { return RowOf(Run(), check); }

    FakeHost host;
};

TEST_F(Doctor, FindsNothingOnAHealthyMachine) {
    const auto run = Run();
    EXPECT_EQ(run.end, Exited(0)) << run.output;
    EXPECT_EQ(run.error, "");
    const auto json = run.Json();
    for (const auto& row : json["checks"]) {
        if (row["check"] == "service") continue;
        EXPECT_EQ(row["state"], "ok") << row;
    }
    EXPECT_EQ(RowOf(run, "service"), "warning not running");
    EXPECT_EQ(RowOf(run, "smbus driver"), "ok /dev/pci/smbus is not there: optional");
    EXPECT_EQ(RowOf(run, "configuration directory"), "ok not there: the defaults apply");
    EXPECT_EQ(RowOf(run, "settings"), "ok no warnings");
    EXPECT_EQ(RowOf(run, "log"), "ok /var/log/tolbrin/log.zorn can be made");
}

TEST_F(Doctor, ShowsATableToPeople) {
    host.Remove("/sys/class");
    const auto run = RunZornctl(host, {"doctor"});
    EXPECT_EQ(run.end, Exited(1));
    EXPECT_THAT(run.output, StartsWith("CHECK "));
    EXPECT_THAT(run.output, testing::ContainsRegex("\nrights +ok +you are root\n"));
    EXPECT_THAT(run.output,
                testing::ContainsRegex("\nkernel: devices +failed +/sys/class is not there: no "
                                       "inventory -> mount -t sysfs sysfs /sys\n"));
}

TEST_F(Doctor, SaysWhatAnOrdinaryUserCannotKnow) {
    host.Directory("/var/log/tolbrin", 0555);
    const auto run = Run({.uid = 1000});
    EXPECT_EQ(run.end, Exited(0));
    EXPECT_THAT(RowOf(run, "rights"), StartsWith("warning you are not root"));
    EXPECT_THAT(RowOf(run, "log"), StartsWith("warning /var/log/tolbrin/log.zorn cannot be "
                                              "written: Permission denied"));
}

TEST_F(Doctor, FailsWithoutLibraryDirectory) {
    host.Remove("/opt/Corvanthimex");
    const auto run = Run();
    EXPECT_EQ(run.end, Exited(1));
    EXPECT_EQ(RowOf(run, "library directory"),
              "failed /opt/Corvanthimex/lib64: No such file or directory");
    EXPECT_EQ(RowOf(run, "module host"),
              std::string{"failed "} + kModuleHost + ": No such file or directory");
    EXPECT_EQ(RowOf(run, "module host loads"), "");
}

TEST_F(Doctor, WarnsOfWhatOthersCanChange) {
    host.Directory("/opt/Corvanthimex/lib64", 0777);
    host.Directory("/var/log/tolbrin", 01777);
    host.Directory(kConfigDirectory, 0775);
    host.File(kModuleHost, BuiltLibrary("system_hosts/obedient/libswitch.so"), 0757);
    const auto run = Run();
    EXPECT_EQ(run.end, Exited(0));
    EXPECT_EQ(RowOf(run, "library directory"),
              "warning /opt/Corvanthimex/lib64, owner 0, mode 0777: others than root can change "
              "it");
    EXPECT_THAT(RowOf(run, "module host"),
                HasSubstr("mode 0757: others than root can change /opt/Corvanthimex/lib64"));
    EXPECT_THAT(RowOf(run, "configuration directory"), StartsWith("warning "));
    EXPECT_EQ(RowOf(run, "module host loads"),
              "warning not tried: others than root can change /opt/Corvanthimex/lib64");
}

TEST_F(Doctor, WarnsOfFoldersOnTheWayThatOthersCanChange) {
    host.Directory("/opt/Corvanthimex", 0777);
    const auto run = Run();
    EXPECT_EQ(run.end, Exited(0));
    EXPECT_EQ(RowOf(run, "library directory"),
              "warning /opt/Corvanthimex/lib64, owner 0, mode 0755: others than root can change "
              "/opt/Corvanthimex");
    EXPECT_THAT(RowOf(run, "module host"),
                HasSubstr("others than root can change /opt/Corvanthimex"));
    EXPECT_THAT(RowOf(run, "registry directory"), StartsWith("warning "));
    EXPECT_EQ(RowOf(run, "module host loads"),
              "warning not tried: others than root can change /opt/Corvanthimex");
}

TEST_F(Doctor, LooksAtEachIniFileAndModule) {
    const std::string ini = std::string{kConfigDirectory} + "/global_trace.ini";
    host.File(ini, "[zorn]\n[EndOfFile]\n");
    host.File("/opt/Corvanthimex/lib64/modules/a.so", "");
    auto run = Run();
    EXPECT_EQ(RowOf(run, "ini files"), "ok 1, to be changed by root only");
    EXPECT_EQ(RowOf(run, "modules"), "ok /opt/Corvanthimex/lib64/modules, owner 0, mode 0755");
    EXPECT_EQ(RowOf(run, "module files"), "ok 1, to be changed by root only");
    host.File(ini, "[zorn]\n[EndOfFile]\n", 0666);
    host.File("/opt/Corvanthimex/lib64/modules/a.so", "", 0775);
    run = Run();
    EXPECT_EQ(run.end, Exited(0));
    EXPECT_EQ(RowOf(run, "ini files"), "warning " + ini + ": others than root can change it");
    EXPECT_EQ(RowOf(run, "module files"),
              "warning /opt/Corvanthimex/lib64/modules/a.so: others than root can change it");
}

TEST_F(Doctor, LooksForModulesWhereTheServiceIsTold) {
    host.Directory("/mine", 0777);
    EXPECT_EQ(RowOf(Run({.environment = {{"ZORN_MODULE_DIR", "/mine"}}}), "modules"),
              "warning /mine, owner 0, mode 0777: others than root can change it");
}

// --- What an ordinary user may not read, and what nobody can --------------------------------------

TEST_F(Doctor, NamesWhatAnOrdinaryUserMayNotReadAndShowsTheRest) {
    host.File(std::string{kConfigDirectory} + "/a.ini", "[zorn]\n[EndOfFile]\n");
    for (const char* folder : {kConfigDirectory, "/opt/Corvanthimex/lib64"}) {
        host.Directory(folder, 0);
    }
    const auto run = Run({.uid = 1000});
    EXPECT_EQ(run.end, Exited(0)) << run.error;
    EXPECT_EQ(RowOf(run, "configuration directory"),
              std::string{"warning "} + kConfigDirectory + ": Permission denied");
    EXPECT_EQ(RowOf(run, "settings"), "warning those of the ini files are not known");
    EXPECT_EQ(RowOf(run, "module host"),
              std::string{"warning "} + kModuleHost + ": Permission denied");
    EXPECT_EQ(RowOf(run, "service"), "warning not running");
}

TEST_F(Doctor, TellsWhyTheConfigurationDirectoryIsNone) {
    host.Link(kConfigDirectory, "TraceConfig");
    auto run = Run();
    EXPECT_EQ(run.end, Exited(0)) << run.error;
    EXPECT_EQ(RowOf(run, "configuration directory"),
              std::string{"warning "} + kConfigDirectory + ": Too many levels of symbolic links");
    EXPECT_EQ(RowOf(run, "settings"), "ok no warnings");
    EXPECT_THAT(RowOf(run, "log directory"), StartsWith("ok /var/log/tolbrin"));
    host.Remove(kConfigDirectory);
    host.File(kConfigDirectory, "");
    EXPECT_EQ(Row("configuration directory"),
              std::string{"warning "} + kConfigDirectory + ": Not a directory");
}

// --- The module host -----------------------------------------------------------------------------

TEST_F(Doctor, TellsTheLinkersReason) {
    host.File(kModuleHost, "no library", 0755);
    EXPECT_THAT(Row("module host loads"),
                testing::AllOf(StartsWith("failed "), HasSubstr("file too short")));
    host.File(kModuleHost, BuiltLibrary("zornctl_needs_missing/libswitch.so"), 0755);
    EXPECT_THAT(Row("module host loads"),
                testing::AllOf(StartsWith("failed "), HasSubstr("libzornctl_missing.so => not "
                                                                "found")));
}

TEST_F(Doctor, DoesNotRunTheAuditorsOfTheModuleHost) {
    host.File("/auditor.so", BuiltLibrary("zornctl_auditor/libswitch.so"), 0755);
    host.File(kModuleHost, BuiltLibrary("zornctl_audited/libswitch.so"), 0755);
    const std::string ran = "/auditor_ran";
    auto list = host.Start({"/lib64/ld-linux-x86-64.so.2", "--list", kModuleHost});
    EXPECT_EQ(list.Wait(), Exited(0));
    ASSERT_TRUE(host.Exists(ran)) << "or this test would tell nothing";
    host.Remove(ran);
    EXPECT_THAT(Row("module host loads"), StartsWith("ok "));
    host.Remove("/usr/libexec/zorn/zorn");
    EXPECT_THAT(Row("module host loads"), StartsWith("ok "));
    EXPECT_FALSE(host.Exists(ran));
}

TEST_F(Doctor, DoesNotTryAModuleHostWhoseNameTheLinkerWouldTakeForTwo) {
    const auto library = BuiltLibrary("system_hosts/obedient/libswitch.so");
    host.File("/a b/libswitch.so", library, 0755);
    EXPECT_EQ(RowOf(Run({.environment = {{"LD_LIBRARY_PATH", "/a b"}}}), "module host loads"),
              "warning not tried: /a b/libswitch.so: a path with a blank or a colon is not tried");
}

TEST_F(Doctor, ShowsTheLinkerNoFolderThatOthersCanChange) {
    host.Directory("/tmp/shared", 01777);
    for (const char* folder : {"/tmp/shared", "/tmp/shared/missing"}) {
        const StartOptions options{.environment = {{"LD_LIBRARY_PATH", folder}}};
        EXPECT_EQ(RowOf(Run(options), "module host loads"),
                  "warning not tried: others than root can change /tmp/shared");
    }
}

TEST_F(Doctor, FindsASymbolThatNobodyDefinesWithoutRunningTheModuleHost) {
    host.File(kModuleHost, BuiltLibrary("zornctl_undefined_symbol/libswitch.so"), 0755);
    host.Remove("/usr/libexec/zorn/zorn");
    host.File("/usr/libexec/zorn/zorn", BytesOf(FakeHost::Executable()), 0755);
    EXPECT_THAT(Row("module host loads"), StartsWith("failed undefined symbol: NobodyHasThis"));
    EXPECT_FALSE(host.Exists("/constructor_ran"));
    host.Remove("/usr/libexec/zorn/zorn");
    EXPECT_EQ(Row("module host loads"),
              "ok all libraries are found; symbols are not looked up without zorn");
}

TEST_F(Doctor, LooksForTheModuleHostWhereTheServiceDoes) {
    const auto library = BuiltLibrary("system_hosts/obedient/libswitch.so");
    host.Remove("/opt/Corvanthimex/lib64");
    host.File("/second/libswitch.so", library, 0755);
    host.File("/third/libswitch.so", library, 0757);
    const StartOptions options{
        .environment = {{"LD_LIBRARY_PATH", "relative::/first;/second:/third"}}};
    const auto run = Run(options);
    EXPECT_EQ(run.end, Exited(0));
    EXPECT_EQ(RowOf(run, "library directory"), "ok /second, owner 0, mode 0755");
    EXPECT_EQ(RowOf(run, "module host"), "ok /second/libswitch.so, owner 0, mode 0755");
    EXPECT_THAT(RowOf(run, "module host loads"), StartsWith("ok "));
    host.File("/second/libswitch.so", BuiltLibrary("zornctl_needs_missing/libswitch.so"), 0755);
    EXPECT_THAT(RowOf(Run(options), "module host loads"), StartsWith("failed "));
    host.File("/first/libzornctl_missing.so", BuiltLibrary("libzornctl_missing.so"), 0755);
    EXPECT_THAT(RowOf(Run(options), "module host loads"), StartsWith("ok "))
        << "what the module host needs is looked for there too";
}

TEST_F(Doctor, WarnsWithoutRegistryDirectory) {
    EXPECT_EQ(Row("registry directory"),
              "ok /opt/Corvanthimex/vital/etc/tolbrin, owner 0, mode 0755");
    host.Remove("/opt/Corvanthimex/vital");
    const auto run = Run();
    EXPECT_EQ(run.end, Exited(0));
    EXPECT_EQ(RowOf(run, "registry directory"),
              "warning /opt/Corvanthimex/vital/etc/tolbrin: No such file or directory");
}

TEST_F(Doctor, FailsWithoutLogDirectory) {
    host.Remove("/var/log/tolbrin");
    EXPECT_EQ(Row("log directory"), "failed /var/log/tolbrin: No such file or directory");
}

TEST_F(Doctor, LooksAtTheLogItself) {
    host.File(kLog, "");
    EXPECT_EQ(Row("log"), std::string{"ok "} + kLog + " can be written");
    host.Link(kLog, "/etc/passwd");
    EXPECT_EQ(Row("log"), std::string{"warning "} + kLog + " is no regular file");
}

TEST_F(Doctor, WarnsWhereTheLogHasNoRoom) {
    const auto run = Run({.environment = {{"QX_LOG_FILE_MAX_SIZE", "4294967295"}}});
    const auto row = RowOf(run, "space for the log");
    EXPECT_THAT(row, testing::ContainsRegex("[0-9]+ MiB free"));
    const auto free = std::stoull(row.substr(row.find(' ')));
    EXPECT_THAT(row, StartsWith(free < 4095 ? "warning " : "ok "));
}

TEST_F(Doctor, CountsWhatTheLogHoldsAsRoomForTheNextOne) {
    host.Run([] {
        ASSERT_EQ(mount("none", "/var/log/tolbrin", "tmpfs", 0, "size=8m"), 0);
        const auto row = [](const std::string& size) {
            const auto run = zornctl::RunChild({ZornctlExecutable(), "doctor", "--json"},
                                               {.environment = {"QX_LOG_FILE_MAX_SIZE=" + size}});
            return RowOf({Exited(run.status), run.output, run.error}, "space for the log");
        };
        EXPECT_EQ(row("7340032"), "ok 8 MiB free");
        std::ofstream{kLog} << std::string(size_t{6} << 20U, 'x');
        EXPECT_EQ(row("7340032"), "ok 2 MiB free, the log holds 6 MiB");
        EXPECT_EQ(row("9437184"), "warning 2 MiB free, the log holds 6 MiB, it may take 9 MiB");
    });
}

TEST_F(Doctor, CountsTheWarningsOfTheSettings) {
    const auto run = Run({.environment = {{"QX_LOG_FILE_DIR", "x"}, {"TraceFileLimit", ""}}});
    EXPECT_EQ(RowOf(run, "settings"), "warning 2 warnings");
}

TEST_F(Doctor, FailsWithoutTheKernelsInterfaces) {
    const std::pair<const char*, const char*> warned[] = {{"kernel: PCI", "/proc/bus/pci/devices"},
                                                          {"kernel: network", "/proc/net/dev"},
                                                          {"kernel: memory", "/dev/mem"}};
    for (const auto& [check, path] : warned) host.Remove(path);
    auto run = Run();
    EXPECT_EQ(run.end, Exited(0));
    for (const auto& [check, path] : warned) {
        EXPECT_THAT(RowOf(run, check),
                    StartsWith("warning " + std::string{path} + " is not there"));
    }
    EXPECT_EQ(RowOf(run, "kernel: SCSI"), "ok /proc/scsi/scsi is not there: optional");
    host.Remove("/sys/class");
    run = Run();
    EXPECT_EQ(run.end, Exited(1));
    EXPECT_THAT(RowOf(run, "kernel: devices"), StartsWith("failed /sys/class is not there"));
}

/// A process of that number, name and executable; of root, unless its real and effective users are told.
void AddProcess(FakeHost& host, int pid, const std::string& name, const std::string& executable,
                const std::string& users = "0\t0") {
    const std::string directory = "/proc/" + std::to_string(pid);
    host.File(directory + "/stat", std::to_string(pid) + " (" + name + ") S 1 1 1 0");
    host.File(directory + "/status", "Name:\t" + name + "\nUid:\t" + users + "\t0\t0\n");
    host.File(directory + "/environ", std::string{"QX_LOG_RINGBUF_DIR=/var/log/other"} + '\0');
    host.Link(directory + "/exe", executable);
}

TEST_F(Doctor, TakesNoProcessOfAnotherUserForTheService) {
    for (const char* users : {"1000\t1000", "1000\t0", "0\t1000"}) {
        AddProcess(host, 4712, "zorn", "/home/user/zorn", users);
        const auto run = Run();
        EXPECT_EQ(RowOf(run, "service"), "warning not running");
        EXPECT_EQ(RowOf(run, "log directory"), "ok /var/log/tolbrin, owner 0, mode 0755")
            << "nor its environment for that of the service";
    }
}

// Who may run sudo may also run it by a link called zorn, with any environment.
TEST_F(Doctor, TakesNoProgramOfAnotherNameForTheService) {
    AddProcess(host, 4712, "zorn", "/usr/bin/sudo");
    EXPECT_EQ(Row("service"), "warning not running");
}

TEST_F(Doctor, LooksUpSymbolsInNoExecutableThatOthersCanChange) {
    host.Remove("/usr/libexec/zorn/zorn");
    host.File("/shared/zorn", "no program", 0777);
    AddProcess(host, 4712, "zorn", "/shared/zorn");
    EXPECT_EQ(Row("module host loads"),
              "ok all libraries are found; symbols are not looked up without zorn");
}

TEST_F(Doctor, FindsTheRunningServiceAndLooksAtItsLog) {
    AddProcess(host, 4711, "bash", "/bin/bash");
    AddProcess(host, 4712, "zorn", "/usr/libexec/zorn/zorn");
    host.Directory("/var/log/other");
    const auto run = Run();
    EXPECT_EQ(RowOf(run, "service"), "ok runs as process 4712");
    EXPECT_THAT(RowOf(run, "log directory"), StartsWith("ok /var/log/other,"))
        << "as the service's environment says";
}

TEST_F(Doctor, FindsASecondService) {
    AddProcess(host, 4713, "zorn", "/usr/libexec/zorn/zorn");
    AddProcess(host, 4712, "zorn", "/usr/libexec/zorn/zorn");
    EXPECT_EQ(Row("service"), "warning runs more than once: 4712 4713");
}

TEST_F(Doctor, FindsAServiceWhoseFileWasReplaced) {
    AddProcess(host, 4712, "zorn", "/usr/libexec/zorn/zorn (deleted)");
    EXPECT_EQ(Row("service"), "warning runs as process 4712, but its file was replaced");
}

// --- The pure parts ------------------------------------------------------------------------------

TEST(ParseLoadProblem, FindsWhatTheLinkerComplainsOf) {
    using zornctl::ParseLoadProblem;
    EXPECT_EQ(ParseLoadProblem(""), std::nullopt);
    EXPECT_EQ(ParseLoadProblem("\tlibc.so.6 => /lib/libc.so.6 (0x00007fb5bfa1e000)\n"),
              std::nullopt);
    EXPECT_EQ(ParseLoadProblem("\tlibc.so.6 => /lib/libc.so.6 (0x0)\n\tlibx.so.1 => not found\n"),
              "libx.so.1 => not found");
    EXPECT_EQ(ParseLoadProblem("undefined symbol: x\t(/l.so)\n"), "undefined symbol: x\t(/l.so)");
    EXPECT_EQ(ParseLoadProblem("/l.so: /lib/libc.so.6: version `GLIBC_9' not found (required by "
                               "/l.so)\n"),
              "/l.so: /lib/libc.so.6: version `GLIBC_9' not found (required by /l.so)");
    EXPECT_EQ(ParseLoadProblem("symbol x, version Y not defined in file z with link time "
                               "reference\t(/l.so)"),
              "symbol x, version Y not defined in file z with link time reference\t(/l.so)");
}

TEST(ParseLoadProblem, TellsWhyTheLibraryItselfIsNone) {
    EXPECT_EQ(
        zornctl::ParseLoadProblem("ERROR: ld.so: object '/l.so' from --preload cannot be preloaded "
                                  "(file too short): ignored.\n"),
        "ERROR: ld.so: object '/l.so' from --preload cannot be preloaded (file too short): "
        "ignored.");
}

TEST(ParseLoadProblem, NeverLooksBeyondTheText) {
    EveryPrefix(
        "/l.so: version `X' not found\n\tlibx.so.1 => not found\nundefined symbol: x\t(/l.so)",
        [](std::string_view text) { (void)zornctl::ParseLoadProblem(text); });
}

TEST(ParseProcessName, NeverLooksBeyondTheText) {
    EveryPrefix("12 (a) (b)) S 1 (c)", [](std::string_view text) {
        EXPECT_LE(zornctl::ParseProcessName(text).size(), text.size());
    });
}

TEST(IsOfRoot, NeverLooksBeyondTheText) {
    EveryPrefix("Name:\tzorn\nUid:\t0\t0\t0\t0\nGid:\t7", [](std::string_view text) {
        EXPECT_TRUE(!zornctl::IsOfRoot(text) || text.size() > 16);
    });
}

TEST(IsOfRoot, AsksForBothTheRealAndTheEffectiveUser) {
    using zornctl::IsOfRoot;
    EXPECT_TRUE(IsOfRoot("Name:\tzorn\nUid:\t0\t0\t0\t0\nGid:\t7\t7\t7\t7\n"));
    for (const char* other :
         {"", "Uid:", "Uid:\t0", "Uid:\t0\t1000\t0\t0\n", "Uid:\t1000\t0\t0\t0\n",
          "Uid:\t00\t0\t0\t0\n", "Name:\tUid:\t0\t0\t\nUid:\t5\t5\t5\t5\n"}) {
        EXPECT_FALSE(IsOfRoot(other)) << other;
    }
}

TEST(ParseProcessName, TakesAllBetweenTheOuterParentheses) {
    using zornctl::ParseProcessName;
    EXPECT_EQ(ParseProcessName("12 (zorn) S 1"), "zorn");
    EXPECT_EQ(ParseProcessName("12 (a) (b)) S 1"), "a) (b)");
    for (const char* none : {"", "12", "12 (", ") (", "12 )x("}) {
        EXPECT_EQ(ParseProcessName(none), "");
    }
}

}  // namespace

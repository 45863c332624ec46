#include <sys/utsname.h>

#include <regex>

#include <gmock/gmock.h>

#include "examples/module_daemon.h"
#include "support/golden.h"

namespace {

using RunningModules = ModuleDaemonTest;

TEST_F(RunningModules, TheWholeLogOfADaemonWithGoodAndBadModules) {
    for (const char* module : {"first", "other_version", "refuses_start", "second",
                               "throws_in_entry", "throws_in_notify", "throws_in_start",
                               "throws_in_stop", "undefined_symbol", "without_entry"}) {
        Install(module);
    }
    m_Machine.File("/modules/text.so",
                   "This is no library, and long enough to have a header.\n"
                   "It has a second line, too.\n");
    m_Options.environment["QX_LOG_DEBUG_LEVEL"] = "3";
    RunDaemon();

    auto log = MaskTrace(m_Machine.Read(kLog));
    log.replace(log.find(FakeHost::Executable()), FakeHost::Executable().size(), "<zorn>");
    ExpectGolden("examples/good_and_bad_modules.log", log);
}

TEST_F(RunningModules, AnEmptyFolderLeavesTheDaemonWithoutModules) {
    RunDaemon();
    EXPECT_EQ(ModuleLines(),
              (Lines{"ModuleHost          : Load the modules of /modules (force rescan "
                     "0, run mode 5)",
                     "ModuleHost          : 0 of 0 modules loaded"}));
}

TEST_F(RunningModules, AMissingFolderLeavesTheDaemonWaitingForItsSignal) {
    m_Machine.Remove("/modules");
    RunDaemon();
    EXPECT_EQ(ModuleLines(),
              (Lines{"ModuleHost          : Load the modules of /modules (force rescan "
                     "0, run mode 5)",
                     "ModuleHost          : ## ERROR! Cannot read the module folder "
                     "/modules: No such file or directory"}));
    EXPECT_NE(m_Machine.Read(kLog).find("Load extension modules FAILED!"), std::string::npos);
}

TEST_F(RunningModules, TheFolderBesideTheLibraryIsTheDefault) {
    m_Machine.Link("/opt/host/libswitch.so", FakeHost::LibraryDirectory() + "/libswitch.so");
    m_Machine.Link("/opt/host/modules/first.so", TEST_MODULES "/first.so");
    m_Options.environment["LD_LIBRARY_PATH"] = "/opt/host";
    for (const char* unset : {"", "empty"}) {
        if (*unset) {
            m_Options.environment["ZORN_MODULE_DIR"] = "";
        } else {
            m_Options.environment.erase("ZORN_MODULE_DIR");
        }
        RunDaemon();
        const auto lines = ModuleLines();
        ASSERT_FALSE(lines.empty());
        EXPECT_EQ(lines[0],
                  "ModuleHost          : Load the modules of /opt/host/modules (force "
                  "rescan 0, run mode 5)");
        EXPECT_NE(std::find(lines.begin(), lines.end(), "TestModule          : first starts"),
                  lines.end());
    }
}

TEST_F(RunningModules, TheExitEventOfAModuleIsHeardAtTheNextSignal) {
    Install("asks_to_exit");
    auto daemon = StartDaemon();
    daemon.Signal(SIGALRM);
    EXPECT_EQ(daemon.Wait(), Exited(0));
    EXPECT_EQ(ModuleLines(),
              (Lines{"ModuleHost          : Load the modules of /modules (force rescan "
                     "0, run mode 5)",
                     "ModuleHost          : 1 of 1 modules loaded",
                     "ModuleHost          : Start asks_to_exit ...",
                     "ModuleHost          : Stop asks_to_exit ...",
                     "TestModule          : asks_to_exit stops",
                     "TestModule          : asks_to_exit is unmapped"}));
}

TEST_F(RunningModules, TheMachineReportTellsWhatItRunsOn) {
    utsname system{};
    ASSERT_EQ(uname(&system), 0);
    m_Options.environment["ZORN_MODULE_DIR"] = FakeHost::LibraryDirectory() + "/modules";
    RunDaemon();

    const auto lines = ModuleLines();
    ASSERT_EQ(lines.size(), 6u) << testing::PrintToString(lines);
    EXPECT_EQ(lines[2], "ModuleHost          : Start machine report ...");
    EXPECT_EQ(lines[3], std::string{"MachineReport       : Host "} + system.nodename + ", " +
                            system.sysname + " " + system.release + " (" + system.machine + ")");
    EXPECT_TRUE(std::regex_match(
        lines[4], std::regex{"MachineReport       : [1-9][0-9]* CPUs, memory [1-9][0-9]* MiB, free "
                             "[0-9]+ MiB, up [0-9]+ s"}))
        << lines[4];
    EXPECT_EQ(lines[5], "ModuleHost          : Stop machine report ...");
}

TEST_F(RunningModules, TheMachineReportCountsItsStartsInTheRegistry) {
    const std::string registry = "/opt/Corvanthimex/vital/etc/tolbrin/registry";
    m_Options.environment["ZORN_MODULE_DIR"] = FakeHost::LibraryDirectory() + "/modules";
    for (const bool isDelivered : {false, true}) {
        m_Machine.Directory("/opt/Corvanthimex/vital/etc/tolbrin");
        if (isDelivered) {
            m_Machine.File(registry + ".default",
                           "[HKEY_LOCAL_MACHINE]\n[SOFTWARE]\nPath=s=/opt\n\n\n\n");
        }
        for (const char* number : {"1", "2"}) {
            RunDaemon();
            const auto lines = ModuleLines();
            ASSERT_EQ(lines.size(), 7u) << testing::PrintToString(lines);
            EXPECT_EQ(lines[5], std::string{"MachineReport       : Start number "} + number);
        }
        EXPECT_THAT(m_Machine.Read(registry),
                    testing::StartsWith(std::string{"[HKEY_LOCAL_MACHINE]\n[SOFTWARE]\n"} +
                                        (isDelivered ? "Path=s=/opt\n" : "") +
                                        "[Zorn]\n[MachineReport]\nStarts=d=2\n\n\n\n\n"));
        EXPECT_THAT(m_Machine.Read(registry + ".old"), testing::HasSubstr("Starts=d=1\n"));
        m_Machine.Remove("/opt/Corvanthimex");
    }
}

TEST_F(RunningModules, TheThreadOfTheMachineReportEndsBeforeTheModuleIsUnloaded) {
    m_Options.environment["ZORN_MODULE_DIR"] = FakeHost::LibraryDirectory() + "/modules";
    m_Options.environment["QX_LOG_DEBUG_LEVEL"] = "3";
    auto daemon = StartDaemon();
    ASSERT_TRUE(daemon.WaitForFileText(kLog, "MachineReport       : Load "));
    daemon.Signal(SIGTERM);
    EXPECT_EQ(daemon.Wait(), Exited(0));

    const auto lines = ModuleLines();
    ASSERT_GE(lines.size(), 3u);
    EXPECT_EQ(
        Lines(lines.end() - 3, lines.end()),
        (Lines{"ModuleHost          : Stop machine report ...", "MachineReport       : Thread ends",
               "ModuleHost          : Unload machine report"}));
}

}  // namespace

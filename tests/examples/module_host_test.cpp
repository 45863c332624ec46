#include "module_host/module_host.h"

#include <dlfcn.h>

#include <stdlib.h>

#include <gtest/gtest.h>

#include "support/fake_host.h"
#include "support/leak_census.h"
#include "support/trace_capture.h"

namespace {

/// The host, in this process, on a machine whose module folder holds what a test puts there.
class ModuleHostTest : public testing::Test {
  protected:
    FakeHost m_Machine;

    ModuleHostTest() { m_Machine.Directory("/modules"); }

    /// Puts a module of modules/ into the folder, under a file name of its own if one is given.
    void Install(const std::string& module, const std::string& fileName = {}) {
        m_Machine.Link("/modules/" + (fileName.empty() ? module + ".so" : fileName),
                       TEST_MODULES "/" + module + ".so");
    }

    /// What is traced at level 3 by `body` with a fresh host.
    void ExpectLines(const std::function<void(ModuleHost&)>& body, const Lines& expected) {
        m_Machine.Run([&] {
            (void)setenv("ZORN_MODULE_DIR", "/modules", 1);
            TraceCapture trace{3};
            {
                ModuleHost host;
                body(host);
            }
            EXPECT_EQ(trace.Lines(), expected);
        });
    }

    static bool Load(ModuleHost& host) {
        SwitchLoadParams params{0, 5};
        return host.LoadModules(&params);
    }

    /// Loads, starts, notifies, stops and unloads, as the daemon does.
    static void WholeLife(ModuleHost& host) {
        EXPECT_TRUE(Load(host));
        host.StartModules();
        host.NotifyService(0x20000, 0, 0);
        host.StopModules();
        EXPECT_TRUE(host.UnloadModules(0));
    }
};

const std::string kLoadLine =
    "ModuleHost          : Load the modules of /modules (force rescan 0, run mode 5)";
const std::string kNotifyLine = "ModuleHost          : Message 0x20000 (0, 0) to all modules";

/// The whole life of a folder of which nothing was loaded.
Lines NothingLoaded(const std::string& failure) {
    return {kLoadLine, "ModuleHost          : ## ERROR! " + failure,
            "ModuleHost          : 0 of 1 modules loaded", kNotifyLine};
}

TEST_F(ModuleHostTest, StartsInTheByteOrderOfTheFileNamesAndStopsInReverse) {
    Install("first", "b.so");
    Install("second", "B.so");
    ExpectLines(WholeLife, {
                               kLoadLine,
                               "ModuleHost          : B.so loaded: second",
                               "ModuleHost          : b.so loaded: first",
                               "ModuleHost          : 2 of 2 modules loaded",
                               "ModuleHost          : Start second ...",
                               "TestModule          : second starts",
                               "ModuleHost          : Start first ...",
                               "TestModule          : first starts",
                               kNotifyLine,
                               "TestModule          : second hears 0x20000 0 0",
                               "TestModule          : first hears 0x20000 0 0",
                               "ModuleHost          : Stop first ...",
                               "TestModule          : first stops",
                               "ModuleHost          : Stop second ...",
                               "TestModule          : second stops",
                               "ModuleHost          : Unload first",
                               "TestModule          : first is unmapped",
                               "ModuleHost          : Unload second",
                               "TestModule          : second is unmapped",
                           });
}

TEST_F(ModuleHostTest, TakesTheFilesThatEndInSoAndAreNotHidden) {
    for (const char* name : {"first.so.bak", ".so", ".first.so", "first", "first.SO", "so"}) {
        Install("first", name);
    }
    ExpectLines([](ModuleHost& host) { EXPECT_TRUE(Load(host)); },
                {kLoadLine, "ModuleHost          : 0 of 0 modules loaded"});
}

TEST_F(ModuleHostTest, AnEmptyFolderIsNoFailure) {
    ExpectLines(WholeLife, {kLoadLine, "ModuleHost          : 0 of 0 modules loaded", kNotifyLine});
}

TEST_F(ModuleHostTest, AMissingFolderIsAFailure) {
    m_Machine.Remove("/modules");
    ExpectLines([](ModuleHost& host) { EXPECT_FALSE(Load(host)); },
                {kLoadLine,
                 "ModuleHost          : ## ERROR! Cannot read the module folder /modules: No such "
                 "file or directory"});
}

TEST_F(ModuleHostTest, AFileInPlaceOfTheFolderIsAFailure) {
    m_Machine.Remove("/modules");
    m_Machine.File("/modules", "");
    ExpectLines([](ModuleHost& host) { EXPECT_FALSE(Load(host)); },
                {kLoadLine,
                 "ModuleHost          : ## ERROR! Cannot read the module folder /modules: Not a "
                 "directory"});
}

TEST_F(ModuleHostTest, TracesTheParametersAsTheyCome) {
    ExpectLines(
        [](ModuleHost& host) {
            SwitchLoadParams params{1, 0};
            EXPECT_TRUE(host.LoadModules(&params));
        },
        {"ModuleHost          : Load the modules of /modules (force rescan 1, run mode 0)",
         "ModuleHost          : 0 of 0 modules loaded"});
}

TEST_F(ModuleHostTest, NamesAFileThatIsNoLibrary) {
    m_Machine.File("/modules/text.so",
                   "This is no library, and long enough to have a header.\n"
                   "It has a second line, too.\n");
    ExpectLines(WholeLife,
                NothingLoaded("text.so not loaded: /modules/text.so: invalid ELF header"));
}

TEST_F(ModuleHostTest, NamesAnEmptyFile) {
    m_Machine.File("/modules/empty.so", "");
    ExpectLines(WholeLife, NothingLoaded("empty.so not loaded: /modules/empty.so: file too short"));
}

TEST_F(ModuleHostTest, NamesAFolderAmongTheModules) {
    m_Machine.Directory("/modules/folder.so");
    ExpectLines(WholeLife,
                NothingLoaded("folder.so not loaded: /modules/folder.so: cannot read file "
                              "data: Is a directory"));
}

TEST_F(ModuleHostTest, NamesALinkToNothing) {
    m_Machine.Link("/modules/gone.so", "/nowhere");
    ExpectLines(WholeLife, NothingLoaded("gone.so not loaded: /modules/gone.so: cannot open shared "
                                         "object file: No such file or directory"));
}

TEST_F(ModuleHostTest, NamesTheSymbolThatAModuleLacks) {
    Install("undefined_symbol");
    ExpectLines(WholeLife,
                NothingLoaded("undefined_symbol.so not loaded: /modules/undefined_symbol.so: "
                              "undefined symbol: FunctionThatNobodyHas"));
}

TEST_F(ModuleHostTest, RefusesALibraryWithoutTheEntry) {
    Install("without_entry");
    ExpectLines(WholeLife, NothingLoaded("without_entry.so not loaded: it does not export "
                                         "ZornModuleEntry"));
}

/// For modules whose own objects tell that they are unmapped when the host lets them go.
Lines LoadedInVain(const std::string& name, const std::string& reason) {
    return {kLoadLine, "TestModule          : " + name + " is unmapped",
            "ModuleHost          : ## ERROR! " + name + ".so not loaded: " + reason,
            "ModuleHost          : 0 of 1 modules loaded", kNotifyLine};
}

TEST_F(ModuleHostTest, RefusesAnotherVersionOfTheContract) {
    Install("other_version");
    ExpectLines(WholeLife, LoadedInVain("other_version",
                                        "it was built for version 42 of the module contract, this "
                                        "host for version 1"));
}

TEST_F(ModuleHostTest, RefusesAModuleWithoutATable) {
    Install("without_table");
    ExpectLines(WholeLife, LoadedInVain("without_table", "its ZornModuleEntry gave no table"));
}

TEST_F(ModuleHostTest, RefusesAModuleWithoutAName) {
    Install("without_name");
    ExpectLines(WholeLife, LoadedInVain("without_name", "its table has no name"));
}

TEST_F(ModuleHostTest, RefusesAModuleWithoutStop) {
    Install("without_stop");
    ExpectLines(WholeLife, LoadedInVain("without_stop", "its table lacks Start or Stop"));
}

TEST_F(ModuleHostTest, GivesTheReasonThatTheEntryThrowsThoughItsClassIsUnmapped) {
    Install("throws_in_entry");
    ExpectLines(WholeLife, LoadedInVain("throws_in_entry", "it says: no disk to watch"));
}

TEST_F(ModuleHostTest, LeavesAModuleAloneThatRefusesToStart) {
    Install("refuses_start");
    ExpectLines(WholeLife,
                {kLoadLine, "ModuleHost          : refuses_start.so loaded: refuses_start",
                 "ModuleHost          : 1 of 1 modules loaded",
                 "ModuleHost          : Start refuses_start ...",
                 "ModuleHost          : ## ERROR! refuses_start not started: it cannot work here",
                 kNotifyLine, "ModuleHost          : Unload refuses_start",
                 "TestModule          : refuses_start is unmapped"});
}

TEST_F(ModuleHostTest, KeepsAModuleMappedThatThrowsInStart) {
    Install("throws_in_start");
    LeakCensus::MayStay(TEST_MODULES "/throws_in_start.so");
    ExpectLines(
        WholeLife,
        {kLoadLine, "ModuleHost          : throws_in_start.so loaded: throws_in_start",
         "ModuleHost          : 1 of 1 modules loaded",
         "ModuleHost          : Start throws_in_start ...",
         "ModuleHost          : ## ERROR! throws_in_start not started: it threw: the disk is "
         "busy",
         kNotifyLine, "ModuleHost          : Unload throws_in_start"});
}

TEST_F(ModuleHostTest, KeepsAModuleMappedThatThrowsInStop) {
    Install("throws_in_stop");
    LeakCensus::MayStay(TEST_MODULES "/throws_in_stop.so");
    ExpectLines(
        WholeLife,
        {kLoadLine, "ModuleHost          : throws_in_stop.so loaded: throws_in_stop",
         "ModuleHost          : 1 of 1 modules loaded",
         "ModuleHost          : Start throws_in_stop ...",
         "TestModule          : throws_in_stop starts", kNotifyLine,
         "TestModule          : throws_in_stop hears 0x20000 0 0",
         "ModuleHost          : Stop throws_in_stop ...",
         "ModuleHost          : ## ERROR! throws_in_stop not stopped: it threw: an exception "
         "of another kind than std::exception",
         "ModuleHost          : Unload throws_in_stop"});
}

TEST_F(ModuleHostTest, GoesOnWithAModuleThatThrowsOnAMessage) {
    Install("throws_in_notify");
    ExpectLines(
        WholeLife,
        {kLoadLine, "ModuleHost          : throws_in_notify.so loaded: throws_in_notify",
         "ModuleHost          : 1 of 1 modules loaded",
         "ModuleHost          : Start throws_in_notify ...",
         "TestModule          : throws_in_notify starts", kNotifyLine,
         "ModuleHost          : ## ERROR! throws_in_notify threw on message 0x20000: not now",
         "ModuleHost          : Stop throws_in_notify ...",
         "TestModule          : throws_in_notify stops",
         "ModuleHost          : Unload throws_in_notify",
         "TestModule          : throws_in_notify is unmapped"});
}

TEST_F(ModuleHostTest, NeedsNoNotify) {
    Install("without_notify");
    ExpectLines(WholeLife,
                {kLoadLine, "ModuleHost          : without_notify.so loaded: without_notify",
                 "ModuleHost          : 1 of 1 modules loaded",
                 "ModuleHost          : Start without_notify ...",
                 "TestModule          : without_notify starts", kNotifyLine,
                 "ModuleHost          : Stop without_notify ...",
                 "TestModule          : without_notify stops",
                 "ModuleHost          : Unload without_notify",
                 "TestModule          : without_notify is unmapped"});
}

TEST_F(ModuleHostTest, NotifiesOnlyModulesThatRun) {
    Install("first");
    ExpectLines(
        [](ModuleHost& host) {
            EXPECT_TRUE(Load(host));
            host.NotifyService(7, 8, 9);
            host.StartModules();
            host.NotifyService(7, 8, 9);
            host.StopModules();
            host.NotifyService(7, 8, 9);
        },
        {kLoadLine, "ModuleHost          : first.so loaded: first",
         "ModuleHost          : 1 of 1 modules loaded",
         "ModuleHost          : Message 0x7 (8, 9) to all modules",
         "ModuleHost          : Start first ...", "TestModule          : first starts",
         "ModuleHost          : Message 0x7 (8, 9) to all modules",
         "TestModule          : first hears 0x7 8 9", "ModuleHost          : Stop first ...",
         "TestModule          : first stops",
         "ModuleHost          : Message 0x7 (8, 9) to all modules",
         "ModuleHost          : Unload first", "TestModule          : first is unmapped"});
}

TEST_F(ModuleHostTest, StartsAndStopsAModuleOnce) {
    Install("first");
    ExpectLines(
        [](ModuleHost& host) {
            EXPECT_TRUE(Load(host));
            host.StopModules();
            host.StartModules();
            host.StartModules();
            host.StopModules();
            host.StopModules();
        },
        {kLoadLine, "ModuleHost          : first.so loaded: first",
         "ModuleHost          : 1 of 1 modules loaded", "ModuleHost          : Start first ...",
         "TestModule          : first starts", "ModuleHost          : Stop first ...",
         "TestModule          : first stops", "ModuleHost          : Unload first",
         "TestModule          : first is unmapped"});
}

TEST_F(ModuleHostTest, StopsWhatRunsBeforeItIsUnloadedOrLoadedAgain) {
    Install("first");
    ExpectLines(
        [](ModuleHost& host) {
            EXPECT_TRUE(Load(host));
            host.StartModules();
            EXPECT_TRUE(Load(host));
        },
        {kLoadLine, "ModuleHost          : first.so loaded: first",
         "ModuleHost          : 1 of 1 modules loaded", "ModuleHost          : Start first ...",
         "TestModule          : first starts", "ModuleHost          : Stop first ...",
         "TestModule          : first stops", "ModuleHost          : Unload first",
         "TestModule          : first is unmapped", kLoadLine,
         "ModuleHost          : first.so loaded: first",
         "ModuleHost          : 1 of 1 modules loaded", "ModuleHost          : Unload first",
         "TestModule          : first is unmapped"});
}

}  // namespace

// The executable that ships, on a machine made for it, with module hosts of which each shows one
// side (hosts/). Whole logs are compared with the files in golden/.

#include <signal.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/fake_host.h"
#include "support/golden.h"
#include "support/sanitizers.h"
#include "support/trace_capture.h"

namespace fs = std::filesystem;

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr const char* kLogDirectory = "/var/log/tolbrin";
constexpr const char* kLog = "/var/log/tolbrin/log.zorn";
constexpr const char* kConfiguration =
    "/opt/Corvanthimex/vital/etc/kelmora/TarnhollowSuite/TraceConfig";
constexpr const char* kWaiting = "ZORN-MAIN:  Waiting for signals...";

using Environment = std::map<std::string, std::string>;
const Environment kLevel3{{"QX_LOG_DEBUG_LEVEL", "3"}};

void ReplaceAll(std::string& text, const std::string& what, const std::string& by) {
    for (size_t at = 0; (at = text.find(what, at)) != text.npos; at += by.size()) {
        text.replace(at, what.size(), by);
    }
}

std::string HostDirectory(const std::string& host) {
    return FakeHost::LibraryDirectory() + "/system_hosts/" + host;
}

class ServiceRun : public testing::Test {
  protected:
    ServiceRun() { m_Machine.Directory(kLogDirectory); }

    /// Starts the service with that module host; null leaves it to the run path.
    HostProcess Start(const char* host, Environment environment = {},
                      const std::vector<std::string>& arguments = {}) {
        if (host != nullptr) environment["LD_LIBRARY_PATH"] = HostDirectory(host);
        std::vector<std::string> line{FakeHost::Executable()};
        line.insert(line.end(), arguments.begin(), arguments.end());
        StartOptions options;
        options.environment = environment;
        options.directory = "/tmp";
        return m_Machine.Start(line, options);
    }

    /// The same, and waits until it is ready for signals.
    HostProcess StartAndWait(const char* host, const Environment& environment = {},
                             const std::vector<std::string>& arguments = {}) {
        HostProcess zorn = Start(host, environment, arguments);
        EXPECT_TRUE(zorn.WaitForFileText(kLog, kWaiting));
        return zorn;
    }

    /// A run from start to the given signal, which ends with exit code 0.
    void RunTo(int signal, const char* host, const Environment& environment = {},
               const std::vector<std::string>& arguments = {}) {
        HostProcess zorn = StartAndWait(host, environment, arguments);
        zorn.Signal(signal);
        EXPECT_EQ(zorn.Wait(), Exited(0));
        EXPECT_EQ(zorn.StandardError(), "");
    }

    /// The log so far, with what differs from run to run and from build to build masked.
    [[nodiscard]] std::string Log(const char* path = kLog) const {
        std::string log = MaskTrace(m_Machine.Read(path));
        ReplaceAll(log, FakeHost::Executable(), "<zorn>");
        ReplaceAll(log, FakeHost::LibraryDirectory(), "<libraries>");
        return log;
    }

    FakeHost m_Machine;
};

// --- From start to stop --------------------------------------------------------------------------

TEST_F(ServiceRun, AtLevel0WritesItsUnconditionalLinesOnly) {
    RunTo(SIGTERM, "obedient");
    ExpectGolden("system/golden/level_0.log", Log());
}

TEST_F(ServiceRun, AtLevel1StaysAsQuietWhenAllIsWell) {
    RunTo(SIGTERM, "obedient", {{"QX_LOG_DEBUG_LEVEL", "1"}});
    ExpectGolden("system/golden/level_0.log", Log());
}

TEST_F(ServiceRun, AtLevel2WritesItsMainSteps) {
    RunTo(SIGTERM, "obedient", {{"QX_LOG_DEBUG_LEVEL", "2"}});
    ExpectGolden("system/golden/level_2.log", Log());
}

TEST_F(ServiceRun, AtLevel5WritesEverything) {
    RunTo(SIGTERM, "obedient", {{"QX_LOG_DEBUG_LEVEL", "5"}});
    ExpectGolden("system/golden/level_5.log", Log());
}

TEST_F(ServiceRun, WithTheHeaderOnBeginsItsLogWithIt) {
    RunTo(SIGTERM, "obedient",
          {{"QX_LOG_DEBUG_LEVEL", "3"}, {"QX_LOG_NOHDR_TOSDTERR", "0"}, {"QX_OS", "test-os"}});
    ExpectGolden("system/golden/header.log", Log());
}

TEST_F(ServiceRun, TakesItsSettingsFromTheConfigurationDirectory) {
    m_Machine.File(
        std::string{kConfiguration} + "/zorn.ini",
        "[zorn]\nFileDebugLevel=3\nMemoryTracesFlag=0\nRingBufferDirectory=/var/log/other\n"
        "[EndOfFile]\n");
    m_Machine.Directory("/var/log/other");
    HostProcess zorn = Start("obedient");
    ASSERT_TRUE(zorn.WaitForFileText("/var/log/other/log.zorn", kWaiting));
    zorn.Signal(SIGTERM);
    EXPECT_EQ(zorn.Wait(), Exited(0));
    ExpectGolden("system/golden/configured.log", Log("/var/log/other/log.zorn"));
    EXPECT_THAT(m_Machine.List(kLogDirectory), IsEmpty());
}

TEST_F(ServiceRun, WithAnEmptyConfigurationDirectoryLogsAtTheRootOfTheFileSystem) {
    m_Machine.Directory(kConfiguration);
    HostProcess zorn = Start("obedient", {{"QX_LOG_DEBUG_LEVEL", "5"}});
    ASSERT_TRUE(zorn.WaitForFileText("/log.zorn", kWaiting));
    zorn.Signal(SIGTERM);
    EXPECT_EQ(zorn.Wait(), Exited(0));
    ExpectGolden("system/golden/root_log.log", Log("/log.zorn"));
    EXPECT_THAT(m_Machine.List(kLogDirectory), IsEmpty());
}

TEST_F(ServiceRun, EmptiesTheLogOfTheFormerRun) {
    m_Machine.File(kLog, "of the former run\n");
    RunTo(SIGTERM, "obedient");
    ExpectGolden("system/golden/level_0.log", Log());
}

TEST_F(ServiceRun, GoesOnWithoutALogWhereItCannotMakeOne) {
    m_Machine.Remove(kLogDirectory);
    HostProcess zorn = Start("surroundings");
    ASSERT_TRUE(zorn.WaitForStandardError("standard error is as it was\n"));
    zorn.Signal(SIGTERM);
    EXPECT_EQ(zorn.Wait(), Exited(0));
}

constexpr const char* kNoRunPath = "the sanitizer's dlopen() does not look at the run path";

TEST_F(ServiceRun, FindsTheModuleHostByItsRunPath) {
    if (kAddressSanitizer) GTEST_SKIP() << kNoRunPath;
    m_Machine.Link("/opt/Corvanthimex/lib64/libswitch.so",
                   HostDirectory("obedient") + "/libswitch.so");
    RunTo(SIGTERM, nullptr);
    ExpectGolden("system/golden/level_0.log", Log());
}

TEST_F(ServiceRun, StopsWithAModuleHostThatExportsTheQueryOnly) {
    RunTo(SIGTERM, "only_query", kLevel3);
    ExpectGolden("system/golden/only_query.log", Log());
}

TEST_F(ServiceRun, EchoesAnyCommandLineIntoTheTraceAndDoesNothingElseWithIt) {
    RunTo(SIGTERM, "obedient", {},
          {"--help", "", "-d", "two words", "%s%n%d", "\"quoted\"", "\xC3\xA4\xFF", "two\nlines"});
    const std::string log = m_Machine.Read(kLog);
    size_t at = log.find("zorn Command Line Options:\n");
    ASSERT_NE(at, log.npos);
    const std::vector<std::string> echoes{"argv[0] = \"" + FakeHost::Executable() + "\"\n",
                                          "argv[1] = \"--help\"\n",
                                          "argv[2] = \"\"\n",
                                          "argv[3] = \"-d\"\n",
                                          "argv[4] = \"two words\"\n",
                                          "argv[5] = \"%s%n%d\"\n",
                                          "argv[6] = \"\"quoted\"\"\n",
                                          "argv[7] = \"\xC3\xA4\xFF\"\n",
                                          "argv[8] = \"two\nlines\"\n"};
    for (const std::string& echo : echoes) {
        at = log.find(echo, at);
        ASSERT_NE(at, log.npos) << echo;
    }
    EXPECT_THAT(log.substr(at), HasSubstr("ZORN-MAIN: ## EXIT PROCESS ZORN ##\n"));
}

TEST_F(ServiceRun, GivesModulesTheSurroundingsTheyRelyOn) {
    HostProcess zorn = StartAndWait("surroundings");
    zorn.Signal(SIGTERM);
    EXPECT_EQ(zorn.Wait(), Exited(0));
    ExpectGolden("system/golden/surroundings.log", Log());
    EXPECT_EQ(zorn.StandardOutput(), "standard output is as it was\n");
    EXPECT_EQ(zorn.StandardError(), "standard error is as it was\n");
}

TEST_F(ServiceRun, KeepsTheBlockThatItHandedToTheModuleHostToItsEnd) {
    RunTo(SIGTERM, "block_keeper");
    std::vector<std::string> blocks;
    const std::string log = m_Machine.Read(kLog);
    for (size_t at = 0; (at = log.find("HOST: block in ", at)) != log.npos; ++at) {
        blocks.push_back(log.substr(at, log.find('\n', at) - at));
    }
    EXPECT_THAT(blocks,
                ElementsAre("HOST: block in StartModules: 0, 5", "HOST: block in StopModules: 0, 5",
                            "HOST: block in UnloadModules: 0, 5"));
}

// There is no pid file, and nothing is left to be cleaned up.
TEST_F(ServiceRun, LeavesNothingOnTheMachineButItsLog) {
    const auto files = [this] {
        std::set<std::string> paths;
        for (const auto& entry : fs::recursive_directory_iterator{m_Machine.Path("/")}) {
            paths.insert(entry.path().lexically_relative(m_Machine.Path("/")).string());
        }
        std::erase_if(paths, [](const std::string& path) { return path.starts_with("proc/"); });
        return paths;
    };
    for (const char* folder : {"/run", "/var/run", "/tmp", "/etc"}) m_Machine.Directory(folder);
    EXPECT_EQ(m_Machine.Start({"/bin/true"}).Wait(), Exited(0));  // makes what any run finds
    const std::set<std::string> before = files();
    HostProcess zorn = StartAndWait("obedient", kLevel3);
    std::set<std::string> made;
    const auto newFiles = [&] {
        const std::set<std::string> now = files();
        made.clear();
        std::set_difference(now.begin(), now.end(), before.begin(), before.end(),
                            std::inserter(made, made.end()));
        return made;
    };
    EXPECT_THAT(newFiles(), ElementsAre("var/log/tolbrin/log.zorn")) << "while it runs";
    zorn.Signal(SIGTERM);
    EXPECT_EQ(zorn.Wait(), Exited(0));
    EXPECT_THAT(newFiles(), ElementsAre("var/log/tolbrin/log.zorn")) << "when it has ended";
}

// The lock of an object that does not live does nothing: an event made before the locks of its class
// is well all the same.
TEST_F(ServiceRun, MakesItsProcessWideObjectsInTheirOrderAndDestroysThemInTheReverse) {
    if (kAddressSanitizer || kThreadSanitizer) GTEST_SKIP() << "the sanitizer must come first";
    HostProcess zorn =
        Start("obedient", {{"LD_PRELOAD", FakeHost::LibraryDirectory() + "/order_witness.so"}});
    ASSERT_TRUE(zorn.WaitForFileText(kLog, kWaiting));
    zorn.Signal(SIGTERM);
    EXPECT_EQ(zorn.Wait(), Exited(0));
    EXPECT_EQ(zorn.StandardError(),
              "made Debug\nmade g_EventLock\nmade g_EventTable\nmade CRegistry::MRegistryLock\n"
              "made g_SemaphoreTable\nmain\ndestroyed g_SemaphoreTable\n"
              "destroyed CRegistry::MRegistryLock\ndestroyed g_EventTable\n"
              "destroyed g_EventLock\ndestroyed g_ExitEvent\ndestroyed Debug\n");
}

// --- Signals -------------------------------------------------------------------------------------

TEST_F(ServiceRun, StopsAtSigintAsAtSigterm) {
    RunTo(SIGINT, "obedient", kLevel3);
    const std::string afterSigint = Log();
    m_Machine.Remove(kLog);
    RunTo(SIGTERM, "obedient", kLevel3);
    std::string expected = Log();
    ReplaceAll(expected, "got signal 15", "got signal 2");
    ReplaceAll(expected, "Signal 15 caught", "Signal 2 caught");
    EXPECT_EQ(afterSigint, expected);
}

TEST_F(ServiceRun, TogglesTheTraceAtSighupAndReloadsNothing) {
    HostProcess zorn = StartAndWait("obedient", kLevel3);
    zorn.Signal(SIGHUP);
    ASSERT_TRUE(zorn.WaitForFileText(kLog, "Trace reset due to SIGHUP"));
    zorn.Signal(SIGHUP);
    ASSERT_TRUE(zorn.WaitForFileText(kLog, "Trace forced due to SIGHUP"));
    zorn.Signal(SIGTERM);
    EXPECT_EQ(zorn.Wait(), Exited(0));
    ExpectGolden("system/golden/sighup_twice.log", Log());
}

TEST_F(ServiceRun, StaysQuietAfterOneSighup) {
    HostProcess zorn = StartAndWait("obedient", kLevel3);
    zorn.Signal(SIGHUP);
    ASSERT_TRUE(zorn.WaitForFileText(kLog, "Trace reset due to SIGHUP"));
    zorn.Signal(SIGTERM);
    EXPECT_EQ(zorn.Wait(), Exited(0));
    ExpectGolden("system/golden/sighup_once.log", Log());
}

TEST_F(ServiceRun, OnlyLogsSigalrm) {
    HostProcess zorn = StartAndWait("obedient");
    zorn.Signal(SIGALRM);
    ASSERT_TRUE(zorn.WaitForFileText(kLog, "Signal 14 (SIGALRM) caught -> ignoring"));
    zorn.Signal(SIGTERM);
    EXPECT_EQ(zorn.Wait(), Exited(0));
    ExpectGolden("system/golden/sigalrm.log", Log());
}

TEST_F(ServiceRun, KeepsAStopSignalThatComesBeforeItWaits) {
    HostProcess zorn = Start("self_signal");
    EXPECT_EQ(zorn.Wait(), Exited(0));
    ExpectGolden("system/golden/level_0.log", Log());
}

TEST_F(ServiceRun, HearsTheExitEventOfAModuleAtTheNextSignalOnly) {
    HostProcess zorn = StartAndWait("exit_event");
    zorn.Signal(SIGALRM);
    EXPECT_EQ(zorn.Wait(), Exited(0));
    ExpectGolden("system/golden/exit_event.log", Log());
}

TEST_F(ServiceRun, IsNotEndedBySigpipeNorBySigio) {
    HostProcess zorn = StartAndWait("obedient");
    zorn.Signal(SIGPIPE);
    zorn.Signal(SIGIO);
    zorn.Signal(SIGTERM);
    EXPECT_EQ(zorn.Wait(), Exited(0));
    ExpectGolden("system/golden/level_0.log", Log());
}

// --- Failures ------------------------------------------------------------------------------------

TEST_F(ServiceRun, RefusesAUserOtherThanRootWithOneLineAndWithoutALog) {
    m_Machine.Directory(kLogDirectory, 0777);
    HostProcess zorn =
        m_Machine.Start({FakeHost::Executable(), "argument"},
                        {.environment = {{"LD_LIBRARY_PATH", HostDirectory("obedient")},
                                         {"QX_LOG_DEBUG_LEVEL", "5"}},
                         .uid = 1000});
    EXPECT_EQ(zorn.Wait(), Exited(1));
    EXPECT_EQ(zorn.StandardError(),
              FakeHost::Executable() + ": ZORN-MAIN: Error! Permission denied\n");
    EXPECT_EQ(zorn.StandardOutput(), "");
    EXPECT_THAT(m_Machine.List(kLogDirectory), IsEmpty());
}

TEST_F(ServiceRun, EndsWith1WhenTheModuleHostIsMissing) {
    HostProcess zorn = Start(nullptr, kLevel3);
    EXPECT_EQ(zorn.Wait(), Exited(1));
    EXPECT_EQ(zorn.StandardError(), "");
    ExpectGolden("system/golden/missing_host.log", Log());
}

TEST_F(ServiceRun, EndsWith1WhenTheModuleHostIsMissingAlsoAtLevel0) {
    HostProcess zorn = Start(nullptr);
    EXPECT_EQ(zorn.Wait(), Exited(1));
    ExpectGolden("system/golden/missing_host_level_0.log", Log());
}

TEST_F(ServiceRun, EndsWith1WhenTheModuleHostIsNoLibrary) {
    if (kAddressSanitizer) GTEST_SKIP() << kNoRunPath;
    m_Machine.File("/opt/Corvanthimex/lib64/libswitch.so", "no library\n");
    HostProcess zorn = Start(nullptr, kLevel3);
    EXPECT_EQ(zorn.Wait(), Exited(1));
    const std::string log = Log();
    EXPECT_THAT(log, HasSubstr("LoadLibrary: ## ERROR:  /opt/Corvanthimex/lib64/libswitch.so: file "
                               "too short\n"));
    EXPECT_THAT(log, HasSubstr("FATAL ERROR! Server Control SWITCH could not be loaded!\n"));
}

TEST_F(ServiceRun, StaysUpWithoutStartedModulesWhenTheyCouldNotBeLoaded) {
    RunTo(SIGTERM, "refusing_load", kLevel3);
    ExpectGolden("system/golden/refusing_load.log", Log());
}

TEST_F(ServiceRun, SaysAtLevel1ThatTheModulesCouldNotBeLoaded) {
    const std::string line = "ZORN-MAIN: ERROR! Load extension modules FAILED!\n";
    RunTo(SIGTERM, "refusing_load");
    const std::string quiet = Log();
    EXPECT_THAT(quiet, Not(HasSubstr(line)));
    m_Machine.Remove(kLog);
    RunTo(SIGTERM, "refusing_load", {{"QX_LOG_DEBUG_LEVEL", "1"}});
    std::string log = Log();
    const size_t at = log.find(line);
    ASSERT_NE(at, log.npos);
    const size_t begin = log.rfind('\n', at) + 1;
    log.erase(begin, at + line.size() - begin);
    EXPECT_EQ(log, quiet) << "and nothing else";
}

TEST_F(ServiceRun, StaysUpWhenTheLoadOfTheModulesThrows) {
    RunTo(SIGTERM, "throwing_load", kLevel3);
    ExpectGolden("system/golden/throwing_load.log", Log());
}

TEST_F(ServiceRun, StopsInTheNormalWayWhenTheUnloadOfTheModulesThrows) {
    RunTo(SIGTERM, "throwing_unload", kLevel3);
    ExpectGolden("system/golden/throwing_unload.log", Log());
}

constexpr const char* kRuntimeText =
    "terminate called after throwing an instance of 'FailureOfTheHost'\n";

TEST_F(ServiceRun, IsEndedByTheRuntimeWithTheHostReleasedWhenTheStartOfTheModulesThrows) {
    HostProcess zorn = Start("throwing_start", kLevel3);
    EXPECT_EQ(zorn.Wait(), Killed(SIGABRT));
    EXPECT_EQ(zorn.StandardError(), kRuntimeText);
    ExpectGolden("system/golden/throwing_start.log", Log());
}

TEST_F(ServiceRun, IsEndedByTheRuntimeWithTheHostReleasedWhenTheNoticeOfTheStopThrows) {
    HostProcess zorn = StartAndWait("throwing_notify", kLevel3);
    zorn.Signal(SIGTERM);
    EXPECT_EQ(zorn.Wait(), Killed(SIGABRT));
    EXPECT_EQ(zorn.StandardError(), kRuntimeText);
    ExpectGolden("system/golden/throwing_notify.log", Log());
}

TEST_F(ServiceRun, IsEndedByTheRuntimeWithTheHostReleasedWhenTheStopOfTheModulesThrows) {
    HostProcess zorn = StartAndWait("throwing_stop", kLevel3);
    zorn.Signal(SIGTERM);
    EXPECT_EQ(zorn.Wait(), Killed(SIGABRT));
    EXPECT_EQ(zorn.StandardError(), kRuntimeText);
    ExpectGolden("system/golden/throwing_stop.log", Log());
}

TEST_F(ServiceRun, KeepsTheLinesOfItsStartWhateverComesLater) {
    const std::string done = "ZORN-MAIN: ## Done initializing ##\n";
    HostProcess zorn =
        StartAndWait("obedient", {{"QX_LOG_DEBUG_LEVEL", "3"}, {"QX_LOG_FILE_MAX_SIZE", "6000"}});
    const std::string start = m_Machine.Read(kLog);
    const std::string head = start.substr(0, start.find(done) + done.size());
    for (int i = 0; i < 300; ++i) zorn.Signal(i % 2 == 0 ? SIGALRM : SIGHUP);
    ASSERT_TRUE(HostProcess::WaitUntil([&] {
        if (m_Machine.Read(kLog).find("------ WRAP ----- Cycle=2") != std::string::npos)
            return true;
        zorn.Signal(SIGALRM);
        return false;
    }));
    zorn.Signal(SIGTERM);
    EXPECT_EQ(zorn.Wait(), Exited(0));
    const std::string log = m_Machine.Read(kLog);
    EXPECT_EQ(log.substr(0, head.size()), head);
    EXPECT_EQ(CutTracePrefix(log.substr(head.size(), log.find('\n', head.size()) - head.size()))
                  .substr(0, 17),
              "------ WRAP -----");
}

}  // namespace

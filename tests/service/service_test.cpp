#include "service/service.h"

#include <dlfcn.h>
#include <pthread.h>
#include <signal.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>
#include <exception>
#include <functional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/event.h"
#include "probe_library.h"
#include "quiet_host.h"
#include "support/fake_host.h"
#include "support/leak_census.h"
#include "support/libc_fault.h"
#include "support/trace_capture.h"
#include "trace/trace.h"
#include "trace/unique_file.h"

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::KilledBySignal;
using testing::StartsWith;

namespace {

/// The log of a run on the host that this process is in, without prefixes and line ends.
Lines LogLines() {
    Lines lines;
    const UniqueFile file{fopen("/var/log/tolbrin/log.zorn", "r")};
    if (!file) return {"no log file"};
    char line[2048];
    while (fgets(line, sizeof line, file.get()) != nullptr) {
        std::string text{CutTracePrefix(line)};
        if (!text.empty() && text.back() == '\n') text.pop_back();
        lines.push_back(text);
    }
    return lines;
}

// --- The start time ------------------------------------------------------------------------------

TEST(StartTime, IsTheTextOfAsctimeInLocalTime) {
    FaultOf<&::time> clock;
    clock.Return(1'700'000'000);
    FaultOf<&::localtime_r> local;
    local.Answer([](const time_t* time, tm* result) { return gmtime_r(time, result); });
    EXPECT_STREQ(TakeStartTime().data(), "Tue Nov 14 22:13:20 2023\n");
}

TEST(StartTime, IsAPatternWhenAsctimeFails) {
    FaultOf<&::asctime_r> text;
    text.Fail(EOVERFLOW);
    const StartTime start = TakeStartTime();
    const std::string pattern = "mmm dd hh:mm:ss yyyy\n";
    EXPECT_EQ(std::string(start.data(), 42), pattern + std::string(42 - pattern.size(), '\0'));
}

TEST(StartTime, IsAPatternInAYearThatAsctimeHasNoRoomFor) {
    FaultOf<&::time> clock;
    clock.Return(time_t{1} << 40);
    EXPECT_STREQ(TakeStartTime().data(), "mmm dd hh:mm:ss yyyy\n");
}

TEST(StartTime, IsAPatternWhenLocaltimeFails) {
    FaultOf<&::localtime_r> local;
    local.Fail(EOVERFLOW);
    EXPECT_STREQ(TakeStartTime().data(), "mmm dd hh:mm:ss yyyy\n");
}

// --- The smbus probe -----------------------------------------------------------------------------

TEST(SmbusProbe, RunsInRunMode0) {
    FakeHost host;
    host.Run([] {
        FaultOf<&::open> open;
        open.Only(
            [](const char* path, int, mode_t) { return std::string{path} == "/dev/pci/smbus"; });
        TraceCapture trace{0};
        ProbeSmbusDriver(0);
        EXPECT_EQ(open.Calls(), 1);
        EXPECT_THAT(trace.Lines(),
                    ElementsAre(StartsWith("ZORN-MAIN: INFO: smbus-driver is not available")));
    });
}

TEST(SmbusProbe, DoesNotRunInAnyOtherRunMode) {
    FaultOf<&::open> open;
    open.Only([](const char* path, int, mode_t) { return std::string{path} == "/dev/pci/smbus"; });
    TraceCapture trace{6};
    for (const uint32_t runMode : {1U, 5U, 0xFFFFFFFFU}) ProbeSmbusDriver(runMode);
    EXPECT_EQ(open.Calls(), 0);
    EXPECT_THAT(trace.Lines(), IsEmpty());
}

// --- The signal loop -----------------------------------------------------------------------------

/// A module host that writes down what it is told.
class NotedHost : public QuietHost {
  public:
    std::vector<std::string> notes;
    std::function<void()> onNotify;

    void NotifyService(uint32_t code, uintptr_t first, uintptr_t second) override {
        char note[64];
        snprintf(note, sizeof note, "NotifyService(0x%X, %ju, %ju)", code, uintmax_t{first},
                 uintmax_t{second});
        notes.emplace_back(note);
        EXPECT_FALSE(g_ExitEvent.Check());  // told before the event is set
        if (onNotify) onNotify();
    }
};

constexpr const char* kNotified = "NotifyService(0x20000, 0, 0)";

/// The signals come from a script.
class SignalLoop : public testing::Test {
  protected:
    ~SignalLoop() override { (void)g_ExitEvent.Reset(); }

    /// The next wait gives that signal.
    void Deliver(int number) {
        m_Wait.Answer([number](const sigset_t*, int* caught) {
            *caught = number;
            return 0;
        });
    }

    NotedHost m_Host;
    FaultOf<&::sigwait> m_Wait;
};

Lines StopLines(int number) {
    const std::string text = std::to_string(number);
    return {"ZORN-MAIN:  Waiting for signals...", "ZORN-MAIN:  ... got signal " + text,
            "ZORN-MAIN: Signal " + text + " caught -> processing"};
}

TEST_F(SignalLoop, WaitsForItsFourSignals) {
    m_Wait.Answer([](const sigset_t* signals, int* caught) {
        for (int number = 1; number < NSIG; ++number) {
            const bool expected =
                number == SIGINT || number == SIGTERM || number == SIGHUP || number == SIGALRM;
            EXPECT_EQ(sigismember(signals, number) == 1, expected) << number;
        }
        *caught = SIGTERM;
        return 0;
    });
    WaitForExit(&m_Host);
}

TEST_F(SignalLoop, EndsWithSigtermAfterTellingTheModuleHost) {
    Deliver(SIGTERM);
    TraceCapture trace{0};
    WaitForExit(&m_Host);
    EXPECT_EQ(trace.Lines(), StopLines(15));
    EXPECT_THAT(m_Host.notes, ElementsAre(kNotified));
    EXPECT_TRUE(g_ExitEvent.Check());
}

TEST_F(SignalLoop, EndsWithSigintInTheSameWay) {
    Deliver(SIGINT);
    TraceCapture trace{0};
    WaitForExit(&m_Host);
    EXPECT_EQ(trace.Lines(), StopLines(2));
    EXPECT_THAT(m_Host.notes, ElementsAre(kNotified));
    EXPECT_TRUE(g_ExitEvent.Check());
}

TEST_F(SignalLoop, EndsWithoutAModuleHostToo) {
    Deliver(SIGTERM);
    TraceCapture trace{0};
    WaitForExit(nullptr);
    EXPECT_EQ(trace.Lines(), StopLines(15));
    EXPECT_TRUE(g_ExitEvent.Check());
}

TEST_F(SignalLoop, LooksAtNoSecondStopSignal) {
    Deliver(SIGTERM);
    WaitForExit(&m_Host);
    EXPECT_EQ(m_Wait.Calls(), 1);
}

TEST_F(SignalLoop, OnlyLogsSigalrm) {
    Deliver(SIGALRM);
    Deliver(SIGTERM);
    TraceCapture trace{0};
    m_Host.onNotify = [&] { EXPECT_EQ(m_Wait.Calls(), 2); };
    WaitForExit(&m_Host);
    Lines expected{"ZORN-MAIN:  Waiting for signals...", "ZORN-MAIN:  ... got signal 14",
                   "ZORN-MAIN: WARNING: Signal 14 (SIGALRM) caught -> ignoring"};
    const Lines stop = StopLines(15);
    expected.insert(expected.end(), stop.begin() + 1, stop.end());
    EXPECT_EQ(trace.Lines(), expected);
    EXPECT_THAT(m_Host.notes, ElementsAre(kNotified));
}

TEST_F(SignalLoop, TogglesAnEnabledTraceOffAndOnAgainAtSighup) {
    Deliver(SIGHUP);
    m_Wait.Answer([](const sigset_t*, int* caught) {
        EXPECT_FALSE(Debug.IsEnabled());
        *caught = SIGHUP;
        return 0;
    });
    m_Wait.Answer([](const sigset_t*, int* caught) {
        EXPECT_TRUE(Debug.IsEnabled());
        Debug.Trace(3, "at level 3 again");
        *caught = SIGTERM;
        return 0;
    });
    TraceCapture trace{3};
    WaitForExit(&m_Host);
    EXPECT_EQ(
        trace.Lines(),
        (Lines{"ZORN-MAIN:  Waiting for signals...", "ZORN-MAIN:  ... got signal 1",
               "ZORN-MAIN: Signal 1 (SIGHUP) caught", "ZORN-MAIN: Trace reset due to SIGHUP",
               "ZORN-MAIN:  ... got signal 1", "ZORN-MAIN: Signal 1 (SIGHUP) caught",
               "ZORN-MAIN: Trace forced due to SIGHUP", "at level 3 again",
               "ZORN-MAIN:  ... got signal 15", "ZORN-MAIN: Signal 15 caught -> processing"}));
    EXPECT_THAT(m_Host.notes, ElementsAre(kNotified));
}

TEST_F(SignalLoop, EnablesATraceThatWasDisabledFromTheStartAtSighup) {
    Deliver(SIGHUP);
    Deliver(SIGTERM);
    TraceCapture trace{0};
    WaitForExit(&m_Host);
    EXPECT_TRUE(Debug.IsEnabled());
    EXPECT_THAT(trace.Lines(), Contains("ZORN-MAIN: Trace forced due to SIGHUP"));
}

TEST_F(SignalLoop, TakesAFailingWaitForSigterm) {
    m_Wait.Fail(EINVAL);
    TraceCapture trace{0};
    WaitForExit(&m_Host);
    EXPECT_EQ(
        trace.Lines(),
        (Lines{"ZORN-MAIN:  Waiting for signals...",
               "ZORN-MAIN: ## ERROR sigwait() failed (ret=22) ##",
               "ZORN-MAIN: ## ERROR This is Operating System BUG, since sigwait() should never "
               "return an error !!! ##",
               "ZORN-MAIN: ## ERROR We do so as if SIGTERM has been sent to this process) --> Do "
               "Shutdown !!! ##",
               "ZORN-MAIN: Signal 15 caught -> processing"}));
    EXPECT_THAT(m_Host.notes, ElementsAre(kNotified));
    EXPECT_TRUE(g_ExitEvent.Check());
    EXPECT_EQ(m_Wait.Calls(), 1);
}

TEST_F(SignalLoop, TakesAFailingWaitForSigtermWithoutAModuleHostToo) {
    m_Wait.Fail(EAGAIN);
    WaitForExit(nullptr);
    EXPECT_TRUE(g_ExitEvent.Check());
}

TEST_F(SignalLoop, HearsAnExitEventSetByAModuleAtTheNextSignalOnly) {
    (void)g_ExitEvent.Set();
    Deliver(SIGALRM);
    TraceCapture trace{0};
    WaitForExit(&m_Host);
    EXPECT_EQ(trace.Lines(),
              (Lines{"ZORN-MAIN:  Waiting for signals...", "ZORN-MAIN:  ... got signal 14",
                     "ZORN-MAIN: WARNING: Signal 14 (SIGALRM) caught -> ignoring"}));
    EXPECT_THAT(m_Host.notes, IsEmpty());
    EXPECT_EQ(m_Wait.Calls(), 1);
}

[[noreturn]] void ShowEventAndEnd(int /*signal*/) {
    _exit(g_ExitEvent.Check() ? 66 : 1);
}

TEST_F(SignalLoop, AbortsAtAnUnexpectedSignalAfterTheModuleHostWasToldAndTheEventSet) {
    FakeHost machine;
    machine.Directory("/var/log/tolbrin");
    machine.Run([this] {
        const auto body = [this] {
            (void)Debug.Init("zorn");
            Deliver(SIGUSR1);
            m_Host.onNotify = [] { TRACE_ALWAYS("told"); };
            WaitForExit(&m_Host);
        };
        EXPECT_EXIT(body(), KilledBySignal(SIGABRT), "");
        EXPECT_EQ(LogLines(),
                  (Lines{"ZORN-MAIN:  Waiting for signals...", "ZORN-MAIN:  ... got signal 10",
                         "ZORN-MAIN: Signal 10 caught -> processing", "told",
                         "ZORN-MAIN: Unexpected Signal 10 caught -> ABORT"}));
        EXPECT_EXIT((signal(SIGABRT, ShowEventAndEnd), body()), testing::ExitedWithCode(66), "");
    });
}

// --- The whole service, with the machine's part scripted
// -------------------------------------------

/// The command line, which the trace keeps by reference.
char g_Name[] = "/usr/sbin/zorn";
char g_Option[] = "--help";
char* g_Arguments[] = {g_Name, g_Option, nullptr};

int RunScripted() {
    return RunService(2, g_Arguments);
}

/// What surrounds a run: no second of sleep, a stop signal as soon as one is waited for.
class Surroundings {
  public:
    Surroundings() {
        LeakCensus::MayStay("/var/log/tolbrin/log.zorn");  // closed with the process
        m_Sleep.Always([this](unsigned seconds) {
            steps.push_back("sleep " + std::to_string(seconds));
            return 0U;
        });
        m_Wait.Always([this](const sigset_t*, int* caught) {
            steps.emplace_back("sigwait");
            *caught = SIGTERM;
            return 0;
        });
        m_Session.Always([this] {
            steps.emplace_back("setsid");
            return pid_t{-1};
        });
        m_Directory.Always([this](const char* path) {
            steps.push_back(std::string{"chdir "} + path);
            return -1;
        });
        m_Mask.Always([this](mode_t mask) {
            steps.push_back("umask " + std::to_string(mask));
            return LibcFault::Real<&::umask>(mask);
        });
        m_Signals.Always([this](int how, const sigset_t* signals, sigset_t* former) {
            steps.push_back("sigprocmask " + std::to_string(how));
            return LibcFault::Real<&::sigprocmask>(how, signals, former);
        });
        m_Action.Always(
            [this](int number, const struct sigaction* action, struct sigaction* former) {
                if (action != nullptr) steps.push_back("sigaction " + std::to_string(number));
                return LibcFault::Real<&::sigaction>(number, action, former);
            });
        m_TimeZone.Always([this] {
            steps.emplace_back("tzset");
            LibcFault::Real<&::tzset>();
        });
        m_Text.Always([this](const tm* time, char* text) {
            steps.emplace_back("asctime_r");
            return LibcFault::Real<&::asctime_r>(time, text);
        });
        m_Syslog.Always([this](const char* name, int options, int facility) {
            steps.push_back(std::string{"openlog "} + name + " " + std::to_string(options) + " " +
                            std::to_string(facility));
        });
    }

    std::vector<std::string> steps;

  private:
    FaultOf<&::sleep> m_Sleep;
    FaultOf<&::sigwait> m_Wait;
    FaultOf<&::setsid> m_Session;
    FaultOf<&::chdir> m_Directory;
    FaultOf<&::umask> m_Mask;
    FaultOf<&::sigprocmask> m_Signals;
    FaultOf<&::sigaction> m_Action;
    FaultOf<&::tzset> m_TimeZone;
    FaultOf<&::asctime_r> m_Text;
    FaultOf<&::openlog> m_Syslog;
};

/// A host on which the service has its log directory.
class WholeService : public testing::Test {
  protected:
    WholeService() { m_Machine.Directory("/var/log/tolbrin"); }
    FakeHost m_Machine;
};

TEST_F(WholeService, TakesItsStepsInTheirOrderWhateverTheyReturn) {
    m_Machine.Run([] {
        ProbeLibrary library{"complete"};
        Surroundings around;
        EXPECT_EQ(RunScripted(), 0);
        EXPECT_THAT(around.steps,
                    ElementsAre("asctime_r",  // the trace's own
                                "setsid", "chdir /", "umask " + std::to_string(026),
                                "sigaction " + std::to_string(SIGPIPE),
                                "sigaction " + std::to_string(SIGIO),
                                "sigprocmask " + std::to_string(SIG_BLOCK), "asctime_r", "tzset",
                                "openlog zorn " + std::to_string(LOG_PID | LOG_NOWAIT) + " " +
                                    std::to_string(LOG_DAEMON),
                                "sleep 1", "sigwait"));
    });
}

TEST_F(WholeService, LoadsAndClosesTheModuleHostOnce) {
    m_Machine.Run([] {
        ProbeLibrary library{"complete"};
        Surroundings around;
        EXPECT_EQ(RunScripted(), 0);
        EXPECT_THAT(library.TakeCalls(),
                    ElementsAre(kOpenCall, "dlsym SW_AddRef", "dlsym SW_Release",
                                "dlsym SW_QueryInterface", "dlclose"));
    });
}

TEST_F(WholeService, ReleasesTheLibraryByItsExportAndNotByItsInterface) {
    m_Machine.Run([] {
        ProbeLibrary library{"complete"};
        Surroundings around;
        void* const again = LibcFault::Real<&::dlopen>(library.Path().c_str(), RTLD_NOW);
        const ProbeRecord& record = ProbeLibrary::RecordOf(again);
        EXPECT_EQ(RunScripted(), 0);
        EXPECT_EQ(record.releases, 1);
        EXPECT_EQ(record.addRefs, 0);
        EXPECT_EQ(record.interfaceReleases, 0);
        LibcFault::Real<&::dlclose>(again);
    });
}

TEST_F(WholeService, StopsWithALibraryThatExportsTheQueryOnly) {
    m_Machine.Run([] {
        ProbeLibrary library{"only_query"};
        Surroundings around;
        EXPECT_EQ(RunScripted(), 0);
        EXPECT_THAT(LogLines(), Contains("ZORN-MAIN: ## EXIT PROCESS ZORN ##"));
    });
}

TEST_F(WholeService, WritesItsUnconditionalLinesWordForWordAtLevel0) {
    m_Machine.Run([] {
        ProbeLibrary library{"complete"};
        Surroundings around;
        FaultOf<&::time> clock;
        clock.Always([](time_t* now) {
            if (now != nullptr) *now = 1'700'000'000;
            return time_t{1'700'000'000};
        });
        EXPECT_EQ(RunScripted(), 0);
        EXPECT_EQ(
            LogLines(),
            (Lines{"zorn Command Line Options:", "argv[0] = \"/usr/sbin/zorn\"",
                   "argv[1] = \"--help\"",
                   "mirl Version=\"10.70-06\" Milestone=\"-\" Built=\"2024/04/16-15:56\" "
                   "Start=\"Nov 14 22:13:20\"",
                   "ZORN-MAIN: running as x86_64 (64-Bit) process; Build on SLES11 GA x86_64 "
                   "(64-Bit)",
                   "ZORN-MAIN: ## Done initializing ##", "ZORN-MAIN:  Waiting for signals...",
                   "ZORN-MAIN:  ... got signal 15", "ZORN-MAIN: Signal 15 caught -> processing",
                   "ZORN-MAIN: ## Someone signaled exit state ##",
                   "ZORN-MAIN: ## EXIT PROCESS ZORN ##"}));
    });
}

TEST_F(WholeService, ShowsAPatternAsItsStartTimeWhenAsctimeFails) {
    m_Machine.Run([] {
        LeakCensus::MayStay("/var/log/tolbrin/log.zorn");
        ProbeLibrary library{"complete"};
        FaultOf<&::sleep> sleep;
        sleep.Return(0);
        FaultOf<&::sigwait> wait;
        wait.Fail(EINVAL);
        FaultOf<&::asctime_r> text;
        text.PassThrough();  // the trace's own
        text.Fail(EOVERFLOW);
        EXPECT_EQ(RunScripted(), 0);
        EXPECT_THAT(LogLines(), Contains(HasSubstr(" Start=\"dd hh:mm:ss yyy\"")));
    });
}

TEST_F(WholeService, NeverAsksTheSmbusDriver) {
    m_Machine.File("/dev/pci/smbus", "");
    m_Machine.Run([] {
        ProbeLibrary library{"complete"};
        Surroundings around;
        FaultOf<&::open> open;
        open.Only(
            [](const char* path, int, mode_t) { return std::string{path} == "/dev/pci/smbus"; });
        EXPECT_EQ(RunScripted(), 0);
        EXPECT_EQ(open.Calls(), 0);
        EXPECT_THAT(LogLines(), testing::Not(Contains(HasSubstr("smbus"))));
    });
}

constexpr int kRestorerFlag = 0x04000000;  // the C library adds it to every action on x86-64

TEST_F(WholeService, LeavesSigpipeAndSigioIgnoredWithAnEmptyMaskAndNoFlags) {
    m_Machine.Run([] {
        ProbeLibrary library{"complete"};
        Surroundings around;
        EXPECT_EQ(RunScripted(), 0);
        for (const int number : {SIGPIPE, SIGIO}) {
            struct sigaction action {};
            EXPECT_EQ(sigaction(number, nullptr, &action), 0);
            EXPECT_EQ(action.sa_handler, SIG_IGN);
            EXPECT_EQ(action.sa_flags & ~kRestorerFlag, 0);
            EXPECT_TRUE(sigisemptyset(&action.sa_mask));
        }
    });
}

TEST_F(WholeService, AddsItsFourSignalsToThoseBlockedBefore) {
    m_Machine.Run([] {
        sigset_t before;
        sigemptyset(&before);
        sigaddset(&before, SIGUSR2);
        EXPECT_EQ(pthread_sigmask(SIG_SETMASK, &before, nullptr), 0);
        ProbeLibrary library{"complete"};
        Surroundings around;
        EXPECT_EQ(RunScripted(), 0);
        sigset_t after;
        EXPECT_EQ(pthread_sigmask(SIG_BLOCK, nullptr, &after), 0);
        std::vector<int> blocked;
        for (int number = 1; number < NSIG; ++number) {
            if (sigismember(&after, number) == 1) blocked.push_back(number);
        }
        EXPECT_THAT(blocked,
                    testing::UnorderedElementsAre(SIGUSR2, SIGINT, SIGTERM, SIGHUP, SIGALRM));
    });
}

TEST_F(WholeService, EndsWith1BeforeAnythingElseWhenTheCallerIsNotRoot) {
    m_Machine.Run([] {
        ProbeLibrary library{"complete"};
        Surroundings around;
        FaultOf<&::getuid> user;
        user.Return(1000);
        testing::internal::CaptureStderr();
        EXPECT_EQ(RunScripted(), 1);
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  "/usr/sbin/zorn: ZORN-MAIN: Error! Permission denied\n");
        EXPECT_THAT(around.steps, IsEmpty());
        EXPECT_THAT(library.TakeCalls(), IsEmpty());
    });
    EXPECT_THAT(m_Machine.List("/var/log/tolbrin"), IsEmpty());
}

class WholeServiceRefusals : public WholeService,
                             public testing::WithParamInterface<const char*> {};

TEST_P(WholeServiceRefusals, EndItWith1AfterTheLibraryWasClosed) {
    m_Machine.Run([] {
        ProbeLibrary library{GetParam()};
        Surroundings around;
        EXPECT_EQ(RunScripted(), 1);
        EXPECT_THAT(library.TakeCalls(),
                    ElementsAre(kOpenCall, "dlsym SW_AddRef", "dlsym SW_Release",
                                "dlsym SW_QueryInterface", "dlclose"));
        EXPECT_EQ(LogLines().back(),
                  "ZORN-MAIN: FATAL ERROR! Server Control SWITCH could not be loaded!");
        EXPECT_THAT(around.steps, testing::Not(Contains("sigwait")));
    });
}

INSTANTIATE_TEST_SUITE_P(ByTheModuleHost, WholeServiceRefusals,
                         testing::Values("without_query", "refusing", "without_interface"),
                         [](const auto& test) { return std::string{test.param}; });

TEST_F(WholeService, ClosesNothingWhenTheLibraryCouldNotBeLoaded) {
    m_Machine.Run([] {
        ProbeLibrary library{"no such variant"};
        Surroundings around;
        EXPECT_EQ(RunScripted(), 1);
        EXPECT_THAT(library.TakeCalls(), ElementsAre(kOpenCall));
    });
}

TEST_F(WholeService, ClosesTheLibraryWhenAnExceptionLeavesIt) {
    m_Machine.Run([] {
        ProbeLibrary library{"throwing_start"};
        LeakCensus::MayStay(library.Path());
        Surroundings around;
        library.TakeCalls();
        try {
            (void)RunScripted();
            FAIL() << "nothing thrown";
        } catch (...) {
            EXPECT_THAT(library.TakeCalls(),
                        testing::IsSupersetOf({kPinCall, std::string{"dlclose"}}));
        }
        EXPECT_EQ(LogLines().back(),
                  "ZORN-MAIN: running as x86_64 (64-Bit) process; Build on SLES11 GA "
                  "x86_64 (64-Bit)");
    });
}

/// What the terminate handler of the next test shows.
ProbeLibrary* g_ShownLibrary;

[[noreturn]] void ShowCallsAndAbort() {
    for (const std::string& call : g_ShownLibrary->TakeCalls()) {
        (void)!write(STDERR_FILENO, (call + ";").data(), call.size() + 1);
    }
    abort();
}

TEST_F(WholeService, ClosesTheLibraryBeforeAnUncaughtExceptionEndsTheProcess) {
    m_Machine.Run([] {
        const auto body = [] {
            ProbeLibrary library{"throwing_start"};
            g_ShownLibrary = &library;
            std::set_terminate(ShowCallsAndAbort);
            Surroundings around;
            pthread_t thread{};  // below its start there is nobody who catches, as below main()
            const auto start = [](void*) -> void* {
                (void)RunScripted();
                return nullptr;
            };
            (void)pthread_create(&thread, nullptr, start, nullptr);
            (void)pthread_join(thread, nullptr);
        };
        EXPECT_EXIT(body(), KilledBySignal(SIGABRT),
                    "dlsym SW_QueryInterface;" + kPinCall + ";dlclose;$");
    });
}

}  // namespace

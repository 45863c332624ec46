// The entry. RunEntry() is the whole life of the service, from top to bottom; the functions above
// it are its steps, in that order.

#include "service/service.h"

#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "platform/event.h"
#include "service/file_lock.h"
#include "service/smbus_driver.h"
#include "service/version_record.h"
#include "trace/trace.h"

namespace {

constexpr uint32_t kSmbusMode = 0;      ///< the run mode in which the smbus driver is asked
constexpr uint32_t kAgentlessMode = 5;  ///< the run mode of this service
constexpr mode_t kFileMask = 026;

sigset_t g_BlockedSignals;
sigset_t g_AwaitedSignals;
int g_CaughtSignal;

/// Closes the module host where an exception leaves the entry; elsewhere the entry has done so
/// itself.
class UnwindingGuard {
  public:
    explicit UnwindingGuard(SwitchBinding& binding) : m_Binding(binding) {}
    ~UnwindingGuard() {
        if (m_Binding.hLibrary != nullptr) CloseSwitchUnwinding(m_Binding);
    }
    UnwindingGuard(const UnwindingGuard&) = delete;
    UnwindingGuard& operator=(const UnwindingGuard&) = delete;

  private:
    SwitchBinding& m_Binding;
};

void RefuseCaller(const char* program) {
    (void)fprintf(stderr, "%s: %s-MAIN: Error! Permission denied\n", program, kServiceTag);
}

void OpenTrace(int argc, char** argv) {
    (void)Debug.Init(kServiceName);
    Debug.SetCommandLine(argc, argv);
}

SwitchLoadParams SettleRunMode() {
    const SwitchLoadParams params{0, kAgentlessMode};
    TRACE(2, "\n%s-MAIN::ParseCommandLine   : Agentsless mode due toi ESXI Daemon", kServiceTag);
    TRACE(2, "%s-MAIN: RUN MODE: %d", kServiceTag, static_cast<int>(params.dwRunMode));
    return params;
}

void DetachProcess() {
    (void)setsid();
    (void)!chdir("/");
    (void)umask(kFileMask);
}

void IgnoreSignal(int number) {
    struct sigaction action {};
    action.sa_handler = SIG_IGN;
    (void)sigemptyset(&action.sa_mask);
    (void)sigaction(number, &action, nullptr);
}

void FillServiceSignals(sigset_t& signals) {
    (void)sigemptyset(&signals);
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGALRM}) (void)sigaddset(&signals, number);
}

/// Before the module host is loaded: its threads inherit the mask, so that these signals reach
/// nobody but the loop that waits for them.
void BlockServiceSignals() {
    FillServiceSignals(g_BlockedSignals);
    (void)sigprocmask(SIG_BLOCK, &g_BlockedSignals, nullptr);
}

void WriteVersion(const StartTime& start) {
    constexpr size_t kWeekday = 4;  // bytes in front of the month
    const VersionNumber version = ParseVersion(kVersionRecord.Version);
    TRACE_ALWAYS("%s Version=\"%d.%02d-%02d\" Milestone=\"%s\" Built=\"%s\" Start=\"%.15s\"",
                 kVersionRecord.ShortName, static_cast<int>(version.Major),
                 static_cast<int>(version.Minor), static_cast<int>(version.Patch),
                 kVersionRecord.Milestone, kVersionRecord.Built, start.data() + kWeekday);
    // clang-format off
    TRACE_ALWAYS("%s-MAIN: running as x86_64 (64-Bit) process; Build on SLES11 GA x86_64 (64-Bit)",
                 kServiceTag);
    // clang-format on
}

void OpenSyslog() {
    tzset();
    openlog(kServiceName, LOG_PID | LOG_NOWAIT, LOG_DAEMON);
    TRACE(3, "%s-MAIN: Syslog %s openend,", kServiceTag, kServiceName);
}

bool LoadModuleHost(SwitchBinding& binding) {
    if (LoadSwitch(binding)) return true;
    TRACE_ALWAYS("%s-MAIN: FATAL ERROR! Server Control SWITCH could not be loaded!", kServiceTag);
    CloseSwitch(binding);
    return false;
}

/// Without modules the service stays up all the same, so that it can be stopped in the normal way.
void LoadAndStartModules(SwitchBinding& binding, SwitchLoadParams& params) {
    TRACE(2, "%s-MAIN: Load extension modules ...", kServiceTag);
    if (!LoadModules(binding, &params)) {
        TRACE(1, "%s-MAIN: ERROR! Load extension modules FAILED!", kServiceTag);
        return;
    }
    TRACE(2, "%s-MAIN: ... extension modules loaded", kServiceTag);
    TRACE(2, "%s-MAIN: Start all modules  ...", kServiceTag);
    if (binding.pInterface != nullptr) binding.pInterface->StartModules();
    TRACE(2, "%s-MAIN: ... all modules started", kServiceTag);
}

void DeclareInitialized() {
    sleep(1);  // for what the modules have begun in threads of their own
    TRACE_ALWAYS("%s-MAIN: ## Done initializing ##\n", kServiceTag);
    Debug.EndOfInitialization();
}

void BeginStop(ISwitch* host) {
    TRACE_ALWAYS("%s-MAIN: Signal %d caught -> processing\n", kServiceTag, g_CaughtSignal);
    if (host != nullptr) host->NotifyService(kNotifyStop, 0, 0);
    (void)g_ExitEvent.Set();
}

void TreatFailureAsTermination(int result, ISwitch* host) {
    TRACE_ALWAYS("%s-MAIN: ## ERROR sigwait() failed (ret=%d) ##\n", kServiceTag, result);
    // clang-format off
    TRACE_ALWAYS("%s-MAIN: ## ERROR This is Operating System BUG, since sigwait() should never return an error !!! ##\n",
                 kServiceTag);
    TRACE_ALWAYS("%s-MAIN: ## ERROR We do so as if SIGTERM has been sent to this process) --> Do Shutdown !!! ##\n",
                 kServiceTag);
    // clang-format on
    g_CaughtSignal = SIGTERM;
    BeginStop(host);
}

void ToggleTrace() {
    TRACE_ALWAYS("%s-MAIN: Signal %d (SIGHUP) caught\n", kServiceTag, g_CaughtSignal);
    if (Debug.IsEnabled()) {
        TRACE_ALWAYS("%s-MAIN: Trace reset due to SIGHUP\n", kServiceTag);
        (void)Debug.Enable(false);
    } else {
        (void)Debug.Enable(true);
        TRACE_ALWAYS("%s-MAIN: Trace forced due to SIGHUP\n", kServiceTag);
    }
}

/// For all signals but SIGALRM and SIGHUP.
void StopOnSignal(ISwitch* host) {
    BeginStop(host);
    if (g_CaughtSignal == SIGINT || g_CaughtSignal == SIGTERM) return;
    TRACE_ALWAYS("%s-MAIN: Unexpected Signal %d caught -> ABORT\n", kServiceTag, g_CaughtSignal);
    abort();
}

void ActOnSignal(ISwitch* host) {
    TRACE_ALWAYS("\n%s-MAIN:  ... got signal %d", kServiceTag, g_CaughtSignal);
    switch (g_CaughtSignal) {
        case SIGALRM:
            TRACE_ALWAYS("%s-MAIN: WARNING: Signal %d (SIGALRM) caught -> ignoring\n", kServiceTag,
                         g_CaughtSignal);
            break;
        case SIGHUP:
            ToggleTrace();
            break;
        default:
            StopOnSignal(host);
            break;
    }
}

void StopAndUnloadModules(SwitchBinding& binding) {
    TRACE_ALWAYS("%s-MAIN: ## Someone signaled exit state ##\n", kServiceTag);
    TRACE(2, "%s-MAIN::OnExitService      : Stopping all modules...\n", kServiceTag);
    if (binding.pInterface != nullptr) binding.pInterface->StopModules();
    TRACE(2, "%s-MAIN::OnExitService      : ... all modules stopped\n", kServiceTag);
    // clang-format off
    TRACE(2, "%s-MAIN::OnExitService      : Start unload of all registered extension modules ...\n", kServiceTag);
    (void)UnloadModules(binding, 0);
    TRACE(2, "%s-MAIN::OnExitService      : ... unload of all registered extension modules completed!\n", kServiceTag);
    // clang-format on
}

/// The library is released by its export; with the pointer cleared before, the interface's own
/// `Release` is left out.
void ReleaseModuleHost(SwitchBinding& binding) {
    binding.pInterface = nullptr;
    if (binding.pfnRelease != nullptr) binding.pfnRelease();
    CloseSwitch(binding);
    TRACE_ALWAYS("%s-MAIN: ## EXIT PROCESS %s ##\n", kServiceTag, kServiceTag);
}

int RunEntry(int argc, char** argv) {
    if (getuid() != 0) {
        RefuseCaller(argv[0]);
        return 1;
    }
    const CFileLock lock;  // never taken here; goes last on every way out
    OpenTrace(argc, argv);
    SwitchLoadParams params = SettleRunMode();
    DetachProcess();
    IgnoreSignal(SIGPIPE);
    IgnoreSignal(SIGIO);
    BlockServiceSignals();
    WriteVersion(TakeStartTime());
    OpenSyslog();
    ProbeSmbusDriver(params.dwRunMode);
    SwitchBinding binding{};
    const UnwindingGuard guard{binding};
    if (!LoadModuleHost(binding)) return 1;
    LoadAndStartModules(binding, params);
    DeclareInitialized();
    WaitForExit(binding.pInterface);
    StopAndUnloadModules(binding);
    ReleaseModuleHost(binding);
    return 0;
}

}  // namespace

StartTime TakeStartTime() {
    StartTime text{};
    const time_t now = time(nullptr);
    tm local{};
    if (localtime_r(&now, &local) == nullptr || asctime_r(&local, text.data()) == nullptr) {
        return {"mmm dd hh:mm:ss yyyy\n"};  // no weekday: its reader skips four bytes all the same
    }
    return text;
}

void ProbeSmbusDriver(uint32_t runMode) {
    if (runMode == kSmbusMode) DiscoverSmbusDriverInfo();
}

void WaitForExit(ISwitch* host) {
    FillServiceSignals(g_AwaitedSignals);
    TRACE_ALWAYS("\n%s-MAIN:  Waiting for signals...", kServiceTag);
    do {
        const int result = sigwait(&g_AwaitedSignals, &g_CaughtSignal);
        if (result != 0) {
            TreatFailureAsTermination(result, host);
        } else {
            ActOnSignal(host);
        }
    } while (!g_ExitEvent.Check());
}

int RunService(int argc, char** argv) {
    // For an exception that nobody catches the runtime unwinds nothing. Caught here and thrown on,
    // it first goes through the entry's frame, which closes the library and lets go of the lock.
    try {
        return RunEntry(argc, argv);
    } catch (...) {
        throw;
    }
}

// A module to copy from: says in the trace what machine it runs on, then once a minute how busy
// that is, on a thread of its own that stops cleanly. It counts its starts in the registry, where the
// machine has one.

#include <sys/sysinfo.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <memory>
#include <thread>

#include "module_host/module.h"
#include "platform/event.h"
#include "registry/registry.h"
#include "trace/trace.h"

namespace {

constexpr unsigned kIntervalMs = 60'000;
constexpr const char* kRegistryFolder = "/opt/Corvanthimex/vital/etc/tolbrin";
constexpr const char* kSettings = R"(HKEY_LOCAL_MACHINE\SOFTWARE\Zorn\MachineReport)";

void ReportMachine() {
    utsname system{};
    struct sysinfo state {};
    if (uname(&system) != 0 || sysinfo(&state) != 0) return;
    const auto mebibytes = [&](unsigned long units) { return units * state.mem_unit >> 20; };
    TRACE(2, "\nMachineReport       : Host %s, %s %s (%s)", system.nodename, system.sysname,
          system.release, system.machine);
    TRACE(2, "\nMachineReport       : %d CPUs, memory %lu MiB, free %lu MiB, up %ld s",
          get_nprocs(), mebibytes(state.totalram), mebibytes(state.freeram), state.uptime);
}

void ReportLoad() {
    struct sysinfo state {};
    if (sysinfo(&state) != 0) return;
    const auto load = static_cast<double>(state.loads[0]) / (1 << SI_LOAD_SHIFT);
    TRACE(3, "\nMachineReport       : Load %.2f, %u threads", load, unsigned{state.procs});
}

void CountStart() {
    if (access(kRegistryFolder, F_OK) != 0) return;  // as in a build tree: nothing could be kept
    CRegistry settings{"", nullptr, 0};              // the root: the hives may still be to be made
    settings.CreateKey(settings.Key(), kSettings);
    unsigned starts = 0;
    settings.GetValue(&starts, "Starts", nullptr);
    settings.SetValue("Starts", static_cast<int>(starts + 1));
    TRACE(2, "\nMachineReport       : Start number %u", starts + 1);
}  // here the registry is saved

/// A thread that reports until its owner goes.
class LoadReporter {
  public:
    LoadReporter() : m_Thread([this] { Run(); }) {}
    ~LoadReporter() {
        (void)m_Stop.Set();
        m_Thread.join();
    }
    LoadReporter(const LoadReporter&) = delete;
    LoadReporter& operator=(const LoadReporter&) = delete;

  private:
    CEvent m_Stop{false, true, nullptr};  // before the thread, which uses it
    std::thread m_Thread;

    void Run() {
        while (!m_Stop.Check()) {
            ReportLoad();
            (void)m_Stop.Wait(kIntervalMs,
                              false);  // until the next report is due, or it is time to stop
        }
        TRACE(3, "\nMachineReport       : Thread ends");
    }
};

std::unique_ptr<LoadReporter> g_Reporter;

bool Start() {
    ReportMachine();
    CountStart();
    g_Reporter = std::make_unique<LoadReporter>();
    return true;
}

void Stop() {
    g_Reporter.reset();
}

void Notify(uint32_t code, uintptr_t /*first*/, uintptr_t /*second*/) {
    TRACE(3, "\nMachineReport       : Message 0x%X", code);
}

constexpr ZornModule kModule{kZornModuleVersion, "machine report", Start, Stop, Notify};

}  // namespace

const ZornModule* ZornModuleEntry() {
    return &kModule;
}

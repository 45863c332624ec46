// A check is a function that looks at one thing and adds its row or rows; `kChecks` is their order.

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <system_error>

#include "trace/file_text.h"
#include "zornctl/command/commands.h"
#include "zornctl/output/table.h"
#include "zornctl/system/module_host.h"
#include "zornctl/system/service_paths.h"
#include "zornctl/system/service_processes.h"
#include "zornctl/system/trace_settings.h"

namespace zornctl {

namespace {

using nlohmann::ordered_json;

enum class State { kOk, kWarning, kFailed };

struct Finding {
    std::string check;
    State state;
    std::string finding;
    std::string remedy = {};  ///< empty where nothing is to be done
};

/// What several checks need.
struct Patient {
    std::vector<ServiceProcess> processes;
    Environment environment;  ///< of the running service if it may be read, else that of this shell
    TraceSettings settings;
    std::vector<Finding> findings;

    void Add(Finding finding) { findings.push_back(std::move(finding)); }
};

std::string Octal(mode_t mode) {
    std::array<char, 8> text{};
    (void)snprintf(text.data(), text.size(), "%04o", static_cast<unsigned>(mode & 07777));
    return text.data();
}

std::string Reason(int error) {
    return std::generic_category().message(error);
}

void CheckRoot(Patient& patient) {
    if (geteuid() == 0) return patient.Add({"rights", State::kOk, "you are root"});
    patient.Add({"rights", State::kWarning, "you are not root: some rows tell less than they could",
                 "run zornctl doctor as root; the service runs as root only"});
}

/// Whether somebody else than root can change what stands at `path`.
bool IsOpenToOthers(const struct stat& status) {
    return status.st_uid != 0 || (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
}

void CheckOwner(Patient& patient, const std::string& check, const std::string& path,
                const struct stat& status) {
    const std::string facts =
        path + ", owner " + std::to_string(status.st_uid) + ", mode " + Octal(status.st_mode);
    if (!IsOpenToOthers(status)) return patient.Add({check, State::kOk, facts});
    patient.Add({check, State::kWarning, facts + ": others than root can change it",
                 "chown root and chmod go-w " + path});
}

/// An absent directory is a finding of that state, and what it means.
void CheckDirectory(Patient& patient, const std::string& check, const std::string& path,
                    State without, const std::string& remedy) {
    struct stat status {};
    if (stat(path.c_str(), &status) == 0) return CheckOwner(patient, check, path, status);
    patient.Add({check, without, path + ": " + Reason(errno), remedy});
}

/// The service's LD_LIBRARY_PATH; empty if it has none.
std::string LibraryPath(const Patient& patient) {
    const auto found = patient.environment.find("LD_LIBRARY_PATH");
    return found != patient.environment.end() ? found->second : std::string{};
}

/// Where the linker finds the module host: there first, then in the run path.
std::string FindModuleHost(std::string_view libraryPath) {
    auto rest = libraryPath;
    while (!rest.empty()) {
        const auto directory = rest.substr(0, rest.find_first_of(":;"));
        rest.remove_prefix(std::min(directory.size() + 1, rest.size()));
        auto path = std::string{directory} + "/" + kModuleHostName;
        if (directory.starts_with('/') && access(path.c_str(), F_OK) == 0) return path;
    }
    return std::string{kLibraryDirectory} + "/" + kModuleHostName;
}

/// The executable whose symbols the module host uses; empty if it is not known.
std::string ServiceExecutable(const Patient& patient) {
    for (const auto& process : patient.processes) {
        if (access(process.executable.c_str(), R_OK) == 0) return process.executable;
    }
    return access(kInstalledService, R_OK) == 0 ? kInstalledService : "";
}

void CheckModuleHost(Patient& patient) {
    const auto libraryPath = LibraryPath(patient);
    const auto path = FindModuleHost(libraryPath);
    CheckDirectory(patient, "library directory", path.substr(0, path.rfind('/')), State::kFailed,
                   "install the suite");
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        return patient.Add({"module host", State::kFailed, path + ": " + Reason(errno),
                            "install libswitch.so there, or set LD_LIBRARY_PATH for the service"});
    }
    CheckOwner(patient, "module host", path, status);
    if (const auto problem = FindLoadProblem(path, ServiceExecutable(patient), libraryPath)) {
        return patient.Add({"module host loads", State::kFailed, *problem,
                            "install what is missing, or a module host of this version"});
    }
    patient.Add({"module host loads", State::kOk, "the dynamic linker finds all that it needs"});
}

void CheckConfiguration(Patient& patient) {
    struct stat status {};
    if (stat(kConfigDirectory, &status) == 0) {
        CheckOwner(patient, "configuration directory", kConfigDirectory, status);
    } else {
        patient.Add({"configuration directory", State::kOk, "not there: the defaults apply"});
    }
    const auto count = patient.settings.warnings.size();
    if (count == 0) return patient.Add({"settings", State::kOk, "no warnings"});
    patient.Add({"settings", State::kWarning, std::to_string(count) + " warnings",
                 "see zornctl check-config"});
}

void CheckRegistry(Patient& patient) {
    CheckDirectory(patient, "registry directory", kRegistryDirectory, State::kWarning,
                   "make it: the registry and the names of adapters are not kept until then");
}

void CheckSpace(Patient& patient, const std::string& directory) {
    struct statvfs space {};
    if (statvfs(directory.c_str(), &space) != 0) return;
    const uint64_t free = uint64_t{space.f_bavail} * space.f_frsize;
    const uint64_t need = patient.settings.logMaxSize;
    const std::string facts = std::to_string(free >> 20U) + " MiB free";
    if (free >= need) return patient.Add({"space for the log", State::kOk, facts});
    patient.Add({"space for the log", State::kWarning,
                 facts + ", the log may take " + std::to_string(need >> 20U) + " MiB",
                 "make room, or lower QX_LOG_FILE_MAX_SIZE"});
}

/// A way to write that changes nothing.
int OpenError(const std::string& path, bool isDirectory) {
    if (isDirectory) return access(path.c_str(), W_OK | X_OK) == 0 ? 0 : errno;
    return access(path.c_str(), W_OK) == 0 ? 0 : errno;
}

void CheckLog(Patient& patient) {
    const auto& directory = patient.settings.logDirectory;
    const std::string shown = directory.empty() ? "/" : directory;
    struct stat status {};
    if (stat(shown.c_str(), &status) != 0) {
        return patient.Add({"log directory", State::kFailed, shown + ": " + Reason(errno),
                            "make it: the service runs without a log until then"});
    }
    CheckOwner(patient, "log directory", shown, status);
    struct stat log {};
    const auto& path = patient.settings.logPath;
    const bool isThere = lstat(path.c_str(), &log) == 0;
    if (isThere && !S_ISREG(log.st_mode)) {
        patient.Add({"log", State::kWarning, path + " is no regular file",
                     "look at what it is, and remove it"});
    } else if (const int error = OpenError(isThere ? path : shown, !isThere)) {
        const bool isMine = geteuid() != 0;
        patient.Add({"log", isMine ? State::kWarning : State::kFailed,
                     path + " cannot be written: " + Reason(error),
                     isMine ? "run zornctl doctor as root to know what root may"
                            : "look at the file system: mounted read-only, or immutable?"});
    } else {
        patient.Add({"log", State::kOk, path + (isThere ? " can be written" : " can be made")});
    }
    CheckSpace(patient, shown);
}

/// An interface of the kernel, or a program, that is used.
struct NeedRow {
    const char* check;
    const char* path;
    State without;  ///< what it means that it is missing
    const char* meaning;
    const char* remedy;
};

constexpr std::array kNeeds{
    NeedRow{"kernel: processes", "/proc/self/statm", State::kFailed,
            "no memory figures, no inventory", "mount -t proc proc /proc"},
    NeedRow{"kernel: devices", "/sys/class", State::kFailed, "no inventory",
            "mount -t sysfs sysfs /sys"},
    NeedRow{"kernel: PCI", "/proc/bus/pci/devices", State::kWarning, "no adapters",
            "use a kernel with CONFIG_PCI, and not in a container"},
    NeedRow{"kernel: network", "/proc/net/dev", State::kWarning, "no figures of the network",
            "use a kernel with CONFIG_NET"},
    NeedRow{"kernel: memory", "/dev/mem", State::kWarning, "no firmware tables from memory",
            "use a kernel with CONFIG_DEVMEM"},
    NeedRow{"kernel: SCSI", "/proc/scsi/scsi", State::kOk, "optional", ""},
    NeedRow{"smbus driver", "/dev/pci/smbus", State::kOk, "optional", ""},
};

void CheckNeeds(Patient& patient) {
    for (const auto& need : kNeeds) {
        const std::string path = need.path;
        if (access(need.path, F_OK) == 0) {
            patient.Add({need.check, State::kOk, path});
        } else {
            patient.Add(
                {need.check, need.without, path + " is not there: " + need.meaning, need.remedy});
        }
    }
}

void CheckService(Patient& patient) {
    const auto& processes = patient.processes;
    if (processes.empty()) {
        return patient.Add({"service", State::kWarning, "not running", "start it as root"});
    }
    std::string numbers;
    for (const auto& process : processes) numbers += " " + std::to_string(process.pid);
    if (processes.size() > 1) {
        return patient.Add({"service", State::kWarning, "runs more than once:" + numbers,
                            "stop all but one: they write into one log"});
    }
    if (processes[0].executable.ends_with(" (deleted)")) {
        return patient.Add({"service", State::kWarning,
                            "runs as process" + numbers + ", but its file was replaced",
                            "restart it to run the new version"});
    }
    patient.Add({"service", State::kOk, "runs as process" + numbers});
}

constexpr std::array kChecks{CheckRoot,     CheckModuleHost, CheckConfiguration, CheckLog,
                             CheckRegistry, CheckNeeds,      CheckService};

Environment EnvironmentOfService(const std::vector<ServiceProcess>& processes) {
    try {
        if (!processes.empty()) return EnvironmentOf(processes[0].pid);
    } catch (const Failure&) {
        // an ordinary user may not: the own one has to do
    }
    return OwnEnvironment();
}

std::string_view NameOf(State state) {
    switch (state) {
        case State::kOk:
            return "ok";
        case State::kWarning:
            return "warning";
        case State::kFailed:
            break;
    }
    return "failed";
}

Cell StateCell(State state) {
    const auto emphasis = state == State::kOk        ? Emphasis::kGood
                          : state == State::kWarning ? Emphasis::kWarning
                                                     : Emphasis::kBad;
    return {std::string{NameOf(state)}, emphasis};
}

void WriteTable(const std::vector<Finding>& findings, Output& output) {
    std::vector<std::vector<Cell>> rows;
    for (const auto& row : findings) {
        const auto remedy = row.remedy.empty() ? "" : " -> " + row.remedy;
        rows.push_back({row.check, StateCell(row.state), row.finding + remedy});
    }
    output.WriteText(FormatTable({"CHECK", "STATE", "FINDING -> REMEDY"}, rows, output.Style()));
}

void WriteObject(const std::vector<Finding>& findings, Output& output) {
    auto checks = ordered_json::array();
    for (const auto& row : findings) {
        checks.push_back({{"check", row.check},
                          {"state", NameOf(row.state)},
                          {"finding", JsonText(row.finding)},
                          {"remedy", JsonText(row.remedy)}});
    }
    output.WriteJson({{"checks", std::move(checks)}});
}

}  // namespace

ExitStatus RunDoctor(const Arguments&, Output& output) {
    Patient patient;
    patient.processes = FindServiceProcesses();
    patient.environment = EnvironmentOfService(patient.processes);
    patient.settings =
        SettleTraceSettings(ReadSettingsInput(kConfigDirectory, patient.environment));
    for (const auto& check : kChecks) check(patient);
    if (output.IsJson())
        WriteObject(patient.findings, output);
    else
        WriteTable(patient.findings, output);
    const bool isFailed =
        std::any_of(patient.findings.begin(), patient.findings.end(),
                    [](const Finding& row) { return row.state == State::kFailed; });
    return isFailed ? ExitStatus::kNotFound : ExitStatus::kDone;
}

}  // namespace zornctl

// A check is a function that looks at one thing and adds its row or rows; `kChecks` is their order.

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <system_error>

#include "trace/file_text.h"
#include "zornctl/command/commands.h"
#include "zornctl/output/table.h"
#include "zornctl/system/module_host.h"
#include "zornctl/system/open_place.h"
#include "zornctl/system/service_paths.h"
#include "zornctl/system/service_processes.h"
#include "zornctl/system/trace_settings.h"

namespace zornctl {

namespace {

namespace fs = std::filesystem;
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
    SettingsInput input;
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

constexpr const char* kRunAsRoot = "run zornctl doctor as root";

/// Whether a row tells of the user's rights and not of the machine.
bool IsForRoot(int error) {
    return geteuid() != 0 && (error == EACCES || error == EPERM);
}

/// What cannot be looked at, and what that means if it is not for want of rights.
void AddError(Patient& patient, const std::string& check, const std::string& path, int error,
              State state, const std::string& remedy) {
    const bool isForRoot = IsForRoot(error);
    patient.Add({check, isForRoot ? State::kWarning : state, path + ": " + Reason(error),
                 isForRoot ? kRunAsRoot : remedy});
}

/// A row for `path`, with what is told of it, and whether somebody else can change it.
void AddOwned(Patient& patient, const std::string& check, const std::string& path,
              const std::string& facts) {
    const auto open = FindOpenPlace(path);
    if (!open) return patient.Add({check, State::kOk, facts});
    patient.Add({check, State::kWarning,
                 facts + ": others than root can change " + (*open == path ? "it" : *open),
                 "chown root and chmod go-w " + *open});
}

void CheckOwner(Patient& patient, const std::string& check, const std::string& path,
                const struct stat& status) {
    AddOwned(patient, check, path,
             path + ", owner " + std::to_string(status.st_uid) + ", mode " + Octal(status.st_mode));
}

/// One row for those of a folder: the first that others can change, or how many there are.
void CheckFiles(Patient& patient, const std::string& check, const std::vector<std::string>& paths) {
    for (const auto& path : paths) {
        if (FindOpenPlace(path)) return AddOwned(patient, check, path, path);
    }
    patient.Add({check, State::kOk, std::to_string(paths.size()) + ", to be changed by root only"});
}

/// An absent directory is a finding of that state, and what it means.
void CheckDirectory(Patient& patient, const std::string& check, const std::string& path,
                    State without, const std::string& remedy) {
    struct stat status {};
    if (stat(path.c_str(), &status) == 0) return CheckOwner(patient, check, path, status);
    AddError(patient, check, path, errno, without, remedy);
}

/// A variable of the service; empty if it has none of that name.
std::string Variable(const Patient& patient, std::string_view name) {
    const auto found = patient.environment.find(name);
    return found != patient.environment.end() ? found->second : std::string{};
}

/// The folders of the service's LD_LIBRARY_PATH that do not depend on where it was started.
std::vector<std::string> LibraryFolders(const Patient& patient) {
    std::vector<std::string> folders;
    const auto path = Variable(patient, "LD_LIBRARY_PATH");
    for (std::string_view rest = path; !rest.empty();) {
        const auto folder = rest.substr(0, rest.find_first_of(":;"));
        rest.remove_prefix(std::min(folder.size() + 1, rest.size()));
        if (folder.starts_with('/')) folders.emplace_back(folder);
    }
    return folders;
}

/// Where the linker finds the module host: there first, then in the run path.
std::string FindModuleHost(const std::vector<std::string>& folders) {
    for (const auto& folder : folders) {
        auto path = folder + "/" + kModuleHostName;
        if (access(path.c_str(), F_OK) == 0) return path;
    }
    return std::string{kLibraryDirectory} + "/" + kModuleHostName;
}

/// The executable whose symbols the module host uses; empty if none is there that root alone can change.
std::string ServiceExecutable(const Patient& patient) {
    std::vector<std::string> paths;
    for (const auto& process : patient.processes) paths.push_back(process.executable);
    paths.emplace_back(kInstalledService);
    const auto found = std::find_if(paths.begin(), paths.end(), [](const std::string& path) {
        return access(path.c_str(), R_OK) == 0 && !FindOpenPlace(path);
    });
    return found != paths.end() ? *found : std::string{};
}

/// The linker is shown nothing that others can change: it would act for root on their word.
void CheckLoads(Patient& patient, const std::string& path,
                const std::vector<std::string>& folders) {
    std::string libraryPath;
    auto places = folders;
    for (const auto& folder : folders) libraryPath += folder + ":";
    places.push_back(path);
    for (const auto& place : places) {
        const auto open = FindOpenPlace(place);
        if (!open) continue;
        return patient.Add({"module host loads", State::kWarning,
                            "not tried: others than root can change " + *open,
                            "chown root and chmod go-w " + *open});
    }
    const auto program = ServiceExecutable(patient);
    if (const auto problem = FindLoadProblem(path, program, libraryPath)) {
        return patient.Add({"module host loads", State::kFailed, *problem,
                            "install what is missing, or a module host of this version"});
    }
    patient.Add({"module host loads", State::kOk,
                 program.empty() ? "all libraries are found; symbols are not looked up without zorn"
                                 : "the dynamic linker finds all that it needs"});
}

/// The modules of the reference module host; others may have theirs elsewhere.
void CheckModules(Patient& patient, const std::string& libraryDirectory) {
    const auto wish = Variable(patient, "ZORN_MODULE_DIR");
    const std::string directory = wish.starts_with('/') ? wish : libraryDirectory + "/modules";
    struct stat status {};
    if (stat(directory.c_str(), &status) != 0 && errno == ENOENT) {
        return patient.Add({"modules", State::kOk, directory + " is not there: optional"});
    }
    CheckDirectory(patient, "modules", directory, State::kWarning, "look at what it is");
    std::vector<std::string> paths;
    std::error_code error;
    for (fs::directory_iterator entry{directory, error}, end; !error && entry != end;
         entry.increment(error)) {
        paths.push_back(entry->path().native());
    }
    if (error)
        return AddError(patient, "module files", directory, error.value(), State::kWarning,
                        "look at what it is");
    if (!paths.empty()) CheckFiles(patient, "module files", paths);
}

void CheckModuleHost(Patient& patient) {
    const auto folders = LibraryFolders(patient);
    const auto path = FindModuleHost(folders);
    const auto directory = path.substr(0, path.rfind('/'));
    CheckDirectory(patient, "library directory", directory, State::kFailed, "install the suite");
    CheckModules(patient, directory);
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        return AddError(patient, "module host", path, errno, State::kFailed,
                        "install libswitch.so there, or set LD_LIBRARY_PATH for the service");
    }
    CheckOwner(patient, "module host", path, status);
    try {
        CheckLoads(patient, path, folders);
    } catch (const Failure& failure) {
        patient.Add({"module host loads", State::kWarning,
                     "not tried: " + failure.path + ": " + failure.cause, failure.remedy});
    }
}

void CheckConfiguration(Patient& patient) {
    const int error = patient.input.error;
    if (error == ENOENT) {
        patient.Add({"configuration directory", State::kOk, "not there: the defaults apply"});
    } else if (error != 0) {
        AddError(patient, "configuration directory", kConfigDirectory, error, State::kWarning,
                 "mend or remove it: the service takes the defaults");
    } else {
        CheckDirectory(patient, "configuration directory", kConfigDirectory, State::kWarning,
                       "look at what it is");
    }
    std::vector<std::string> paths;
    for (const auto& file : patient.input.files) paths.push_back(file.path);
    if (!paths.empty()) CheckFiles(patient, "ini files", paths);
    const auto count = patient.settings.warnings.size();
    if (IsForRoot(error)) {
        return patient.Add(
            {"settings", State::kWarning, "those of the ini files are not known", kRunAsRoot});
    }
    if (count == 0) return patient.Add({"settings", State::kOk, "no warnings"});
    patient.Add({"settings", State::kWarning, std::to_string(count) + " warnings",
                 "see zornctl check-config"});
}

void CheckRegistry(Patient& patient) {
    CheckDirectory(patient, "registry directory", kRegistryDirectory, State::kWarning,
                   "make it: the registry and the names of adapters are not kept until then");
}

/// The `held` bytes of the log are given back when the next one begins.
void CheckSpace(Patient& patient, const std::string& directory, uint64_t held) {
    struct statvfs space {};
    if (statvfs(directory.c_str(), &space) != 0) return;
    const uint64_t free = uint64_t{space.f_bavail} * space.f_frsize;
    const uint64_t need = patient.settings.logMaxSize;
    std::string facts = std::to_string(free >> 20U) + " MiB free";
    if (held != 0) facts += ", the log holds " + std::to_string(held >> 20U) + " MiB";
    if (free + held >= need) return patient.Add({"space for the log", State::kOk, facts});
    patient.Add({"space for the log", State::kWarning,
                 facts + ", it may take " + std::to_string(need >> 20U) + " MiB",
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
        return AddError(patient, "log directory", shown, errno, State::kFailed,
                        "make it: the service runs without a log until then");
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
    constexpr uint64_t kBlock = 512;  // as stat(2) counts
    const bool isLog = isThere && S_ISREG(log.st_mode);
    CheckSpace(patient, shown, isLog ? static_cast<uint64_t>(log.st_blocks) * kBlock : 0);
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
        } else if (IsForRoot(errno)) {
            AddError(patient, need.check, path, errno, need.without, {});
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
    patient.input = ReadSettingsInput(kConfigDirectory, patient.environment);
    patient.settings = SettleTraceSettings(patient.input);
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

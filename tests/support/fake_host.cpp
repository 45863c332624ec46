#include "support/fake_host.h"

#include <cxxabi.h>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "support/child_report.h"
#include "support/coverage.h"
#include "support/host_namespaces.h"
#include "support/host_root.h"
#include "support/leak_listener.h"
#include "support/libc_fault.h"
#include "support/running_process.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kPath = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";
constexpr const char* kCommandFolder = "/usr/local/bin/";

[[noreturn]] void Throw(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), "FakeHost: cannot " + what);
}

void MakeFolders(HostRoot& root) {
    for (const char* folder :
         {"/dev/shm", "/etc/alternatives", "/opt", "/proc", "/root", "/run", "/sys", "/usr/bin",
          "/usr/sbin", "/usr/lib", "/usr/lib64", "/usr/local/bin", "/var/log", kKernelProc,
          ZORN_SOURCE_DIR, ZORN_BINARY_DIR}) {
        root.NeedDirectory(folder);
    }
    for (const char* folder : {"/tmp", "/var/tmp", "/dev/shm"}) root.Directory(folder, 01777);
    for (const char* folder : {"bin", "sbin", "lib", "lib64"}) {
        root.Link(std::string{"/"} + folder, std::string{"usr/"} + folder);
    }
}

void MakeFiles(HostRoot& root) {
    for (const char* device : kDevices) root.File(std::string{"/dev/"} + device, "", 0666);
    root.Link("/dev/fd", "/proc/self/fd");
    root.Link("/dev/stdin", "/proc/self/fd/0");
    root.Link("/dev/stdout", "/proc/self/fd/1");
    root.Link("/dev/stderr", "/proc/self/fd/2");
    root.File("/etc/passwd",
              "root:x:0:0:root:/root:/bin/sh\nnobody:x:65534:65534:nobody:/:/usr/sbin/nologin\n",
              0644);
    root.File("/etc/group", "root:x:0:\nnogroup:x:65534:\n", 0644);
    root.File("/etc/hosts", "127.0.0.1 localhost\n::1 localhost\n", 0644);
    root.File("/etc/nsswitch.conf", "passwd: files\ngroup: files\nhosts: files\n", 0644);
}

/// Pipe of which the child writes one end.
struct Pipe {
    Pipe() {
        int ends[2];
        if (LibcFault::Real<&::pipe2>(static_cast<int*>(ends), O_CLOEXEC) != 0)
            Throw("make a pipe");
        reader = OwnedFd{ends[0]};
        writer = OwnedFd{ends[1]};
    }
    OwnedFd reader;
    OwnedFd writer;
};

std::string ReadToEnd(int fd) {
    std::string text;
    char buffer[4096];
    ssize_t got = 0;
    while ((got = LibcFault::Real<&::read>(fd, static_cast<void*>(buffer), sizeof buffer)) > 0) {
        text.append(buffer, static_cast<size_t>(got));
    }
    return text;
}

std::string TypeName(const std::type_info& type) {
    int status = 0;
    char* name = abi::__cxa_demangle(type.name(), nullptr, nullptr, &status);
    std::string text = name == nullptr ? type.name() : name;
    free(name);
    return text;
}

void CallBody(const std::function<void()>& body, ChildReport& report, const Where& where) {
    try {
        body();
    } catch (const std::exception& error) {
        ReportFailure(where, "The body of FakeHost::Run threw " + TypeName(typeid(error)) + ": " +
                                 error.what());
    } catch (...) {
        if (abi::__cxa_current_exception_type() != nullptr) {
            ReportFailure(where,
                          "The body of FakeHost::Run threw something that is no std::exception.");
            return;
        }
        // The end of the thread, which must not be swallowed, and which nobody above could let
        // pass.
        ReportFailure(
            where, "The body of FakeHost::Run ended its thread (pthread_exit or a cancellation).");
        report.Done();
        _exit(0);
    }
}

/// The child of `FakeHost::Run` from its arrival on the host to its end.
[[noreturn]] void RunBody(const std::function<void()>& body, ChildReport& report,
                          const Where& where) {
    (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
    (void)prctl(PR_SET_CHILD_SUBREAPER, 1);
    (void)setenv("PATH", kPath, 1);
    {
        const LeakCensus before;
        CallBody(body, report, where);
        const std::string leaks = DescribeLeaks(before, "The body of FakeHost::Run");
        if (!leaks.empty()) ReportFailure(where, leaks);
    }
    report.Done();
    const LibcFault::Off off;
    (void)fflush(nullptr);
    WriteCoverage();
    _exit(0);
}

/// Takes reports until the process ends or time runs out; then what is still in the pipe.
ProcessEnd Follow(RunningProcess& process, int pipe, std::chrono::seconds limit,
                  ParentReport& report) {
    const auto end = std::chrono::steady_clock::now() + limit;
    char buffer[16384];
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            end - std::chrono::steady_clock::now());
        pollfd waits[] = {{pipe, POLLIN, 0}, {process.Handle(), POLLIN, 0}};
        const int ready = poll(waits, 2, static_cast<int>(std::max<int64_t>(left.count(), 0)));
        if (ready == 0) return kStillRunning;
        if (ready < 0) continue;
        if ((waits[0].revents & POLLIN) == 0) return process.Wait(kPatience);
        const ssize_t got =
            LibcFault::Real<&::read>(pipe, static_cast<void*>(buffer), sizeof buffer);
        if (got > 0) report.Take({buffer, static_cast<size_t>(got)});
        if (got == 0) return process.Wait(kPatience);
    }
}

OwnedFd MemoryFile(const char* name, std::string_view text = {}) {
    OwnedFd file{memfd_create(name, MFD_CLOEXEC)};
    if (!file) Throw("make a file in memory");
    if (LibcFault::Real<&::pwrite>(file.Get(), static_cast<const void*>(text.data()), text.size(),
                                   off_t{0}) != static_cast<ssize_t>(text.size())) {
        Throw("write a file in memory");
    }
    return file;
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

/// What a started program is made of.
struct Launch {
    std::vector<std::string> arguments;
    std::vector<std::string> environment;
    std::string directory;
    int input;
    int output;
    int error;
};

/// The child of `FakeHost::Start`: becomes the program, or tells why not. `enter` takes it to the
/// host.
[[noreturn]] void Become(Launch launch, int pipe, const std::function<void()>& enter) {
    std::string text;
    try {
        enter();
        (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (dup2(launch.input, 0) < 0 || dup2(launch.output, 1) < 0 || dup2(launch.error, 2) < 0) {
            Throw("set the standard streams");
        }
        if (chdir(launch.directory.c_str()) != 0) Throw("enter " + launch.directory);
        const auto arguments = Pointers(launch.arguments);
        const auto environment = Pointers(launch.environment);
        execve(arguments[0], arguments.data(), environment.data());
        Throw("execute " + launch.arguments[0]);
    } catch (const std::exception& error) {
        text = error.what();
    }
    (void)LibcFault::Real<&::write>(pipe, static_cast<const void*>(text.data()), text.size());
    _exit(127);
}

/// Runs a program of the real machine to its end; throws what it says if that is not 0.
void RunTool(std::vector<std::string> arguments) {
    const OwnedFd error = MemoryFile("error");
    posix_spawn_file_actions_t actions;
    (void)posix_spawn_file_actions_init(&actions);
    (void)posix_spawn_file_actions_adddup2(&actions, error.Get(), 2);
    pid_t id = 0;
    const int failure = posix_spawnp(&id, arguments[0].c_str(), &actions, nullptr,
                                     Pointers(arguments).data(), environ);
    (void)posix_spawn_file_actions_destroy(&actions);
    errno = failure;
    if (failure != 0) Throw("run " + arguments[0]);
    int status = 0;
    (void)LibcFault::Real<&::waitpid>(id, &status, 0);
    if (status == 0) return;
    (void)LibcFault::Real<&::lseek>(error.Get(), off_t{0}, SEEK_SET);
    throw std::runtime_error("FakeHost: " + arguments[0] + " failed: " + ReadToEnd(error.Get()));
}

/// What tools and sanitizers cannot do without, where the test has made a /proc/self of its own.
constexpr const char* kOwnEntries[] = {"environ", "exe", "fd", "maps", "task"};

}  // namespace

struct FakeHost::State {
    HostRoot root;
    HostNamespaces namespaces;
    bool hasKernelProc = false;

    /// Lets /proc/self lead to the kernel's, as far as the test has not made one.
    void PrepareProc();
    /// Takes that away again, so that the test can make one.
    void ForgetProcSelf();
    void Forget(std::string_view path);
    std::unique_ptr<HostProcess::State> Begin(const std::vector<std::string>& arguments,
                                              const StartOptions& options,
                                              const std::function<void()>& enter);
};

void FakeHost::State::PrepareProc() {
    for (const std::string name : {"self", "thread-self"}) {
        const std::string own = std::string{kKernelProc} + "/" + name;
        if (!fs::exists(fs::symlink_status(root.Folder() / "proc" / name))) {
            root.Link("/proc/" + name, own);
        } else if (fs::is_directory(fs::symlink_status(root.Folder() / "proc" / name))) {
            for (const char* entry : kOwnEntries) {
                const fs::path place = root.Folder() / "proc" / name / entry;
                if (!fs::exists(fs::symlink_status(place))) {
                    root.Link("/proc/" + name + "/" + entry, own + "/" + entry);
                }
            }
        }
    }
}

void FakeHost::State::ForgetProcSelf() {
    for (const char* name : {"self", "thread-self"}) {
        const fs::path link = root.Folder() / "proc" / name;
        std::error_code ignored;
        const fs::path target = fs::read_symlink(link, ignored);
        if (target.native().starts_with(kKernelProc)) fs::remove(link, ignored);
    }
}

void FakeHost::State::Forget(std::string_view path) {
    if (path.starts_with("/proc/self") || path.starts_with("/proc/thread-self")) ForgetProcSelf();
}

std::unique_ptr<HostProcess::State> FakeHost::State::Begin(
    const std::vector<std::string>& arguments, const StartOptions& options,
    const std::function<void()>& enter) {
    const OwnedFd input = MemoryFile("input", options.input);
    OwnedFd output = MemoryFile("output");
    OwnedFd error = MemoryFile("error");
    std::map<std::string, std::string> variables = options.environment;
    variables.emplace("PATH", kPath);
    Launch launch{arguments, {}, options.directory, input.Get(), output.Get(), error.Get()};
    for (const auto& [name, value] : variables) launch.environment.push_back(name + "=" + value);

    Pipe pipe;
    const pid_t id = namespaces.Fork();
    if (id < 0) Throw("fork");
    if (id == 0) Become(std::move(launch), pipe.writer.Get(), enter);
    auto process =
        std::make_unique<HostProcess::State>(id, root, std::move(output), std::move(error));
    pipe.writer.Close();
    const std::string failure = ReadToEnd(pipe.reader.Get());
    if (!failure.empty()) throw std::runtime_error(failure);
    return process;
}

FakeHost::FakeHost() : m_State(std::make_unique<State>()) {
    MakeFolders(m_State->root);
    MakeFiles(m_State->root);
}

FakeHost::~FakeHost() = default;

void FakeHost::Directory(std::string_view path, mode_t mode) {
    m_State->Forget(path);
    m_State->root.Directory(path, mode);
}

void FakeHost::File(std::string_view path, std::string_view text, mode_t mode) {
    m_State->Forget(path);
    m_State->root.File(path, text, mode);
}

void FakeHost::Link(std::string_view path, std::string_view target) {
    m_State->Forget(path);
    m_State->root.Link(path, target);
}

void FakeHost::Command(std::string_view name, std::string_view script) {
    const bool isPath = name.find('/') != name.npos;
    const std::string path = isPath ? std::string{name} : kCommandFolder + std::string{name};
    const std::string head = script.starts_with("#!") ? "" : "#!/bin/sh\n";
    m_State->root.File(path, head + std::string{script} + "\n", 0755);
}

void FakeHost::Memory(std::string_view path, const std::map<uint64_t, std::string>& contents,
                      uint64_t size) {
    m_State->root.Memory(path, contents, size);
}

void FakeHost::Remove(std::string_view path) {
    m_State->Forget(path);
    m_State->root.Remove(path);
}

void FakeHost::Unpack(const fs::path& archive) {
    m_State->ForgetProcSelf();
    RunTool(
        {"tar", "--no-same-owner", "-xf", archive.native(), "-C", m_State->root.Folder().native()});
}

void FakeHost::Ip(std::initializer_list<std::string_view> lines) {
    StartOptions options;
    for (const std::string_view line : lines) options.input += std::string{line} + "\n";
    options.environment["PATH"] = kPath;
    HostProcess ip{m_State->Begin({"/bin/ip", "-batch", "-"}, options,
                                  [this] { m_State->namespaces.EnterNetwork(); })};
    if (ip.Wait() != Exited(0)) throw std::runtime_error("FakeHost: ip: " + ip.StandardError());
}

void FakeHost::KernelProc() {
    m_State->hasKernelProc = true;
}

std::string FakeHost::Read(std::string_view path) const {
    return m_State->root.Read(path);
}

bool FakeHost::Exists(std::string_view path) const {
    return m_State->root.Exists(path);
}

std::vector<std::string> FakeHost::List(std::string_view path) const {
    return m_State->root.List(path);
}

fs::path FakeHost::Path(std::string_view path) const {
    return m_State->root.Path(path);
}

void FakeHost::Run(const std::function<void()>& body, const RunOptions& options, Where where) {
    m_State->PrepareProc();
    Pipe pipe;
    (void)LibcFault::Real<&::fflush>(static_cast<FILE*>(nullptr));
    const pid_t id = m_State->namespaces.Fork();
    if (id < 0) Throw("fork");
    if (id == 0) {
        ChildReport report{pipe.writer.Get()};
        try {
            m_State->namespaces.Enter(m_State->root.Folder(), options.uid, m_State->hasKernelProc);
        } catch (const std::exception& error) {
            ReportFailure(where, error.what());
            report.Done();
            _exit(0);
        }
        RunBody(body, report, where);
    }
    RunningProcess process{id, m_State->root};
    pipe.writer.Close();
    ParentReport report;
    ProcessEnd end = Follow(process, pipe.reader.Get(), options.limit, report);
    if (end == kStillRunning) {
        ReportFailure(where, "The body of FakeHost::Run took longer than " +
                                 std::to_string(options.limit.count()) + " s and was killed.");
    } else if (end != Exited(0) || !report.IsDone()) {
        std::ostringstream text;
        text << "The body of FakeHost::Run did not come to its end: " << end << ".";
        ReportFailure(where, text.str());
    }
}

HostProcess FakeHost::Start(const std::vector<std::string>& arguments,
                            const StartOptions& options) {
    m_State->PrepareProc();
    return HostProcess{m_State->Begin(arguments, options, [this, &options] {
        m_State->namespaces.Enter(m_State->root.Folder(), options.uid, m_State->hasKernelProc);
    })};
}

std::string FakeHost::Executable() {
    return std::string{ZORN_BINARY_DIR} + "/bin/zorn";
}

std::string FakeHost::LibraryDirectory() {
    return std::string{ZORN_BINARY_DIR} + "/lib";
}

std::optional<fs::path> RecordedMachine(std::string_view name) {
    const char* given = std::getenv("ZORN_HOSTS");
    const fs::path hosts =
        given != nullptr ? fs::path{given} : fs::path{ZORN_SOURCE_DIR} / "../shared/hosts";
    const fs::path machine = hosts / name;
    if (!fs::exists(machine / "tree.tar.zst")) return std::nullopt;
    return machine;
}

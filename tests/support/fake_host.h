#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <initializer_list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/host_process.h"
#include "support/where.h"

/// How `FakeHost::Run` runs its body.
struct RunOptions {
    /// User (and group) that the body runs as, seen from inside. Where the test itself is not run by
    /// root, files belong to that user too: what nobody but root may read gets mode 0 then.
    uid_t uid = 0;
    std::chrono::seconds limit{60};  ///< a body that takes longer is killed, and the test fails
};

/// How `FakeHost::Start` starts a program.
struct StartOptions {
    /// The whole environment but for PATH, which is the host's own unless it is given here.
    std::map<std::string, std::string> environment = {};
    uid_t uid = 0;                ///< user (and group) of the program, seen from inside
    std::string directory = "/";  ///< where it starts
    std::string input = {};       ///< what it reads from its standard input
};

/// A machine made by the test: a root of its own in mount and network namespaces (and a user
/// namespace when the test is not run by root), in which code under test finds nothing but what the
/// test has put there.
///
///     FakeHost host;
///     host.File("/proc/scsi/scsi", "Attached devices:\n");
///     host.Command("localcli", "echo hello");
///     host.Run([] {                                   // a fresh process on that machine
///         EXPECT_EQ(ReadScsi(), 0);                    // failures are reported as usual
///     });
///     EXPECT_TRUE(host.Exists("/var/log/tolbrin/log.zorn"));
///
/// What is there from the start:
///  - /usr, the machine's own, read-only, and the links /bin /sbin /lib /lib64 into it. Files made
///    below them (`Command("/sbin/lspci", ...)`) cover or join the real ones, `Remove` hides one.
///  - /dev with null, zero, full, random, urandom, tty and the links fd, stdin, stdout, stderr;
///    /dev/shm.
///  - /proc with nothing but `self`, `thread-self` and the numbers of the processes that run in
///  this
///    host. `KernelProc()` puts the kernel's whole /proc in its place.
///  - /etc with passwd, group, hosts and nsswitch.conf; no /etc/localtime, so local time is UTC.
///  - empty /sys, /run, /root, /opt, /var/log, /var/tmp and a /tmp open to all.
///  - a network of its own with nothing but a loopback interface, up.
///  - the source tree and the build tree, read-only, where they lie outside.
///  - /.kernel, where the support code keeps the real /proc.
///
/// Everything else the test makes, before or between the runs, with absolute paths seen from
/// inside; links are followed inside the host and never lead out of it. Missing folders above a
/// path are made (mode 0755). Files belong to the user who runs the test, who is root inside. What
/// a run writes stays for the next one; processes and mounts do not.
///
/// An operation that cannot do its work throws `std::system_error` or `std::runtime_error` that
/// names it: the test fails with that text. Where the kernel gives no namespaces the constructor
/// throws.
///
/// The files lie in a folder below $TMPDIR, or else /dev/shm or /tmp, which goes with the object.
/// Nothing of the real machine is changed.
///
/// Thread-safety: one thread.
class FakeHost {
  public:
    FakeHost();
    ~FakeHost();
    FakeHost(const FakeHost&) = delete;
    FakeHost& operator=(const FakeHost&) = delete;

    /// Makes a folder, or gives the one that is there that mode.
    void Directory(std::string_view path, mode_t mode = 0755);

    /// Makes a file with that content, in place of one that is there.
    void File(std::string_view path, std::string_view text, mode_t mode = 0644);

    /// Makes a symbolic link, in place of a file or link that is there.
    void Link(std::string_view path, std::string_view target);

    /// Makes an executable of a shell script; a first line with "#!" may name another interpreter.
    /// A `name` without a slash is found by PATH (it lies in /usr/local/bin); otherwise it is a
    /// path.
    void Command(std::string_view name, std::string_view script);

    /// Makes a file of `size` bytes that is all holes but for `contents`, by offset: a /dev/mem
    /// that can be read and mapped. With a `size` of 0 it ends with its last content.
    void Memory(std::string_view path, const std::map<uint64_t, std::string>& contents,
                uint64_t size = 0);

    /// Takes a file, a link or a whole folder away; one of the real /usr is hidden.
    void Remove(std::string_view path);

    /// Unpacks a recorded machine (tar, compressed or not, holes kept) over what is there.
    void Unpack(const std::filesystem::path& archive);

    /// Runs `ip LINE` for each line on the host's network, all in one process:
    ///
    ///     host.Ip({"link add eth0 type veth peer name peer0", "addr add 192.0.2.1/24 dev eth0"});
    ///
    /// veth, bridge and tuntap can be relied upon; other kinds as the kernel has modules for them.
    void Ip(std::initializer_list<std::string_view> lines);

    /// Puts the kernel's own /proc in place of the made one, for what is started from now on.
    void KernelProc();

    /// The whole content of a file. Throws if there is none.
    [[nodiscard]] std::string Read(std::string_view path) const;

    /// Whether there is something (other than a link to nothing) of that name in what the test or a
    /// run has made. The real /usr does not count.
    [[nodiscard]] bool Exists(std::string_view path) const;

    /// The names in a folder, in alphabetic order, without "." and "..". Empty if it is missing.
    [[nodiscard]] std::vector<std::string> List(std::string_view path) const;

    /// Where a path of the host lies outside, links of the host resolved; what does not exist gets
    /// the place where it would be made.
    [[nodiscard]] std::filesystem::path Path(std::string_view path) const;

    /// Runs `body` as a fresh process on this host, in folder / with an otherwise inherited
    /// environment (PATH is the host's), and waits for its end. Its failures are the test's, at
    /// their own places; a skip in it skips the test; variables that it changes are a copy. A body
    /// that is killed, exits, throws, takes too long or leaves a descriptor, mapping or child open
    /// (see leak_census.h) is a failure that says so. Process-wide state is that of the test
    /// program: what the test did not touch is as at program start.
    void Run(const std::function<void()>& body, const RunOptions& options = {},
             Where where = Where::Here());

    /// Starts a program on this host with these arguments, the first of which is its path.
    [[nodiscard]] HostProcess Start(const std::vector<std::string>& arguments,
                                    const StartOptions& options = {});

    /// The built service, as it is called on every host.
    [[nodiscard]] static std::string Executable();

    /// The folder that libraries and modules are built into, as it is called on every host.
    [[nodiscard]] static std::string LibraryDirectory();

  private:
    struct State;
    std::unique_ptr<State> m_State;
};

/// The folder of a machine recorded beside the source tree (`tree.tar.zst` for `FakeHost::Unpack`,
/// `truth/` with what common tools said there). Empty if the recordings are not on this machine:
///
///     const auto machine = RecordedMachine("pc-scsi");
///     if (!machine) GTEST_SKIP() << kNoRecordings;
[[nodiscard]] std::optional<std::filesystem::path> RecordedMachine(std::string_view name);
inline constexpr const char* kNoRecordings =
    "the recorded machines (../shared/hosts beside the source tree, or $ZORN_HOSTS) are not here";

#include "support/host_namespaces.h"

#include <fcntl.h>
#include <grp.h>
#include <linux/capability.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>
#include <system_error>

#include "support/coverage.h"
#include "support/libc_fault.h"

namespace fs = std::filesystem;

namespace {

[[noreturn]] void Throw(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), "FakeHost: cannot " + what);
}

void Check(int result, const std::string& what) {
    if (result != 0) Throw(what);
}

// The process that makes the namespaces, and one that must not start threads: plain system calls
// only.

bool WriteFile(const char* path, const char* text) {
    const OwnedFd file{LibcFault::Real<&::open>(path, O_WRONLY | O_CLOEXEC, mode_t{0})};
    const auto size = static_cast<ssize_t>(strlen(text));
    return file && LibcFault::Real<&::write>(file.Get(), static_cast<const void*>(text),
                                             strlen(text)) == size;
}

/// Makes the calling process user and group `inside` of a new user namespace, all others unknown.
bool UnshareUser(uid_t inside) {
    char users[64];
    char groups[64];
    (void)snprintf(users, sizeof users, "%u %u 1", inside, LibcFault::Real<&::geteuid>());
    (void)snprintf(groups, sizeof groups, "%u %u 1", inside, getegid());
    return unshare(CLONE_NEWUSER) == 0 && WriteFile("/proc/self/setgroups", "deny") &&
           WriteFile("/proc/self/uid_map", users) && WriteFile("/proc/self/gid_map", groups);
}

bool UnshareNetwork() {
    if (unshare(CLONE_NEWNET) != 0) return false;
    const OwnedFd fd{LibcFault::Real<&::socket>(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    ifreq loopback{};
    strcpy(loopback.ifr_name, "lo");
    loopback.ifr_flags = IFF_UP;
    return fd && LibcFault::RealPointer<&::ioctl>()(fd.Get(), SIOCSIFFLAGS, &loopback) == 0;
}

/// Makes the namespaces, tells the outcome (an errno, or 0) and stays until nobody listens any
/// more.
[[noreturn]] void KeepNamespaces(int channel, bool isRoot) {
    const bool made = (isRoot || UnshareUser(0)) && UnshareNetwork();
    const int outcome = made ? 0 : errno;
    (void)send(channel, &outcome, sizeof outcome, MSG_NOSIGNAL);
    char byte;
    (void)recv(channel, &byte, 1, 0);
    _exit(0);
}

// The mounts of a process on the host, in the order in which they are made.

void Bind(const fs::path& from, const fs::path& to, bool readOnly) {
    Check(mount(from.c_str(), to.c_str(), nullptr, MS_BIND | MS_REC, nullptr),
          "mount " + from.native() + " on " + to.native());
    if (!readOnly) return;
    mount_attr attributes{};
    attributes.attr_set = MOUNT_ATTR_RDONLY;
    Check(mount_setattr(AT_FDCWD, to.c_str(), AT_RECURSIVE, &attributes, sizeof attributes),
          "make read-only " + to.native());
}

/// The real /usr below what the test has made there. The root's own /usr is its first layer.
void MountUsr(const fs::path& root) {
    const fs::path usr = root / "usr";
    const std::string layers = "lowerdir=" + usr.native() + ":/usr";
    Check(mount("overlay", usr.c_str(), "overlay", MS_RDONLY, layers.c_str()),
          "mount an overlay on " + usr.native());
}

/// Devices whose place the test has not taken for something else.
void BindDevices(const fs::path& root) {
    for (const char* name : kDevices) {
        const fs::path device = fs::path{"/dev"} / name;
        const fs::path place = root / "dev" / name;
        struct stat status {};
        const bool isPlace = LibcFault::Real<&::lstat>(place.c_str(), &status) == 0 &&
                             S_ISREG(status.st_mode) && status.st_size == 0;
        if (isPlace && fs::exists(device)) Bind(device, place, false);
    }
}

void BindProc(const fs::path& root, bool kernelProc) {
    Bind("/proc", root / (kKernelProc + 1), false);
    if (kernelProc) return Bind("/proc", root / "proc", false);
    const std::string number = std::to_string(LibcFault::Real<&::getpid>());
    const fs::path place = root / "proc" / number;
    std::error_code ignored;
    if (fs::create_directory(place, ignored)) Bind(fs::path{"/proc"} / number, place, false);
}

void BindTrees(const fs::path& root) {
    for (const char* tree : {ZORN_SOURCE_DIR, ZORN_BINARY_DIR}) {
        const fs::path place = root / (tree + 1);
        if (fs::exists(place)) Bind(tree, place, !kMeasuresCoverage);
    }
    if (fs::exists("/etc/alternatives")) Bind("/etc/alternatives", root / "etc/alternatives", true);
}

void ChangeRoot(const fs::path& root) {
    Check(chdir(root.c_str()), "enter " + root.native());
    if (syscall(SYS_pivot_root, ".", ".") == 0) {
        Check(umount2(".", MNT_DETACH), "leave the real root");
    } else {
        Check(chroot("."), "change the root");  // the real root is the kernel's first file system
    }
    Check(chdir("/"), "enter /");
}

void BecomeUser(uid_t uid, bool isRoot) {
    if (uid == 0) return;
    if (isRoot) {
        Check(setgroups(0, nullptr), "leave the groups");
        Check(setresgid(uid, uid, uid), "change the group");
        Check(setresuid(uid, uid, uid), "change the user");
    } else {
        __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
        __user_cap_data_struct none[2]{};
        Check(static_cast<int>(syscall(SYS_capset, &header, none)), "give up the rights of root");
    }
    (void)prctl(PR_SET_DUMPABLE, 1);  // or its own /proc/self is root's
}

}  // namespace

HostNamespaces::HostNamespaces() : m_IsRoot(LibcFault::Real<&::geteuid>() == 0) {
    int channel[2];
    Check(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, channel), "make a socket pair");
    OwnedFd ours{channel[0]};
    OwnedFd theirs{channel[1]};
    const pid_t keeper = _Fork();
    if (keeper < 0) Throw("fork");
    if (keeper == 0) {
        ours.Close();
        KeepNamespaces(theirs.Get(), m_IsRoot);
    }
    theirs.Close();
    int outcome = EPIPE;
    (void)LibcFault::Real<&::recv>(ours.Get(), static_cast<void*>(&outcome), sizeof outcome,
                                   MSG_WAITALL);
    const std::string folder = "/proc/" + std::to_string(keeper) + "/ns/";
    if (outcome == 0) {
        m_Network = OwnedFd{
            LibcFault::Real<&::open>((folder + "net").c_str(), O_RDONLY | O_CLOEXEC, mode_t{0})};
        m_User = OwnedFd{
            LibcFault::Real<&::open>((folder + "user").c_str(), O_RDONLY | O_CLOEXEC, mode_t{0})};
        if (!m_Network || !m_User) outcome = errno;
    }
    ours.Close();
    (void)LibcFault::Real<&::waitpid>(keeper, static_cast<int*>(nullptr), 0);
    errno = outcome;
    Check(outcome, "make namespaces: is this a kernel or a container that forbids them?");
}

pid_t HostNamespaces::Fork() const {
    return m_IsRoot ? LibcFault::Real<&::fork>() : _Fork();
}

void HostNamespaces::EnterUser(uid_t uid) const {
    if (m_IsRoot) return;
    if (uid == 0) {
        Check(setns(m_User.Get(), CLONE_NEWUSER), "enter the user namespace");
    } else if (!UnshareUser(uid)) {
        Throw("make a user namespace");
    }
}

void HostNamespaces::EnterNetwork() const {
    EnterUser(0);
    Check(setns(m_Network.Get(), CLONE_NEWNET), "enter the network namespace");
}

void HostNamespaces::Enter(const fs::path& root, uid_t uid, bool kernelProc) const {
    EnterUser(uid);
    if (m_IsRoot || uid == 0) {
        Check(setns(m_Network.Get(), CLONE_NEWNET), "enter the network namespace");
    } else if (!UnshareNetwork()) {  // the host's network belongs to another user namespace
        Throw("make a network namespace");
    }
    Check(unshare(CLONE_NEWNS), "make a mount namespace");
    Check(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "keep mounts to ourselves");
    Bind(root, root, false);
    MountUsr(root);
    BindDevices(root);
    BindProc(root, kernelProc);
    BindTrees(root);
    ChangeRoot(root);
    BecomeUser(uid, m_IsRoot);
}

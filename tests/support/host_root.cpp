#include "support/host_root.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <system_error>

#include "support/libc_fault.h"

namespace fs = std::filesystem;

namespace {

constexpr mode_t kFolderMode = 0755;

[[noreturn]] void Throw(std::string_view what, std::string_view path) {
    throw std::system_error(errno, std::generic_category(),
                            "FakeHost: cannot " + std::string{what} + " " + std::string{path});
}

/// The mode in full, whatever the umask says.
void SetMode(int fd, mode_t mode, std::string_view path) {
    if (fchmod(fd, mode) != 0) Throw("set the mode of", path);
}

void WriteAt(int fd, uint64_t offset, std::string_view text, std::string_view path) {
    while (!text.empty()) {
        const ssize_t done = LibcFault::Real<&::pwrite>(fd, static_cast<const void*>(text.data()),
                                                        text.size(), static_cast<off_t>(offset));
        if (done < 0) Throw("write", path);
        offset += static_cast<uint64_t>(done);
        text.remove_prefix(static_cast<size_t>(done));
    }
}

/// Whether an overlay takes it as "hidden below".
bool IsWhiteout(const struct stat& status) {
    return S_ISCHR(status.st_mode) && status.st_rdev == makedev(0, 0);
}

/// Splits "/a/b/" into "/a" and "b".
std::pair<std::string, std::string> Split(std::string_view path) {
    while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
    const auto slash = path.rfind('/');
    if (slash == path.npos || slash + 1 == path.size()) {
        errno = EINVAL;
        Throw("use as an absolute path", path);
    }
    return {std::string{path.substr(0, slash)}, std::string{path.substr(slash + 1)}};
}

/// $TMPDIR; or a file system in memory, many times faster; or /tmp.
fs::path TemporaryFolder() {
    constexpr const char* kMemory = "/dev/shm";
    struct statvfs status {};
    const bool isFit = statvfs(kMemory, &status) == 0 && (status.f_flag & ST_NOEXEC) == 0 &&
                       LibcFault::Real<&::access>(kMemory, W_OK) == 0;
    return isFit && std::getenv("TMPDIR") == nullptr ? fs::path{kMemory}
                                                     : fs::temp_directory_path();
}

/// Gives the user back the right to remove what code under test has locked.
void UnlockFolders(const fs::path& folder) {
    std::error_code ignored;
    fs::permissions(folder, fs::perms::owner_all, fs::perm_options::add, ignored);
    for (const auto& entry : fs::directory_iterator{folder, ignored}) {
        if (entry.is_directory(ignored) && !entry.is_symlink(ignored)) UnlockFolders(entry.path());
    }
}

}  // namespace

void OwnedFd::Close() {
    if (m_Fd >= 0) (void)LibcFault::Real<&::close>(m_Fd);
    m_Fd = -1;
}

struct HostRoot::Place {
    OwnedFd folder;
    std::string name;
};

HostRoot::HostRoot() {
    std::string name = (TemporaryFolder() / "zorn-host-XXXXXX").native();
    if (mkdtemp(name.data()) == nullptr) Throw("make", name);
    m_Folder = fs::canonical(name);
    m_Fd = OwnedFd{LibcFault::Real<&::open>(static_cast<const char*>(name.c_str()),
                                            O_RDONLY | O_DIRECTORY | O_CLOEXEC, mode_t{0})};
    if (!m_Fd) Throw("open", name);
    SetMode(m_Fd.Get(), kFolderMode, name);
}

HostRoot::~HostRoot() {
    const LibcFault::Off off;
    std::error_code error;
    fs::remove_all(m_Folder, error);
    if (!error) return;
    UnlockFolders(m_Folder);
    fs::remove_all(m_Folder, error);
}

OwnedFd HostRoot::Open(std::string_view path, int flags, mode_t mode) const {
    const std::string inside{path};
    open_how how{};
    how.flags = static_cast<uint64_t>(flags | O_CLOEXEC);
    how.mode = mode;
    how.resolve = RESOLVE_IN_ROOT;
    return OwnedFd{static_cast<int>(
        syscall(SYS_openat2, m_Fd.Get(), inside.empty() ? "/" : inside.c_str(), &how, sizeof how))};
}

void HostRoot::NeedDirectory(std::string_view path) {
    if (path.empty() || path == "/" || Open(path, O_PATH | O_DIRECTORY)) return;
    const auto [above, name] = Split(path);
    NeedDirectory(above);
    const OwnedFd folder = Open(above, O_PATH | O_DIRECTORY);
    if (mkdirat(folder.Get(), name.c_str(), kFolderMode) != 0) Throw("make", path);
    const OwnedFd made = Open(path, O_RDONLY | O_DIRECTORY);
    if (!made) Throw("make", path);
    SetMode(made.Get(), kFolderMode, path);
}

void HostRoot::Directory(std::string_view path, mode_t mode) {
    NeedDirectory(path);
    const OwnedFd folder = Open(path, O_RDONLY | O_DIRECTORY);
    if (!folder) Throw("open", path);
    SetMode(folder.Get(), mode, path);
}

HostRoot::Place HostRoot::Clear(std::string_view path) {
    auto [above, name] = Split(path);
    NeedDirectory(above);
    Place place{Open(above, O_PATH | O_DIRECTORY), std::move(name)};
    if (!place.folder) Throw("open", above);
    if (unlinkat(place.folder.Get(), place.name.c_str(), 0) != 0 && errno != ENOENT) {
        Throw("replace", path);
    }
    return place;
}

void HostRoot::File(std::string_view path, std::string_view text, mode_t mode) {
    Memory(path, {{0, std::string{text}}}, 0);
    const OwnedFd file = Open(path, O_RDONLY | O_NOFOLLOW);
    SetMode(file.Get(), mode, path);
}

void HostRoot::Link(std::string_view path, std::string_view target) {
    const Place place = Clear(path);
    if (symlinkat(std::string{target}.c_str(), place.folder.Get(), place.name.c_str()) != 0) {
        Throw("make the link", path);
    }
}

void HostRoot::Memory(std::string_view path, const std::map<uint64_t, std::string>& contents,
                      uint64_t size) {
    const Place place = Clear(path);
    const OwnedFd file{
        LibcFault::Real<&::openat>(place.folder.Get(), static_cast<const char*>(place.name.c_str()),
                                   O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode_t{0600})};
    if (!file) Throw("make", path);
    for (const auto& [offset, text] : contents) WriteAt(file.Get(), offset, text, path);
    if (size != 0 && LibcFault::Real<&::ftruncate>(file.Get(), static_cast<off_t>(size)) != 0) {
        Throw("size", path);
    }
}

void HostRoot::Remove(std::string_view path) {
    std::error_code error;
    const auto [above, name] = Split(path);
    NeedDirectory(above);
    const OwnedFd folder = Open(above, O_PATH | O_DIRECTORY);
    const fs::path place = Path(above) / name;
    fs::remove_all(place, error);
    if (error) throw std::system_error(error, "FakeHost: cannot remove " + std::string{path});
    // What lies below /usr may be in the real one too.
    const auto inside = place.lexically_relative(m_Folder / "usr");
    if (inside.empty() || *inside.begin() == "..") return;
    if (!fs::exists(fs::symlink_status(fs::path{"/usr"} / inside, error))) return;
    if (mknodat(folder.Get(), name.c_str(), S_IFCHR, makedev(0, 0)) != 0) Throw("hide", path);
}

std::string HostRoot::Read(std::string_view path) const {
    const OwnedFd file = Open(path, O_RDONLY);
    if (!file) Throw("read", path);
    std::string text;
    char buffer[16384];
    for (;;) {
        const ssize_t got =
            LibcFault::Real<&::read>(file.Get(), static_cast<void*>(buffer), sizeof buffer);
        if (got < 0) Throw("read", path);
        if (got == 0) return text;
        text.append(buffer, static_cast<size_t>(got));
    }
}

bool HostRoot::Exists(std::string_view path) const {
    const OwnedFd found = Open(path, O_PATH);
    struct stat status {};
    return found && LibcFault::Real<&::fstat>(found.Get(), &status) == 0 && !IsWhiteout(status);
}

std::vector<std::string> HostRoot::List(std::string_view path) const {
    std::vector<std::string> names;
    const LibcFault::Off off;
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator{Path(path), ignored}) {
        names.push_back(entry.path().filename().native());
    }
    std::sort(names.begin(), names.end());
    return names;
}

fs::path HostRoot::Path(std::string_view path) const {
    if (const OwnedFd found = Open(path, O_PATH)) {
        return fs::read_symlink("/proc/self/fd/" + std::to_string(found.Get()));
    }
    const auto [above, name] = Split(path);
    return Path(above) / name;
}

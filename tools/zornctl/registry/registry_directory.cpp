#include "zornctl/registry/registry_directory.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

#include "zornctl/output/failure.h"
#include "zornctl/registry/registry_tree.h"
#include "zornctl/system/service_paths.h"
#include "zornctl/system/whole_file.h"

namespace zornctl {

namespace {

/// Status of what is there; empty if it is not.
std::optional<struct stat> StatusOf(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) == 0) return status;
    if (errno == ENOENT || errno == ENOTDIR) return std::nullopt;
    throw SystemFailure(path, errno);
}

/// A pipe or a device would be waited for.
void CheckIsFile(const std::string& path) {
    const auto status = StatusOf(path);
    if (!status || S_ISREG(status->st_mode)) return;
    throw Failure{ExitStatus::kNoAccess, path, "is no regular file",
                  "look at what it is, and remove it"};
}

/// Why no tree was found in a file.
std::string ReasonAgainst(const std::string& path) {
    const auto status = StatusOf(path);
    if (!status) return path + " does not exist";
    return path + (status->st_size == 0 ? " is empty" : " holds no value");
}

void CheckIsDirectory(const std::string& path) {
    const auto status = StatusOf(path);
    if (status && S_ISDIR(status->st_mode)) return;
    throw Failure{ExitStatus::kNotFound, path,
                  std::generic_category().message(status ? ENOTDIR : ENOENT),
                  "make it, or name another one with --directory"};
}

/// The service, which may read all files, would take it: another one in its place is none.
void CheckIsReadable(const std::string& path) {
    if (StatusOf(path)) (void)ReadWholeFile(path, kLargestRegistry);
}

}  // namespace

RegistryDirectory::RegistryDirectory(const std::string& path)
    : m_Directory(path),
      m_Current(path + "/registry"),
      m_Backup(m_Current + ".old"),
      m_Temporary(m_Current + ".new.zornctl"),
      m_Factory(m_Current + ".default") {}

bool RegistryDirectory::IsOfService() const {
    const auto own = StatusOf(m_Directory);
    const auto service = StatusOf(kRegistryDirectory);
    return own && service && own->st_dev == service->st_dev && own->st_ino == service->st_ino;
}

void RegistryDirectory::Lock() {
    constexpr int kTries = 100;
    constexpr std::chrono::milliseconds kPause{50};
    CheckIsDirectory(m_Directory);
    m_Lock.Reset(open(m_Directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!m_Lock) throw SystemFailure(m_Directory, errno);
    for (int i = 0; flock(m_Lock.Get(), LOCK_EX | LOCK_NB) != 0; ++i) {
        if (errno != EWOULDBLOCK && errno != EINTR) throw SystemFailure(m_Directory, errno);
        if (i == kTries) {
            throw Failure{ExitStatus::kNotFound, m_Directory,
                          "another zornctl is at work on this registry",
                          "try again when it is done"};
        }
        std::this_thread::sleep_for(kPause);
    }
}

RegistrySource RegistryDirectory::Read(CRegistryNode& tree) {
    CheckIsDirectory(m_Directory);
    for (const auto* path : {&m_Current, &m_Backup, &m_Factory}) CheckIsFile(*path);
    CheckIsReadable(m_Current);
    const std::string* const path = Files().Restore(tree);
    if (path != &m_Current) CheckIsReadable(m_Backup);
    if (path != nullptr) return SourceFrom(*path);
    CheckIsReadable(m_Factory);
    return {m_Current, false,
            m_Directory + ": neither registry nor registry.old nor registry.default holds a value"};
}

RegistrySource RegistryDirectory::SourceFrom(const std::string& path) const {
    RegistrySource source{path, true, {}};
    if (path != m_Current) source.note = ReasonAgainst(m_Current) + ": " + path + " is taken";
    auto lines = FindLostLines(ReadWholeFile(path, kLargestRegistry));
    if (lines.empty()) return source;
    if (!source.note.empty()) source.note += "; ";
    source.note += path + ": not as the service writes it: " + FormatLostLines(lines);
    if (path != m_Factory) source.lost = std::move(lines);
    return source;
}

void RegistryDirectory::Save(CRegistryNode& tree) {
    const auto lines = FindLostLines(TextOf(tree));
    if (!lines.empty()) {
        throw Failure{ExitStatus::kNotFound, m_Current,
                      "would not come back as it is: " + FormatLostLines(lines),
                      "shorten what is so long"};
    }
    const bool wasThere = StatusOf(m_Current).has_value();
    const int error = Files().Save(tree);
    if (error == 0) return;
    const bool isForRoot = error == EACCES || error == EPERM;
    const bool isMoved = wasThere && !StatusOf(m_Current);
    throw Failure{
        ExitStatus::kNoAccess, m_Current,
        "cannot be replaced by registry.new.zornctl: " + std::generic_category().message(error) +
            (isMoved ? "; what it was is registry.old now" : ""),
        isForRoot ? "run zornctl as root" : "look at the directory and its file system"};
}

}  // namespace zornctl

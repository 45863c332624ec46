// There is no flock(2) with a limit, so `Take` tries again and again. Each try begins with the name
// of the file: the former holder removes the file as it gives the lock back, so a descriptor opened
// before may lead to a file that nobody else will ever see. For the same reason a lock just taken
// counts only if the name still leads to the locked file.

#include "service/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <utility>

#include "platform/open_file.h"
#include "platform/retry_interrupted.h"
#include "platform/unique_fd.h"
#include "trace/no_cancellation.h"
#include "trace/trace.h"

namespace {

constexpr mode_t kFileMode = 0600;

/// A span of time from its construction on, spent in short sleeps.
class Patience {
  public:
    explicit Patience(unsigned limitMs)
        : m_IsEndless(limitMs == CFileLock::kNoTimeout), m_End(Now() + limitMs * kPerMillisecond) {}

    /// Sleeps a little, not beyond the end. False, without a sleep, if the end is reached.
    [[nodiscard]] bool Sleep() const {
        const int64_t left = m_IsEndless ? kInterval : m_End - Now();
        if (left <= 0) return false;
        const timespec span{0, static_cast<long>(std::min(left, kInterval))};
        (void)nanosleep(&span, nullptr);  // cut short by a signal: the next try comes early
        return true;
    }

  private:
    static constexpr int64_t kPerMillisecond = 1000 * 1000;  // all times in nanoseconds
    static constexpr int64_t kInterval = 10 * kPerMillisecond;

    bool m_IsEndless;
    int64_t m_End;

    static int64_t Now() {
        timespec now{};
        (void)clock_gettime(CLOCK_MONOTONIC, &now);
        return now.tv_sec * 1000 * kPerMillisecond + now.tv_nsec;
    }
};

enum class Attempt {
    kLocked,
    kHeldByOther,  ///< or the file was replaced meanwhile: worth another try
    kFailed,       ///< traced
};

/// A regular file of that name, made if it is missing; empty, and traced, if there is none. What
/// stands there instead must neither block the service nor become its terminal.
UniqueFd OpenLockFile(const char* path) {
    UniqueFd file = OpenFd(path, O_RDWR | O_CREAT | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK, kFileMode);
    struct stat status {};
    if (!file || fstat(file.Get(), &status) != 0) {
        TRACE(1, "\nCFileLock           : ## ERROR! Cannot open lock file %s (errno=%d: %s)\n",
              path, errno, strerror(errno));
        return {};
    }
    if (!S_ISREG(status.st_mode)) {
        TRACE(1, "\nCFileLock           : ## ERROR! Lock file %s is not a regular file\n", path);
        return {};
    }
    return file;
}

/// Whether the name leads to the open file. False also if that cannot be found out.
bool IsStillThere(const char* path, const UniqueFd& file) {
    struct stat named {};
    struct stat opened {};
    return lstat(path, &named) == 0 && fstat(file.Get(), &opened) == 0 &&
           named.st_dev == opened.st_dev && named.st_ino == opened.st_ino;
}

/// One try. `locked` gets the file with the lock on it.
Attempt TryLock(const char* path, UniqueFd& locked) {
    const NoCancellation untilDone;
    UniqueFd file = OpenLockFile(path);
    if (!file) return Attempt::kFailed;
    if (RetryInterrupted([&] { return flock(file.Get(), LOCK_EX | LOCK_NB); }) != 0) {
        if (errno == EWOULDBLOCK) return Attempt::kHeldByOther;
        TRACE(1, "\nCFileLock           : ## ERROR! Cannot lock %s (errno=%d: %s)\n", path, errno,
              strerror(errno));
        return Attempt::kFailed;
    }
    if (!IsStillThere(path, file)) return Attempt::kHeldByOther;
    locked = std::move(file);
    return Attempt::kLocked;
}

}  // namespace

CFileLock::CFileLock()
    : m_Fd(-1), m_IsOpen(false), m_IsLocked(false), m_IsDestroyed(false), m_Path{}, m_Mode(0) {}

CFileLock::~CFileLock() {
    const NoCancellation untilDone;
    if (m_Fd >= 0) {
        TRACE(5, "\nCFileLock           :   release file lock using file %s", m_Path);
        CloseFile();
        (void)unlink(m_Path);
    }
    std::string{}.swap(m_Name);
    m_IsDestroyed = true;
    if (m_Fd >= 0 && m_IsOpen) CloseFile();  // whatever comes to stand above, no descriptor is left
}

bool CFileLock::Take(const char* path, unsigned timeoutMs) {
    if (m_Fd >= 0) {
        TRACE(1, "\nCFileLock           : ## ERROR! Already holding lock file %s\n", m_Path);
        return false;
    }
    const size_t length = strlen(path);
    if (path[0] != '/' || length > kPathLimit) {
        TRACE(1,
              "\nCFileLock           : ## ERROR! No absolute path of at most %u characters: %s\n",
              kPathLimit, path);
        return false;
    }
    std::string name{strrchr(path, '/') + 1};
    const Patience patience{timeoutMs};
    UniqueFd file;
    Attempt attempt = TryLock(path, file);
    while (attempt == Attempt::kHeldByOther && patience.Sleep()) attempt = TryLock(path, file);
    if (attempt == Attempt::kHeldByOther) {
        TRACE(1, "\nCFileLock           : ## ERROR! Another one holds %s, also after %u ms\n", path,
              timeoutMs);
    }
    if (attempt != Attempt::kLocked) return false;
    memcpy(m_Path, path, length + 1);
    m_Mode = kFileMode;
    m_Name = std::move(name);
    m_Fd = file.Release();
    m_IsOpen = true;
    m_IsLocked = true;
    return true;
}

void CFileLock::CloseFile() {
    if (m_IsLocked) {
        (void)fsync(m_Fd);
        (void)flock(m_Fd, LOCK_UN);
    }
    (void)close(m_Fd);
    m_Fd = -1;
    m_IsOpen = false;
    m_IsLocked = false;
}

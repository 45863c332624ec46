#pragma once

#include <cstdint>
#include <string>

#include "trace/api.h"

/// A lock between processes (and between objects of one process), held through a lock file: an open
/// descriptor on it with an advisory flock(2). Whoever holds the object holds the lock; its end
/// gives the lock back and removes the file.
///
///     CFileLock lock;                                        // holds nothing
///     if (!lock.Take("/run/thing.lock", 5000)) return false;  // the trace tells why
///     ...                                                    // alone, until `lock` goes
///
/// The file is removed after the lock was given back, so one who takes it within that moment may
/// find the file gone and another one holding a new file of that name. Where that matters, take the
/// lock again for the next piece of work instead of keeping the object.
///
/// Thread-safety: one thread at a time.
class ZORN_API CFileLock {
  public:
    /// Holds nothing.
    CFileLock();

    /// Gives the lock back, if it is held, and removes the file: one line at level 5. Nothing that
    /// fails on the way is looked at. Not cancelled in the middle.
    ~CFileLock();

    CFileLock(const CFileLock&) = delete;
    CFileLock& operator=(const CFileLock&) = delete;

    /// Takes the lock, making the file (mode 0600) if it is missing, and waits for another holder
    /// up to `timeoutMs` milliseconds of the monotonic clock: 0 tries once, `kNoTimeout` waits
    /// without limit. `path` is absolute, of at most 260 characters; its last component is a
    /// regular file or missing, not a link.
    ///
    /// False, with one line at level 1, if that cannot be done or the time is over; the object then
    /// holds what it held before. That is nothing, unless the reason is that it already holds a
    /// lock.
    ///
    /// A file that was made for a lock that then could not be had stays, empty. A file that was
    /// replaced at each look counts as held by another.
    ///
    /// REQUIRES: the lock is held by one process: a child made by fork(2) must end by _exit or exec,
    /// since its copy of the object would give the lock of its parent back.
    ///
    /// Interruptions by signals do not shorten the wait. A cancellation point while it waits: a
    /// thread cancelled there holds nothing and leaves nothing open.
    [[nodiscard]] bool Take(const char* path, unsigned timeoutMs);

    static constexpr unsigned kNoTimeout = 0xFFFFFFFF;

  private:
    static constexpr unsigned kPathLimit = 260;

    int32_t m_Fd;                 ///< descriptor of the lock file, -1 when not held
    bool m_IsOpen;                ///< the descriptor is owned by this object
    bool m_IsLocked;              ///< an `flock` lock is held on the descriptor
    bool m_IsDestroyed;           ///< destruction has begun
    char m_Path[kPathLimit + 1];  ///< name of the lock file
    uint32_t m_Mode;              ///< permission bits that the file is made with
    std::string m_Name;           ///< last component of `m_Path`

    void CloseFile();
};

#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "platform/unique_fd.h"

namespace zornctl {

/// Waits for changes of a file that is written, emptied, replaced or missing for a while.
///
///     FileWatch watch{path};              // from here on nothing is missed
///     for (;;) { Look(path); watch.Wait(1s); }
///
/// It watches the directory that the file lies in, links followed. Where the kernel gives no watch,
/// `Wait` is a pause. Thread-safety: one thread.
class FileWatch {
  public:
    /// Throws `Failure` if the directory of the file does not exist.
    explicit FileWatch(const std::string& path);

    /// Waits until something happened to the file since the last call, or `limit` has gone by. True
    /// if something happened. Throws `ReaderGone` once nobody reads standard output any more.
    [[nodiscard]] bool Wait(std::chrono::milliseconds limit);

  private:
    [[nodiscard]] bool TakeEvents() const;

    std::string m_Name;  ///< of the file in its directory
    UniqueFd m_Watch;
};

/// What changes with a file that is written by `write`: good for "has anything happened?".
struct FileSignature {
    uint64_t device = 0;
    uint64_t inode = 0;
    int64_t size = -1;  ///< -1: there is no file
    int64_t seconds = 0;
    int64_t nanoseconds = 0;

    bool operator==(const FileSignature&) const = default;
};

[[nodiscard]] FileSignature SignatureOf(const std::string& path);

}  // namespace zornctl

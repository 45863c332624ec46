#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "support/owned_fd.h"

/// The folder that is a fake host's root, seen from outside: paths are those of the host, and the
/// kernel resolves them inside the folder, so that no link, absolute or not, leads out of it.
/// The operations are those that fake_host.h tells. They throw `std::system_error`.
/// Thread-safety: one thread.
class HostRoot {
  public:
    /// Makes the folder, below $TMPDIR or else /dev/shm or /tmp.
    HostRoot();
    /// Removes it.
    ~HostRoot();
    HostRoot(const HostRoot&) = delete;
    HostRoot& operator=(const HostRoot&) = delete;

    [[nodiscard]] const std::filesystem::path& Folder() const { return m_Folder; }

    void Directory(std::string_view path, mode_t mode);
    /// Makes the folders above and the folder itself where they are missing; others stay as they
    /// are.
    void NeedDirectory(std::string_view path);
    void File(std::string_view path, std::string_view text, mode_t mode);
    void Link(std::string_view path, std::string_view target);
    void Memory(std::string_view path, const std::map<uint64_t, std::string>& contents,
                uint64_t size);
    void Remove(std::string_view path);

    [[nodiscard]] std::string Read(std::string_view path) const;
    [[nodiscard]] bool Exists(std::string_view path) const;
    [[nodiscard]] std::vector<std::string> List(std::string_view path) const;
    [[nodiscard]] std::filesystem::path Path(std::string_view path) const;

    /// Opens something inside. Empty result, with `errno`, if that fails.
    [[nodiscard]] OwnedFd Open(std::string_view path, int flags, mode_t mode = 0) const;

  private:
    struct Place;  ///< an open folder and a name in it
    /// Where something of that path is to be made, with what stands there taken away.
    Place Clear(std::string_view path);

    std::filesystem::path m_Folder;
    OwnedFd m_Fd;
};

// The path is walked name by name, as the kernel does it; the names of a link's target come before
// those that are left.

#include "zornctl/system/open_place.h"

#include <sys/stat.h>

#include <cerrno>
#include <deque>
#include <filesystem>
#include <system_error>

namespace zornctl {

namespace {

namespace fs = std::filesystem;

constexpr int kMostLinks = 40;  // as the kernel

bool IsWritableByOthers(const struct stat& status) {
    return (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
}

/// Whether others can put something else into the place of what lies in this folder.
bool IsOpenOnTheWay(const struct stat& status) {
    return status.st_uid != 0 || (IsWritableByOthers(status) && (status.st_mode & S_ISVTX) == 0);
}

void PutInFront(std::deque<std::string>& names, const fs::path& path) {
    names.insert(names.begin(), path.begin(), path.end());
}

/// Goes one name after the other; `at` is the folder reached, `status` its own.
class Walk {
  public:
    explicit Walk(const fs::path& path) { PutInFront(m_Names, path); }

    std::optional<std::string> FindOpenPlace() {
        if (lstat(m_At.c_str(), &m_Status) != 0) return std::nullopt;
        while (!m_Names.empty()) {
            if (IsOpenOnTheWay(m_Status)) return m_At;
            if (!Step()) return errno == ENOENT ? OpenEnd() : std::nullopt;
        }
        return OpenEnd();
    }

  private:
    /// False where it does not go on; `errno` tells why.
    bool Step() {
        const fs::path name = m_Names.front();
        m_Names.pop_front();
        if (name.empty() || name == ".") return true;
        const auto next = name == ".." ? m_At.parent_path() : m_At / name;
        struct stat status {};
        if (lstat(next.c_str(), &status) != 0) return false;
        if (S_ISLNK(status.st_mode) && status.st_uid == 0) return Follow(next);
        m_At = next;
        m_Status = status;
        return true;
    }

    bool Follow(const fs::path& link) {
        std::error_code error;
        PutInFront(m_Names, fs::read_symlink(link, error));
        errno = error || ++m_Links > kMostLinks ? ELOOP : 0;
        return errno == 0;
    }

    [[nodiscard]] std::optional<std::string> OpenEnd() const {
        const bool isOpen = m_Status.st_uid != 0 || IsWritableByOthers(m_Status);
        return isOpen ? std::optional{m_At.native()} : std::nullopt;
    }

    std::deque<std::string> m_Names;
    fs::path m_At = "/";
    struct stat m_Status {};
    int m_Links = 0;
};

}  // namespace

std::optional<std::string> FindOpenPlace(const std::string& path) {
    std::error_code error;
    return Walk{fs::absolute(path, error)}.FindOpenPlace();
}

}  // namespace zornctl

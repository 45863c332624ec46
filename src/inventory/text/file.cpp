#include "inventory/text/file.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "trace/trace.h"

namespace {

constexpr size_t kTargetLimit = 1023;

}  // namespace

bool CFile::GetSymbolicLink(std::string& target, const std::string& path) {
    std::array<char, kTargetLimit> text;
    const ssize_t length = readlink(path.c_str(), text.data(), text.size());
    if (length < 0) {
        // clang-format off
        TRACE(2, "\nCFile::GetSymbolicLink  : Cannot get symbolic link for: '%s'. Error message: %s.\n",
              path.c_str(), strerror(errno));
        // clang-format on
        return false;
    }
    target.assign(text.data(), static_cast<size_t>(length));
    return true;
}

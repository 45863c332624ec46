#include "zornctl/output/failure.h"

#include <cerrno>
#include <system_error>
#include <utility>

namespace zornctl {

namespace {

std::string RemedyOf(int error) {
    switch (error) {
        case ENOENT:
        case ENOTDIR:
            return "look at the name";
        case EACCES:
        case EPERM:
            return "run zornctl as root";
        case EISDIR:
            return "name a file in it";
        case ELOOP:
            return "look at the symbolic links in the path";
        case ENAMETOOLONG:
            return "give a shorter path";
        case ENOSPC:
        case EDQUOT:
            return "make room on its file system";
        case EROFS:
            return "mount its file system for writing";
        case EIO:
            return "look at the messages of the kernel: the device may fail";
        case EBADF:
            return "start zornctl with it open, or send it to a file";
        case EMFILE:
        case ENFILE:
            return "let more files be open: ulimit -n";
        case ENOMEM:
            return "let more memory be free, or raise its limit";
        default:
            return "look at the messages of the kernel and at the file system";
    }
}

}  // namespace

Failure SystemFailure(std::string path, int error) {
    const bool isMissing = error == ENOENT || error == ENOTDIR;
    return {isMissing ? ExitStatus::kNotFound : ExitStatus::kNoAccess, std::move(path),
            std::generic_category().message(error), RemedyOf(error)};
}

}  // namespace zornctl

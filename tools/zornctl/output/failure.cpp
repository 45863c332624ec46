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
            return "look at the name; zornctl check-config tells where the service writes";
        case EACCES:
        case EPERM:
            return "run zornctl as root";
        case EISDIR:
            return "name a file in it";
        default:
            return {};
    }
}

}  // namespace

Failure SystemFailure(std::string path, int error) {
    const bool isMissing = error == ENOENT || error == ENOTDIR;
    return {isMissing ? ExitStatus::kNotFound : ExitStatus::kNoAccess, std::move(path),
            std::generic_category().message(error), RemedyOf(error)};
}

}  // namespace zornctl

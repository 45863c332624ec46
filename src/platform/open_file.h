#pragma once

#include <fcntl.h>
#include <sys/types.h>

#include <cstdio>
#include <string>

#include "platform/retry_interrupted.h"
#include "platform/unique_fd.h"
#include "trace/unique_file.h"

/// Opens a stream as `fopen` does, close-on-exec from birth and whatever signals come. Empty if
/// that fails; `errno` tells why. Thread-safety: any thread; no state.
[[nodiscard]] inline UniqueFile OpenFile(const char* path, const char* mode) {
    const std::string withClose = std::string{mode} + 'e';
    return UniqueFile{RetryInterrupted([&] { return fopen(path, withClose.c_str()); })};
}

/// Opens a descriptor as `open` does, close-on-exec from birth and whatever signals come; `mode` is
/// that of a file that `flags` let it make. Empty if that fails; `errno` tells why. Thread-safety:
/// any thread; no state.
[[nodiscard]] inline UniqueFd OpenFd(const char* path, int flags, mode_t mode = 0) {
    return UniqueFd{RetryInterrupted([&] { return open(path, flags | O_CLOEXEC, mode); })};
}

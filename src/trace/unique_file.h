#pragma once

#include <cerrno>
#include <cstdio>
#include <memory>

#include "trace/no_cancellation.h"

/// Closes a stream; the result of `fclose` is dropped: what matters was flushed before. Neither
/// changes `errno` (a failure is reported after its handles are gone) nor lets a cancellation of
/// the thread through.
struct FileCloser {
    void operator()(FILE* file) const noexcept {
        const NoCancellation untilClosed;
        const int error = errno;
        (void)fclose(file);
        errno = error;
    }
};

/// A stream that is closed with its owner; may be empty. Here because the trace needs it too; what
/// opens one stands in platform/open_file.h.
using UniqueFile = std::unique_ptr<FILE, FileCloser>;

/// Closes the stream. False if that failed, which may mean that what was written is lost; `errno`
/// tells why.
[[nodiscard]] inline bool CloseFile(UniqueFile& file) {
    return fclose(file.release()) == 0;
}

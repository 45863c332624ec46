#pragma once

#include <cstdio>
#include <memory>

/// Closes a stream; the result of `fclose` is dropped: what matters was flushed before.
struct FileCloser {
    void operator()(FILE* file) const noexcept { (void)fclose(file); }
};

/// A stream that is closed with its owner; may be empty.
using UniqueFile = std::unique_ptr<FILE, FileCloser>;

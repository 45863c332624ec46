#pragma once

#include <cstdlib>
#include <memory>

/// Gives memory of `malloc` and its kin back.
struct MemoryFreer {
    void operator()(void* memory) const noexcept { free(memory); }
};

/// What a function of the C library has allocated for the caller (`realpath`, `strdup`, `calloc`);
/// may be empty.
///
///     const UniqueMemory<char> canonical{realpath(path, nullptr)};
///
/// Holds plain data: nothing is destroyed in it. Thread-safety: as a pointer.
template <typename T>
using UniqueMemory = std::unique_ptr<T, MemoryFreer>;

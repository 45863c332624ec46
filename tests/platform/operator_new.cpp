// The allocations of `new` come by the program's own `malloc`, so that a test can let them fail
// (`FaultOf<&::malloc>`): those of the shared C++ library do not. Not for sanitizers, which keep
// `new` to themselves.

#include <cstddef>
#include <cstdlib>
#include <new>

#include "support/libc_functions.h"

#if !defined(ZORN_ADDRESS_SANITIZER) && !defined(ZORN_THREAD_SANITIZER)

void* operator new(size_t size) {
    void* const memory = malloc(size);
    if (memory == nullptr) throw std::bad_alloc{};
    return memory;
}

void* operator new(size_t size, const std::nothrow_t&) noexcept {
    return malloc(size);
}

void* operator new[](size_t size) {
    return operator new(size);
}

void operator delete(void* memory) noexcept {
    free(memory);
}

void operator delete(void* memory, size_t) noexcept {
    free(memory);
}

void operator delete[](void* memory) noexcept {
    free(memory);
}

void operator delete[](void* memory, size_t) noexcept {
    free(memory);
}

#endif

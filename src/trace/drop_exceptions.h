#pragma once

#include <cxxabi.h>

#include "trace/thread_annotations.h"

// A sanitizer must not find this within a function that it looks at.
#ifdef __SANITIZE_ADDRESS__
#define ZORN_OF_ITS_OWN noinline,
#else
#define ZORN_OF_ITS_OWN
#endif

/// Runs `body` and drops what it throws, but for the unwinding of a cancelled thread. That has no
/// object, so the reference that catches it is null.
template <typename Body>
__attribute__((ZORN_OF_ITS_OWN no_sanitize("null"))) void DropExceptions(const Body& body)
    NO_THREAD_SAFETY_ANALYSIS {
    try {
        body();
    } catch (const abi::__forced_unwind&) {
        throw;
    } catch (...) {
    }
}

#undef ZORN_OF_ITS_OWN

#pragma once

#include <cxxabi.h>

#include "trace/thread_annotations.h"

/// Runs `body` and drops what it throws, but for the unwinding of a cancelled thread. That has no
/// object, so the reference that catches it is null.
template <typename Body>
__attribute__((no_sanitize("null"))) void DropExceptions(const Body& body)
    NO_THREAD_SAFETY_ANALYSIS {
    try {
        body();
    } catch (const abi::__forced_unwind&) {
        throw;
    } catch (...) {
    }
}

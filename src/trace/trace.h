#pragma once

#include "trace/debug.h"

// The two calls with which everything here writes into the trace. The text stands whole at the
// call:
//
//     TRACE(1, "\nCFileLock           : ## ERROR! Cannot open %s\n", path);
//
// A text begins with the component column (class or area, padded to 20 columns, ": "); leading
// newlines are removed by the writer, a missing one at the end is added.
//
// Levels: 1 errors and warnings, 2 main steps, 3 flow of a subsystem, 4 its details, 5 fine detail
// (every object and event operation), 6 byte-level scans, 254 lines that are to stay silent.

/// Writes a line if the trace is enabled and `level` is not above its level. No argument is
/// evaluated while the trace is disabled, so such a call costs the test of one byte.
#define TRACE(level, ...)                                       \
    do {                                                        \
        if (Debug.IsEnabled()) Debug.Trace(level, __VA_ARGS__); \
    } while (false)

/// Writes a line in any case, also while the trace is disabled.
#define TRACE_ALWAYS(...) Debug.TraceAlways(0, __VA_ARGS__)

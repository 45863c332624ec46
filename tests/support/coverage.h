#pragma once

#include <unistd.h>

#if defined(ZORN_COVERAGE)

extern "C" void __gcov_dump();

/// Whether this is the build that measures coverage.
inline constexpr bool kMeasuresCoverage = true;
/// Writes what the process has covered so far, for one that does not end by `exit`. Somebody else than
/// root may not write there: what that one covered is lost.
inline void WriteCoverage() {
    if (geteuid() == 0) __gcov_dump();
}

#else

inline constexpr bool kMeasuresCoverage = false;
inline void WriteCoverage() {}

#endif

#pragma once

#include "module_host/module.h"
#include "trace/trace.h"

// A module that is well and says what is called. The test modules are this one with something
// wrong.

inline constexpr const char* kName = MODULE_NAME;

inline bool HealthyStart() {
    TRACE(1, "\nTestModule          : %s starts", kName);
    return true;
}

inline void HealthyStop() {
    TRACE(1, "\nTestModule          : %s stops", kName);
}

inline void HealthyNotify(uint32_t code, uintptr_t first, uintptr_t second) {
    TRACE(1, "\nTestModule          : %s hears 0x%X %zu %zu", kName, code, first, second);
}

inline constexpr ZornModule kHealthy{kZornModuleVersion, kName, HealthyStart, HealthyStop,
                                     HealthyNotify};

/// A static object of the library tells when it is unmapped.
struct UnmapTeller {
    ~UnmapTeller() { TRACE(1, "\nTestModule          : %s is unmapped", kName); }
};
inline const UnmapTeller kUnmapTeller;

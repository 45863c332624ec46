#include "modules/healthy.h"

const ZornModule* ZornModuleEntry() {
    static constexpr ZornModule module{kZornModuleVersion, kName, HealthyStart, [] { throw 42; },
                                       HealthyNotify};
    return &module;
}

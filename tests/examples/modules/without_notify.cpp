#include "modules/healthy.h"

const ZornModule* ZornModuleEntry() {
    static constexpr ZornModule module{kZornModuleVersion, kName, HealthyStart, HealthyStop,
                                       nullptr};
    return &module;
}

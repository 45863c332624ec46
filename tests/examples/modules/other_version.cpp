#include "modules/healthy.h"

const ZornModule* ZornModuleEntry() {
    static constexpr ZornModule module{kZornModuleVersion + 41, kName, HealthyStart, HealthyStop,
                                       HealthyNotify};
    return &module;
}

#include "modules/healthy.h"

const ZornModule* ZornModuleEntry() {
    static constexpr ZornModule module{kZornModuleVersion, kName, [] { return false; }, HealthyStop,
                                       HealthyNotify};
    return &module;
}

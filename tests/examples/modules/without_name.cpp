#include "modules/healthy.h"

const ZornModule* ZornModuleEntry() {
    static constexpr ZornModule module{kZornModuleVersion, "", HealthyStart, HealthyStop,
                                       HealthyNotify};
    return &module;
}

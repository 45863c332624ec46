#include "modules/healthy.h"

const ZornModule* ZornModuleEntry() {
    static constexpr ZornModule module{kZornModuleVersion, kName, HealthyStart, nullptr,
                                       HealthyNotify};
    return &module;
}

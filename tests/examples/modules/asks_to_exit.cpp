#include "modules/healthy.h"
#include "platform/event.h"

const ZornModule* ZornModuleEntry() {
    static constexpr ZornModule module{kZornModuleVersion, kName, [] { return g_ExitEvent.Set(); },
                                       HealthyStop, HealthyNotify};
    return &module;
}

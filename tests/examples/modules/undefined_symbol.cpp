#include "modules/healthy.h"

extern "C" bool FunctionThatNobodyHas();

const ZornModule* ZornModuleEntry() {
    static constexpr ZornModule module{kZornModuleVersion, kName, FunctionThatNobodyHas,
                                       HealthyStop, HealthyNotify};
    return &module;
}

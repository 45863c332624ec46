#include <stdexcept>

#include "modules/healthy.h"

const ZornModule* ZornModuleEntry() {
    static constexpr ZornModule module{
        kZornModuleVersion, kName, []() -> bool { throw std::runtime_error{"the disk is busy"}; },
        HealthyStop, HealthyNotify};
    return &module;
}

#include <stdexcept>

#include "modules/healthy.h"

const ZornModule* ZornModuleEntry() {
    static constexpr ZornModule module{
        kZornModuleVersion, kName, HealthyStart, HealthyStop,
        [](uint32_t, uintptr_t, uintptr_t) { throw std::runtime_error{"not now"}; }};
    return &module;
}

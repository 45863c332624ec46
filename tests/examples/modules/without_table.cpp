#include "modules/healthy.h"

const ZornModule* ZornModuleEntry() {
    return nullptr;
}

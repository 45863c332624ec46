// What the daemon asks of libswitch.so. There is one host and one caller, so nothing is counted.

#include "module_host/module_host.h"
#include "trace/api.h"

namespace {

ModuleHost g_Host;

}  // namespace

extern "C" {

ZORN_API void SW_AddRef() {}

ZORN_API void SW_Release() {
    g_Host.Release();
}

ZORN_API bool SW_QueryInterface(void* /*reserved*/, ISwitch** out) {
    *out = &g_Host;
    return true;
}

}  // extern "C"

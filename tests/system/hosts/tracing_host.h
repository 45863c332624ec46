#pragma once

#include "service/quiet_host.h"
#include "trace/debug.h"

/// A module host that agrees to everything and writes each call into the service's trace.
class TracingHost : public QuietHost {
  public:
    ~TracingHost() override { Debug.TraceAlways(0, "HOST: closed"); }

    void Release() override { Debug.TraceAlways(0, "HOST: Release()"); }
    bool LoadModules(SwitchLoadParams* params) override {
        Debug.TraceAlways(0, "HOST: LoadModules(%u, %u)", params->dwForceRescan, params->dwRunMode);
        return true;
    }
    bool UnloadModules(uint32_t flags) override {
        Debug.TraceAlways(0, "HOST: UnloadModules(%u)", flags);
        return true;
    }
    void StartModules() override { Debug.TraceAlways(0, "HOST: StartModules()"); }
    void StopModules() override { Debug.TraceAlways(0, "HOST: StopModules()"); }
    void NotifyService(uint32_t code, uintptr_t first, uintptr_t second) override {
        Debug.TraceAlways(0, "HOST: NotifyService(0x%X, %ju, %ju)", code, uintmax_t{first},
                          uintmax_t{second});
    }
};

extern "C" {
ZORN_API void SW_AddRef();
ZORN_API void SW_Release();
ZORN_API bool SW_QueryInterface(void* reserved, ISwitch** out);
}

/// The export that a library must have, for a host of type `Host`.
#define EXPORT_QUERY(Host)                                            \
    static Host g_Host;                                               \
    bool SW_QueryInterface(void* reserved, ISwitch** out) {           \
        Debug.TraceAlways(0, "HOST: SW_QueryInterface(%s)",           \
                          reserved == nullptr ? "null" : "not null"); \
        *out = &g_Host;                                               \
        return true;                                                  \
    }

/// All three.
#define EXPORT_HOST(Host)                           \
    EXPORT_QUERY(Host)                              \
    void SW_AddRef() {                              \
        Debug.TraceAlways(0, "HOST: SW_AddRef()");  \
    }                                               \
    void SW_Release() {                             \
        Debug.TraceAlways(0, "HOST: SW_Release()"); \
    }

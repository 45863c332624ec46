#include "tracing_host.h"

/// Keeps the block that it was handed, and reads it at the very end of the service too.
class BlockKeeperHost final : public TracingHost {
    bool LoadModules(SwitchLoadParams* params) override {
        m_Params = params;
        return TracingHost::LoadModules(params);
    }
    void StartModules() override { Show("StartModules"); }
    void StopModules() override { Show("StopModules"); }
    bool UnloadModules(uint32_t /*flags*/) override {
        Show("UnloadModules");
        return true;
    }

    void Show(const char* where) const {
        Debug.TraceAlways(0, "HOST: block in %s: %u, %u", where, m_Params->dwForceRescan,
                          m_Params->dwRunMode);
    }

    const SwitchLoadParams* m_Params = nullptr;
};

EXPORT_HOST(BlockKeeperHost)

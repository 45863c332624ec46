#include "tracing_host.h"

class RefusingHost final : public TracingHost {
    bool LoadModules(SwitchLoadParams* params) override {
        (void)TracingHost::LoadModules(params);
        return false;
    }
};

EXPORT_HOST(RefusingHost)

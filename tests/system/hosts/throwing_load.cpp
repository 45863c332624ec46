#include "tracing_host.h"

/// A type that nobody outside of this library knows.
struct FailureOfTheHost {};

class ThrowingHost final : public TracingHost {
    bool LoadModules(SwitchLoadParams* params) override {
        (void)TracingHost::LoadModules(params);
        throw FailureOfTheHost{};
    }
};

EXPORT_HOST(ThrowingHost)

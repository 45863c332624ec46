#include "tracing_host.h"

/// A type that nobody outside of this library knows.
struct FailureOfTheHost {};

class ThrowingHost final : public TracingHost {
    bool UnloadModules(uint32_t flags) override {
        (void)TracingHost::UnloadModules(flags);
        throw FailureOfTheHost{};
    }
};

EXPORT_HOST(ThrowingHost)

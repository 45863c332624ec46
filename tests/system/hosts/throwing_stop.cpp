#include "tracing_host.h"

/// A type that nobody outside of this library knows.
struct FailureOfTheHost {};

class ThrowingHost final : public TracingHost {
    void StopModules() override {
        TracingHost::StopModules();
        throw FailureOfTheHost{};
    }
};

EXPORT_HOST(ThrowingHost)

#include "tracing_host.h"

/// A type that nobody outside of this library knows.
struct FailureOfTheHost {};

class ThrowingHost final : public TracingHost {
    void NotifyService(uint32_t code, uintptr_t first, uintptr_t second) override {
        TracingHost::NotifyService(code, first, second);
        throw FailureOfTheHost{};
    }
};

EXPORT_HOST(ThrowingHost)

#include "platform/event.h"
#include "tracing_host.h"

/// Asks for the end of the service by the exit event alone.
class ExitEventHost final : public TracingHost {
    void StartModules() override {
        TracingHost::StartModules();
        (void)g_ExitEvent.Set();
    }
};

EXPORT_HOST(ExitEventHost)

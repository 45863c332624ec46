#include <signal.h>
#include <unistd.h>

#include "tracing_host.h"

/// Asks for the end of the service by the stop signal, before the service waits for any.
class SelfSignalHost final : public TracingHost {
    void StartModules() override {
        TracingHost::StartModules();
        (void)kill(getpid(), SIGTERM);
    }
};

EXPORT_HOST(SelfSignalHost)

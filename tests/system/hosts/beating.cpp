#include <cstdlib>
#include <ctime>
#include <thread>

#include "platform/event.h"
#include "tracing_host.h"

/// Writes a line of level 1 and one of level 4 a hundred times a second, from the start of the modules
/// to their stop. With the variable HOST_RING the trace goes into the ring.
class BeatingHost final : public TracingHost {
    bool LoadModules(SwitchLoadParams* params) override {
        if (getenv("HOST_RING") != nullptr && !Debug.ArmRingBuffer()) {
            Debug.TraceAlways(0, "HOST: no ring");
        }
        return TracingHost::LoadModules(params);
    }
    void StartModules() override {
        TracingHost::StartModules();
        m_Thread = std::thread{[this] { Beat(); }};
    }
    void StopModules() override {
        (void)m_Stop.Set();
        m_Thread.join();
    }

    void Beat() {
        for (unsigned beat = 0; !m_Stop.Check(); ++beat) {
            const auto now = static_cast<intmax_t>(time(nullptr));
            if (Debug.IsEnabled()) Debug.Trace(1, "HOST: beat %u at %jd.", beat, now);
            if (Debug.IsEnabled()) Debug.Trace(4, "HOST: detail of beat %u at %jd.", beat, now);
            (void)m_Stop.Wait(10, false);
        }
    }

    CEvent m_Stop{false, true, nullptr};
    std::thread m_Thread;
};

EXPORT_HOST(BeatingHost)

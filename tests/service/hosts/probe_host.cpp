// A module host that keeps a record. What it exports and answers is compiled in:
//
//     WITH_ADD_REF, WITH_RELEASE, WITH_QUERY   the exports that it has
//     ANSWER                                   the byte that its queries return
//     SECOND_ANSWER                            the byte from the second query on
//     WITH_INTERFACE                           its queries store an interface
//     THROWING_START                           StartModules throws a type of this library

#include "probe_host.h"

#include "quiet_host.h"
#include "trace/api.h"

#ifndef SECOND_ANSWER
#define SECOND_ANSWER ANSWER
#endif

extern "C" {
ZORN_API ProbeRecord g_Probe;
}

#ifdef THROWING_START
struct FailureOfTheProbeHost {
    int code;
};
#endif

namespace {

class ProbeHost final : public QuietHost {
  public:
    void Release() override { ++g_Probe.interfaceReleases; }
#ifdef THROWING_START
    void StartModules() override {
        throw FailureOfTheProbeHost{7};
    }
#endif
};

#ifdef WITH_INTERFACE
ProbeHost g_Host;
#endif

}  // namespace

extern "C" {
#ifdef WITH_ADD_REF
ZORN_API void SW_AddRef();
void SW_AddRef() {
    ++g_Probe.addRefs;
}
#endif

#ifdef WITH_RELEASE
ZORN_API void SW_Release();
void SW_Release() {
    ++g_Probe.releases;
}
#endif

#ifdef WITH_QUERY
ZORN_API unsigned char SW_QueryInterface(void* reserved, [[maybe_unused]] ISwitch** out);
unsigned char SW_QueryInterface(void* reserved, [[maybe_unused]] ISwitch** out) {
    g_Probe.reserved = reserved;
#ifdef WITH_INTERFACE
    *out = &g_Host;
#endif
    return ++g_Probe.queries == 1 ? ANSWER : SECOND_ANSWER;
}
#endif
}

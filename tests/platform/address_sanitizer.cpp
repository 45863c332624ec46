// What the address sanitizer is told in this program. It cannot follow a cancelled thread: the frames
// that go leave their guard bytes behind, and its own call of sigaltstack, which it makes on the way
// of every exception, is then reported for writing on them.

#include "support/sanitizers.h"

#if defined(ZORN_ADDRESS_SANITIZER)
extern "C" __attribute__((visibility("default"))) const char* __asan_default_suppressions();

const char* __asan_default_suppressions() {
    return "interceptor_name:sigaltstack";
}
#endif

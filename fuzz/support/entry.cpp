#include <cstddef>
#include <cstdint>

#include "support/fuzz.h"

/// What libFuzzer calls.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Fuzz({reinterpret_cast<const char*>(data), size});
    return 0;
}

#include "platform/cpu_leaf.h"

#include <cpuid.h>

#include "trace/trace.h"

namespace {

constexpr uint32_t kFirstExtendedLeaf = 0x80000000;

uint32_t HighestLeafOfRange(uint32_t leaf) {
    uint32_t highest = 0;
    uint32_t ignored = 0;
    __cpuid_count(leaf >= kFirstExtendedLeaf ? kFirstExtendedLeaf : 0, 0, highest, ignored, ignored,
                  ignored);
    return highest;
}

}  // namespace

bool cpuRawRead(uint32_t* eax, uint32_t* ebx, uint32_t* ecx, uint32_t* edx) {
    TRACE(254, "\ncpuRawRead            : TO_REMOVE");
    if (*eax > HighestLeafOfRange(*eax)) {
        *eax = *ebx = *ecx = *edx = 0;
        return false;
    }
    __cpuid_count(*eax, 0, *eax, *ebx, *ecx, *edx);
    return true;
}

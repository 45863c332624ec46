#pragma once

#include <cstdint>

#include "trace/api.h"

/// Reads leaf `*eax`, subleaf 0, of the calling processor's identification (CPUID, Intel SDM volume
/// 2A) into the four words. `*ecx` is not looked at. A leaf above the highest one of its range (the
/// basic one, or the extended one from 0x80000000 on) gives four zeros and false.
/// Thread-safety: any thread; what a leaf tells may differ from one processor to the next.
ZORN_API bool cpuRawRead(uint32_t* eax, uint32_t* ebx, uint32_t* ecx, uint32_t* edx);

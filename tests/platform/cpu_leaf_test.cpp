#include "platform/cpu_leaf.h"

#include <cpuid.h>

#include <array>
#include <cstring>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "support/trace_capture.h"

namespace {

using Words = std::array<uint32_t, 4>;

/// What a leaf reads, each word but the leaf filled with ones before.
struct Leaf {
    explicit Leaf(uint32_t leaf) : words{leaf, ~0U, ~0U, ~0U} {
        isThere = cpuRawRead(&words[0], &words[1], &words[2], &words[3]);
    }
    Words words;
    bool isThere;
};

void ExpectZeros(uint32_t leaf) {
    const Leaf read{leaf};
    EXPECT_FALSE(read.isThere) << leaf;
    EXPECT_EQ(read.words, (Words{0, 0, 0, 0})) << leaf;
}

/// The maker as the kernel names it.
std::string VendorOfKernel() {
    std::ifstream info{"/proc/cpuinfo"};
    for (std::string line; std::getline(info, line);) {
        if (line.starts_with("vendor_id")) return line.substr(line.find(": ") + 2);
    }
    return {};
}

}  // namespace

TEST(CpuRawRead, GivesTheFourRegistersOfALeaf) {
    const Leaf maker{0};
    ASSERT_TRUE(maker.isThere);
    char name[13] = {};
    memcpy(name, &maker.words[1], 4);
    memcpy(name + 4, &maker.words[3], 4);
    memcpy(name + 8, &maker.words[2], 4);
    EXPECT_EQ(name, VendorOfKernel());
    EXPECT_EQ(maker.words[0], __get_cpuid_max(0, nullptr));
}

TEST(CpuRawRead, ReadsSubleafZeroOfBothRanges) {
    // Those that tell the same on every processor of the machine.
    for (const uint32_t leaf : {0x7U, 0x80000000U, 0x80000002U, 0x80000003U, 0x80000004U}) {
        Words expected{};
        const bool isThere =
            __get_cpuid_count(leaf, 0, &expected[0], &expected[1], &expected[2], &expected[3]) != 0;
        const Leaf read{leaf};
        EXPECT_EQ(read.isThere, isThere) << leaf;
        EXPECT_EQ(read.words, expected) << leaf;
    }
}

TEST(CpuRawRead, GivesZerosAboveTheRange) {
    ExpectZeros(__get_cpuid_max(0, nullptr) + 1);
    ExpectZeros(0x40000000);
    ExpectZeros(0x7FFFFFFF);
    ExpectZeros(__get_cpuid_max(0x80000000, nullptr) + 1);
    ExpectZeros(0xFFFFFFFF);
}

TEST(CpuRawRead, IsTracedAtTheLevelOfSilentLinesOnly) {
    for (const unsigned level : {253U, 254U}) {
        const TraceCapture trace{level};
        EXPECT_TRUE(Leaf{0}.isThere);
        EXPECT_EQ(trace.Lines(),
                  level == 254 ? Lines{"cpuRawRead            : TO_REMOVE"} : Lines{});
    }
}

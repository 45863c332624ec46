#include "trace/proc_status.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "support/every_prefix.h"
#include "support/fake_host.h"

namespace {

constexpr std::string_view kStatus =
    "Name:\tzorn VmRSS: 7 kB\nVmPeak:\t    4096 kB\nVmRSS:\t    1234 kB\nVmHWM:\t3 MB\nVmLib:\t2 "
    "GB\n"
    "Threads:\t5\nOdd:\t6 pages\nNone:\nWord:\tabc\n";

TEST(ParseProcStatusField, MultipliesByTheUnit) {
    const struct {
        const char* key;
        uint64_t value;
    } cases[] = {{"VmRSS:", 1234 << 10},        {"VmPeak:", 4096 << 10}, {"VmHWM:", 3 << 20},
                 {"VmLib:", uint64_t{2} << 30}, {"Threads:", 5},         {"Odd:", 6}};
    for (const auto& [key, value] : cases) {
        EXPECT_EQ(ParseProcStatusField(kStatus, key), value) << key;
    }
}

TEST(ParseProcStatusField, TakesAUnitThatFollowsTheNumberAtOnce) {
    EXPECT_EQ(ParseProcStatusField("VmRSS: 7kB\n", "VmRSS:"), 7U << 10);
    EXPECT_EQ(ParseProcStatusField("VmRSS: 7kBs\n", "VmRSS:"), 7U);
    EXPECT_EQ(ParseProcStatusField("VmRSS: 7k B\n", "VmRSS:"), 7U);
}

TEST(ParseProcStatusField, TakesTheFirstWordOfALineOnly) {
    EXPECT_EQ(ParseProcStatusField("Name:\tVmRSS: 7 kB\n", "VmRSS:"), std::nullopt);
    EXPECT_EQ(ParseProcStatusField("VmRSS 7 kB\n", "VmRSS:"), std::nullopt);
}

TEST(ParseProcStatusField, StopsAtTheFirstLineOfTheKey) {
    EXPECT_EQ(ParseProcStatusField("A: 1\nB: 2\nA: 3\n", "A:"), 1U);
    EXPECT_EQ(ParseProcStatusField("A: x\nA: 3\n", "A:"), std::nullopt);
    EXPECT_EQ(ParseProcStatusField("A:\nA: 3\n", "A:"), std::nullopt);
}

TEST(ParseProcStatusField, IsEmptyHandedWithoutANumber) {
    EXPECT_EQ(ParseProcStatusField(kStatus, "None:"), std::nullopt);
    EXPECT_EQ(ParseProcStatusField(kStatus, "Word:"), std::nullopt);
    EXPECT_EQ(ParseProcStatusField(kStatus, "Missing:"), std::nullopt);
    EXPECT_EQ(ParseProcStatusField("", ""), std::nullopt);
}

TEST(ParseProcStatusField, NeverLooksBehindTheText) {
    EveryPrefix(kStatus, [](std::string_view text) { (void)ParseProcStatusField(text, "VmLib:"); });
}

TEST(GetProcStatusField, ShiftsByTenBitsAsOftenAsToldTo) {
    FakeHost host;
    host.File("/proc/4711/status", "VmRSS:\t3145728 kB\n");
    host.Run([] {
        const uint64_t expected[] = {uint64_t{3} << 30, 3 << 20, 3 << 10, 3, 0};
        for (unsigned scale = 0; scale < std::size(expected); ++scale) {
            uint64_t value = 0;
            EXPECT_TRUE(GetProcStatusField(4711, &value, "VmRSS:", scale));
            EXPECT_EQ(value, expected[scale]) << scale;
        }
    });
}

TEST(GetProcStatusField, LeavesTheValueOfAMissingKeyButForTheShift) {
    FakeHost host;
    host.File("/proc/4711/status", "Name:\tx\n");
    host.Run([] {
        uint64_t value = 5000;
        EXPECT_FALSE(GetProcStatusField(4711, &value, "VmRSS:", 0));
        EXPECT_EQ(value, 5000u);
        EXPECT_FALSE(GetProcStatusField(4711, &value, "VmRSS:", 1));
        EXPECT_EQ(value, 4u);
    });
}

TEST(GetProcStatusField, IsFalseWithoutTheFile) {
    FakeHost host;
    host.Run([] {
        uint64_t value = 7;
        EXPECT_FALSE(GetProcStatusField(4711, &value, "VmRSS:", 0));
        EXPECT_EQ(value, 7u);
    });
}

TEST(GetProcStatusField, ReadsFilesOfAnyLength) {
    FakeHost host;
    host.File("/proc/4711/status", "Groups:\t" + std::string(100000, '1') + " \nVmRSS:\t12 kB\n");
    host.Run([] {
        uint64_t value = 0;
        EXPECT_TRUE(GetProcStatusField(4711, &value, "VmRSS:", 1));
        EXPECT_EQ(value, 12u);
    });
}

TEST(GetProcStatusField, AnswersForTheRealKernel) {
    uint64_t resident = 0;
    uint64_t peak = 0;
    ASSERT_TRUE(GetProcStatusField(getpid(), &resident, "VmRSS:", 1));
    ASSERT_TRUE(GetProcStatusField(getpid(), &peak, "VmHWM:", 1));
    EXPECT_GT(resident, 0u);
    EXPECT_LE(resident, peak);
}

}  // namespace

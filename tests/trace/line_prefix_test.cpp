#include "trace/line_prefix.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "support/fake_clock.h"
#include "support/libc_fault.h"
#include "trace/open_debug.h"

namespace {

bool g_PrefixFails = false;

/// Fails for the prefix of a line, as for a name of 2 GiB, which takes too long.
__attribute__((format(printf, 3, 0))) int FormatOrFail(char* text, size_t size, const char* fmt,
                                                       va_list args) {
    const int length = vsnprintf(text, size, fmt, args);
    return g_PrefixFails && std::string_view{fmt}.ends_with("%-13s ") ? -1 : length;
}

}  // namespace

// The program's own, and its twin of a checking build (_FORTIFY_SOURCE).
#define HIDDEN __attribute__((visibility("hidden")))
extern "C" {
HIDDEN int TestSnprintf(char* text, size_t size, const char* fmt, ...) __asm__("snprintf");
HIDDEN int TestCheckedSnprintf(char* text, size_t size, int, size_t, const char* fmt,
                               ...) __asm__("__snprintf_chk");

__attribute__((format(printf, 3, 4))) int TestSnprintf(char* text, size_t size, const char* fmt,
                                                       ...) {
    va_list args;
    va_start(args, fmt);
    const int length = FormatOrFail(text, size, fmt, args);
    va_end(args);
    return length;
}

__attribute__((format(printf, 5, 6))) int TestCheckedSnprintf(char* text, size_t size, int, size_t,
                                                              const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    const int length = FormatOrFail(text, size, fmt, args);
    va_end(args);
    return length;
}
}
#undef HIDDEN

namespace {

using testing::EndsWith;
using testing::HasSubstr;

class LinePrefixTest : public testing::Test {
  protected:
    LinePrefixTest() { host.Directory("/var/log/tolbrin"); }

    FakeHost host;
};

TEST_F(LinePrefixTest, IsEmptyIfItCannotBeFormatted) {
    host.Run([] {
        setenv("QX_LOG_DEBUG_LEVEL", "1", 1);
        OpenDebug debug;
        debug.Init("zorn");
        ASSERT_TRUE(debug.ArmRingBuffer());
        const std::string longText(2000, 'l');
        for (const uint32_t memory : {0u, 1u}) {
            debug.m_MemoryTraces = memory;
            const size_t logSize = FileText(kLog).size();
            const std::string ring{debug.m_RingBase, debug.m_RingPos};
            g_PrefixFails = true;
            debug.TraceAlways(0, "short");
            debug.TraceAlways(0, "%s", longText.c_str());
            char buffer[kPrefixSize + 1] = "as it was";
            {
                const RecursiveLockGuard hold{debug.Lock()};
                EXPECT_EQ(debug.FormatPrefix(buffer, nullptr), 0u);
            }
            EXPECT_STREQ(buffer, "as it was");
            g_PrefixFails = false;
            EXPECT_EQ(FileText(kLog).substr(logSize), "short\n" + std::string(1024, 'l') + "\n");
            const std::string expected = ring + "short\n" + longText + "\n";
            EXPECT_EQ(debug.m_RingPos, expected.size());
            EXPECT_EQ((std::string{debug.m_RingBase, expected.size() + 16}),
                      expected + "## TRACE-END ##\n");
            debug.TraceAlways(0, "as ever");
            EXPECT_THAT(FileText(kLog), EndsWith("zorn          as ever\n"));
        }
    });
}

/// The prefix of a line of now.
std::string Format(LinePrefix& prefix, bool withMemory) {
    char text[kPrefixSize + 1];
    return {text, prefix.Format(text, "x", withMemory)};
}

TEST_F(LinePrefixTest, OpensTheFileOfTheFigureWithTheFirstOneThatShowsIt) {
    host.Run([] {
        LinePrefix prefix;
        FaultOf<&::open> open;
        const bool shown[] = {false, false, true, true, false, true};
        const int calls[] = {0, 0, 1, 1, 1, 1};
        for (size_t i = 0; i < std::size(shown); ++i) {
            (void)Format(prefix, shown[i]);
            EXPECT_EQ(open.Calls(), calls[i]) << i;
        }
    });
}

TEST_F(LinePrefixTest, TriesAgainToOpenItInAnotherSecond) {
    host.File("/proc/4711/statm", "9000 3 1 0\n");
    host.File("/proc/4711/status", "VmRSS: 7 kB\n");
    host.Run([] {
        FaultOf<&::getpid> number;
        number.Return(4711);
        FakeClock clock{1'700'000'000};
        LinePrefix prefix;
        FaultOf<&::open> open;
        open.Fail(EMFILE, 2);
        const struct {
            int second, calls;
            const char* figure;
        } cases[] = {{0, 1, "  7 KB"}, {0, 1, "  7 KB"}, {1, 2, "  7 KB"},
                     {2, 3, " 12 KB"}, {2, 3, " 12 KB"}, {3, 3, " 12 KB"}};
        for (const auto& [second, calls, figure] : cases) {
            clock.Set(1'700'000'000 + second);
            EXPECT_THAT(Format(prefix, true), HasSubstr(figure));
            EXPECT_EQ(open.Calls(), calls) << second;
        }
    });
}

}  // namespace

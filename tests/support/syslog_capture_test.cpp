#include <syslog.h>

#include <cstdarg>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/libc_fault.h"

namespace {

__attribute__((format(printf, 2, 3))) void Log(int priority, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    vsyslog(priority, format, arguments);
    va_end(arguments);
}

}  // namespace

TEST(SyslogCapture, KeepsPrioritiesAndFilledInTexts) {
    SyslogCapture log;
    syslog(LOG_ERR, "ERROR: %s (errno=%d)\n", "open", 2);
    syslog(LOG_INFO, "no arguments");
    Log(LOG_DEBUG, "%d%%", 50);
    EXPECT_EQ(
        log.Entries(),
        (std::vector<SyslogCapture::Entry>{
            {LOG_ERR, "ERROR: open (errno=2)\n"}, {LOG_INFO, "no arguments"}, {LOG_DEBUG, "50%"}}));
    EXPECT_EQ(log.Lines().at(2), "50%");
}

TEST(SyslogCapture, KeepsWhatOpenlogWasGiven) {
    SyslogCapture log;
    EXPECT_EQ(log.Identity(), "");
    openlog("zorn", LOG_PID | LOG_NOWAIT, LOG_DAEMON);
    EXPECT_EQ(log.Identity(), "zorn");
    EXPECT_EQ(log.Options(), LOG_PID | LOG_NOWAIT);
    EXPECT_EQ(log.Facility(), LOG_DAEMON);
    openlog(nullptr, 0, LOG_LOCAL1);
    EXPECT_EQ(log.Identity(), "");
}

TEST(SyslogCapture, TakesTextsWithPercentSignsAsTheyStandInAnswers) {
    FaultOf<&::syslog> fault;
    std::string seen;
    fault.Answer([&seen](int, const char* text) { seen = text; });
    syslog(LOG_INFO, "%s", "100% sure %n");
    EXPECT_EQ(seen, "100% sure %n");
}

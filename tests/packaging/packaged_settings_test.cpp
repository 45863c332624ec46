// packaging/trace/global_trace.ini, read by the service's own reader.

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

#include "trace/ini_section.h"
#include "trace/open_debug.h"

namespace {

std::string PackagedIni() {
    std::ifstream file{ZORN_SOURCE_DIR "/packaging/trace/global_trace.ini"};
    return {std::istreambuf_iterator<char>{file}, {}};
}

TEST(PackagedSettings, HaveBothSectionsAndTheTrailer) {
    const std::string ini = PackagedIni();
    EXPECT_TRUE(FindIniSection(ini, "GlobalDebugSettings"));
    EXPECT_TRUE(FindIniSection(ini, "zorn"));
}

// A remark would be taken for a key, or for the value of the key above.
TEST(PackagedSettings, HoldNothingButSectionsAndKeys) {
    std::ifstream file{ZORN_SOURCE_DIR "/packaging/trace/global_trace.ini"};
    int lines = 0;
    for (std::string line; std::getline(file, line); ++lines) {
        const bool isSection = line.starts_with('[') && line.ends_with(']');
        EXPECT_NE(isSection, line.find('=') != line.npos) << line;
        EXPECT_EQ(line.find_first_of("#; \t\r"), line.npos) << line;
    }
    EXPECT_EQ(lines, 10);
}

TEST(PackagedSettings, MakeAFreshServiceWriteErrorsAndHearOfHigherLevels) {
    FakeHost host;
    host.File(kConfigDirectory + std::string{"/global_trace.ini"}, PackagedIni());
    host.Directory("/var/log/tolbrin");
    host.Run([] {
        OpenDebug debug;
        EXPECT_EQ(debug.Init("zorn"), 1);
        EXPECT_TRUE(debug.IsEnabled());
        EXPECT_EQ(debug.m_TraceLevel, 1u);
        EXPECT_EQ(debug.m_DynamicUpdate, 60u);
        EXPECT_EQ(debug.m_MemoryTraces, 1u);
        EXPECT_EQ(debug.m_NoHeader, 1);
        EXPECT_EQ(debug.m_RingFactor, 1);
        EXPECT_EQ(debug.m_RingWeight, 1);
        EXPECT_STREQ(debug.m_LogPath, "/var/log/tolbrin/log.zorn");
    });
}

// What packages leave beside a changed file counts as an ini file too.
TEST(PackagedSettings, GoBeforeWhatAnUpgradeLeavesBesideThem) {
    FakeHost host;
    const std::string path = kConfigDirectory + std::string{"/global_trace.ini"};
    host.File(path, "[zorn]\nFileDebugLevel=4\n[EndOfFile]\n");
    for (const char* suffix : {".dpkg-dist", ".dpkg-old", ".rpmnew", ".rpmsave"}) {
        host.File(path + suffix, PackagedIni());
    }
    host.Directory("/var/log/tolbrin");
    host.Run([] {
        OpenDebug debug;
        EXPECT_EQ(debug.Init("zorn"), 1);
        EXPECT_EQ(debug.m_TraceLevel, 4u);
    });
}

}  // namespace

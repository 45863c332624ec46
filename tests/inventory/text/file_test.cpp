#include "inventory/text/file.h"

#include <unistd.h>

#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/temporary_folder.h"
#include "support/trace_capture.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::string LinkWithTarget(const TemporaryFolder& folder, const std::string& target) {
    EXPECT_EQ(symlink(target.c_str(), folder.Path("link").c_str()), 0);
    return folder.Path("link");
}

}  // namespace

TEST(FileSymbolicLink, GivesTheTargetAsItStandsInTheLink) {
    const TemporaryFolder folder;
    TraceCapture trace{6};
    std::string target = "former";
    EXPECT_TRUE(CFile::GetSymbolicLink(target, LinkWithTarget(folder, "../a//b/./c")));
    EXPECT_EQ(target, "../a//b/./c");
    EXPECT_THAT(trace.Lines(), IsEmpty());
}

TEST(FileSymbolicLink, CutsATargetAt1023Bytes) {
    for (const size_t length : {1022, 1023, 1024, 2000}) {
        const TemporaryFolder folder;
        const std::string whole(length, 't');
        std::string target;
        EXPECT_TRUE(CFile::GetSymbolicLink(target, LinkWithTarget(folder, whole)));
        EXPECT_EQ(target, whole.substr(0, 1023)) << length;
    }
}

TEST(FileSymbolicLink, TracesWhatIsNoLink) {
    const TemporaryFolder folder;
    const std::string file = folder.File("f", "");
    TraceCapture trace{2};
    std::string target = "former";
    EXPECT_FALSE(CFile::GetSymbolicLink(target, file));
    EXPECT_FALSE(CFile::GetSymbolicLink(target, "/nonexistent"));
    EXPECT_EQ(target, "former");
    EXPECT_THAT(
        trace.Lines(),
        ElementsAre("CFile::GetSymbolicLink  : Cannot get symbolic link for: '" + file +
                        "'. Error message: Invalid argument.",
                    "CFile::GetSymbolicLink  : Cannot get symbolic link for: '/nonexistent'. "
                    "Error message: No such file or directory."));
}

TEST(FileSymbolicLink, TracesAtLevelTwo) {
    TraceCapture trace{1};
    std::string target;
    EXPECT_FALSE(CFile::GetSymbolicLink(target, "/nonexistent"));
    EXPECT_THAT(trace.Lines(), IsEmpty());
}

#include "inventory/text/directory.h"

#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/fake_host.h"
#include "support/libc_fault.h"
#include "support/temporary_folder.h"
#include "support/trace_capture.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

namespace {

namespace fs = std::filesystem;

using Names = std::vector<std::string>;

}  // namespace

TEST(DirectoryContent, IsTheNamesWithoutSelfAndParent) {
    const TemporaryFolder folder;
    folder.File("a", "");
    folder.File(".hidden", "");
    fs::create_directory(folder.Path("d"));
    Names names;
    EXPECT_TRUE(CDirectory::GetDirectoryContent(names, folder.Path(), false));
    EXPECT_THAT(names, UnorderedElementsAre("a", ".hidden", "d"));
}

TEST(DirectoryContent, ComesInTheOrderOfTheDirectory) {
    const TemporaryFolder folder;
    for (int i = 0; i < 50; ++i) folder.File(std::to_string(i), "");
    Names expected;
    for (const auto& entry : fs::directory_iterator{folder.Path()}) {
        expected.push_back(entry.path().filename());
    }
    Names names;
    EXPECT_TRUE(CDirectory::GetDirectoryContent(names, folder.Path(), false));
    EXPECT_EQ(names, expected);
}

TEST(DirectoryContent, WithFullPathsHasTheCanonicalPathInFront) {
    const TemporaryFolder folder;
    fs::create_directory(folder.Path("d"));
    folder.File("d/a", "");
    fs::create_symlink("d", folder.Path("link"));
    Names names;
    EXPECT_TRUE(CDirectory::GetDirectoryContent(names, folder.Path("link/../link/."), true));
    EXPECT_THAT(names, ElementsAre(fs::canonical(folder.Path("d")).string() + "/a"));
}

TEST(DirectoryContent, OfTheRootHasTwoSlashes) {
    FakeHost host;
    host.Run([] {
        Names names;
        EXPECT_TRUE(CDirectory::GetDirectoryContent(names, "/", true));
        EXPECT_THAT(names, testing::Contains("//etc"));
    });
}

TEST(DirectoryContent, IsAppended) {
    const TemporaryFolder folder;
    Names names = {"former"};
    EXPECT_TRUE(CDirectory::GetDirectoryContent(names, folder.Path(), false));
    folder.File("a", "");
    EXPECT_TRUE(CDirectory::GetDirectoryContent(names, folder.Path(), false));
    EXPECT_THAT(names, ElementsAre("former", "a"));
}

TEST(DirectoryContent, OfAnEmptyDirectoryIsFalseWithoutATrace) {
    const TemporaryFolder folder;
    TraceCapture trace{6};
    Names names;
    EXPECT_FALSE(CDirectory::GetDirectoryContent(names, folder.Path(), false));
    EXPECT_FALSE(CDirectory::GetDirectoryContent(names, folder.Path(), true));
    EXPECT_THAT(names, IsEmpty());
    EXPECT_THAT(trace.Lines(), IsEmpty());
}

TEST(DirectoryContent, TracesADirectoryThatCannotBeOpened) {
    TraceCapture trace{1};
    Names names = {"former"};
    EXPECT_FALSE(CDirectory::GetDirectoryContent(names, "/nonexistent", true));
    EXPECT_FALSE(CDirectory::GetDirectoryContent(names, "/dev/null", false));
    EXPECT_THAT(names, ElementsAre("former"));
    EXPECT_THAT(
        trace.Lines(),
        ElementsAre("CDirectory::GetDirectoryContent :Cannot open directory: \"/nonexistent\". "
                    "Error message: No such file or directory",
                    "CDirectory::GetDirectoryContent :Cannot open directory: \"/dev/null\". "
                    "Error message: Not a directory"));
}

// The working directory of a process may be gone while it can still be opened.
TEST(DirectoryContent, TracesADirectoryWhoseCanonicalPathCannotBeHad) {
    FakeHost host;
    host.Directory("/gone");
    host.Run([] {
        ASSERT_EQ(chdir("/gone"), 0);
        ASSERT_EQ(rmdir("/gone"), 0);
        TraceCapture trace{1};
        Names names = {"former"};
        EXPECT_FALSE(CDirectory::GetDirectoryContent(names, ".", true));
        EXPECT_THAT(names, ElementsAre("former"));
        EXPECT_THAT(
            trace.Lines(),
            ElementsAre("CDirectory::GetDirectoryContent : Cannot get absolute directory of "
                        "path: \".\". Error message: No such file or directory"));
    });
}

TEST(DirectoryContent, EndsWhereTheDirectoryCannotBeReadAnyMore) {
    const TemporaryFolder folder;
    folder.File("a", "");
    FaultOf<&::readdir> fault;
    fault.Fail(EIO);
    Names names;
    EXPECT_FALSE(CDirectory::GetDirectoryContent(names, folder.Path(), false));
    EXPECT_THAT(names, IsEmpty());
}

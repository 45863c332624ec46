#include "platform/directory_stream.h"

#include <pthread.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/victim.h"
#include "support/libc_fault.h"
#include "support/temporary_folder.h"

using testing::IsEmpty;
using testing::UnorderedElementsAre;

namespace {

std::vector<std::string> Names(DirectoryStream& directory) {
    std::vector<std::string> names;
    while (const char* name = directory.Next()) names.emplace_back(name);
    return names;
}

}  // namespace

TEST(DirectoryStream, IsEmptyByDefault) {
    DirectoryStream directory;
    EXPECT_FALSE(directory);
    EXPECT_EQ(directory.Next(), nullptr);
    EXPECT_EQ(errno, 0);
    directory.Reset();
}

TEST(DirectoryStream, WalksOverTheNamesButSelfAndParent) {
    const TemporaryFolder folder;
    for (const char* name : {"a", ".b", "...", "..c"}) folder.File(name, "");
    std::filesystem::create_directory(folder.Path("d"));
    DirectoryStream directory = DirectoryStream::Open(folder.Path().c_str());
    ASSERT_TRUE(directory);
    EXPECT_THAT(Names(directory), UnorderedElementsAre("a", ".b", "...", "..c", "d"));
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(directory.Next(), nullptr);
}

TEST(DirectoryStream, TellsAnEndFromAFailure) {
    const TemporaryFolder folder;
    DirectoryStream directory = DirectoryStream::Open(folder.Path().c_str());
    FaultOf<&::readdir> fault;
    fault.Fail(EIO);
    EXPECT_EQ(directory.Next(), nullptr);
    EXPECT_EQ(errno, EIO);
    EXPECT_THAT(Names(directory), IsEmpty());
    EXPECT_EQ(errno, 0);
}

TEST(DirectoryStream, IsEmptyWithTheNumberOfTheFailure) {
    EXPECT_FALSE(DirectoryStream::Open("/nonexistent"));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(DirectoryStream::Open("/dev/null"));
    EXPECT_EQ(errno, ENOTDIR);
}

TEST(DirectoryStream, TriesAgainWhenASignalInterrupts) {
    FaultOf<&::opendir> fault;
    fault.Fail(EINTR, 2);
    EXPECT_TRUE(DirectoryStream::Open("/"));
    EXPECT_EQ(fault.Calls(), 3);
}

TEST(DirectoryStream, MovesAndCannotBeCopied) {
    EXPECT_FALSE(std::is_copy_constructible_v<DirectoryStream>);
    EXPECT_FALSE(std::is_copy_assignable_v<DirectoryStream>);
    const TemporaryFolder folder;
    folder.File("a", "");
    DirectoryStream first = DirectoryStream::Open(folder.Path().c_str());
    DirectoryStream second{std::move(first)};
    EXPECT_FALSE(first);  // NOLINT(bugprone-use-after-move): left empty by contract
    DirectoryStream third = DirectoryStream::Open("/");
    third = std::move(second);
    EXPECT_FALSE(second);  // NOLINT(bugprone-use-after-move)
    DirectoryStream& same = third;
    third = std::move(same);
    EXPECT_THAT(Names(third), UnorderedElementsAre("a"));
    third.Reset();
    EXPECT_FALSE(third);
}

TEST(DirectoryStream, LeavesErrnoAloneWhenItCloses) {
    DirectoryStream directory = DirectoryStream::Open("/");
    FaultOf<&::closedir> fault;
    fault.Answer([](DIR* stream) {
        (void)LibcFault::Real<&::closedir>(stream);
        errno = EIO;
        return -1;
    });
    errno = ENOTTY;
    directory.Reset();
    EXPECT_EQ(errno, ENOTTY);
}

TEST(DirectoryStream, IsClosedByAThreadThatIsToBeCancelled) {
    Victim victim{[] {
        {
            const DirectoryStream directory = DirectoryStream::Open("/");
            pthread_cancel(pthread_self());  // pending: closedir may be a cancellation point
        }
        pthread_testcancel();
    }};
    EXPECT_TRUE(victim.EndedByCancellation());
}

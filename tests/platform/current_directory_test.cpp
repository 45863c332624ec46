#include "platform/current_directory.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include <gtest/gtest.h>

#include "support/fake_host.h"
#include "support/libc_fault.h"

TEST(CurrentDirectory, IsWhereItWasSetTo) {
    FakeHost host;
    host.Directory("/opt/there");
    host.Run([] {
        EXPECT_EQ(GetCurrentDirectory(), "/");
        EXPECT_TRUE(SetCurrentDirectory("/opt/there"));
        EXPECT_EQ(GetCurrentDirectory(), "/opt/there");
        EXPECT_TRUE(SetCurrentDirectory(".."));
        std::string path = "other";
        EXPECT_TRUE(GetCurrentDirectory(path));
        EXPECT_EQ(path, "/opt");
    });
}

TEST(CurrentDirectory, IsEmptyIfItHasBeenRemoved) {
    FakeHost host;
    host.Run([] {
        ASSERT_EQ(mkdir("/tmp/gone", 0700), 0);
        ASSERT_EQ(chdir("/tmp/gone"), 0);
        ASSERT_EQ(rmdir("/tmp/gone"), 0);
        EXPECT_EQ(GetCurrentDirectory(), "");
        std::string path = "kept";
        EXPECT_FALSE(GetCurrentDirectory(path));
        EXPECT_EQ(path, "kept");
    });
}

TEST(CurrentDirectory, IsReadIntoFourThousandAndNinetySixBytes) {
    FaultOf<&::getcwd> fault;
    fault.Answer([](char* path, size_t size) {
        EXPECT_EQ(size, 4096U);
        path[0] = '/';
        path[1] = '\0';
        return path;
    });
    fault.Fail(ERANGE);
    EXPECT_EQ(GetCurrentDirectory(), "/");
    EXPECT_EQ(GetCurrentDirectory(), "");
}

TEST(CurrentDirectory, StaysIfItCannotBeSet) {
    FakeHost host;
    host.Run([] {
        EXPECT_FALSE(SetCurrentDirectory("/nonexistent"));
        EXPECT_EQ(errno, ENOENT);
        const FaultOf<&::chdir> change;
        EXPECT_FALSE(SetCurrentDirectory(""));
        EXPECT_EQ(change.Calls(), 0);
        EXPECT_EQ(GetCurrentDirectory(), "/");
    });
}

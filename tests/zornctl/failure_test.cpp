// What is told of failed system calls.

#include "zornctl/output/failure.h"

#include <gtest/gtest.h>

#include <cerrno>

using zornctl::ExitStatus;
using zornctl::SystemFailure;

namespace {

TEST(SystemFailure, HasARemedyWhateverFailed) {
    for (int error = 1; error < 134; ++error) {
        const auto failure = SystemFailure("/x", error);
        EXPECT_EQ(failure.path, "/x");
        EXPECT_NE(failure.cause, "");
        EXPECT_NE(failure.remedy, "") << failure.cause;
    }
}

TEST(SystemFailure, HasOneOfItsOwnForWhatIsCommon) {
    const struct {
        int error;
        ExitStatus status;
        const char* remedy;
    } rows[] = {
        {ENOENT, ExitStatus::kNotFound, "look at the name"},
        {ENOTDIR, ExitStatus::kNotFound, "look at the name"},
        {EACCES, ExitStatus::kNoAccess, "run zornctl as root"},
        {EISDIR, ExitStatus::kNoAccess, "name a file in it"},
        {ENOSPC, ExitStatus::kNoAccess, "make room on its file system"},
        {EIO, ExitStatus::kNoAccess, "look at the messages of the kernel: the device may fail"},
        {ELOOP, ExitStatus::kNoAccess, "look at the symbolic links in the path"},
        {EBADF, ExitStatus::kNoAccess, "start zornctl with it open, or send it to a file"},
        {EROFS, ExitStatus::kNoAccess, "mount its file system for writing"},
    };
    for (const auto& row : rows) {
        const auto failure = SystemFailure({}, row.error);
        EXPECT_EQ(failure.status, row.status) << failure.cause;
        EXPECT_EQ(failure.remedy, row.remedy) << failure.cause;
    }
}

}  // namespace

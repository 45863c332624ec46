#include "zornctl/system/whole_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <functional>
#include <optional>

#include "support/fake_host.h"
#include "support/libc_fault.h"
#include "zornctl/output/failure.h"

using namespace zornctl;

namespace {

/// The failure that `f` throws.
std::optional<Failure> FailureOf(const std::function<void()>& f) {
    try {
        f();
    } catch (const Failure& failure) {
        return failure;
    }
    return std::nullopt;
}

TEST(ReadWholeFile, ReadsFilesOfAnySizeAndKind) {
    FakeHost host;
    host.File("/empty", "");
    host.File("/large", std::string(1'000'000, 'x'));
    host.KernelProc();
    host.Run([] {
        EXPECT_EQ(ReadWholeFile("/empty", 10), "");
        EXPECT_EQ(ReadWholeFile("/large", 1'000'000), std::string(1'000'000, 'x'));
        EXPECT_NE(ReadWholeFile("/proc/self/stat", 10'000), "") << "which tells no size";
    });
}

TEST(ReadWholeFile, RefusesMoreThanTheLimit) {
    FakeHost host;
    host.File("/large", std::string(1001, 'x'));
    host.Run([] {
        const auto failure = FailureOf([] { (void)ReadWholeFile("/large", 1000); });
        ASSERT_TRUE(failure);
        EXPECT_EQ(failure->status, ExitStatus::kNoAccess);
        EXPECT_EQ(failure->cause, "holds more than 1000 bytes");
        EXPECT_TRUE(FailureOf([] { (void)ReadWholeFile("/dev/zero", 1000); }));
    });
}

TEST(ReadWholeFile, IsNotStoppedByAPipe) {
    FakeHost host;
    host.Run([] {
        ASSERT_EQ(mkfifo("/pipe", 0600), 0);
        EXPECT_EQ(ReadWholeFile("/pipe", 1000), "");
    });
}

TEST(ReadWholeFile, GoesOnAfterAnInterruptionAndTellsAnError) {
    FakeHost host;
    host.File("/file", "text");
    host.Run([] {
        FaultOf<&::read> fault;
        fault.Fail(EINTR);
        fault.PassThrough(2);
        EXPECT_EQ(ReadWholeFile("/file", 1000), "text");
        fault.Fail(EIO);
        const auto failure = FailureOf([] { (void)ReadWholeFile("/file", 1000); });
        ASSERT_TRUE(failure);
        EXPECT_EQ(failure->cause, "Input/output error");
        EXPECT_EQ(failure->path, "/file");
    });
}

TEST(Uncompress, RefusesATextThatGrowsBeyondTheLimit) {
    FakeHost host;
    host.Run([] {
        ASSERT_EQ(system("head -c 1000000 /dev/zero | gzip >/zeros.gz"), 0);
        EXPECT_TRUE(IsCompressed(ReadWholeFile("/zeros.gz", 10'000)));
        EXPECT_EQ(Uncompress("/zeros.gz", 1'000'000).size(), 1'000'000u);
        const auto failure = FailureOf([] { (void)Uncompress("/zeros.gz", 999'999); });
        ASSERT_TRUE(failure);
        EXPECT_EQ(failure->cause, "holds more than 999999 bytes");
    });
}

TEST(SystemFailure, IsNotFoundForWhatDoesNotExistAndNoAccessForAllElse) {
    EXPECT_EQ(SystemFailure("/x", ENOENT).status, ExitStatus::kNotFound);
    EXPECT_EQ(SystemFailure("/x", ENOTDIR).status, ExitStatus::kNotFound);
    for (const int error : {EACCES, EPERM, EISDIR, EIO}) {
        EXPECT_EQ(SystemFailure("/x", error).status, ExitStatus::kNoAccess);
    }
    EXPECT_EQ(SystemFailure("/x", EPERM).remedy, "run zornctl as root");
}

}  // namespace

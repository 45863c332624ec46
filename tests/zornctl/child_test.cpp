#include "zornctl/system/child.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/unique_fd.h"
#include "support/fake_host.h"
#include "support/libc_fault.h"
#include "zornctl/output/failure.h"

using namespace zornctl;
using testing::HasSubstr;

namespace {

TEST(RunChild, GivesStatusAndBothOutputs) {
    const auto child = RunChild({"sh", "-c", "echo out; echo err >&2; exit 3"});
    EXPECT_EQ(child.status, 3);
    EXPECT_EQ(child.output, "out\n");
    EXPECT_EQ(child.error, "err\n");
}

TEST(RunChild, GivesTheSignalThatEndedIt) {
    EXPECT_EQ(RunChild({"sh", "-c", "kill -TERM $$"}).status, 128 + SIGTERM);
}

TEST(RunChild, FeedsItFromADescriptorOrFromNothing) {
    EXPECT_EQ(RunChild({"cat"}).output, "");
    const UniqueFd file{open("/proc/self/comm", O_RDONLY | O_CLOEXEC)};
    EXPECT_EQ(RunChild({"cat"}, {.input = file.Get()}).output, "zornctl_test\n");
}

TEST(RunChild, GivesItNoVariablesButPathAndThoseTold) {
    (void)setenv("NOT_FOR_CHILDREN", "x", 1);
    const auto child = RunChild({"env"}, {.environment = {"FOR_CHILDREN=y"}});
    (void)unsetenv("NOT_FOR_CHILDREN");
    EXPECT_THAT(child.output, HasSubstr("FOR_CHILDREN=y\n"));
    EXPECT_THAT(child.output, HasSubstr("PATH="));
    EXPECT_THAT(child.output, testing::Not(HasSubstr("NOT_FOR")));
}

TEST(RunChild, KillsOneThatWritesTooMuch) {
    const auto child = RunChild({"yes"}, {.limit = 1000});
    EXPECT_EQ(child.status, 128 + SIGKILL);
    EXPECT_GT(child.output.size(), 1000u);
}

TEST(RunChild, ReadsBothOutputsAtOnceHoweverLongTheyAre) {
    const auto child =
        RunChild({"sh", "-c", "head -c 300000 /dev/zero >&2; head -c 300000 /dev/zero; echo >&2"});
    EXPECT_EQ(child.status, 0);
    EXPECT_EQ(child.output.size(), 300000u);
    EXPECT_EQ(child.error.size(), 300001u);
}

TEST(RunChild, FailsWhereTheProgramIsMissing) {
    try {
        (void)RunChild({"no-such-program"});
        ADD_FAILURE() << "it ran";
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.status, ExitStatus::kNoAccess);
        EXPECT_EQ(failure.path, "no-such-program");
        EXPECT_EQ(failure.cause, "No such file or directory (could not be started)");
    }
}

TEST(RunChild, FailsWithoutDescriptors) {
    FaultOf<&::pipe2> fault;
    fault.Fail(EMFILE);
    EXPECT_THROW((void)RunChild({"true"}), Failure);
}

TEST(FirstLine, SkipsEmptyOnes) {
    EXPECT_EQ(FirstLine("\n\na\nb"), "a");
    EXPECT_EQ(FirstLine("a"), "a");
    EXPECT_EQ(FirstLine("\n"), "no reason given");
    EXPECT_EQ(FirstLine(""), "no reason given");
}

}  // namespace

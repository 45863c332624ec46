#include "support/leak_census.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/fake_host.h"
#include "support/sanitizers.h"

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

/// A program of tests that are to fail, beside this one.
std::string SamplesProgram() {
    const std::string zorn = FakeHost::Executable();
    return zorn.substr(0, zorn.rfind('/')) + "/support_samples";
}

/// What that program prints when it runs one of its tests. Its end is to be `end`.
std::string OutputOfSample(const std::string& name, ProcessEnd end) {
    FakeHost host;
    auto process = host.Start({SamplesProgram(), "--gtest_filter=Sample." + name},
                              {.environment = {{"ASAN_OPTIONS", "exitcode=1"}}});
    const ProcessEnd found = process.Wait();
    const std::string output = process.StandardOutput() + process.StandardError();
    EXPECT_EQ(found, end) << output;
    return output;
}

}  // namespace

TEST(LeakCensus, IsEmptyWhenAllWasGivenBack) {
    const LeakCensus census;
    close(open("/dev/null", O_RDONLY));
    void* map = mmap(nullptr, 4096, PROT_READ, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    munmap(map, 4096);
    const pid_t child = fork();
    if (child == 0) _exit(0);
    waitpid(child, nullptr, 0);
    EXPECT_THAT(census.Leaks(), IsEmpty());
}

TEST(LeakCensus, NamesADescriptorWithWhatItIs) {
    const LeakCensus census;
    const int fd = open("/dev/null", O_RDONLY);
    EXPECT_THAT(census.Leaks(), ElementsAre("descriptor " + std::to_string(fd) + ": /dev/null"));
    close(fd);
}

TEST(LeakCensus, NamesADescriptorThatChangedItsFile) {
    const int fd = open("/dev/null", O_RDONLY);
    const LeakCensus census;
    const int other = open("/dev/zero", O_RDONLY);
    dup2(other, fd);
    close(other);
    EXPECT_THAT(census.Leaks(), ElementsAre(HasSubstr("/dev/zero")));
    close(fd);
}

TEST(LeakCensus, NamesAMappingOfAFileAndASharedOne) {
    const std::string path = testing::TempDir() + "zorn-map-" + std::to_string(getpid());
    const int fd = open(path.c_str(), O_RDWR | O_CREAT, 0600);
    EXPECT_EQ(ftruncate(fd, 4096), 0);
    const LeakCensus census;
    void* file = mmap(nullptr, 4096, PROT_READ, MAP_PRIVATE, fd, 0);
    void* shared = mmap(nullptr, 4096, PROT_READ, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    EXPECT_THAT(census.Leaks(),
                testing::UnorderedElementsAre(HasSubstr("mapping of " + path + " at "),
                                              HasSubstr("mapping of /dev/zero (deleted) at ")));
    munmap(file, 4096);
    munmap(shared, 4096);
    close(fd);
    unlink(path.c_str());
    EXPECT_THAT(census.Leaks(), Not(testing::Contains(HasSubstr("mapping"))));
}

TEST(LeakCensus, NamesAndEndsAChildThatStillRuns) {
    const LeakCensus census;
    const pid_t child = fork();
    if (child == 0) {
        for (;;) pause();
    }
    EXPECT_THAT(census.Leaks(),
                ElementsAre(AllOf(HasSubstr("process " + std::to_string(child) + " (support_test)"),
                                  HasSubstr("still running"))));
    EXPECT_EQ(waitpid(child, nullptr, 0), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST(LeakCensus, NamesAChildThatNobodyWaitedFor) {
    const LeakCensus census;
    const pid_t child = fork();
    if (child == 0) _exit(0);
    siginfo_t info{};
    waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT);
    EXPECT_THAT(census.Leaks(), ElementsAre(HasSubstr("ended but not waited for")));
    EXPECT_THAT(census.Leaks(), IsEmpty());
}

TEST(LeakCensus, LetsStayWhatMayStay) {
    LeakCensus::MayStay("/dev/full");
    const LeakCensus census;
    const int fd = open("/dev/full", O_RDWR);
    EXPECT_THAT(census.Leaks(), IsEmpty());
    close(fd);
}

TEST(LeakListener, FailsATestThatLeavesADescriptorOpen) {
    const std::string output = OutputOfSample("LeavesADescriptor", Exited(1));
    EXPECT_THAT(output, HasSubstr("The test left behind:\n  descriptor "));
    EXPECT_THAT(output, HasSubstr("support_samples.cpp"));
    EXPECT_THAT(output, HasSubstr("[  FAILED  ] Sample.LeavesADescriptor"));
}

TEST(LeakListener, FailsATestThatLeavesAGrandchild) {
    EXPECT_THAT(OutputOfSample("LeavesAGrandchild", Exited(1)),
                AllOf(HasSubstr("The test left behind:\n  process "), HasSubstr("still running")));
}

TEST(LeakListener, FailsATestThatLosesMemory) {
    if (!kAddressSanitizer)
        GTEST_SKIP() << "memory is counted by LeakSanitizer, in the asan preset";
    EXPECT_THAT(
        OutputOfSample("LosesMemory", Exited(1)),
        AllOf(HasSubstr("The test left behind:\n  memory: see"), HasSubstr("1234 byte(s)")));
}

TEST(LeakListener, LetsACleanTestPass) {
    EXPECT_THAT(OutputOfSample("IsClean", Exited(0)), HasSubstr("[       OK ] Sample.IsClean"));
}

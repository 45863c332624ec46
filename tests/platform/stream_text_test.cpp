#include "platform/stream_text.h"

#include <fcntl.h>

#include <cerrno>
#include <string>

#include <gtest/gtest.h>

#include "platform/command_pipe.h"
#include "platform/open_file.h"
#include "support/libc_fault.h"
#include "support/temporary_folder.h"

namespace {

std::string ReadAll(const std::string& path) {
    const UniqueFile file = OpenFile(path.c_str(), "r");
    if (!file) return "not opened";
    const StreamText read{file.get()};
    EXPECT_TRUE(read.IsWhole());
    return std::string{read.Text()};
}

}  // namespace

TEST(StreamText, HoldsAFileOfAnySize) {
    const TemporaryFolder folder;
    for (const size_t size : {0, 1, 4095, 4096, 4097, 100'000}) {
        std::string text;
        for (size_t i = 0; i < size; ++i) text += static_cast<char>(i % 251);
        EXPECT_EQ(ReadAll(folder.File("f", text)), text) << size;
    }
}

TEST(StreamText, BeginsWhereTheStreamStands) {
    const TemporaryFolder folder;
    const UniqueFile file = OpenFile(folder.File("f", "0123456789").c_str(), "r");
    ASSERT_EQ(fseek(file.get(), 4, SEEK_SET), 0);
    EXPECT_EQ(StreamText{file.get()}.Text(), "456789");
}

TEST(StreamText, HoldsAFileThatTellsNoSize) {
    EXPECT_NE(ReadAll("/proc/self/status").find("\nPid:"), std::string::npos);
}

TEST(StreamText, HoldsTheOutputOfACommand) {
    CommandPipe pipe = CommandPipe::Open("head -c 10000 /dev/zero | tr '\\0' x");
    EXPECT_EQ(StreamText{pipe.Get()}.Text(), std::string(10000, 'x'));
}

TEST(StreamText, HoldsMoreThanTheFileSaidItWouldBe) {
    const TemporaryFolder folder;
    const std::string text(20'000, 'x');
    const std::string path = folder.File("f", text);
    FaultOf<&::fstat> fault;
    fault.Answer([](int fd, struct stat* status) {
        const int result = LibcFault::Real<&::fstat>(fd, status);
        status->st_size = 10;
        return result;
    });
    EXPECT_EQ(ReadAll(path), text);
}

TEST(StreamText, DoesNotBelieveAFileThatCallsItselfLargerThanMemory) {
    const TemporaryFolder folder;
    const std::string path = folder.File("f", "text");
    FaultOf<&::fstat> fault;
    fault.Answer([](int fd, struct stat* status) {
        const int result = LibcFault::Real<&::fstat>(fd, status);
        status->st_size = off_t{1} << 46;
        return result;
    });
    EXPECT_EQ(ReadAll(path), "text");
}

TEST(StreamText, ReadsOnWithoutTheSize) {
    const TemporaryFolder folder;
    const std::string path = folder.File("f", "text");
    FaultOf<&::fstat> fault;
    fault.Fail(EOVERFLOW);
    EXPECT_EQ(ReadAll(path), "text");
}

TEST(StreamText, TellsThatReadingFailed) {
    const UniqueFile folder = OpenFile("/", "r");
    ASSERT_TRUE(folder);
    const StreamText read{folder.get()};
    EXPECT_FALSE(read.IsWhole());
    EXPECT_EQ(read.Text(), "");
}

#include "inventory/text/data_stream.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/libc_fault.h"
#include "support/temporary_folder.h"
#include "support/trace_capture.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Bytes = std::vector<std::byte>;

std::string_view Text(const Bytes& bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace

TEST(DataStream, ReadsAWholeFile) {
    const TemporaryFolder folder;
    for (const size_t size : {1, 4095, 4096, 4097, 8191, 8192, 8193, 300'000}) {
        std::string content;
        for (size_t i = 0; i < size; ++i) content += static_cast<char>(i % 251);
        Bytes bytes;
        EXPECT_TRUE(CDataStream::ReadFromFile(folder.File("f", content), bytes));
        EXPECT_EQ(Text(bytes), content) << size;
    }
}

TEST(DataStream, TracesTheNameAndTheSize) {
    const TemporaryFolder folder;
    const std::string path = folder.File("f", "12345");
    Bytes bytes;
    {
        TraceCapture trace{5};
        EXPECT_TRUE(CDataStream::ReadFromFile(path, bytes));
        EXPECT_THAT(trace.Lines(), ElementsAre("CDataStream::ReadFromFile() : '" + path + "'",
                                               "CDataStream::ReadFromFile() : Read 5 bytes."));
    }
    TraceCapture trace{3};
    EXPECT_TRUE(CDataStream::ReadFromFile(path, bytes));
    EXPECT_THAT(trace.Lines(), ElementsAre("CDataStream::ReadFromFile() : Read 5 bytes."));
}

TEST(DataStream, TracesEachLineAtItsLevel) {
    const TemporaryFolder folder;
    const std::string path = folder.File("f", "12345");
    for (const unsigned level : {1U, 2U, 3U, 4U, 5U}) {
        const TraceCapture trace{level};
        Bytes bytes;
        EXPECT_TRUE(CDataStream::ReadFromFile(path, bytes));
        EXPECT_FALSE(CDataStream::ReadFromFile("", bytes));
        EXPECT_EQ(trace.LinesWith("Read 5 bytes").size(), level >= 3 ? 1U : 0U) << level;
        EXPECT_EQ(trace.LinesWith("() : '" + path + "'").size(), level >= 5 ? 1U : 0U) << level;
        EXPECT_EQ(trace.LinesWith("is empty!").size(), level >= 5 ? 1U : 0U) << level;
        EXPECT_EQ(trace.LinesWith("Could not read").size(), 1U) << level;
    }
}

TEST(DataStream, GivesNoBytesOfAnEmptyFileAndTrue) {
    const TemporaryFolder folder;
    const std::string path = folder.File("f", "");
    TraceCapture trace{3};
    Bytes bytes(3);
    EXPECT_TRUE(CDataStream::ReadFromFile(path, bytes));
    EXPECT_THAT(bytes, IsEmpty());
    EXPECT_THAT(trace.Lines(), ElementsAre("CDataStream::ReadFromFile() : Read 0 bytes."));
}

TEST(DataStream, ReadsAFileThatTellsNoSize) {
    Bytes bytes;
    EXPECT_TRUE(CDataStream::ReadFromFile("/proc/self/status", bytes));
    EXPECT_NE(Text(bytes).find("\nPid:"), std::string_view::npos);
}

TEST(DataStream, TracesAFileThatCannotBeOpenedAndClearsTheBytes) {
    TraceCapture trace{1};
    Bytes bytes(3);
    EXPECT_FALSE(CDataStream::ReadFromFile("/nonexistent", bytes));
    EXPECT_THAT(bytes, IsEmpty());
    EXPECT_THAT(trace.Lines(), ElementsAre("CDataStream::ReadFromFile() : Could not read file : "
                                           "'basic_ios::clear: iostream error'"));
}

TEST(DataStream, TracesAnEmptyPathAndGoesOn) {
    TraceCapture trace{5};
    Bytes bytes(3);
    EXPECT_FALSE(CDataStream::ReadFromFile("", bytes));
    EXPECT_THAT(bytes, IsEmpty());
    EXPECT_THAT(trace.Lines(),
                ElementsAre("CDataStream::ReadFromFile() : Argument file path is empty!",
                            "CDataStream::ReadFromFile() : ''",
                            "CDataStream::ReadFromFile() : Could not read file : "
                            "'basic_ios::clear: iostream error'"));
}

TEST(DataStream, TracesAFileThatCannotBeReadAndClearsTheBytes) {
    TraceCapture trace{1};
    Bytes bytes(3);
    EXPECT_FALSE(CDataStream::ReadFromFile("/", bytes));
    EXPECT_THAT(bytes, IsEmpty());
    EXPECT_THAT(trace.Lines(),
                ElementsAre("CDataStream::ReadFromFile() : Could not read file : "
                            "'basic_filebuf::underflow error reading the file: Is a directory'"));
}

TEST(DataStream, OpensItsFileCloseOnExec) {
    const TemporaryFolder folder;
    const std::string path = folder.File("f", "1");
    FaultOf<&::fopen> open;
    open.Answer([](const char* name, const char* mode) {
        EXPECT_STREQ(mode, "re");
        return LibcFault::Real<&::fopen>(name, mode);
    });
    Bytes bytes;
    EXPECT_TRUE(CDataStream::ReadFromFile(path, bytes));
    EXPECT_EQ(Text(bytes), "1");
}

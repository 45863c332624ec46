#include "inventory/text/stdio_file.h"

#include <cerrno>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/libc_fault.h"
#include "support/temporary_folder.h"
#include "support/trace_capture.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Texts = std::vector<std::string>;

Texts ReadText(std::string_view text) {
    const TemporaryFolder folder;
    Texts lines;
    EXPECT_TRUE(CStdioFile::ReadFile(lines, folder.File("f", text)));
    return lines;
}

}  // namespace

TEST(StdioFileReadFile, GivesTheLinesWithoutTheirEnds) {
    EXPECT_THAT(ReadText("one\n\ntwo words\n"), ElementsAre("one", "", "two words"));
    EXPECT_THAT(ReadText("\n"), ElementsAre(""));
}

TEST(StdioFileReadFile, CountsALastLineWithoutALineFeed) {
    EXPECT_THAT(ReadText("one\ntwo"), ElementsAre("one", "two"));
}

TEST(StdioFileReadFile, KeepsAllOtherBytes) {
    EXPECT_THAT(ReadText(std::string("a\r\nb\0c\n", 7)),
                ElementsAre("a\r", std::string("b\0c", 3)));
}

TEST(StdioFileReadFile, IsTrueForAnEmptyFile) {
    EXPECT_THAT(ReadText(""), IsEmpty());
}

TEST(StdioFileReadFile, AppendsToTheLines) {
    const TemporaryFolder folder;
    Texts lines = {"former"};
    EXPECT_TRUE(CStdioFile::ReadFile(lines, folder.File("f", "one\n")));
    EXPECT_THAT(lines, ElementsAre("former", "one"));
}

TEST(StdioFileReadFile, ReadsAFileThatTellsNoSize) {
    Texts lines;
    EXPECT_TRUE(CStdioFile::ReadFile(lines, "/proc/self/status"));
    EXPECT_FALSE(lines.empty());
}

TEST(StdioFileReadFile, TracesAFileThatCannotBeOpened) {
    TraceCapture trace{1};
    Texts lines = {"former"};
    EXPECT_FALSE(CStdioFile::ReadFile(lines, "/nonexistent"));
    EXPECT_THAT(lines, ElementsAre("former"));
    EXPECT_THAT(trace.Lines(),
                ElementsAre("CStdioFile::ReadFile   : Cannot read file \"/nonexistent\"!"));
}

TEST(StdioFileReadFile, GivesTheCompleteLinesOfAFileThatCannotBeReadToItsEnd) {
    const TemporaryFolder folder;
    const std::string path = folder.File("f", "one\ntwo\n");
    TraceCapture trace{6};
    FaultOf<&::fread> fault;
    fault.Answer([](void* buffer, size_t, size_t, FILE* stream) {
        stream->_flags |= 0x20;  // what ferror(3) looks at
        errno = EIO;
        memcpy(buffer, "one\ntw", 6);
        return size_t{6};
    });
    Texts lines;
    EXPECT_TRUE(CStdioFile::ReadFile(lines, path));
    EXPECT_THAT(lines, ElementsAre("one"));
    EXPECT_THAT(trace.Lines(), IsEmpty());
}

TEST(StdioFileReadFile, ReadsAFolderAsAFileWithoutLines) {
    Texts lines;
    EXPECT_TRUE(CStdioFile::ReadFile(lines, "/"));
    EXPECT_THAT(lines, IsEmpty());
}

TEST(StdioFileGetLine, CountsFromZero) {
    const TemporaryFolder folder;
    const std::string path = folder.File("f", "one\ntwo\nthree");
    const Texts expected = {"one", "two", "three"};
    for (size_t i = 0; i < expected.size(); ++i) {
        std::string line;
        EXPECT_TRUE(CStdioFile::GetLineFromFile(line, path, i));
        EXPECT_EQ(line, expected[i]);
    }
}

TEST(StdioFileGetLine, TracesALineThatIsNotThere) {
    const TemporaryFolder folder;
    const std::string path = folder.File("f", "one\ntwo\n");
    TraceCapture trace{1};
    std::string line = "former";
    EXPECT_FALSE(CStdioFile::GetLineFromFile(line, path, 2));
    EXPECT_EQ(line, "former");
    EXPECT_THAT(
        trace.Lines(),
        ElementsAre("CStdioFile::GetLineFromFile  : File has 2 lines. Requested line index: "
                    "2 does not exist (index is 0 based)."));
}

TEST(StdioFileGetLine, ReportsZeroLinesOfAnEmptyFile) {
    const TemporaryFolder folder;
    const std::string path = folder.File("f", "");
    TraceCapture trace{1};
    std::string line;
    EXPECT_FALSE(CStdioFile::GetLineFromFile(line, path, 0));
    EXPECT_THAT(
        trace.Lines(),
        ElementsAre("CStdioFile::GetLineFromFile  : File has 0 lines. Requested line index: "
                    "0 does not exist (index is 0 based)."));
}

TEST(StdioFileGetLine, TracesAFileThatCannotBeOpenedBehindTheLineOfReadFile) {
    TraceCapture trace{1};
    std::string line = "former";
    EXPECT_FALSE(CStdioFile::GetLineFromFile(line, "/nonexistent", 0));
    EXPECT_EQ(line, "former");
    EXPECT_THAT(trace.Lines(),
                ElementsAre("CStdioFile::ReadFile   : Cannot read file \"/nonexistent\"!",
                            "CStdioFile::GetLineFromFile  : Cannot read file \"/nonexistent\"!"));
}

#include "platform/private_profile.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstring>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/open_file.h"
#include "platform/victim.h"
#include "support/at_page_end.h"
#include "support/libc_fault.h"
#include "support/temporary_folder.h"
#include "support/trace_capture.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using namespace std::string_literals;

class PrivateProfile : public testing::Test {
  protected:
    /// Asks for a value with a default of "default".
    std::string Value(const char* section, const char* key) const {
        std::array<char, 64> buffer;
        const int length = GetPrivateProfileString(section, key, "default", buffer.data(),
                                                   buffer.size(), m_Path.c_str());
        EXPECT_EQ(strlen(buffer.data()), static_cast<size_t>(length));
        return buffer.data();
    }
    int Get(const char* section, const char* key, const char* defaultText,
            AtPageEnd& buffer) const {
        return GetPrivateProfileString(section, key, defaultText, buffer.data(),
                                       static_cast<uint32_t>(buffer.size()), m_Path.c_str());
    }
    int Write(const char* section, const char* key, const char* value) const {
        return WritePrivateProfileString(section, key, value, m_Path.c_str());
    }
    void File(std::string_view text) const { m_Folder.File("p.ini", text); }
    [[nodiscard]] std::string Content() const { return m_Folder.Read("p.ini"); }

    const TemporaryFolder m_Folder;
    const std::string m_Path = m_Folder.Path("p.ini");
};

using GetPrivateProfile = PrivateProfile;
using WritePrivateProfile = PrivateProfile;
using HalfAnEdit = PrivateProfile;

}  // namespace

// Reading

TEST_F(GetPrivateProfile, GivesAValueAndItsLength) {
    File("[s]\na = one two ; three\n");
    EXPECT_EQ(Value("s", "a"), "one two");
}

TEST_F(GetPrivateProfile, GivesTheDefaultForWhatIsMissing) {
    File("[s]\na=1\n");
    EXPECT_EQ(Value("s", "b"), "default");
    EXPECT_EQ(Value("t", "a"), "default");
}

// An empty value counts as none.
TEST_F(GetPrivateProfile, GivesTheDefaultForAnEmptyValue) {
    File("[s]\na=\nb= ; nothing\n");
    EXPECT_EQ(Value("s", "a"), "default");
    EXPECT_EQ(Value("s", "b"), "default");
}

TEST_F(GetPrivateProfile, GivesNothingWithoutADefault) {
    File("[s]\na=\n");
    AtPageEnd buffer{"####"};
    EXPECT_EQ(Get("s", "a", nullptr, buffer), 0);
    EXPECT_EQ(buffer.Text(), "\0###"s);
}

TEST_F(GetPrivateProfile, GivesNoDefaultForAList) {
    File("");
    AtPageEnd buffer{"####"};
    EXPECT_EQ(Get(nullptr, "a", "x", buffer), 0);
    EXPECT_EQ(Get("s", nullptr, "x", buffer), 0);
    EXPECT_EQ(buffer.Text(), "\0###"s);
}

TEST_F(GetPrivateProfile, CutsTheDefaultToTheBuffer) {
    File("");
    AtPageEnd buffer{"####"};
    EXPECT_EQ(Get("s", "a", "default", buffer), 3);
    EXPECT_EQ(buffer.Text(), "def\0"s);
    AtPageEnd one{"#"};
    EXPECT_EQ(Get("s", "a", "default", one), 0);
    EXPECT_EQ(one.Text(), "\0"s);
}

TEST_F(GetPrivateProfile, DoesNotReadForABufferOfLessThanThreeBytes) {
    File("[s]\na=1\n");
    AtPageEnd two{"##"};
    EXPECT_EQ(Get("s", "a", "d", two), 1);
    EXPECT_EQ(two.Text(), "d\0"s);
    EXPECT_EQ(Get("s", "a", nullptr, two), 0);
    AtPageEnd three{"###"};
    EXPECT_EQ(Get("s", "a", "d", three), 1);
    EXPECT_EQ(three.Text().substr(0, 2), "1\0"s);
}

TEST_F(GetPrivateProfile, TouchesNothingForABufferOfNoSize) {
    File("[s]\na=1\n");
    char byte = '#';
    EXPECT_EQ(GetPrivateProfileString("s", "a", "d", &byte, 0, m_Path.c_str()), 0);
    EXPECT_EQ(GetPrivateProfileString("s", "a", "d", &byte, 0, "/nonexistent"), 0);
    EXPECT_EQ(byte, '#');
}

TEST_F(GetPrivateProfile, IsZeroWithoutABufferOrAName) {
    File("[s]\na=1\n");
    char byte = '#';
    EXPECT_EQ(GetPrivateProfileString("s", "a", "d", nullptr, 10, m_Path.c_str()), 0);
    EXPECT_EQ(GetPrivateProfileString("s", "a", "d", &byte, 1, nullptr), 0);
    EXPECT_EQ(byte, '#');
}

TEST_F(GetPrivateProfile, ListsSectionsAndNames) {
    File("[s]\na=1\nb=2\n[t]\n");
    AtPageEnd buffer{"########"};
    EXPECT_EQ(Get(nullptr, nullptr, nullptr, buffer), 4);
    EXPECT_EQ(buffer.Text(), "s\0t\0\0###"s);
    EXPECT_EQ(Get("s", nullptr, nullptr, buffer), 4);
    EXPECT_EQ(buffer.Text(), "a\0b\0\0###"s);
}

TEST_F(GetPrivateProfile, TracesAFileThatCannotBeOpenedAndGivesTheDefault) {
    TraceCapture trace{4};
    EXPECT_EQ(Value("s", "a"), "default");
    EXPECT_THAT(trace.Lines(), ElementsAre("GetPrivateProfileString: Cannot open " + m_Path));
    trace.Clear();
    AtPageEnd buffer{"####"};
    EXPECT_EQ(Get(nullptr, nullptr, "x", buffer), 0);
    EXPECT_EQ(buffer.Text(), "\0###"s);
}

TEST_F(GetPrivateProfile, IsSilentBelowLevelFour) {
    TraceCapture trace{3};
    EXPECT_EQ(Value("s", "a"), "default");
    EXPECT_EQ(Write(nullptr, "a", "1"), 0);
    EXPECT_EQ(WritePrivateProfileString("s", "a", "1", nullptr), 0);
    EXPECT_EQ(Write("s", "a", "1"), 1);
    EXPECT_THAT(trace.Lines(), IsEmpty());
}

TEST_F(GetPrivateProfile, ReadsAFolderAsAnEmptyFile) {
    std::array<char, 64> buffer;
    EXPECT_EQ(GetPrivateProfileString("s", "a", "d", buffer.data(), 64, m_Folder.Path().c_str()),
              1);
    EXPECT_STREQ(buffer.data(), "d");
}

TEST_F(GetPrivateProfile, IsNotDisturbedBySignals) {
    File("[s]\na=1\n");
    FaultOf<&::fopen> fault;
    fault.Fail(EINTR, 2);
    EXPECT_EQ(Value("s", "a"), "1");
}

TEST_F(GetPrivateProfile, ClosesTheFileWhenItsThreadIsCancelled) {
    File("[s]\na=1\n");
    Victim victim{[this] {
        FaultOf<&::fread> fault;
        fault.Answer([](void*, size_t, size_t, FILE*) -> size_t {
            pthread_cancel(pthread_self());
            pthread_testcancel();
            return 0;
        });
        (void)Value("s", "a");
    }};
    EXPECT_TRUE(victim.EndedByCancellation());
}

// Writing

TEST_F(WritePrivateProfile, TracesAMissingSectionOrFileName) {
    TraceCapture trace{4};
    EXPECT_EQ(WritePrivateProfileString(nullptr, "a", "1", nullptr), 0);
    EXPECT_EQ(WritePrivateProfileString("s", "a", "1", nullptr), 0);
    EXPECT_THAT(trace.Lines(),
                ElementsAre("WritePrivateProfileString: ## WARNING: invalid pointer to AppName",
                            "WritePrivateProfileString: ## WARNING: invalid pointer to FileName"));
}

TEST_F(WritePrivateProfile, MakesANewFileThatAllMayRead) {
    TraceCapture trace{4};
    const mode_t former = umask(077);
    EXPECT_EQ(Write("s", "a", "1"), 1);
    umask(former);
    EXPECT_EQ(Content(), "\n[s]\n\na=1\n");
    struct stat status {};
    ASSERT_EQ(stat(m_Path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0644U);
    EXPECT_THAT(trace.Lines(), ElementsAre("WritePrivateProfileString(s, a, 1, " + m_Path + ")",
                                           "WritePrivateProfileString rc=0x0001"));
}

TEST_F(WritePrivateProfile, MakesNoFileToDeleteSomethingIn) {
    TraceCapture trace{4};
    EXPECT_EQ(Write("s", "a", nullptr), 1);
    EXPECT_EQ(Write("s", nullptr, "1"), 1);
    EXPECT_FALSE(m_Folder.Exists("p.ini"));
    EXPECT_THAT(trace.Lines(), ElementsAre("WritePrivateProfileString(s, a, <nil>, " + m_Path + ")",
                                           "WritePrivateProfileString rc=0x0001",
                                           "WritePrivateProfileString(s, <nil>, 1, " + m_Path + ")",
                                           "WritePrivateProfileString rc=0x0001"));
}

TEST_F(WritePrivateProfile, TracesAFileThatCannotBeAppendedTo) {
    TraceCapture trace{1};
    EXPECT_EQ(WritePrivateProfileString("s", "a", "1", "/nonexistent/p.ini"), 0);
    EXPECT_THAT(
        trace.Lines(),
        ElementsAre(
            "WritePrivateProfileString: ## WARNING: append open error: /nonexistent/p.ini"));
}

TEST_F(WritePrivateProfile, TracesAFileThatCannotBeOpenedASecondTime) {
    File("[s]\na=1\n");
    TraceCapture trace{4};
    FaultOf<&::fopen> fault;
    fault.PassThrough();
    fault.Fail(EMFILE);
    EXPECT_EQ(Write("s", "b", "2"), 0);
    EXPECT_EQ(Content(), "[s]\na=1\n");
    EXPECT_THAT(trace.Lines(),
                ElementsAre("WritePrivateProfileString(s, b, 2, " + m_Path + ")",
                            "WritePrivateProfileString: ## WARNING: append open error: " + m_Path,
                            "WritePrivateProfileString rc=0x0000"));
}

TEST_F(WritePrivateProfile, ReplacesInsertsAndAppends) {
    File("; top\n[s]\n; of a\na=1\n; of t\n[t]\nb=2\n");
    EXPECT_EQ(Write("t", "b", "two"), 1);
    EXPECT_EQ(Write("s", "c", "3"), 1);
    EXPECT_EQ(Write("t", "d", "4"), 1);
    EXPECT_EQ(Write("u", "e", "5"), 1);
    EXPECT_EQ(Content(), "; top\n[s]\n; of a\na=1\nc=3\n; of t\n[t]\n\nb=two\nd=4\n\n[u]\n\ne=5\n");
}

TEST_F(WritePrivateProfile, DeletesKeysAndSections) {
    File("[s]\na=1\nb=2\n[t]\nc=3\n");
    EXPECT_EQ(Write("s", "b", nullptr), 1);
    EXPECT_EQ(Content(), "[s]\na=1\n[t]\nc=3\n");
    EXPECT_EQ(Write("s", nullptr, nullptr), 1);
    EXPECT_EQ(Content(), "[t]\nc=3\n");
    EXPECT_EQ(Write("t", nullptr, nullptr), 1);
    EXPECT_EQ(Content(), "");
}

TEST_F(WritePrivateProfile, LeavesAFileThatItMayNotEditAloneIfItIsToDelete) {
    File("[s]\na=1\n");
    const char* const edits[][3] = {
        {"s", "a", nullptr}, {"s", nullptr, nullptr}, {"s", nullptr, "1"}};
    for (const auto& [section, key, value] : edits) {
        FaultOf<&::fopen> open;
        open.Fail(EACCES);
        EXPECT_EQ(Write(section, key, value), 1);
        EXPECT_EQ(open.Calls(), 1);
        EXPECT_EQ(Content(), "[s]\na=1\n");
    }
}

TEST_F(WritePrivateProfile, TakesAFileThatItMayNotEditForANewOne) {
    File("[s]\na=1\n");
    ASSERT_EQ(chmod(m_Path.c_str(), 0600), 0);
    {
        FaultOf<&::fopen> open;
        open.Fail(EACCES);
        EXPECT_EQ(Write("s", "a", "2"), 1);
        EXPECT_EQ(open.Calls(), 2);
    }
    EXPECT_EQ(Content(), "[s]\na=1\n\n[s]\n\na=2\n");
    struct stat status {};
    ASSERT_EQ(stat(m_Path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0644U);
}

TEST_F(WritePrivateProfile, IsZeroIfThereIsNothingToDelete) {
    File("[s]\na=1\n[t]\n");
    TraceCapture trace{4};
    EXPECT_EQ(Write("s", "b", nullptr), 0);
    EXPECT_EQ(Write("t", "b", nullptr), 0);
    EXPECT_EQ(Write("u", nullptr, nullptr), 0);
    EXPECT_EQ(Content(), "[s]\na=1\n[t]\n");
    EXPECT_EQ(trace.LinesWith("rc=").front(), "WritePrivateProfileString rc=0x0000");
}

TEST_F(WritePrivateProfile, LeavesTheModeOfAFileThatIsThere) {
    File("[s]\n");
    ASSERT_EQ(chmod(m_Path.c_str(), 0600), 0);
    EXPECT_EQ(Write("s", "a", "1"), 1);
    EXPECT_EQ(Write("t", "a", "1"), 1);
    struct stat status {};
    ASSERT_EQ(stat(m_Path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U);
}

TEST_F(WritePrivateProfile, IsZeroIfTheEditInTheMiddleFails) {
    File("[s]\na=1\nb=2\n");
    FaultOf<&::ftruncate> fault;
    fault.Fail(EIO);
    EXPECT_EQ(Write("s", "b", "3"), 0);
}

TEST_F(WritePrivateProfile, IsZeroAndLeavesAFileThatCannotBeReadToItsEnd) {
    const std::string before = "[s]\na=1\n;" + std::string(9000, 'c') + "\nb=2\n[t]\nc=3\n";
    const struct {
        const char* section;
        const char* key;
        const char* value;
    } edits[] = {{"s", "a", "x"},     {"s", "b", "x"},     {"s", "new", "x"},
                 {"new", "new", "x"}, {"s", "a", nullptr}, {"s", nullptr, nullptr}};
    for (const auto& [section, key, value] : edits) {
        File(before);
        const TraceCapture trace{4};
        const UniqueFile folder = OpenFile("/", "r");
        FaultOf<&::fread> read;
        read.Answer([&](void* buffer, size_t, size_t room, FILE* stream) {
            auto* const place = static_cast<char*>(buffer);
            const size_t length = LibcFault::Real<&::fread>(place, 1, 10, stream);
            dup2(fileno(folder.get()), fileno(stream));  // which cannot be read: EISDIR
            return length + LibcFault::Real<&::fread>(place + length, 1, room - length, stream);
        });
        EXPECT_EQ(Write(section, key, value), 0);
        EXPECT_EQ(trace.Lines().back(), "WritePrivateProfileString rc=0x0000");
        EXPECT_EQ(Content(), before);
    }
}

TEST_F(WritePrivateProfile, IsReadBack) {
    EXPECT_EQ(Write("s", "a", "1"), 1);
    EXPECT_EQ(Write("s", "a", "one two"), 1);
    EXPECT_EQ(Write("s", "b", "2"), 1);
    EXPECT_EQ(Value("s", "a"), "one two");
    EXPECT_EQ(Value("s", "b"), "2");
    EXPECT_EQ(Content(), "\n[s]\n\na=one two\nb=2\n");
}

TEST_F(WritePrivateProfile, WritesAFileLargerThanTheStreamsBuffer) {
    std::string rest;
    for (int i = 0; i < 20000; ++i) rest += "k" + std::to_string(i) + "=v\n";
    File("[s]\na=1\n" + rest);
    EXPECT_EQ(Write("s", "a", "longer than before"), 1);
    EXPECT_EQ(Content(), "[s]\n\na=longer than before\n" + rest);
}

TEST_F(WritePrivateProfile, IsNotCancelledInTheMiddle) {
    File("[s]\na=1\nb=2\nc=3\n");
    Victim victim{[this] {
        pthread_cancel(pthread_self());  // pending: fopen would be a cancellation point
        EXPECT_EQ(Write("s", "b", "x"), 1);
        pthread_testcancel();
    }};
    EXPECT_TRUE(victim.EndedByCancellation());
    EXPECT_EQ(Content(), "[s]\na=1\nb=x\nc=3\n");
}

// docs/formats.md shows these.

TEST_F(GetPrivateProfile, ReadsWhatTheDocumentShows) {
    File(
        "; names of one vendor\n"
        "[8086]\n"
        "  Vendor = Intel Corporation  ; a comment\n"
        "1533=I210 Gigabit [Springville]\n"
        "15338086=I210; T1\n"
        "notes\n"
        "1533=I211\n"
        "10FB=\n"
        "[8086]\n"
        "0001=x\n");
    EXPECT_EQ(Value("8086", "Vendor"), "Intel Corporation");
    EXPECT_EQ(Value("8086", "1533"), "I210 Gigabit [Springville]");
    EXPECT_EQ(Value("8086", "15338086"), "I210");
    EXPECT_EQ(Value("8086", "notes"), "default");
    EXPECT_EQ(Value("8086", "10FB"), "default");
    EXPECT_EQ(Value("8086", "0001"), "default");
}

TEST_F(WritePrivateProfile, EditsAsTheDocumentShows) {
    const std::string limits = "[limits]\n; how many\nlines=100\n";
    const std::string width = "; how long\nwidth=80\n";
    const std::string colours = "; colours\n[colours]\nerror=red\n";
    const std::string file = limits + width + colours;
    const struct {
        const char* section;
        const char* key;
        const char* value;
        std::string result;
    } edits[] = {
        {"limits", "lines", "50", "[limits]\n\nlines=50\n" + width + colours},
        {"limits", "width", "72", limits + "width=72\n" + colours},
        {"limits", "depth", "3", limits + width + "depth=3\n" + colours},
        {"colours", "warning", "blue", file + "warning=blue\n"},
        {"new", "a", "1", file + "\n[new]\n\na=1\n"},
        {"colours", "error", nullptr, limits + width + "; colours\n[colours]\n\n"},
        {"colours", nullptr, nullptr, limits + width},
    };
    for (const auto& edit : edits) {
        File(file);
        EXPECT_EQ(Write(edit.section, edit.key, edit.value), 1);
        EXPECT_EQ(Content(), edit.result);
    }
}

// What a reader sees after an edit that came only half way.

TEST_F(HalfAnEdit, KilledBeforeTheCutLeavesThePartsOfTheOldEndASecondTime) {
    File("[s]\na=a long value\nb=2\nc=3\n");
    const pid_t child = fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
        FaultOf<&::ftruncate> fault;
        fault.Always([](int, off_t) -> int { _exit(0); });
        _exit(Write("s", "a", "x"));
    }
    ASSERT_EQ(waitpid(child, nullptr, 0), child);
    EXPECT_EQ(Content(), "[s]\n\na=x\nb=2\nc=3\ne\nb=2\nc=3\n");
    EXPECT_EQ(Value("s", "a"), "x");
    EXPECT_EQ(Value("s", "b"), "2");
    EXPECT_EQ(Value("s", "c"), "3");
}

// The end of a line that is there a second time can look like an entry.
TEST_F(HalfAnEdit, KilledBeforeTheCutCanBringAPartOfALineAsAnEntry) {
    File("[s]\naa=1\nlongkey=2\n");
    const pid_t child = fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
        FaultOf<&::ftruncate> fault;
        fault.Always([](int, off_t) -> int { _exit(0); });
        _exit(Write("s", "aa", nullptr));
    }
    ASSERT_EQ(waitpid(child, nullptr, 0), child);
    EXPECT_EQ(Content(), "[s]\n\nlongkey=2\ny=2\n");
    EXPECT_EQ(Value("s", "longkey"), "2");
    EXPECT_EQ(Value("s", "y"), "2");
}

namespace {

/// Files of this process get no longer than `size` bytes: what a full disk is to a file.
class FileLimit {
  public:
    explicit FileLimit(rlim_t size) {
        m_FormerHandler = signal(SIGXFSZ, SIG_IGN);
        EXPECT_EQ(getrlimit(RLIMIT_FSIZE, &m_Former), 0);
        const rlimit limit{size, m_Former.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    }
    ~FileLimit() {
        setrlimit(RLIMIT_FSIZE, &m_Former);
        (void)signal(SIGXFSZ, m_FormerHandler);
    }
    FileLimit(const FileLimit&) = delete;
    FileLimit& operator=(const FileLimit&) = delete;

  private:
    rlimit m_Former{};
    sighandler_t m_FormerHandler;
};

}  // namespace

TEST_F(HalfAnEdit, OnAFullDiskLosesTheEndOfTheFile) {
    const std::string before = "[s]\na=1\nb=2\nc=3\n[t]\nd=4\n";
    File(before);
    {
        const FileLimit limit{before.size() + 2};
        EXPECT_EQ(Write("s", "b", "2 and more"), 0);
    }
    EXPECT_EQ(Content(), "[s]\na=1\nb=2 and more\nc=3\n[");
    EXPECT_EQ(Value("s", "a"), "1");
    EXPECT_EQ(Value("s", "b"), "2 and more");
    EXPECT_EQ(Value("s", "c"), "3");
    EXPECT_EQ(Value("t", "d"), "default");
}

// Callers are told of an append when the file could be opened for it.
TEST_F(HalfAnEdit, OfAnAppendOnAFullDiskIsTrueAndCut) {
    File("[s]\na=1\n");
    {
        const FileLimit limit{8 + 3};
        EXPECT_EQ(Write("s", "b", "234"), 1);
    }
    EXPECT_EQ(Content(), "[s]\na=1\nb=2");
    EXPECT_EQ(Value("s", "b"), "2");
}

#include "platform/profile_edit.h"

#include <fcntl.h>

#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "platform/slow_profile.h"
#include "support/every_prefix.h"
#include "support/libc_fault.h"
#include "support/temporary_folder.h"
#include "trace/unique_file.h"

namespace {

using Kind = ProfileEdit::Kind;

std::string Edited(std::string_view text, const char* section, const char* key, const char* value) {
    return ApplyProfileEdit(PlanProfileEdit(text, section, key, value), std::string{text}, section,
                            key, value);
}

/// A file of its own for each test, open for an edit.
class SpliceFileTest : public testing::Test {
  protected:
    [[nodiscard]] bool Splice(long from, long to, const char* key, const char* value,
                              bool addEmptyLine) {
        return SpliceFile(m_Stream.get(), from, to, key, value, addEmptyLine);
    }
    std::string Content() {
        m_Stream.reset();
        return m_Folder.Read("f");
    }

  private:
    TemporaryFolder m_Folder;
    UniqueFile m_Stream{fopen(m_Folder.File("f", "0123456789").c_str(), "r+e")};
};

}  // namespace

// Where an edit goes

TEST(ProfileEdit, ReplacesAnEntryInItsPlace) {
    EXPECT_EQ(Edited("[s]\na=1\nb=2\nc=3\n", "s", "b", "x"), "[s]\na=1\nb=x\nc=3\n");
    EXPECT_EQ(Edited("[s]\na=1\n b = 2 ; c\n", "s", "b", "x"), "[s]\na=1\nb=x\n");
    EXPECT_EQ(Edited("[s]\na=1\nb=2", "s", "b", "x"), "[s]\na=1\nb=x\n");
}

TEST(ProfileEdit, OfTheFirstEntryOfASectionLeavesAnEmptyLineBelowTheHead) {
    EXPECT_EQ(Edited("[s]\n\na=1\nb=2\n", "s", "a", "x"), "[s]\n\na=x\nb=2\n");
    EXPECT_EQ(Edited("[s]\na=1\nb=2\n", "s", "a", "x"), "[s]\n\na=x\nb=2\n");
    EXPECT_EQ(Edited("[s]\n\na=1\nb=2\n", "s", "a", nullptr), "[s]\n\nb=2\n");
}

TEST(ProfileEdit, CountsALineWithoutAnEqualSignAsTheFirstEntry) {
    EXPECT_EQ(Edited("[s]\nnothing\na=1\n", "s", "a", "x"), "[s]\nnothing\na=x\n");
}

TEST(ProfileEdit, KeepsTheCommentsAboveTheNextEntryAndDropsThoseAboveTheChangedOne) {
    EXPECT_EQ(Edited("[s]\na=1\n; of b\n\nb=2\n; of c\nc=3\n", "s", "b", "x"),
              "[s]\na=1\nb=x\n; of c\nc=3\n");
}

TEST(ProfileEdit, PutsANewEntryAtTheEndOfItsSectionAboveTheCommentsOfTheNextHead) {
    EXPECT_EQ(Edited("[s]\na=1\n\n; of t\n[t]\nb=2\n", "s", "c", "x"),
              "[s]\na=1\nc=x\n\n; of t\n[t]\nb=2\n");
    EXPECT_EQ(Edited("[s]\n[t]\n", "s", "c", "x"), "[s]\nc=x\n[t]\n");
}

TEST(ProfileEdit, AppendsANewEntryOfTheLastSection) {
    EXPECT_EQ(Edited("[s]\na=1\n; end\n", "s", "c", "x"), "[s]\na=1\n; end\nc=x\n");
}

// What stands there already is not looked at.
TEST(ProfileEdit, AppendsToALastLineThatIsNotEnded) {
    EXPECT_EQ(Edited("[s]\na=1", "s", "c", "x"), "[s]\na=1c=x\n");
}

TEST(ProfileEdit, AppendsANewSectionBehindAnEmptyLine) {
    EXPECT_EQ(Edited("[s]\na=1\n", "t", "c", "x"), "[s]\na=1\n\n[t]\n\nc=x\n");
    EXPECT_EQ(Edited("[s]\na=1", "t", "c", "x"), "[s]\na=1\n[t]\n\nc=x\n");
    EXPECT_EQ(Edited("", "t", "c", "x"), "\n[t]\n\nc=x\n");
}

TEST(ProfileEdit, DeletesAKeyWithTheCommentsAboveIt) {
    EXPECT_EQ(Edited("[s]\na=1\n; of b\nb=2\nc=3\n", "s", "b", nullptr), "[s]\na=1\nc=3\n");
}

TEST(ProfileEdit, LeavesTheHeadWhenTheLastKeyOfTheLastSectionIsDeleted) {
    EXPECT_EQ(Edited("[s]\na=1\n[t]\nb=2\n", "t", "b", nullptr), "[s]\na=1\n[t]\n\n");
    EXPECT_EQ(Edited("[t]\nb=2", "t", "b", nullptr), "[t]\n\n");
}

TEST(ProfileEdit, DeletesASectionWithTheCommentsAboveItsHeadAndThoseInIt) {
    EXPECT_EQ(Edited("[r]\nz=0\n; of s\n[s]\na=1\n; more\nb=2\n; of t\n[t]\nc=3\n", "s", nullptr,
                     nullptr),
              "[r]\nz=0\n; of t\n[t]\nc=3\n");
    EXPECT_EQ(Edited("[s]\na=1\n", "s", nullptr, "ignored"), "");
}

TEST(ProfileEdit, DeletesTheLastSectionUpToTheEnd) {
    EXPECT_EQ(Edited("[r]\nz=0\n; of s\n[s]\na=1\n; end\n", "s", nullptr, nullptr), "[r]\nz=0\n");
}

TEST(ProfileEdit, IsNothingIfThereIsNothingToDelete) {
    const ProfileEdit nothing{};
    EXPECT_EQ(PlanProfileEdit("[s]\na=1\n", "s", "b", nullptr), nothing);
    EXPECT_EQ(PlanProfileEdit("[s]\na=1\n[t]\n", "s", "b", nullptr), nothing);
    EXPECT_EQ(PlanProfileEdit("[s]\na=1\n", "t", "a", nullptr), nothing);
    EXPECT_EQ(PlanProfileEdit("[s]\na=1\n", "t", nullptr, nullptr), nothing);
    EXPECT_EQ(PlanProfileEdit("", "t", nullptr, "x"), nothing);
}

TEST(ProfileEdit, TakesTheFirstOfTwoSectionsOrEntriesWithTheSameName) {
    EXPECT_EQ(Edited("[s]\na=1\na=2\n[s]\nb=3\n", "s", "a", "x"), "[s]\n\na=x\na=2\n[s]\nb=3\n");
    EXPECT_EQ(Edited("[s]\na=1\n[s]\nb=3\n", "s", "b", "x"), "[s]\na=1\nb=x\n[s]\nb=3\n");
    EXPECT_EQ(Edited("[s]\na=1\n[s]\nb=3\n", "s", nullptr, nullptr), "[s]\nb=3\n");
}

TEST(ProfileEdit, DoesNotTakeASectionWhoseNameOnlyBeginsLikeThat) {
    EXPECT_EQ(Edited("[Name]\na=1\n", "Nam", "a", "x"), "[Name]\na=1\n\n[Nam]\n\na=x\n");
}

TEST(ProfileEdit, NeverLooksBehindTheText) {
    EveryPrefix("; c\n[s]\n a = 1\n;\nb=2\n[t]\n[u\nc", [](std::string_view text) {
        for (const char* section : {"s", "t", "u"}) {
            for (const char* key : {static_cast<const char*>(nullptr), "a", "c"}) {
                (void)PlanProfileEdit(text, section, key, "x");
                (void)PlanProfileEdit(text, section, key, nullptr);
            }
        }
    });
}

TEST(ProfileEdit, GoesWhereTheLineByLineWriterPutsIt) {
    std::mt19937 random{20240416};
    const std::vector<std::string> pieces = {"[a]",
                                             "[b]\n",
                                             "[ab]\n",
                                             "a=1\n",
                                             "b=2",
                                             "\n",
                                             "\n",
                                             ";c\n",
                                             ";",
                                             " ",
                                             "\t",
                                             "[",
                                             "]",
                                             "=",
                                             "a",
                                             std::string(1, '\0'),
                                             std::string(1022, 'x'),
                                             std::string(1023, ' ')};
    const std::vector<const char*> names = {nullptr, "a", "b", "ab", ""};
    for (int i = 0; i < 5000; ++i) {
        std::string text;
        for (size_t count = random() % 30; count > 0; --count) {
            text += pieces[random() % pieces.size()];
        }
        const char* section = names[1 + random() % 4];
        const char* key = names[random() % names.size()];
        const char* value = names[random() % names.size()];
        std::string expected = text;
        const int result = SlowWriteProfile(expected, section, key, value);
        const ProfileEdit edit = PlanProfileEdit(text, section, key, value);
        ASSERT_EQ(edit.kind != Kind::kNothing, result != 0) << text;
        ASSERT_EQ(ApplyProfileEdit(edit, text, section, key, value), expected) << text;
    }
}

// The splice

TEST_F(SpliceFileTest, ReplacesAPiece) {
    EXPECT_TRUE(Splice(2, 5, "k", "v", false));
    EXPECT_EQ(Content(), "01k=v\n56789");
}

TEST_F(SpliceFileTest, InsertsAndAppends) {
    EXPECT_TRUE(Splice(2, 2, "k", "v", true));
    EXPECT_EQ(Content(), "01\nk=v\n23456789");
}

TEST_F(SpliceFileTest, CutsAPieceOutAndShortensTheFile) {
    EXPECT_TRUE(Splice(2, 5, nullptr, nullptr, false));
    EXPECT_EQ(Content(), "0156789");
}

TEST_F(SpliceFileTest, CutsTheEndOff) {
    EXPECT_TRUE(Splice(4, 10, "k", nullptr, true));
    EXPECT_EQ(Content(), "0123\n");
}

TEST_F(SpliceFileTest, LeavesTheFileIfItsSizeCannotBeHad) {
    FaultOf<&::fstat> fault;
    fault.Fail(EIO);
    EXPECT_FALSE(Splice(2, 5, "k", "v", false));
    EXPECT_EQ(Content(), "0123456789");
}

TEST_F(SpliceFileTest, LeavesTheFileWithoutMemory) {
    if (!LibcFault::kHeapFaults) GTEST_SKIP() << LibcFault::kNoHeapFaults;
    {
        FaultOf<&::calloc> fault;
        fault.Fail(ENOMEM);
        EXPECT_FALSE(Splice(2, 5, "k", "v", false));
    }
    EXPECT_EQ(Content(), "0123456789");
}

TEST_F(SpliceFileTest, LeavesTheFileIfItCannotGoToTheRest) {
    FaultOf<&::fseek> fault;
    fault.Fail(EIO);
    EXPECT_FALSE(Splice(2, 5, "k", "v", false));
    EXPECT_EQ(Content(), "0123456789");
}

TEST_F(SpliceFileTest, LeavesTheFileIfTheRestComesShort) {
    FaultOf<&::fread> fault;
    fault.Return(size_t{4});
    EXPECT_FALSE(Splice(2, 5, "k", "v", false));
    EXPECT_EQ(Content(), "0123456789");
}

TEST_F(SpliceFileTest, LeavesTheFileIfItCannotGoToThePlace) {
    FaultOf<&::fseek> fault;
    fault.PassThrough();
    fault.Fail(EIO);
    EXPECT_FALSE(Splice(2, 5, "k", "v", false));
    EXPECT_EQ(Content(), "0123456789");
}

TEST_F(SpliceFileTest, DoesNotCutTheFileIfWritingFails) {
    FaultOf<&::ftruncate> truncate;
    FaultOf<&::fflush> flush;
    flush.Fail(ENOSPC);
    EXPECT_FALSE(Splice(2, 5, nullptr, nullptr, false));
    EXPECT_EQ(truncate.Calls(), 0);
}

TEST_F(SpliceFileTest, LeavesTheOldEndASecondTimeIfItCannotBeCutOff) {
    FaultOf<&::ftruncate> fault;
    fault.Fail(EIO);
    EXPECT_FALSE(Splice(2, 5, nullptr, nullptr, false));
    EXPECT_EQ(Content(), "0156789789");
}

#include "platform/profile_file.h"

#include <cstddef>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/libc_fault.h"
#include "support/temporary_folder.h"
#include "support/trace_capture.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// The fields as they stand in memory.
struct FieldImage {
    const char* fileName;
    const char* valueBuffer;
    const char* listBuffer;
    const char* listCursor;
    uint32_t valueBufferSize;
    uint32_t listBufferSize;
    uint8_t isOpen;
};
static_assert(sizeof(CProfileFile) == sizeof(FieldImage));

FieldImage FieldsAt(const CProfileFile& profile) {
    FieldImage image;
    memcpy(&image, static_cast<const void*>(&profile), sizeof image);
    return image;
}

/// A section [s] with names of 8 bytes (9 in a list), so many of them.
std::string ManyNames(int count) {
    std::string text = "[s]\n";
    for (int i = 0; i < count; ++i) text += std::to_string(10'000'000 + i) + "=x\n";
    return text;
}

class ProfileFile : public testing::Test {
  protected:
    ProfileFile() { EXPECT_TRUE(m_Profile.SetFileName(m_Path.c_str(), false)); }

    void File(std::string_view text) const { m_Folder.File("p.ini", text); }
    [[nodiscard]] std::string Content() const { return m_Folder.Read("p.ini"); }

    const TemporaryFolder m_Folder;
    const std::string m_Path = m_Folder.Path("p.ini");
    CProfileFile m_Profile;
};

}  // namespace

// Names

TEST(CProfileFile, BeginsWithNothing) {
    const CProfileFile profile;
    const FieldImage fields = FieldsAt(profile);
    EXPECT_EQ(fields.fileName, nullptr);
    EXPECT_EQ(fields.valueBuffer, nullptr);
    EXPECT_EQ(fields.listBuffer, nullptr);
    EXPECT_EQ(fields.listCursor, nullptr);
    EXPECT_EQ(fields.valueBufferSize, 0U);
    EXPECT_EQ(fields.listBufferSize, 0U);
    EXPECT_EQ(fields.isOpen, 0);
    EXPECT_FALSE(profile.IsOpen());
    EXPECT_STREQ(profile.GetFileName(), "");
    EXPECT_FALSE(std::is_copy_constructible_v<CProfileFile>);
}

TEST_F(ProfileFile, TakesANameOfAFileThatNeedNotBeThere) {
    EXPECT_TRUE(m_Profile.IsOpen());
    EXPECT_STREQ(m_Profile.GetFileName(), m_Path.c_str());
    EXPECT_FALSE(m_Folder.Exists("p.ini"));
}

TEST_F(ProfileFile, IsNotOpenWithoutAFileThatMustExist) {
    EXPECT_FALSE(m_Profile.SetFileName(m_Path.c_str(), true));
    EXPECT_FALSE(m_Profile.IsOpen());
    EXPECT_STREQ(m_Profile.GetFileName(), m_Path.c_str());
    File("");
    EXPECT_TRUE(m_Profile.Open(true));
    EXPECT_TRUE(m_Profile.IsOpen());
}

TEST_F(ProfileFile, WithoutANameIsNotOpen) {
    EXPECT_FALSE(m_Profile.SetFileName(nullptr, false));
    EXPECT_FALSE(m_Profile.IsOpen());
    EXPECT_STREQ(m_Profile.GetFileName(), "");
    EXPECT_FALSE(m_Profile.Open(false));
    EXPECT_FALSE(m_Profile.Open(true));
}

TEST_F(ProfileFile, WithoutMemoryForTheNameIsNotOpen) {
    if (!LibcFault::kHeapFaults) GTEST_SKIP() << LibcFault::kNoHeapFaults;
    FaultOf<&::strdup> fault;
    fault.Fail(ENOMEM);
    EXPECT_FALSE(m_Profile.SetFileName("/x", false));
    EXPECT_FALSE(m_Profile.IsOpen());
}

TEST_F(ProfileFile, TakesItsOwnNameAgain) {
    EXPECT_TRUE(m_Profile.SetFileName(m_Profile.GetFileName(), false));
    EXPECT_STREQ(m_Profile.GetFileName(), m_Path.c_str());
}

TEST_F(ProfileFile, ClosesAndOpensWithoutTouchingTheFile) {
    FaultOf<&::fopen> open;
    m_Profile.Close();
    EXPECT_FALSE(m_Profile.IsOpen());
    EXPECT_TRUE(m_Profile.Open(false));
    EXPECT_TRUE(m_Profile.IsOpen());
    EXPECT_EQ(open.Calls(), 0);
}

// Numbers

TEST_F(ProfileFile, ReadsNumbersWithTheirPrefix) {
    File("[s]\na=0x10\nb=010\nc=12\nd=-1\ne=none\nf=4294967295\ng=7 dwarfs\n");
    EXPECT_EQ(m_Profile.GetInt("s", "a", 5), 16);
    EXPECT_EQ(m_Profile.GetInt("s", "b", 5), 8);
    EXPECT_EQ(m_Profile.GetInt("s", "c", 5), 12);
    EXPECT_EQ(m_Profile.GetInt("s", "d", 5), -1);
    EXPECT_EQ(m_Profile.GetInt("s", "e", 5), 0);
    EXPECT_EQ(m_Profile.GetInt("s", "f", 5), -1);
    EXPECT_EQ(m_Profile.GetInt("s", "g", 5), 7);
}

TEST_F(ProfileFile, ReadsThirtyOneBytesOfANumber) {
    File("[s]\na=" + std::string(30, '0') + "17\n");
    EXPECT_EQ(m_Profile.GetInt("s", "a", 5), 1);
}

TEST_F(ProfileFile, GivesTheDefaultForANumberThatIsNotThere) {
    File("[s]\na=\n");
    EXPECT_EQ(m_Profile.GetInt("s", "a", 5), 5);
    EXPECT_EQ(m_Profile.GetInt("s", "b", 5), 5);
    EXPECT_EQ(m_Profile.GetInt(nullptr, "a", 5), 5);
    EXPECT_EQ(m_Profile.GetInt("s", nullptr, 5), 5);
    File("[s]\na=1\n");
    m_Profile.Close();
    EXPECT_EQ(m_Profile.GetInt("s", "a", 5), 5);
}

// Texts

TEST_F(ProfileFile, ReadsTexts) {
    File("[s]\na=one\n");
    std::string out = "former";
    EXPECT_TRUE(m_Profile.GetString(out, "s", "a", "default"));
    EXPECT_EQ(out, "one");
    EXPECT_TRUE(m_Profile.GetString(out, "s", "b", "default"));
    EXPECT_EQ(out, "default");
    EXPECT_TRUE(m_Profile.GetString(out, "s", "b", nullptr));
    EXPECT_EQ(out, "");
    EXPECT_STREQ(m_Profile.GetValue("s", "a", "default"), "one");
    EXPECT_STREQ(m_Profile.GetValue("s", "b", "default"), "default");
    EXPECT_STREQ(m_Profile.GetValue("s", "b", nullptr), "");
}

TEST_F(ProfileFile, GivesTheDefaultItselfIfNotOpen) {
    File("[s]\na=one\n");
    m_Profile.Close();
    const char* const fallback = "default";
    std::string out = "former";
    EXPECT_FALSE(m_Profile.GetString(out, "s", "a", fallback));
    EXPECT_EQ(out, "default");
    EXPECT_FALSE(m_Profile.GetString(out, "s", "a", nullptr));
    EXPECT_EQ(out, "");
    EXPECT_EQ(m_Profile.GetValue("s", "a", fallback), fallback);
    EXPECT_EQ(m_Profile.GetValue("s", "a", nullptr), nullptr);
}

TEST_F(ProfileFile, ReadsAListAsAText) {
    File("[s]\na=1\nb=2\n");
    std::string out;
    EXPECT_TRUE(m_Profile.GetString(out, "s", nullptr, nullptr));
    EXPECT_EQ(out, std::string("a\0b\0", 4));
}

TEST_F(ProfileFile, ReadsAgainWithOneStepMoreIfATextMayHaveBeenCut) {
    for (const size_t length : {1020, 1021}) {
        const std::string value(length,
                                'v');  // the longest of a line of 1023 bytes with "a=" is 1021
        File("[s]\na=" + value);
        FaultOf<&::fopen> open;
        std::string out;
        EXPECT_TRUE(m_Profile.GetString(out, "s", "a", nullptr));
        EXPECT_EQ(out, value);
        EXPECT_EQ(open.Calls(), 1) << length;
    }
    for (const size_t length : {1022, 1023, 1024}) {
        FaultOf<&::fopen> open;
        const std::string fallback(length, 'd');
        std::string out;
        EXPECT_TRUE(m_Profile.GetString(out, "s", "b", fallback.c_str()));
        EXPECT_EQ(out, fallback);
        EXPECT_EQ(open.Calls(), 2) << length;
        CProfileFile other;
        ASSERT_TRUE(other.SetFileName(m_Path.c_str(), false));
        EXPECT_STREQ(other.GetValue("s", "b", fallback.c_str()), fallback.c_str());
        EXPECT_EQ(FieldsAt(other).valueBufferSize, 2048U);
        EXPECT_EQ(open.Calls(), 4) << length;
    }
}

TEST_F(ProfileFile, KeepsTheBufferOfTheLastValue) {
    File("[s]\na=one\n");
    (void)m_Profile.GetValue("s", "b", std::string(2000, 'd').c_str());
    const FieldImage before = FieldsAt(m_Profile);
    EXPECT_STREQ(m_Profile.GetValue("s", "a", ""), "one");
    EXPECT_EQ(FieldsAt(m_Profile).valueBuffer, before.valueBuffer);
    EXPECT_EQ(FieldsAt(m_Profile).valueBufferSize, 2048U);
}

TEST_F(ProfileFile, GivesUpAValueThatNeedsMoreThan65535Bytes) {
    File("");
    const std::string fits(64 * 1024 - 1024 - 3, 'd');
    EXPECT_STREQ(m_Profile.GetValue("s", "b", fits.c_str()), fits.c_str());
    EXPECT_EQ(FieldsAt(m_Profile).valueBufferSize, 64512U);
    const std::string tooLong = fits + "d";
    EXPECT_EQ(m_Profile.GetValue("s", "b", tooLong.c_str()), tooLong.c_str());
    EXPECT_EQ(FieldsAt(m_Profile).valueBuffer, nullptr);
    EXPECT_EQ(FieldsAt(m_Profile).valueBufferSize, 0U);
    EXPECT_STREQ(m_Profile.GetValue("s", "b", "x"), "x");
}

TEST_F(ProfileFile, GivesUpAStringThatNeedsMoreThan65536Bytes) {
    File("");
    const std::string fits(65536 - 3, 'd');
    std::string out;
    EXPECT_TRUE(m_Profile.GetString(out, "s", "b", fits.c_str()));
    EXPECT_EQ(out, fits);
    const std::string tooLong = fits + "d";
    EXPECT_FALSE(m_Profile.GetString(out, "s", "b", tooLong.c_str()));
    EXPECT_EQ(out, tooLong);
}

TEST_F(ProfileFile, GivesTheDefaultWithoutMemoryToGrow) {
    if (!LibcFault::kHeapFaults) GTEST_SKIP() << LibcFault::kNoHeapFaults;
    File(ManyNames(200));
    const std::string fallback(2000, 'd');
    FaultOf<&::realloc> fault;
    fault.Only([](void* memory, size_t) { return memory != nullptr; });
    fault.Fail(ENOMEM, 3);
    EXPECT_EQ(m_Profile.GetValue("s", "a", fallback.c_str()), fallback.c_str());
    EXPECT_EQ(FieldsAt(m_Profile).valueBuffer, nullptr);
    EXPECT_STREQ(m_Profile.GetKeyList("s"), "");
    EXPECT_EQ(FieldsAt(m_Profile).listBuffer, nullptr);
    std::string out;
    EXPECT_FALSE(m_Profile.GetString(out, "s", "a", fallback.c_str()));
    EXPECT_EQ(out, fallback);
    EXPECT_STREQ(m_Profile.GetValue("s", "10000000", "default"), "x");
    EXPECT_STREQ(m_Profile.GetKeyList("s"), "10000000");
}

// Lists

TEST_F(ProfileFile, WalksOverTheNamesOfASection) {
    File("[s]\na=1\nbc=2\n[t]\nd=3\n");
    EXPECT_STREQ(m_Profile.GetKeyList("s"), "a");
    EXPECT_STREQ(m_Profile.NextKey(), "bc");
    EXPECT_STREQ(m_Profile.NextKey(), "");
    EXPECT_STREQ(m_Profile.NextKey(), "");
    EXPECT_STREQ(m_Profile.GetKeyList(nullptr), "s");
    EXPECT_STREQ(m_Profile.NextKey(), "t");
    EXPECT_STREQ(m_Profile.NextKey(), "");
}

TEST_F(ProfileFile, HasNothingToWalkOverBeforeAListAndForAnEmptyOne) {
    EXPECT_STREQ(m_Profile.NextKey(), "");
    File("[s]\n");
    EXPECT_STREQ(m_Profile.GetKeyList("s"), "");
    EXPECT_STREQ(m_Profile.NextKey(), "");
    EXPECT_STREQ(m_Profile.GetKeyList("t"), "");
    EXPECT_STREQ(m_Profile.NextKey(), "");
}

TEST_F(ProfileFile, EndsTheWalkIfNotOpen) {
    File("[s]\na=1\nb=2\n");
    EXPECT_STREQ(m_Profile.GetKeyList("s"), "a");
    m_Profile.Close();
    EXPECT_STREQ(m_Profile.GetKeyList("s"), "");
    EXPECT_STREQ(m_Profile.NextKey(), "");
}

TEST_F(ProfileFile, ReadsALongListByGrowing) {
    File(ManyNames(5000));
    std::vector<std::string> keys;
    EXPECT_TRUE(m_Profile.GetKeys(keys, "s"));
    ASSERT_EQ(keys.size(), 5000U);
    EXPECT_EQ(keys.front(), "10000000");
    EXPECT_EQ(keys.back(), "10004999");
}

TEST_F(ProfileFile, GivesUpAListThatNeedsMoreThan65535Bytes) {
    File(ManyNames(7167));  // 64503 bytes
    EXPECT_STREQ(m_Profile.GetKeyList("s"), "10000000");
    EXPECT_EQ(FieldsAt(m_Profile).listBufferSize, 64512U);
    File(ManyNames(7168));  // 64512 bytes
    EXPECT_STREQ(m_Profile.GetKeyList("s"), "");
    EXPECT_STREQ(m_Profile.NextKey(), "");
    EXPECT_EQ(FieldsAt(m_Profile).listBuffer, nullptr);
    EXPECT_EQ(FieldsAt(m_Profile).listBufferSize, 0U);
    std::vector<std::string> keys;
    EXPECT_FALSE(m_Profile.GetKeys(keys, "s"));
    EXPECT_THAT(keys, IsEmpty());
}

TEST_F(ProfileFile, AppendsSectionsAndKeys) {
    File("[s]\na=1\nb=2\n[t]\n");
    std::vector<std::string> names = {"former"};
    EXPECT_TRUE(m_Profile.GetSections(names));
    EXPECT_TRUE(m_Profile.GetKeys(names, "s"));
    EXPECT_THAT(names, ElementsAre("former", "s", "t", "a", "b"));
}

TEST_F(ProfileFile, IsFalseForListsWithNothing) {
    std::vector<std::string> names;
    EXPECT_FALSE(m_Profile.GetSections(names));
    File("[s]\n");
    EXPECT_FALSE(m_Profile.GetKeys(names, "s"));
    EXPECT_FALSE(m_Profile.GetKeys(names, nullptr));
    m_Profile.Close();
    EXPECT_FALSE(m_Profile.GetSections(names));
    EXPECT_THAT(names, IsEmpty());
}

// Edits

TEST_F(ProfileFile, WritesTextsAndNumbers) {
    EXPECT_TRUE(m_Profile.WriteString("s", "a", "one"));
    EXPECT_TRUE(m_Profile.WriteUInt("s", "b", 4294967295U));
    EXPECT_TRUE(m_Profile.WriteInt("s", "c", -2147483647 - 1));
    EXPECT_EQ(Content(), "\n[s]\n\na=one\nb=4294967295\nc=-2147483648\n");
    EXPECT_EQ(m_Profile.GetInt("s", "c", 0), -2147483647 - 1);
}

TEST_F(ProfileFile, WritesNoNumberWithoutASectionOrKey) {
    File("[s]\na=1\n");
    TraceCapture trace{4};
    EXPECT_FALSE(m_Profile.WriteUInt(nullptr, "a", 2));
    EXPECT_FALSE(m_Profile.WriteUInt("s", nullptr, 2));
    EXPECT_FALSE(m_Profile.WriteInt(nullptr, "a", 2));
    EXPECT_FALSE(m_Profile.WriteInt("s", nullptr, 2));
    EXPECT_EQ(Content(), "[s]\na=1\n");
    EXPECT_THAT(trace.Lines(), IsEmpty());
}

TEST_F(ProfileFile, DeletesKeysAndSections) {
    File("[s]\na=1\nb=2\n[t]\nc=3\n");
    EXPECT_TRUE(m_Profile.DeleteKey("s", "b"));
    EXPECT_FALSE(m_Profile.DeleteKey("s", "b"));
    EXPECT_EQ(Content(), "[s]\na=1\n[t]\nc=3\n");
    EXPECT_TRUE(m_Profile.DeleteSection("s"));
    EXPECT_FALSE(m_Profile.DeleteSection("s"));
    EXPECT_EQ(Content(), "[t]\nc=3\n");
}

TEST_F(ProfileFile, WritesAlsoIfNotOpen) {
    m_Profile.Close();
    EXPECT_TRUE(m_Profile.WriteString("s", "a", "1"));
    EXPECT_EQ(Content(), "\n[s]\n\na=1\n");
    EXPECT_TRUE(m_Profile.WriteUInt("s", "b", 4294967295));
    EXPECT_TRUE(m_Profile.WriteInt("s", "c", -1));
    EXPECT_EQ(Content(), "\n[s]\n\na=1\nb=4294967295\nc=-1\n");
    EXPECT_TRUE(m_Profile.DeleteKey("s", "b"));
    EXPECT_EQ(Content(), "\n[s]\n\na=1\nc=-1\n");
    EXPECT_TRUE(m_Profile.DeleteSection("s"));
    EXPECT_EQ(Content(), "");
    EXPECT_FALSE(m_Profile.IsOpen());
}

TEST_F(ProfileFile, WithoutANameWritesNothing) {
    EXPECT_FALSE(m_Profile.SetFileName(nullptr, false));
    TraceCapture trace{4};
    EXPECT_FALSE(m_Profile.WriteString("s", "a", "1"));
    EXPECT_THAT(trace.Lines(),
                ElementsAre("WritePrivateProfileString: ## WARNING: invalid pointer to FileName"));
}

TEST_F(ProfileFile, CopiesASectionEntryByEntry) {
    File("[s]\na=1 ; one\nb=\nc=3\n[t]\nc=4\nd=5\n");
    EXPECT_TRUE(m_Profile.CopySection("s", "t"));
    EXPECT_EQ(Content(), "[s]\na=1 ; one\nb=\nc=3\n[t]\n\nc=3\nd=5\na=1\nb=\n");
}

TEST_F(ProfileFile, CopiesASectionIntoANewOne) {
    File("[s]\na=1 ; one\nb=2");
    EXPECT_TRUE(m_Profile.CopySection("s", "t"));
    EXPECT_EQ(Content(), "[s]\na=1 ; one\nb=2\n[t]\n\na=1\nb=2\n");
}

TEST_F(ProfileFile, CopiesNothingWithoutASourceAndIsFalseOnlyIfNotOpen) {
    File("[s]\na=1\n");
    EXPECT_TRUE(m_Profile.CopySection("u", "t"));
    EXPECT_TRUE(m_Profile.CopySection(nullptr, "t"));
    EXPECT_TRUE(m_Profile.CopySection("s", nullptr));
    EXPECT_EQ(Content(), "[s]\na=1\n");
    m_Profile.Close();
    EXPECT_FALSE(m_Profile.CopySection("s", "t"));
}

#include "support/golden.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/failures.h"

using testing::HasSubstr;

namespace {

/// A golden file outside of the source tree, which goes with the test.
class Golden : public testing::Test {
  protected:
    void TearDown() override {
        unsetenv("ZORN_UPDATE_GOLDEN");
        std::filesystem::remove_all(m_Folder);
    }

    [[nodiscard]] std::string Text() const {
        std::ifstream in{m_Path};
        return {std::istreambuf_iterator<char>{in}, {}};
    }

    const std::filesystem::path m_Folder =
        testing::TempDir() + "zorn-golden-" + std::to_string(getpid());
    const std::string m_Path = m_Folder / "sub" / "file.txt";
};

}  // namespace

TEST_F(Golden, IsWrittenByAnUpdateAndThenCompared) {
    setenv("ZORN_UPDATE_GOLDEN", "1", 1);
    EXPECT_TRUE(UpdatesGoldens());
    ExpectGolden(m_Path, "one\ntwo\n");
    EXPECT_EQ(Text(), "one\ntwo\n");
    unsetenv("ZORN_UPDATE_GOLDEN");
    ExpectGolden(m_Path, "one\ntwo\n");
}

TEST_F(Golden, ShowsADifferenceAtTheCallAndHowToTakeItOver) {
    setenv("ZORN_UPDATE_GOLDEN", "1", 1);
    ExpectGolden(m_Path, "one\ntwo\nthree\n");
    setenv("ZORN_UPDATE_GOLDEN", "0", 1);
    const auto failures = FailuresOf([this] {
        ExpectGolden(m_Path, "one\n2\nthree\n", Where{"caller.cpp", 3});
    });
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_EQ(failures[0].file, "caller.cpp");
    EXPECT_THAT(failures[0].text, HasSubstr(m_Path));
    EXPECT_THAT(failures[0].text, HasSubstr("-two\n+2\n"));
    EXPECT_THAT(failures[0].text, HasSubstr("--update"));
    EXPECT_EQ(Text(), "one\ntwo\nthree\n");
}

TEST_F(Golden, FailsWhenTheFileIsMissing) {
    const auto failures = FailuresOf([this] { ExpectGolden(m_Path, "text"); });
    EXPECT_EQ(failures.size(), 1u);
}

TEST_F(Golden, FailsWhenTheFileCannotBeWritten) {
    setenv("ZORN_UPDATE_GOLDEN", "1", 1);
    const auto failures = FailuresOf([] { ExpectGolden("/proc/no-such-folder/x", "text"); });
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_THAT(failures[0].text, HasSubstr("cannot write"));
}

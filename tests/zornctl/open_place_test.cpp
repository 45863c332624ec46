// Places on the way to a file at which others than root decide.

#include "zornctl/system/open_place.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "support/fake_host.h"

using zornctl::FindOpenPlace;

namespace {

TEST(FindOpenPlace, FindsNothingWhereAllIsRoots) {
    FakeHost host;
    host.File("/a/b/file", "");
    host.Link("/a/link", "b/../b/./file");
    host.Link("/a/whole", "/a/link");
    host.Run([] {
        for (const char* path :
             {"/", "/a", "/a/b", "/a/b/", "/a/b/file", "//a/./b/../link", "/a/whole"}) {
            EXPECT_EQ(FindOpenPlace(path), std::nullopt) << path;
        }
    });
}

TEST(FindOpenPlace, FindsWhatGroupOrOthersMayWrite) {
    FakeHost host;
    host.File("/a/b/file", "", 0664);
    host.File("/open/b/file", "");
    host.Directory("/open", 0757);
    host.Link("/a/link", "/open/b/file");
    host.Link("/a/chain", "b/../link");
    host.Link("/open/back", "../a/b");
    host.Run([] {
        EXPECT_EQ(FindOpenPlace("/a/b/file"), "/a/b/file");
        EXPECT_EQ(FindOpenPlace("/open"), "/open");
        EXPECT_EQ(FindOpenPlace("/open/b/file"), "/open");
        EXPECT_EQ(FindOpenPlace("/a/link"), "/open");
        EXPECT_EQ(FindOpenPlace("/a/chain"), "/open");
        EXPECT_EQ(FindOpenPlace("/open/back"), "/open") << "though what it leads to is not";
        ASSERT_EQ(chdir("/open"), 0);
        EXPECT_EQ(FindOpenPlace("b"), "/open");
    });
}

TEST(FindOpenPlace, FindsWhatIsNotRoots) {
    FakeHost host;
    host.File("/a/b/file", "");
    host.Link("/a/link", "b/file");
    host.Directory("/sticky", 01777);
    host.Link("/sticky/link", "/a/b/file");
    host.Run([] {
        if (chown("/a/b/file", 1000, 0) != 0) GTEST_SKIP() << "no second user here";
        EXPECT_EQ(FindOpenPlace("/a/b/file"), "/a/b/file");
        EXPECT_EQ(FindOpenPlace("/a/link"), "/a/b/file");
        ASSERT_EQ(chown("/a/b", 1000, 0), 0);
        EXPECT_EQ(FindOpenPlace("/a/b/file"), "/a/b");
        ASSERT_EQ(chown("/a/b", 0, 0), 0);
        ASSERT_EQ(chown("/a/b/file", 0, 0), 0);
        EXPECT_EQ(FindOpenPlace("/sticky/link"), std::nullopt);
        ASSERT_EQ(lchown("/sticky/link", 1000, 0), 0);
        EXPECT_EQ(FindOpenPlace("/sticky/link"), "/sticky/link");
    });
}

TEST(FindOpenPlace, LetsAStickyFolderBeOnTheWayButNotAtTheEnd) {
    FakeHost host;
    host.File("/sticky/a/file", "");
    host.Directory("/sticky", 01777);
    host.Run([] {
        EXPECT_EQ(FindOpenPlace("/sticky/a/file"), std::nullopt);
        EXPECT_EQ(FindOpenPlace("/sticky"), "/sticky");
        EXPECT_EQ(FindOpenPlace("/sticky/missing"), "/sticky") << "others could make it";
        EXPECT_EQ(FindOpenPlace("/sticky/missing/file"), "/sticky");
        EXPECT_EQ(FindOpenPlace("/sticky/a/missing"), std::nullopt);
    });
}

TEST(FindOpenPlace, EndsWhereThereIsNoEnd) {
    FakeHost host;
    host.Link("/loop", "loop");
    host.File("/file", "");
    host.Run([] {
        EXPECT_EQ(FindOpenPlace("/loop"), std::nullopt);
        EXPECT_EQ(FindOpenPlace("/file/x"), std::nullopt);
    });
}

}  // namespace

// A save killed before and behind every system call it makes.

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "registry/registry_host.h"
#include "support/libc_fault.h"
#include "support/sanitizers.h"
#include "support/system_call_stops.h"

using testing::AnyOf;
using testing::Eq;

namespace {

/// The files as they are before a save. All that are good but "older" hold the tree "old".
struct Start {
    const char* name;
    std::map<std::string, std::string> files;
    bool isKilledTwice = false;  ///< one kill is tried with all, two with some
};

/// A process takes ten times as long under a sanitizer.
constexpr bool kIsSlow = kAddressSanitizer || kThreadSanitizer;

std::vector<Start> Starts() {
    const std::string old = TreeWith("old");
    const std::string older = TreeWith("older");
    const std::string half = TreeWith("half").substr(0, 25);
    const std::string zeros(old.size(), '\0');
    return {
        {"file", {{kRegistry, old}}},
        {"file and backup", {{kRegistry, old}, {kBackup, older}}, true},
        {"file, backup and half a save", {{kRegistry, old}, {kBackup, older}, {kTemporary, half}}},
        {"backup", {{kBackup, old}}, true},
        {"backup and half a save", {{kBackup, old}, {kTemporary, half}}},
        {"empty file and backup", {{kRegistry, ""}, {kBackup, old}}},
        {"file of NULs and backup", {{kRegistry, zeros}, {kBackup, old}}},
        {"default", {{kDefault, old}}},
        {"empty file, unknown backup, default",
         {{kRegistry, ""}, {kBackup, "unknown\n"}, {kDefault, old}}},
        {"unknown file and backup", {{kRegistry, "unknown\n"}, {kBackup, old}}, true},
    };
}

void WriteFile(const std::string& path, const std::string& text) {
    const UniqueFile file{fopen(path.c_str(), "we")};
    ASSERT_NE(file, nullptr) << path;
    (void)fwrite(text.data(), 1, text.size(), file.get());
}

void Place(const Start& start) {
    for (const std::string& path : {kRegistry, kBackup, kTemporary, kDefault}) {
        (void)unlink(path.c_str());
    }
    for (const auto& [path, text] : start.files) WriteFile(path, text);
}

CRegistry* g_Handle = nullptr;

void Change(const char* name) {
    g_Handle = new CRegistry{"HKEY_LOCAL_MACHINE", nullptr, 0};
    (void)g_Handle->SetValue("Name", name);
}

bool SaveKilledAt(int stop, const char* name) {
    return KilledAtStop(
        stop, [name] { Change(name); }, [] { delete g_Handle; });
}

/// The tree as a process finds it that starts now, as it would write it.
std::string TreeAfterRestart() {
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const pid_t child = fork();
    if (child == 0) {
        const std::string text = WrittenTree();
        _exit(write(ends[1], text.data(), text.size()) == static_cast<ssize_t>(text.size()) ? 0
                                                                                            : 1);
    }
    (void)close(ends[1]);
    std::string text(4096, '\0');
    text.resize(static_cast<size_t>(std::max<ssize_t>(read(ends[0], text.data(), text.size()), 0)));
    (void)close(ends[0]);
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    return text;
}

}  // namespace

TEST(SaveTree, KilledAtAnySystemCallARestartFindsTheOldOrTheNewTreeWhole) {
    RegistryHost host;
    host.Run([] {
        for (const Start& start : Starts()) {
            SCOPED_TRACE(start.name);
            int stops = 0;
            bool wasOld = false;
            for (bool isKilled = true; isKilled; ++stops) {
                Place(start);
                isKilled = SaveKilledAt(stops, "new");
                const std::string tree = TreeAfterRestart();
                ASSERT_THAT(tree, AnyOf(Eq(TreeWith("old")), Eq(TreeWith("new")))) << stops;
                wasOld |= tree == TreeWith("old");
                if (!isKilled) {
                    EXPECT_EQ(tree, TreeWith("new"));
                }
            }
            EXPECT_GT(stops, 14);  // unlink, open, write, fchmod, close, stat, two renames
            EXPECT_TRUE(wasOld);
        }
    });
}

TEST(SaveTree, KilledTwiceInARowThereIsStillAWholeTree) {
    RegistryHost host;
    host.Run(
        [] {
            const std::vector<Start> starts = Starts();
            for (const Start& start : starts) {
                if (!start.isKilledTwice || (kIsSlow && &start != &starts.back())) continue;
                SCOPED_TRACE(start.name);
                for (int first = 0;; ++first) {
                    bool isFirstKilled = true;
                    bool isKilled = true;
                    for (int second = 0; isKilled; ++second) {
                        Place(start);
                        isFirstKilled = SaveKilledAt(first, "new");
                        isKilled = SaveKilledAt(second, "later");
                        ASSERT_THAT(
                            TreeAfterRestart(),
                            AnyOf(Eq(TreeWith("old")), Eq(TreeWith("new")), Eq(TreeWith("later"))))
                            << first << ", " << second;
                    }
                    if (!isFirstKilled) break;
                }
            }
        },
        {.limit = std::chrono::seconds{110}});
}

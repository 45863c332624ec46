// What a save does, and what it leaves where it cannot do it.

#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "registry/registry_host.h"
#include "support/libc_fault.h"
#include "support/sanitizers.h"
#include "support/trace_capture.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

const std::string kCannotOpen = "CRegistry: ERROR: Cannot open \"" + kTemporary + "\" for writing";

std::string CannotWrite(const char* why) {
    return "CRegistry: ERROR: Cannot write \"" + kTemporary + "\": " + why;
}
std::string CannotRename(const std::string& from, const std::string& to, const char* why) {
    return "CRegistry: ERROR: Cannot rename \"" + from + "\" to \"" + to + "\": " + why;
}

/// Changes the tree; the save comes with the end of the handle.
void Set(const std::string& name) {
    CRegistry registry;
    EXPECT_EQ(registry.Open("", nullptr, 0), 0);
    EXPECT_EQ(registry.CreateKey(nullptr, "HKEY_LOCAL_MACHINE"), 0);
    EXPECT_EQ(registry.SetValue("Name", name.c_str()), 0);
}

/// The same, with the error lines of the save.
Lines LinesOfSet(const std::string& name) {
    (void)NameInTree();
    TraceCapture trace{1};
    Set(name);
    return trace.Lines();
}

/// No file of this process may become longer than that: a write behind it fails.
class FileSizeLimit {
  public:
    explicit FileSizeLimit(rlim_t limit) {
        (void)signal(SIGXFSZ, SIG_IGN);
        (void)getrlimit(RLIMIT_FSIZE, &m_Former);
        const rlimit now{limit, m_Former.rlim_max};
        (void)setrlimit(RLIMIT_FSIZE, &now);
    }
    ~FileSizeLimit() { (void)setrlimit(RLIMIT_FSIZE, &m_Former); }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

  private:
    rlimit m_Former{};
};

std::string Content(const std::string& path) {
    std::string text;
    if (const UniqueFile file{fopen(path.c_str(), "re")}) {
        for (int byte = fgetc(file.get()); byte != EOF; byte = fgetc(file.get())) {
            text += static_cast<char>(byte);
        }
    } else {
        return "missing";
    }
    return text;
}

bool IsMissing(const std::string& path) {
    return access(path.c_str(), F_OK) != 0;
}

}  // namespace

TEST(SaveTree, PutsTheNewFileInPlaceAndKeepsTheFormerOneAsBackup) {
    RegistryHost host{TreeWith("first")};
    host.File(kBackup, TreeWith("before"));
    host.Run([] { Set("second"); });
    EXPECT_EQ(host.Read(kRegistry), TreeWith("second"));
    EXPECT_EQ(host.Read(kBackup), TreeWith("first"));
    EXPECT_THAT(host.List(kFolder), ElementsAre("registry", "registry.old"));
}

TEST(SaveTree, TellsOfTheFilesAtLevelTwoAndLetsAllReadTheNewOne) {
    RegistryHost host{TreeWith("first")};
    host.Run([] {
        (void)umask(077);
        CRegistry* const registry = new CRegistry{"HKEY_LOCAL_MACHINE", nullptr, 0};
        EXPECT_EQ(registry->SetValue("Name", "second"), 0);
        TraceCapture trace{2};
        delete registry;
        EXPECT_EQ(trace.Lines(), (Lines{"CRegistry::SaveTree MPRegistryTemp[" + kTemporary +
                                        "] \t MPRegistry[" + kRegistry + "]"}));
        struct stat status {};
        EXPECT_EQ(stat(kRegistry.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777U, 0644U);
    });
}

TEST(SaveTree, DoesNothingWhileNothingHasChanged) {
    RegistryHost host{TreeWith("first")};
    host.Run([] {
        EXPECT_EQ(NameInTree(), "first");
        CRegistry::SaveTree();
        Set("second");
        CRegistry::SaveTree();
    });
    EXPECT_EQ(host.Read(kBackup), TreeWith("first"));
}

TEST(SaveTree, AnEmptyRegistryFileNeverBecomesTheBackup) {
    RegistryHost host{""};
    host.File(kBackup, TreeWith("backup"));
    host.Run([] { Set("second"); });
    EXPECT_EQ(host.Read(kRegistry), TreeWith("second"));
    EXPECT_EQ(host.Read(kBackup), TreeWith("backup"));
}

TEST(SaveTree, AFileThatCouldNotBeRestoredBecomesTheBackup) {
    RegistryHost host{"garbage\n"};
    host.File(kBackup, TreeWith("backup"));
    host.Run([] { Set("second"); });
    EXPECT_EQ(host.Read(kRegistry), TreeWith("second"));
    EXPECT_EQ(host.Read(kBackup), "garbage\n");
    EXPECT_FALSE(host.Exists(kTemporary));
}

TEST(SaveTree, WhereFilesCannotBeExchangedABadFileIsDropped) {
    // Under its own name the backup is the only good copy until the new file is in place.
    RegistryHost host{"garbage\n"};
    host.File(kBackup, TreeWith("backup"));
    host.Run([] {
        FaultOf<&::renameat2> fault;
        fault.Fail(EINVAL);
        Set("second");
    });
    EXPECT_EQ(host.Read(kRegistry), TreeWith("second"));
    EXPECT_EQ(host.Read(kBackup), TreeWith("backup"));
    EXPECT_FALSE(host.Exists(kTemporary));
}

TEST(SaveTree, IsNotTriedAgainUntilTheNextChangeWhenTheFileCannotBeOpened) {
    RegistryHost host{TreeWith("first")};
    host.Run([] {
        {
            (void)NameInTree();
            TraceCapture trace{1};
            FaultOf<&::open> fault;
            fault.Only([](const char* path, int, mode_t) { return path == kTemporary; });
            fault.Fail(EMFILE);
            Set("second");
            EXPECT_THAT(trace.Lines(), ElementsAre(kCannotOpen));
        }
        EXPECT_EQ(NameInTree(), "second");  // a handle that changes nothing
        EXPECT_EQ(Content(kRegistry), TreeWith("first"));
        CRegistry registry;
        EXPECT_EQ(registry.Open("", nullptr, 0), 0);
        EXPECT_EQ(registry.SetValue("other", 1), 0);
    });
    EXPECT_EQ(host.Read(kRegistry), "other=d=1\n" + TreeWith("second"));
}

TEST(SaveTree, AStreamThatCannotBeMadeLeavesTheGoodCopy) {
    RegistryHost host{TreeWith("first")};
    host.Run([] {
        FaultOf<&::fdopen> fault;
        fault.Fail(ENOMEM);
        EXPECT_THAT(LinesOfSet("second"), ElementsAre(kCannotOpen));
    });
    EXPECT_EQ(host.Read(kRegistry), TreeWith("first"));
}

TEST(SaveTree, ADiskFullAtAnyByteTwiceInARowLeavesTheFilesAsTheyAre) {
    RegistryHost host{TreeWith("first")};
    host.File(kBackup, TreeWith("before"));
    host.Run([] {
        (void)NameInTree();
        const size_t size = TreeWith("next").size();
        for (size_t limit = 0; limit < size; ++limit) {
            for (int i = 0; i < 2; ++i) {
                const FileSizeLimit full{limit};
                Set("next");
            }
            ASSERT_EQ(Content(kRegistry), TreeWith("first")) << limit;
            ASSERT_EQ(Content(kBackup), TreeWith("before")) << limit;
            ASSERT_TRUE(IsMissing(kTemporary)) << limit;
        }
        const FileSizeLimit enough{size};
        Set("next");
    });
    EXPECT_EQ(host.Read(kRegistry), TreeWith("next"));
    EXPECT_EQ(host.Read(kBackup), TreeWith("first"));
}

TEST(SaveTree, ALargeTreeOnADiskThatFillsUpIsNotPutInPlace) {
    RegistryHost host{TreeWith("first")};
    host.Run([] {
        (void)NameInTree();
        constexpr int kBlock = 64 * 1024;
        std::string large(3 * kBlock, 'x');
        for (const int limit :
             {1, 4096, kBlock - 1, kBlock, kBlock + 1, 2 * kBlock, 3 * kBlock, 3 * kBlock + 10}) {
            const FileSizeLimit full{static_cast<rlim_t>(limit)};
            Set(large);
            ASSERT_EQ(Content(kRegistry), TreeWith("first")) << limit;
            ASSERT_TRUE(IsMissing(kTemporary)) << limit;
        }
    });
}

TEST(SaveTree, ARealDiskThatIsFullLeavesTheGoodCopyAndSaysWhy) {
    RegistryHost host;
    host.Run([] {
        if (mount("tmpfs", kFolder.c_str(), "tmpfs", 0, "size=8k") != 0) {
            GTEST_SKIP() << "cannot mount a tmpfs here";
        }
        Set("first");  // one page
        const UniqueFile filler{fopen((kFolder + "/filler").c_str(), "we")};
        (void)fputc('x', filler.get());  // the other one
        (void)fflush(filler.get());
        for (int i = 0; i < 2; ++i) {
            EXPECT_THAT(LinesOfSet("second"), ElementsAre(CannotWrite("No space left on device")));
            EXPECT_EQ(Content(kRegistry), TreeWith("first"));
            EXPECT_TRUE(IsMissing(kTemporary));
        }
    });
}

TEST(SaveTree, AWriteOverQuotaLeavesTheGoodCopyAndSaysWhy) {
    RegistryHost host{TreeWith("first")};
    host.Run([] {
        FaultOf<&::fwrite> fault;
        fault.Only([](const void*, size_t, size_t size, FILE*) { return size > 0; });
        fault.Answer([](const void* data, size_t, size_t, FILE* file) {
            (void)LibcFault::Real<&::fwrite>(data, size_t{1}, size_t{5}, file);
            errno = EDQUOT;
            return size_t{5};
        });
        EXPECT_THAT(LinesOfSet("second"), ElementsAre(CannotWrite("Disk quota exceeded")));
        EXPECT_EQ(Content(kRegistry), TreeWith("first"));
        EXPECT_TRUE(IsMissing(kTemporary));
    });
}

TEST(SaveTree, AFailureThatShowsAtTheCloseLeavesTheGoodCopyAndSaysWhy) {
    RegistryHost host{TreeWith("first")};
    host.Run([] {
        CRegistry* const registry = new CRegistry{"HKEY_LOCAL_MACHINE", nullptr, 0};
        EXPECT_EQ(registry->SetValue("Name", "second"), 0);
        TraceCapture trace{1};
        {
            FaultOf<&::fclose> fault;
            fault.Answer([](FILE* file) {
                (void)LibcFault::Real<&::fclose>(file);
                errno = EDQUOT;
                return EOF;
            });
            delete registry;
        }
        EXPECT_THAT(trace.Lines(), ElementsAre(CannotWrite("Disk quota exceeded")));
        EXPECT_EQ(Content(kRegistry), TreeWith("first"));
        EXPECT_TRUE(IsMissing(kTemporary));
    });
}

TEST(SaveTree, WithoutMemoryTheGoodCopyStays) {
    if (!LibcFault::kHeapFaults) GTEST_SKIP() << LibcFault::kNoHeapFaults;
    RegistryHost host{TreeWith("first")};
    host.Run([] {
        CRegistry* const registry = new CRegistry{"HKEY_LOCAL_MACHINE", nullptr, 0};
        EXPECT_EQ(registry->SetValue("Name", "second"), 0);
        TraceCapture trace{1};
        {
            FaultOf<&::malloc> fault;
            fault.AlwaysFail(ENOMEM);
            delete registry;
        }
        EXPECT_THAT(trace.Lines(), ElementsAre(CannotWrite("Cannot allocate memory")));
        EXPECT_EQ(Content(kRegistry), TreeWith("first"));
        EXPECT_TRUE(IsMissing(kTemporary));
    });
}

TEST(SaveTree, AReadOnlyFileSystemLeavesTheGoodCopyAndTheLineNamesTheFile) {
    RegistryHost host{TreeWith("first")};
    host.Run([] {
        if (mount(kFolder.c_str(), kFolder.c_str(), nullptr, MS_BIND, nullptr) != 0 ||
            mount(nullptr, kFolder.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) !=
                0) {
            GTEST_SKIP() << "cannot mount here";
        }
        EXPECT_THAT(LinesOfSet("second"), ElementsAre(kCannotOpen));
        EXPECT_THAT(LinesOfSet("third"), ElementsAre(kCannotOpen));
        EXPECT_EQ(NameInTree(), "third");
    });
    EXPECT_EQ(host.Read(kRegistry), TreeWith("first"));
}

TEST(SaveTree, AFolderThatMayNotBeWrittenLeavesTheGoodCopy) {
    RegistryHost host{TreeWith("first")};
    host.Directory(kFolder, 0555);
    host.Run([] { EXPECT_THAT(LinesOfSet("second"), ElementsAre(kCannotOpen)); }, {.uid = 65534});
    EXPECT_EQ(host.Read(kRegistry), TreeWith("first"));
    EXPECT_THAT(host.List(kFolder), ElementsAre("registry"));
}

TEST(SaveTree, AMissingFolderLeavesTheChangeInMemory) {
    FakeHost host;
    host.Run([] {
        EXPECT_EQ(LinesOfSet("first").back(), kCannotOpen);
        EXPECT_EQ(NameInTree(), "first");
    });
}

TEST(SaveTree, ADirectoryInPlaceOfTheFileLeavesTheBackup) {
    RegistryHost host;
    host.File(kRegistry + "/entry", "");
    host.File(kBackup, TreeWith("backup"));
    host.Run([] {
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(LinesOfSet("second"),
                      (Lines{CannotRename(kRegistry, kBackup, "Not a directory"),
                             CannotRename(kTemporary, kRegistry, "Is a directory")}));
        }
    });
    EXPECT_EQ(host.Read(kBackup), TreeWith("backup"));
    host.Run([] {
        EXPECT_FALSE(IsMissing(kRegistry + "/entry"));
        EXPECT_EQ(NameInTree(), "backup");
    });
}

TEST(SaveTree, ADirectoryInPlaceOfTheBackupDoesNotKeepTheNewFileOut) {
    RegistryHost host{TreeWith("first")};
    host.File(kBackup + "/entry", "");
    host.Run([] {
        EXPECT_EQ(LinesOfSet("second"),
                  (Lines{CannotRename(kRegistry, kBackup, "Is a directory")}));
    });
    EXPECT_EQ(host.Read(kRegistry), TreeWith("second"));
}

TEST(SaveTree, ADirectoryInPlaceOfTheBackupLeavesNothingOfABadFile) {
    RegistryHost host{"garbage\n"};
    host.File(kBackup + "/entry", "");
    host.File(kDefault, TreeWith("default"));
    host.Run([] {
        EXPECT_EQ(LinesOfSet("second"),
                  (Lines{CannotRename(kTemporary, kBackup, "Is a directory")}));
        EXPECT_TRUE(IsMissing(kTemporary));
        Set("third");
    });
    EXPECT_EQ(host.Read(kRegistry), TreeWith("third"));
    EXPECT_FALSE(host.Exists(kTemporary));
}

TEST(SaveTree, ADirectoryInPlaceOfTheNewFileLeavesTheGoodCopy) {
    RegistryHost host{TreeWith("first")};
    host.File(kTemporary + "/entry", "");
    host.Run([] { EXPECT_THAT(LinesOfSet("second"), ElementsAre(kCannotOpen)); });
    EXPECT_EQ(host.Read(kRegistry), TreeWith("first"));
}

TEST(SaveTree, ALinkInPlaceOfTheFileIsReplacedAndItsTargetKept) {
    RegistryHost host;
    host.File("/srv/registry", TreeWith("first"));
    host.Link(kRegistry, "/srv/registry");
    host.Run([] { Set("second"); });
    EXPECT_EQ(host.Read("/srv/registry"), TreeWith("first"));
    EXPECT_EQ(host.Read(kRegistry), TreeWith("second"));
    EXPECT_EQ(host.Read(kBackup), TreeWith("first"));
}

TEST(SaveTree, ALinkInPlaceOfTheNewFileIsTakenAwayAndItsTargetKept) {
    RegistryHost host{TreeWith("first")};
    host.File("/srv/target", "precious", 0600);
    host.Link(kTemporary, "/srv/target");
    host.Run([] {
        EXPECT_THAT(LinesOfSet("second"), IsEmpty());
        struct stat status {};
        EXPECT_EQ(lstat(kRegistry.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode, S_IFREG | 0644U);
        EXPECT_EQ(stat("/srv/target", &status), 0);
        EXPECT_EQ(status.st_mode & 07777U, 0600U);
    });
    EXPECT_EQ(host.Read("/srv/target"), "precious");
    EXPECT_EQ(host.Read(kRegistry), TreeWith("second"));
    EXPECT_EQ(host.Read(kBackup), TreeWith("first"));
}

TEST(SaveTree, APipeInPlaceOfTheNewFileIsTakenAwayAndNotWaitedFor) {
    RegistryHost host{TreeWith("first")};
    host.Run([] {
        EXPECT_EQ(mkfifo(kTemporary.c_str(), 0666), 0);
        EXPECT_THAT(LinesOfSet("second"), IsEmpty());
    });
    EXPECT_EQ(host.Read(kRegistry), TreeWith("second"));
    EXPECT_THAT(host.List(kFolder), ElementsAre("registry", "registry.old"));
}

TEST(SaveTree, IsNotMadeByTheEndOfTheProcess) {
    if (kAddressSanitizer) GTEST_SKIP() << "at the end of a process it looks for leaks in /proc";
    RegistryHost host{TreeWith("first")};
    host.Run([] {
        const pid_t child = fork();
        if (child == 0) {
            static const CRegistry* leaked = nullptr;
            auto* const registry = new CRegistry{"HKEY_LOCAL_MACHINE", nullptr, 0};
            leaked = registry;
            exit(registry->SetValue("Name", "second") == 0 && leaked->LastError() == 0 ? 0 : 1);
        }
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    });
    EXPECT_EQ(host.Read(kRegistry), TreeWith("first"));
    EXPECT_THAT(host.List(kFolder), ElementsAre("registry"));
}

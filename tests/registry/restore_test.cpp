// How the tree gets into memory: which file, in which order, with which lines.

#include <sys/stat.h>

#include <string>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "registry/registry_host.h"
#include "support/libc_fault.h"
#include "support/trace_capture.h"

using testing::AllOf;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const std::string kTryBackup =
    "CRegistry: WARNING: Could not restore tree from \"" + kRegistry + "\", trying backup";
const std::string kTryDefault =
    "CRegistry: WARNING: Could not restore tree from \"" + kBackup + "\", trying default";
const std::string kFailed =
    "CRegistry: ERROR: Could not restore tree from \"" + kDefault + "\", restoring failed";
const std::string kReinitialized = "CRegistry::InitClass() : re-initialize the registry-tree";

std::string CannotOpen(const std::string& path) {
    return "CRegistry: WARNING: Could not open \"" + path + "\"";
}
std::string TooShort(const std::string& path) {
    return "CRegistry: WARNING: The length of \"" + path + "\" is not sufficient";
}
std::string NoContent(const std::string& path) {
    return "CRegistry: WARNING: Node restoring from \"" + path +
           "\" failed - check the content of this file";
}

/// The lines at level 1 of a first handle, and the value that it finds.
void ExpectFirstHandle(FakeHost& host, const Lines& lines, const std::string& name) {
    host.Run([&] {
        TraceCapture trace{1};
        { const CRegistry registry; }
        EXPECT_EQ(trace.Lines(), lines);
        EXPECT_EQ(NameInTree(), name);
    });
}

}  // namespace

TEST(SetupTree, ReadsTheRegistryFile) {
    RegistryHost host{TreeWith("current")};
    host.File(kBackup, TreeWith("backup"));
    ExpectFirstHandle(host, {}, "current");
}

TEST(SetupTree, TellsOfItsStateAtLevelTwo) {
    RegistryHost host{TreeWith("current")};
    host.Run([] {
        TraceCapture trace{2};
        { const CRegistry registry; }
        { const CRegistry registry; }
        EXPECT_THAT(trace.Lines(),
                    ElementsAre("CRegistry::InitClass",
                                "CRegistry: SetupTree(): ForceSetup=0, MIsSetup=0, MIsDirty=0",
                                "CRegistry::InitClass"));
    });
}

TEST(SetupTree, TakesTheBackupWhenTheFileIsMissing) {
    RegistryHost host;
    host.File(kBackup, TreeWith("backup"));
    host.File(kDefault, TreeWith("default"));
    ExpectFirstHandle(host, {CannotOpen(kRegistry), kTryBackup}, "backup");
}

TEST(SetupTree, TakesTheBackupWhenTheFileIsEmpty) {
    RegistryHost host{""};
    host.File(kBackup, TreeWith("backup"));
    ExpectFirstHandle(host, {TooShort(kRegistry), kTryBackup}, "backup");
}

TEST(SetupTree, TakesTheBackupWhenTheFileHoldsOnlyUnknownLines) {
    RegistryHost host{"# made by hand\nName: x\n"};
    host.File(kBackup, TreeWith("backup"));
    ExpectFirstHandle(host, {NoContent(kRegistry), kTryBackup}, "backup");
}

TEST(SetupTree, TakesTheBackupWhenTheFileHoldsOnlyKeys) {
    RegistryHost host{"[HKEY_LOCAL_MACHINE]\n[SOFTWARE]\n\n\n\n"};
    host.File(kBackup, TreeWith("backup"));
    ExpectFirstHandle(host, {NoContent(kRegistry), kTryBackup}, "backup");
}

TEST(SetupTree, TakesTheBackupWhenTheFileIsADirectory) {
    RegistryHost host;
    host.Directory(kRegistry);
    host.File(kRegistry + "/entry", "");
    host.File(kBackup, TreeWith("backup"));
    ExpectFirstHandle(host, {NoContent(kRegistry), kTryBackup}, "backup");
}

TEST(SetupTree, TakesTheBackupWhenTheFileCannotBeReadToItsEnd) {
    std::string text = "[HKEY_LOCAL_MACHINE]\nName=s=current\n";
    for (int i = 0; i < 9999; ++i) text += "value" + std::to_string(i) + "=d=1\n";
    RegistryHost host{text};
    host.File(kBackup, TreeWith("backup"));
    host.Run([] {
        TraceCapture trace{1};
        FaultOf<&::fread> fault;
        fault.PassThrough();
        fault.Answer([](void*, size_t, size_t, FILE* file) {
            file->_flags |= 0x20;  // what a failed read(2) leaves: ferror() is true
            return size_t{0};
        });
        { const CRegistry registry; }
        EXPECT_THAT(trace.Lines(), ElementsAre(NoContent(kRegistry), kTryBackup));
        EXPECT_EQ(NameInTree(), "backup");
    });
}

TEST(SetupTree, TakesTheBackupWhenTheFileMayNotBeRead) {
    RegistryHost host;
    host.File(kRegistry, TreeWith("current"), 0);
    host.File(kBackup, TreeWith("backup"), 0644);
    host.Run(
        [] {
            TraceCapture trace{1};
            EXPECT_EQ(NameInTree(), "backup");
            EXPECT_THAT(trace.Lines(), ElementsAre(CannotOpen(kRegistry), kTryBackup));
        },
        {.uid = 65534});
}

TEST(SetupTree, TakesTheDefaultWhenBothFail) {
    RegistryHost host{""};
    host.File(kDefault, TreeWith("default"));
    ExpectFirstHandle(host, {TooShort(kRegistry), kTryBackup, CannotOpen(kBackup), kTryDefault},
                      "default");
}

TEST(SetupTree, TriesAgainWithEachHandleUntilOneFileIsGood) {
    RegistryHost host;
    host.Run([] {
        TraceCapture trace{1};
        const Lines all = {CannotOpen(kRegistry), kTryBackup, CannotOpen(kBackup), kTryDefault,
                           CannotOpen(kDefault),  kFailed,    kReinitialized};
        { const CRegistry registry; }
        EXPECT_EQ(trace.Lines(), all);
        trace.Clear();
        { const CRegistry registry; }
        EXPECT_EQ(trace.Lines(), all);
        trace.Clear();
        const UniqueFile file{fopen(kRegistry.c_str(), "we")};
        (void)fputs(TreeWith("late").c_str(), file.get());
        (void)fflush(file.get());
        { const CRegistry registry; }
        EXPECT_THAT(trace.Lines(), IsEmpty());
        EXPECT_EQ(NameInTree(), "late");
    });
}

TEST(SetupTree, DoesNothingOnceTheTreeIsThereUnlessForced) {
    RegistryHost host{TreeWith("first")};
    host.Run([&] {
        EXPECT_EQ(NameInTree(), "first");
        {
            const UniqueFile file{fopen(kRegistry.c_str(), "we")};
            (void)fputs("[HKEY_LOCAL_MACHINE]\nName=s=second\n\nAdded=d=1\n\n", file.get());
        }
        TraceCapture trace{2};
        CRegistry::SetupTree(false);
        EXPECT_THAT(trace.Lines(), IsEmpty());
        CRegistry::SetupTree(true);
        EXPECT_THAT(trace.Lines(),
                    ElementsAre("CRegistry: SetupTree(): ForceSetup=1, MIsSetup=1, MIsDirty=0",
                                "CRegistryNode::deleteNode \"Name\""));
        EXPECT_EQ(NameInTree(), "second");
        EXPECT_EQ(WrittenTree(), "Added=d=1\n[HKEY_LOCAL_MACHINE]\nName=s=second\n\n\n");
    });
}

TEST(SetupTree, ThatIsForcedAndFailsKeepsTheTree) {
    RegistryHost host{TreeWith("first")};
    host.Run([] {
        EXPECT_EQ(NameInTree(), "first");
        EXPECT_EQ(remove(kRegistry.c_str()), 0);
        CRegistry::SetupTree(true);
        TraceCapture trace{2};
        CRegistry::SetupTree(false);
        EXPECT_THAT(trace.Lines(), IsEmpty()) << "it counts as set up";
        EXPECT_EQ(NameInTree(), "first");
    });
}

TEST(SetupTree, SetsTheHivesThatTheFileHas) {
    constexpr std::pair<int, const char*> kHives[] = {{kHiveLocalMachine, "HKEY_LOCAL_MACHINE"},
                                                      {kHiveCurrentUser, "HKEY_CURRENT_USER"},
                                                      {kHiveUsers, "HKEY_USERS"},
                                                      {kHiveClassesRoot, "HKEY_CLASSES_ROOT"},
                                                      {kHiveCurrentConfig, "HKEY_CURRENT_CONFIG"}};
    for (const auto& [missing, missingName] : kHives) {
        SCOPED_TRACE(missingName);
        std::string text;
        for (const auto& [hive, name] : kHives) {
            if (hive != missing) text += "[" + std::string{name} + "]\na=d=1\n\n";
        }
        RegistryHost host{text + "[OTHER]\n\n\n"};
        host.Run([&kHives, missing = missing] {
            CRegistry root;
            EXPECT_EQ(root.Open("", nullptr, 0), 0);
            for (const auto& [hive, name] : kHives) {
                EXPECT_EQ(CRegistry::MHives[hive] != nullptr, hive != missing) << name;
                EXPECT_EQ(CRegistry::MHives[hive], root.Key()->FindChild(name)) << name;
            }
        });
    }
}

TEST(SetupTree, AFileReadInPartLeavesNodesThatTheNextOneReplacesNameByName) {
    // Keys only: it counts as failed, and its keys are in the tree.
    RegistryHost host{"[HKEY_LOCAL_MACHINE]\n[Old]\n\n\n[LEFT]\n\n\n"};
    host.File(kBackup, TreeWith("backup"));
    host.Run([] {
        EXPECT_EQ(NameInTree(), "backup");
        EXPECT_EQ(WrittenTree(), "[HKEY_LOCAL_MACHINE]\nName=s=backup\n\n[LEFT]\n\n\n");
    });
}

TEST(SetupTree, AnExceptionLeavesTheTreeForTheNextHandle) {
    if (!LibcFault::kHeapFaults) GTEST_SKIP() << LibcFault::kNoHeapFaults;
    RegistryHost host{TreeWith("current")};
    host.Run([] {
        TraceCapture trace{2};
        {
            FaultOf<&::malloc> fault;
            fault.AlwaysFail(ENOMEM);
            CRegistry::SetupTree(false);
        }
        EXPECT_THAT(trace.Lines(),
                    ElementsAre("CRegistry: SetupTree(): ForceSetup=0, MIsSetup=0, MIsDirty=0",
                                "CRegistry: SetupTree(): ## ERROR during Setup"));
        EXPECT_EQ(NameInTree(), "current");
    });
}

TEST(SetupTree, TellsOfAnExceptionAtLevelTwoOnly) {
    if (!LibcFault::kHeapFaults) GTEST_SKIP() << LibcFault::kNoHeapFaults;
    RegistryHost host{TreeWith("current")};
    host.Run([] {
        TraceCapture trace{1};
        {
            FaultOf<&::malloc> fault;
            fault.AlwaysFail(ENOMEM);
            CRegistry::SetupTree(false);
        }
        EXPECT_THAT(trace.Lines(), IsEmpty());
    });
}

TEST(SetupTree, TellsOfATreeThatHasChanged) {
    RegistryHost host{TreeWith("first")};
    host.Run([] {
        CRegistry registry{"HKEY_LOCAL_MACHINE", nullptr, 0};
        EXPECT_EQ(registry.SetValue("other", 1), 0);
        TraceCapture trace{2};
        CRegistry::SetupTree(true);
        EXPECT_EQ(trace.LinesWith("SetupTree"),
                  Lines{"CRegistry: SetupTree(): ForceSetup=1, MIsSetup=1, MIsDirty=1"});
    });
}

TEST(SetupTree, WithoutMemoryForAKeyTheFileIsNotTakenForAPartOfItself) {
    if (!LibcFault::kHeapFaults) GTEST_SKIP() << LibcFault::kNoHeapFaults;
    std::string text = TreeWith("current");
    text.insert(text.find("\n\n") + 1, "[k]\na=d=1\nb=d=1\nc=d=1\nd=d=1\ne=d=1\n\n");
    RegistryHost host{text};
    host.Run([&] {
        TraceCapture trace{1};
        {
            FaultOf<&::malloc> fault;
            fault.Only([](size_t size) { return size == 5 * sizeof(NameTableEntry); });
            fault.AlwaysFail(ENOMEM);
            CRegistry::SetupTree(false);
        }
        EXPECT_THAT(trace.Lines(),
                    ElementsAre(NoContent(kRegistry), kTryBackup, CannotOpen(kBackup), kTryDefault,
                                CannotOpen(kDefault), kFailed));
        EXPECT_EQ(WrittenTree(), text);
    });
    EXPECT_EQ(host.Read(kRegistry), text);
}

TEST(SetupTree, NeverWritesTheDefault) {
    RegistryHost host;
    host.File(kDefault, TreeWith("default"));
    host.Run([] {
        CRegistry registry;
        (void)registry.Open("HKEY_LOCAL_MACHINE", nullptr, 0);
        EXPECT_EQ(registry.SetValue("Name", "changed"), 0);
    });
    EXPECT_EQ(host.Read(kDefault), TreeWith("default"));
    EXPECT_EQ(host.Read(kRegistry), TreeWith("changed"));
    EXPECT_FALSE(host.Exists(kBackup));
}

TEST(RestoreTree, TellsOfAnEmptyPath) {
    TraceCapture trace{1};
    CRegistryNode node;
    EXPECT_EQ(CRegistry::RestoreTree(nullptr, &node), 0);
    EXPECT_THAT(trace.Lines(), ElementsAre("CRegistry: ERROR: Empty file path"));
}

TEST(RestoreTree, ReadsAFileWhoseSizeIsUnknown) {
    RegistryHost host{TreeWith("current")};
    host.Run([] {
        FaultOf<&::fstat> fault;
        fault.Fail(EIO);
        CRegistryNode node;
        EXPECT_EQ(CRegistry::RestoreTree(kRegistry.c_str(), &node), 1);
        EXPECT_EQ(Written(node), TreeWith("current"));
    });
}

TEST(RestoreTree, MayBeUsedForATreeOfOnesOwn) {
    RegistryHost host{TreeWith("current")};
    host.Run([] {
        CRegistryNode node;
        EXPECT_EQ(CRegistry::RestoreTree(kRegistry.c_str(), &node), 1);
        EXPECT_EQ(Written(node), TreeWith("current"));
    });
}

TEST(InitClass, GivesATreeThatCouldNotBeRestoredTheNamesOfItsHives) {
    RegistryHost host;
    host.Run([] {
        CRegistry root;
        EXPECT_EQ(root.Open("", nullptr, 0), 0);
        const RecursiveLockGuard hold{root.Key()->Lock()};
        std::vector<std::string> names;
        for (const NameTableEntry& entry : root.Key()->Entries()) {
            names.emplace_back(entry.Name);
            EXPECT_EQ(entry.Type, kRegistrySubkey);
            EXPECT_EQ(entry.Value, 0U);
        }
        EXPECT_THAT(names, ElementsAre("HKEY_CLASSES_ROOT", "HKEY_CURRENT_CONFIG",
                                       "HKEY_CURRENT_USER", "HKEY_LOCAL_MACHINE", "HKEY_USERS"));
        EXPECT_EQ(root.Open("HKEY_USERS", nullptr, 0), -1);
    });
}

TEST(InitClass, AHandleWorksInATreeThatCouldNotBeRestoredAndItsSaveMakesTheFile) {
    RegistryHost host;
    host.Run([] {
        CRegistry registry;
        EXPECT_EQ(registry.Open("", nullptr, 0), 0);
        EXPECT_EQ(registry.CreateKey(nullptr, "HKEY_LOCAL_MACHINE\\SOFTWARE"), 0);
        EXPECT_EQ(registry.SetValue("Name", "made"), 0);
    });
    EXPECT_EQ(host.Read(kRegistry), "[HKEY_LOCAL_MACHINE]\n[SOFTWARE]\nName=s=made\n\n\n\n");
}

TEST(InitClass, GivesBackAHiveWhoseNameWasTakenOutOfTheTree) {
    RegistryHost host{TreeWith("current")};
    host.Run([] {
        CRegistry root;
        EXPECT_EQ(root.Open("", nullptr, 0), 0);
        EXPECT_EQ(root.DeleteKey("HKEY_LOCAL_MACHINE"), 0);
        EXPECT_EQ(CRegistry::MHives[kHiveLocalMachine], nullptr);  // not a freed key
        TraceCapture trace{1};
        { const CRegistry other; }
        EXPECT_THAT(trace.Lines(), ElementsAre(kReinitialized));
        EXPECT_EQ(root.Open("HKEY_LOCAL_MACHINE", nullptr, 0), -1);
    });
}

TEST(InitClass, ReplacesAValueThatHasTheNameOfAHiveAndKeepsAKeyThatIsThere) {
    RegistryHost host{"HKEY_USERS=s=text\n[HKEY_CURRENT_USER]\nx=d=1\n\n\n"};
    host.Run([] {
        EXPECT_EQ(WrittenTree(), "[HKEY_CURRENT_USER]\nx=d=1\n\n\n");
        CRegistry root;
        EXPECT_EQ(root.Open("", nullptr, 0), 0);
        EXPECT_EQ(root.CreateKey(nullptr, "HKEY_USERS"), 0);
    });
}

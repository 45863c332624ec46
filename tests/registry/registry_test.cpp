#include "registry/registry.h"

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "registry/lock_count.h"
#include "registry/registry_host.h"
#include "support/at_page_end.h"
#include "support/libc_fault.h"
#include "support/trace_capture.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

constexpr const char* kTree =
    "[HKEY_LOCAL_MACHINE]\n"
    "[SOFTWARE]\n"
    "Blob=b=0a ff 10 \n"
    "Count=d=-42\n"
    "Empty=b=\n"
    "Home=es=%LWD_QX_HOME%/bin\n"
    "Path=s=/usr/lib\n"
    "Short=s=abc\n"
    "[A]\n\n[B]\nx=d=1\n\n\n"
    "[SYSTEM]\n[CurrentControlSet]\n[Control]\n[UUID]\n"
    "[C3681B60-0D26-11D3-8319-00A0C9B61E25]\nNumber=d=7\nUuid=s=u-1\n\n\n\n\n\n\n\n";

/// A handle on SOFTWARE.
class Software : public CRegistry {
  public:
    Software() : CRegistry("HKEY_LOCAL_MACHINE\\SOFTWARE", nullptr, 0) {
        EXPECT_EQ(LastError(), 0);
    }
};

/// Runs a body with the tree above.
void WithTree(const std::function<void()>& body) {
    RegistryHost host{kTree};
    host.Run(body);
}

std::string ContentOf(CRegistry& registry) {
    return Written(*registry.Key());
}

/// The names that an enumeration gives, with its last result.
std::vector<std::string> KeysOf(CRegistry& registry) {
    std::vector<std::string> names;
    char name[64];
    for (unsigned index = 0;; ++index) {
        unsigned length = sizeof name;
        unsigned classLength = 9;
        const int result = registry.EnumKey(name, &length, index, nullptr, &classLength);
        if (result != 0) {
            names.push_back(std::to_string(result));
            return names;
        }
        EXPECT_EQ(length, strlen(name));
        EXPECT_EQ(classLength, 0U);
        names.emplace_back(name);
    }
}

std::vector<std::string> ValuesOf(CRegistry& registry, unsigned filter) {
    std::vector<std::string> names;
    char name[64];
    for (unsigned index = 0;; ++index) {
        unsigned length = sizeof name;
        const int result = registry.EnumValue(name, &length, index, filter, nullptr, nullptr);
        if (result != 0) {
            names.push_back(std::to_string(result));
            return names;
        }
        EXPECT_EQ(length, strlen(name));
        names.emplace_back(name);
    }
}

}  // namespace

// --- Construction ------------------------------------------------------------------------------

TEST(Registry, BeginsWithoutAKey) {
    WithTree([] {
        CRegistry registry;
        EXPECT_EQ(registry.Key(), nullptr);
        EXPECT_EQ(registry.KeyPath(), nullptr);
        EXPECT_EQ(registry.LastError(), 0);
        EXPECT_EQ(registry.ValueLength(), 0U);
        unsigned count = 0;
        unsigned length = 1;
        char name[1];
        std::string text;
        EXPECT_EQ(registry.QuerySubkeyCount(&count), EINVAL);
        EXPECT_EQ(registry.EnumKey(name, &length, 0, nullptr, nullptr), EINVAL);
        EXPECT_EQ(registry.EnumValue(name, &length, 0, 999, nullptr, nullptr), EINVAL);
        EXPECT_EQ(registry.GetValue("x", nullptr), nullptr);
        EXPECT_EQ(registry.GetValue(&count, "x", nullptr), EINVAL);
        EXPECT_EQ(registry.GetValue(text, "x", nullptr), EINVAL);
        EXPECT_EQ(registry.GetValue(name, "x", 1, nullptr), EINVAL);
        EXPECT_EQ(registry.QueryValue(name, "x", &count, nullptr), EINVAL);
        EXPECT_FALSE(registry.SetValue("x", "", 0, kRegistryString, nullptr));
        EXPECT_EQ(registry.SetValue("x", 1), EINVAL);
        EXPECT_EQ(registry.SetValue("x", "y"), EINVAL);
        EXPECT_EQ(registry.DeleteValue("x"), EINVAL);
        EXPECT_EQ(registry.DeleteKey("x"), EINVAL);
        EXPECT_EQ(registry.CreateKey(nullptr, "x"), -1);
        EXPECT_EQ(registry.GetValueSize("x", nullptr), 0U);
        EXPECT_FALSE(registry.DetachChecked());
    });
}

TEST(Registry, TakesAHiveByReferenceForTheFirstHandleToo) {
    WithTree([] {
        ASSERT_EQ(CRegistry::MHives[kHiveLocalMachine], nullptr);
        CRegistry registry{CRegistry::MHives[kHiveLocalMachine]};
        EXPECT_NE(registry.Key(), nullptr);
        CRegistry opened{"SOFTWARE", CRegistry::MHives[kHiveLocalMachine], 0};
        EXPECT_EQ(opened.LastError(), 0);
        CRegistry missing{"HARDWARE", CRegistry::MHives[kHiveLocalMachine], 0};
        EXPECT_EQ(missing.LastError(), -1);
        EXPECT_EQ(missing.Key(), nullptr);
    });
}

TEST(Registry, ACopyStandsOnTheSameKeyWithItsOwnPath) {
    WithTree([] {
        (void)unsetenv("LWD_QX_HOME");
        Software registry;
        registry.ExpandStrings(false);
        TraceCapture trace{2};
        CRegistry copy{registry};
        EXPECT_THAT(trace.Lines(), ElementsAre("CRegistry::InitClass"));
        EXPECT_EQ(copy.Key(), registry.Key());
        EXPECT_STREQ(copy.GetValue("Home", nullptr), "/bin") << "expanded, as in a new handle";
        EXPECT_STREQ(copy.KeyPath(), "HKEY_LOCAL_MACHINE/SOFTWARE");
        EXPECT_NE(copy.KeyPath(), registry.KeyPath());
        CRegistry assigned;
        assigned = copy;
        EXPECT_EQ(assigned.Key(), registry.Key());
        EXPECT_STREQ(assigned.KeyPath(), "HKEY_LOCAL_MACHINE/SOFTWARE");
        assigned = CRegistry{};
        EXPECT_EQ(assigned.Key(), nullptr);
        EXPECT_EQ(assigned.KeyPath(), nullptr);
    });
}

TEST(Registry, AssignmentToItselfDoesNothing) {
    WithTree([] {
        Software registry;
        EXPECT_NE(registry.GetValue("Path", nullptr), nullptr);
        TraceCapture trace{2};
        CRegistry& same = registry;
        registry.CRegistry::operator=(same);
        EXPECT_THAT(trace.Lines(), IsEmpty());
        EXPECT_EQ(registry.ValueLength(), 9U);
    });
}

TEST(Registry, AssignmentStartsOverButWhatWasReadStays) {
    WithTree([] {
        Software registry;
        registry.ExpandStrings(false);
        const char* const value = registry.GetValue("Path", nullptr);
        TraceCapture trace{2};
        registry.CRegistry::operator=(CRegistry{});
        EXPECT_THAT(trace.Lines(), ElementsAre("CRegistry::InitClass", "CRegistry::InitClass"));
        EXPECT_EQ(registry.ValueLength(), 0U);
        EXPECT_STREQ(value, "/usr/lib");
        EXPECT_EQ(registry.Open("HKEY_LOCAL_MACHINE\\SOFTWARE", nullptr, 0), 0);
        EXPECT_STREQ(registry.GetValue("Home", nullptr), "/bin") << "expanded, as in a new handle";
    });
}

TEST(Registry, DetachGivesTheKeyAway) {
    WithTree([] {
        Software registry;
        const HKEY key = registry.Key();
        EXPECT_EQ(registry.Detach(), key);
        EXPECT_EQ(registry.Key(), nullptr);
        EXPECT_EQ(registry.Detach(), nullptr);
        CRegistry other{key};
        EXPECT_TRUE(other.DetachChecked());
        EXPECT_FALSE(other.DetachChecked());
    });
}

TEST(Registry, AHandleOnACleanTreeMakesNoSystemCallThatWrites) {
    RegistryHost host{kTree};
    host.Run([] {
        { const CRegistry first; }
        FaultOf<&::open> opens;
        opens.AlwaysFail(EIO);
        FaultOf<&::unlink> unlinks;
        unlinks.AlwaysFail(EIO);
        FaultOf<&::rename> renames;
        renames.AlwaysFail(EIO);
        for (int i = 0; i < 100; ++i) const Software registry;
        EXPECT_EQ(opens.Calls(), 0);
        EXPECT_EQ(unlinks.Calls(), 0);
        EXPECT_EQ(renames.Calls(), 0);
    });
    EXPECT_THAT(host.List(kFolder), ElementsAre("registry"));
}

TEST(Registry, HoldsTheLockOfOneKeyAtATime) {
    struct Case {
        const char* what;
        int locks;
        void (*body)(CRegistry& software);
    };
    const Case cases[] = {
        {"Open", 1,
         [](CRegistry& software) {
             EXPECT_EQ(software.Open("HKEY_LOCAL_MACHINE\\SOFTWARE\\B\\C", nullptr, 0), 0);
         }},
        {"CreateKey", 1,
         [](CRegistry& software) { EXPECT_EQ(software.CreateKey(nullptr, "B\\C\\D\\E"), 0); }},
        {"WriteNode", 1, [](CRegistry& software) { EXPECT_NE(ContentOf(software), "\n"); }},
        {"SaveTree", 2,  // with that of the files
         [](CRegistry& software) {
             EXPECT_EQ(software.DeleteValue("X"), 0);
             CRegistry::SaveTree();
         }},
        {"SetValue", 1, [](CRegistry& software) { EXPECT_EQ(software.SetValue("B", 5), 0); }},
        {"DeleteKey", 1, [](CRegistry& software) { EXPECT_EQ(software.DeleteKey("B"), 0); }},
        {"DeleteValue", 1, [](CRegistry& software) { EXPECT_EQ(software.DeleteValue("B"), 0); }},
        {"DeleteNode", 1, [](CRegistry& software) { CRegistry::DeleteNode(software.Key()); }}};
    for (const Case& each : cases) {
        SCOPED_TRACE(each.what);
        WithTree([&each] {
            Software software;
            CRegistry below;
            EXPECT_EQ(below.CreateKey(software.Key(), "B\\C"), 0);
            const LockCount locks;
            each.body(software);
            EXPECT_EQ(locks.Held(), 0);
            EXPECT_EQ(locks.Most(), each.locks);
        });
    }
}

TEST(Registry, TenThousandHandlesOpenedAndClosed) {
    WithTree([] {
        std::vector<std::unique_ptr<CRegistry>> handles;
        for (int i = 0; i < 10000; ++i) {
            handles.push_back(
                std::make_unique<CRegistry>("HKEY_LOCAL_MACHINE/SOFTWARE", nullptr, 0));
            ASSERT_EQ(handles.back()->LastError(), 0);
        }
        EXPECT_EQ(handles.front()->SetValue("last", 9), 0);
        unsigned value = 0;
        EXPECT_EQ(handles.back()->GetValue(&value, "last", nullptr), 0);
        EXPECT_EQ(value, 9U);
    });
}

// --- Open --------------------------------------------------------------------------------------

TEST(Open, AnEmptyPathAndANullKeyGiveTheRoot) {
    WithTree([] {
        CRegistry registry;
        EXPECT_EQ(registry.Open("", nullptr, 0), 0);
        EXPECT_NE(registry.Key(), nullptr);
        EXPECT_THAT(KeysOf(registry), ElementsAre("HKEY_LOCAL_MACHINE", "61"));
        EXPECT_EQ(ContentOf(registry), kTree);
    });
}

TEST(Open, AnEmptyPathAndAKeyGiveThatKey) {
    WithTree([] {
        Software software;
        CRegistry registry;
        EXPECT_EQ(registry.Open("", software.Key(), 0), 0);
        EXPECT_EQ(registry.Key(), software.Key());
    });
}

TEST(Open, BackslashesAndSlashesReachTheSameKey) {
    WithTree([] {
        CRegistry one;
        CRegistry other;
        EXPECT_EQ(one.Open("HKEY_LOCAL_MACHINE\\SOFTWARE\\B", nullptr, 0), 0);
        EXPECT_EQ(other.Open("HKEY_LOCAL_MACHINE/SOFTWARE/B", nullptr, 1234), 0);
        EXPECT_EQ(one.Key(), other.Key());
        EXPECT_STREQ(one.KeyPath(), "HKEY_LOCAL_MACHINE/SOFTWARE/B");
    });
}

TEST(Open, AMixOfBothSplitsAtBackslashesOnly) {
    WithTree([] {
        CRegistry registry;
        EXPECT_EQ(registry.Open("HKEY_LOCAL_MACHINE\\SOFTWARE/B", nullptr, 0), -1);
        Software software;
        EXPECT_EQ(registry.CreateKey(software.Key(), "x/y\\z"), 0);
        EXPECT_EQ(registry.Open("x/y\\z", software.Key(), 0), 0);
        EXPECT_EQ(registry.Open("x/y/z", software.Key(), 0), -1);
    });
}

TEST(Open, ASeparatorAtTheEndIsIgnored) {
    WithTree([] {
        Software software;
        for (const char* path :
             {"HKEY_LOCAL_MACHINE\\SOFTWARE\\", "HKEY_LOCAL_MACHINE/SOFTWARE/"}) {
            CRegistry registry;
            EXPECT_EQ(registry.Open(path, nullptr, 0), 0);
            EXPECT_EQ(registry.Key(), software.Key());
            EXPECT_STREQ(registry.KeyPath(), "HKEY_LOCAL_MACHINE/SOFTWARE/");
        }
    });
}

TEST(Open, FailsWhereAKeyIsMissingOrAValueOrANameIsEmpty) {
    WithTree([] {
        Software registry;
        const HKEY software = registry.Key();
        for (const char* path : {"X", "B\\X", "Path", "\\B", "B\\\\x", "b", "B "}) {
            EXPECT_EQ(registry.Open(path, software, 0), -1) << path;
            EXPECT_EQ(registry.Key(), nullptr);
            EXPECT_EQ(registry.KeyPath(), nullptr);
            EXPECT_EQ(registry.LastError(), -1);
        }
        EXPECT_EQ(registry.Open(nullptr, software, 0), -1);
        EXPECT_EQ(registry.Open("B", software, 0), 0);
        EXPECT_EQ(registry.LastError(), 0);
    });
}

TEST(Open, TracesItsPathAndKey) {
    WithTree([] {
        CRegistry registry;
        TraceCapture trace{2};
        (void)registry.Open("HKEY_LOCAL_MACHINE", nullptr, 0);
        (void)registry.Open("B", registry.Key(), 0);
        ASSERT_EQ(trace.Lines().size(), 2U);
        EXPECT_EQ(trace.Lines()[0], "CRegistry::Open \"HKEY_LOCAL_MACHINE\", hKey = 0");
        EXPECT_THAT(trace.Lines()[1], StartsWith("CRegistry::Open \"B\", hKey = "));
    });
}

TEST(Open, WithoutMemoryItFailsWithALine) {
    if (!LibcFault::kHeapFaults) GTEST_SKIP() << LibcFault::kNoHeapFaults;
    WithTree([] {
        Software registry;
        TraceCapture trace{2};
        {
            FaultOf<&::malloc> fault;
            fault.AlwaysFail(ENOMEM);
            EXPECT_EQ(registry.Open("A", nullptr, 0), -1);
        }
        EXPECT_THAT(trace.Lines(), ElementsAre("CRegistry::Open \"A\", hKey = 0",
                                               "CRegistry::Open ##ERROR while opening !!!"));
        EXPECT_EQ(registry.Key(), nullptr);
    });
}

TEST(Open, IsSilentAtLevelOneAlsoWithoutMemory) {
    if (!LibcFault::kHeapFaults) GTEST_SKIP() << LibcFault::kNoHeapFaults;
    WithTree([] {
        Software registry;
        TraceCapture trace{1};
        {
            FaultOf<&::malloc> fault;
            fault.AlwaysFail(ENOMEM);
            EXPECT_EQ(registry.Open("A", nullptr, 0), -1);
        }
        EXPECT_THAT(trace.Lines(), IsEmpty());
    });
}

// --- CreateKey ---------------------------------------------------------------------------------

TEST(CreateKey, MakesTheKeysThatAreMissingAndEntersTheLast) {
    WithTree([] {
        Software registry;
        const HKEY software = registry.Key();
        TraceCapture trace{2};
        EXPECT_EQ(registry.CreateKey(nullptr, "B\\C\\D"), 0);
        EXPECT_THAT(trace.Lines(), ElementsAre("CRegistry::CreateKey \"B\\C\\D\""));
        EXPECT_EQ(registry.SetValue("y", 2), 0);
        EXPECT_EQ(Written(*software->FindChild("B")), "x=d=1\n[C]\n[D]\ny=d=2\n\n\n\n");
    });
}

TEST(CreateKey, OnAPathThatIsThereChangesNothingAndNothingIsSaved) {
    RegistryHost host{kTree};
    host.Run([] {
        Software registry;
        EXPECT_EQ(registry.CreateKey(nullptr, "B"), 0);
        EXPECT_EQ(ContentOf(registry), "x=d=1\n\n");
        EXPECT_EQ(registry.CreateKey(nullptr, ""), 0);
        EXPECT_EQ(ContentOf(registry), "x=d=1\n\n");
    });
    EXPECT_FALSE(host.Exists(kBackup));
}

TEST(CreateKey, IsAChangeThatIsSaved) {
    RegistryHost host{kTree};
    host.Run([] {
        Software registry;
        EXPECT_EQ(registry.CreateKey(nullptr, "Fresh"), 0);
    });
    EXPECT_NE(host.Read(kRegistry).find("[Fresh]"), std::string::npos);
}

TEST(CreateKey, MakesKeysWithoutANameButForOneAtTheEnd) {
    const std::pair<const char*, const char*> cases[] = {{"k\\\\m", "[k]\n[]\n[m]\n\n\n\n\n"},
                                                         {"k//m", "[k]\n[]\n[m]\n\n\n\n\n"},
                                                         {"\\k", "[]\n[k]\n\n\n\n"},
                                                         {"/k", "[]\n[k]\n\n\n\n"},
                                                         {"k\\", "[k]\n\n\n"},
                                                         {"", "\n"}};
    for (const auto& [path, content] : cases) {
        SCOPED_TRACE(path);
        WithTree([path = path, content = content] {
            Software software;
            CRegistry registry{"A", software.Key(), 0};
            EXPECT_EQ(registry.CreateKey(nullptr, path), 0);
            EXPECT_EQ(Written(*software.Key()->FindChild("A")), content);
            CRegistry opened{"A", software.Key(), 0};
            EXPECT_EQ(opened.Open(path, opened.Key(), 0), 0);
            EXPECT_EQ(opened.Key(), registry.Key());
        });
    }
}

TEST(CreateKey, UnderTheNameOfAValueFailsAndKeepsIt) {
    WithTree([] {
        Software registry;
        const HKEY software = registry.Key();
        const std::string before = ContentOf(registry);
        for (const char* name : {"Path", "Home", "Blob", "Empty", "Count"}) {
            EXPECT_EQ(registry.CreateKey(nullptr, name), -1) << name;
        }
        EXPECT_EQ(ContentOf(registry), before);
        EXPECT_EQ(registry.CreateKey(nullptr, "New\\x"), 0);
        EXPECT_EQ(registry.CreateKey(software, "Path\\x"), -1);
        EXPECT_EQ(registry.CreateKey(software, "New2\\y\\"), 0);
        EXPECT_EQ(ContentOf(registry), "\n") << "no key without a name below it";
        std::string path;
        EXPECT_EQ(registry.GetValue(path, "Path", software), 0);
        EXPECT_EQ(path, "/usr/lib");
    });
}

TEST(CreateKey, UnderTheNameOfTheNumberZeroReplacesIt) {
    // An entry without a value is like none, and the number is all that the entry has.
    WithTree([] {
        Software registry;
        const HKEY software = registry.Key();
        EXPECT_EQ(registry.SetValue("Zero", 0), 0);
        EXPECT_EQ(registry.CreateKey(nullptr, "Zero"), 0);
        EXPECT_EQ(registry.Key(), software->FindChild("Zero"));
    });
}

TEST(CreateKey, FailsWithoutAPathAndKeepsTheCurrentKey) {
    WithTree([] {
        Software registry;
        const HKEY software = registry.Key();
        TraceCapture trace{2};
        EXPECT_EQ(registry.CreateKey(nullptr, nullptr), -1);
        EXPECT_THAT(trace.Lines(), ElementsAre("CRegistry::CreateKey \"<null>\""));
        EXPECT_EQ(registry.CreateKey(nullptr, "Path"), -1);
        EXPECT_EQ(registry.Key(), software);
    });
}

TEST(CreateKey, FillsTheEntryOfAKeyThatWasDeleted) {
    WithTree([] {
        Software registry;
        const HKEY software = registry.Key();
        EXPECT_EQ(registry.DeleteKey("B"), 0);
        EXPECT_EQ(registry.CreateKey(nullptr, "B"), 0);
        EXPECT_EQ(ContentOf(registry), "\n");
        CRegistry other{software};
        EXPECT_THAT(KeysOf(other), ElementsAre("A", "B", "61"));
    });
}

TEST(CreateKey, WithoutMemoryItFails) {
    if (!LibcFault::kHeapFaults) GTEST_SKIP() << LibcFault::kNoHeapFaults;
    WithTree([] {
        Software registry;
        for (int passing = 0; passing < 3; ++passing) {
            FaultOf<&::malloc> fault;
            int left = passing;
            fault.Always([&left](size_t size) {
                return left-- <= 0 ? nullptr : LibcFault::Real<&::malloc>(size);
            });
            EXPECT_EQ(registry.CreateKey(nullptr, "New"), -1);
        }
        EXPECT_THAT(KeysOf(registry), ElementsAre("A", "B", "61"));
    });
}

// --- OpenPointer -------------------------------------------------------------------------------

TEST(OpenPointer, OpensTheKeyToWhichAValueLeads) {
    WithTree([] {
        Software software;
        EXPECT_EQ(software.SetValue("Link", "hkey_Local_machine/SOFTWARE/B"), 0);
        EXPECT_EQ(software.SetValue("Short link", "HKEY_LOCAL_MACHINE\\SOFTWARE"), 0);
        CRegistry registry;
        TraceCapture trace{2};
        EXPECT_EQ(registry.OpenPointer("SOFTWARE", "Link", CRegistry::MHives[0], 0), 0);
        EXPECT_EQ(registry.Key(), software.Key()->FindChild("B"));
        EXPECT_EQ(registry.LastError(), 0);
        ASSERT_EQ(trace.Lines().size(), 3U);
        EXPECT_EQ(trace.Lines()[0], "CRegistry::OpenPointer \"SOFTWARE\"");
        EXPECT_EQ(trace.Lines()[2], "CRegistry::Open \"HKEY_LOCAL_MACHINE/SOFTWARE/B\", hKey = 0");
        EXPECT_EQ(registry.OpenPointer("SOFTWARE", "Short link", CRegistry::MHives[0], 0), 0);
        EXPECT_EQ(registry.Key(), software.Key());
    });
}

TEST(OpenPointer, ExpandsAValueOfTypeTwo) {
    WithTree([] {
        (void)setenv("LWD_HIVE", "hkey_local_machine", 1);
        Software software;
        const std::string text = "%LWD_HIVE%\\SOFTWARE/B";
        ASSERT_TRUE(software.SetValue("Link", text.data(), static_cast<unsigned>(text.size()),
                                      kRegistryExpandString, nullptr));
        CRegistry registry;
        EXPECT_EQ(registry.OpenPointer("", "Link", software.Key(), 0), 0);
        EXPECT_EQ(registry.Key(), software.Key()->FindChild("B"));
        registry.ExpandStrings(false);
        EXPECT_EQ(registry.OpenPointer("", "Link", software.Key(), 0), -1);
    });
}

TEST(OpenPointer, AllInFrontOfABackslashIsTheHiveAndGetsCapitals) {
    WithTree([] {
        Software software;
        EXPECT_EQ(software.SetValue("Link", "hkey_local_machine/software\\B"), 0);
        CRegistry registry;
        EXPECT_EQ(registry.OpenPointer("", "Link", software.Key(), 0), 0);
        EXPECT_STREQ(registry.KeyPath(), "HKEY_LOCAL_MACHINE/SOFTWARE/B");
        EXPECT_EQ(registry.Key(), software.Key()->FindChild("B"));
    });
}

TEST(OpenPointer, ATextWithASecondBackslashLeadsNowhere) {
    // The first one has become a slash, so the others alone separate.
    WithTree([] {
        Software software;
        EXPECT_EQ(software.SetValue("Link", "HKEY_LOCAL_MACHINE\\SOFTWARE\\B"), 0);
        CRegistry registry;
        EXPECT_EQ(registry.OpenPointer("", "Link", software.Key(), 0), -1);
    });
}

TEST(OpenPointer, FailsWithoutAKeyAValueOrASeparator) {
    WithTree([] {
        Software software;
        EXPECT_EQ(software.SetValue("Nowhere", "HKEY_LOCAL_MACHINE/X"), 0);
        EXPECT_EQ(software.SetValue("Nothing", ""), 0);
        const std::pair<const char*, const char*> bad[] = {
            {"X", "Path"},   {"", "Missing"}, {"", "Short"}, {"", "Count"},    {"", "Blob"},
            {"", "Nowhere"}, {"", "Nothing"}, {"", nullptr}, {nullptr, "Path"}};
        for (const auto& [path, value] : bad) {
            CRegistry registry;
            EXPECT_EQ(registry.OpenPointer(path, value, software.Key(), 0), -1);
            EXPECT_EQ(registry.LastError(), -1);
            EXPECT_EQ(registry.Key(), nullptr);
        }
    });
}

TEST(OpenPointer, ItsUuidFormReadsBelowTheFixedPath) {
    WithTree([] {
        CRegistry key{"SYSTEM/CurrentControlSet/Control/UUID/C3681B60-0D26-11D3-8319-00A0C9B61E25",
                      CRegistry::MHives[0], 0};
        EXPECT_EQ(key.SetValue("Link", "HKEY_LOCAL_MACHINE/SOFTWARE"), 0);
        CRegistry registry;
        EXPECT_EQ(registry.OpenPointerUuid("Link", CRegistry::MHives[0], 0), 0);
        EXPECT_EQ(registry.Key(), Software{}.Key());
        EXPECT_EQ(registry.OpenPointerUuid("Link", nullptr, 0), -1);
    });
}

TEST(GetUuidValue, ReadsATextAndTriesTwice) {
    WithTree([] {
        CRegistry registry;
        std::string value = "before";
        TraceCapture trace{2};
        EXPECT_TRUE(registry.GetUuidValue(value, "Uuid"));
        EXPECT_EQ(value, "u-1");
        EXPECT_EQ(trace.LinesWith("CRegistry::Open").size(), 1U);
        for (const char* bad : {"Number", "Missing"}) {
            trace.Clear();
            EXPECT_FALSE(registry.GetUuidValue(value, bad));
            EXPECT_EQ(trace.LinesWith("CRegistry::Open").size(), 2U);
        }
        EXPECT_EQ(value, "u-1");
        EXPECT_EQ(registry.Key(), nullptr);
    });
}

TEST(GetUuidValue, TakesWhatItsSecondTryFinds) {
    if (!LibcFault::kHeapFaults) GTEST_SKIP() << LibcFault::kNoHeapFaults;
    WithTree([] {
        CRegistry registry;
        std::string value;
        TraceCapture trace{2};
        FaultOf<&::malloc> fault;
        constexpr const char* kPath =
            R"(SYSTEM\CurrentControlSet\Control\UUID\C3681B60-0D26-11D3-8319-00A0C9B61E25)";
        fault.Only([](size_t size) { return size == strlen(kPath) + 1; });
        fault.Fail(ENOMEM);
        EXPECT_TRUE(registry.GetUuidValue(value, "Uuid"));
        EXPECT_EQ(value, "u-1");
        EXPECT_EQ(trace.LinesWith("##ERROR").size(), 1U);
        EXPECT_EQ(trace.LinesWith("CRegistry::Open \"SYSTEM").size(), 2U);
    });
}

TEST(GetUuidValue, IsFalseWithoutTheHiveOfTheMachine) {
    RegistryHost host{"[HKEY_USERS]\na=d=1\n\n\n"};
    host.Run([] {
        CRegistry registry;
        EXPECT_EQ(CRegistry::MHives[kHiveLocalMachine], nullptr);
        std::string value = "before";
        EXPECT_FALSE(registry.GetUuidValue(value, "Uuid"));
        EXPECT_EQ(value, "before");
    });
}

// --- DeleteKey, EnumKey ------------------------------------------------------------------------

TEST(DeleteKey, FreesTheSubtreeAndClearsTheEntry) {
    RegistryHost host{kTree};
    host.Run([] {
        Software registry;
        TraceCapture trace{2};
        EXPECT_EQ(registry.DeleteKey("B"), 0);
        EXPECT_THAT(trace.Lines(),
                    ElementsAre("CRegistry::DeleteKey \"B\"", "CRegistryNode::deleteNode \"x\""));
        const RecursiveLockGuard hold{registry.Key()->Lock()};
        ASSERT_NE(registry.Key()->Find("B"), nullptr);
        EXPECT_EQ(registry.Key()->Find("B")->Type, kRegistrySubkey);
        EXPECT_EQ(registry.Key()->Find("B")->Value, 0U);
        EXPECT_EQ(registry.Open("B", registry.Key(), 0), -1);
    });
    EXPECT_EQ(host.Read(kRegistry).find("[B]"), std::string::npos);
}

TEST(DeleteKey, GivesTwentyTwoForWhatIsNoSubkey) {
    WithTree([] {
        Software registry;
        EXPECT_EQ(registry.DeleteKey("X"), EINVAL);
        EXPECT_EQ(registry.DeleteKey("Path"), EINVAL);
        EXPECT_EQ(registry.DeleteKey(nullptr), EINVAL);
        EXPECT_EQ(registry.DeleteKey("B"), 0);
        EXPECT_EQ(registry.DeleteKey("B"), 0);  // its entry is still there
    });
}

TEST(DeleteKey, OfADeletedKeyMarksTheTreeAsChanged) {
    RegistryHost host{kTree};
    host.Run([] {
        { EXPECT_EQ(Software{}.DeleteKey("B"), 0); }
        EXPECT_EQ(remove(kRegistry.c_str()), 0);
        { EXPECT_EQ(Software{}.DeleteKey("B"), 0); }
    });
    EXPECT_TRUE(host.Exists(kRegistry));
}

TEST(DeleteKey, AHandleOnADeletedKeyFindsItEmpty) {
    WithTree([] {
        Software software;
        CRegistry below{"B", software.Key(), 0};
        EXPECT_EQ(software.DeleteKey("B"), 0);
        EXPECT_EQ(below.GetValue("x", nullptr), nullptr);
        EXPECT_EQ(below.SetValue("y", 1), 0);
        EXPECT_EQ(below.CreateKey(nullptr, "z"), 0);
        EXPECT_EQ(software.Open("B", software.Key(), 0), -1);
    });
}

TEST(EnumKey, GivesTheSubkeysInOrder) {
    WithTree([] {
        Software registry;
        EXPECT_THAT(KeysOf(registry), ElementsAre("A", "B", "61"));
        unsigned count = 0;
        EXPECT_EQ(registry.QuerySubkeyCount(&count), 0);
        EXPECT_EQ(count, 2U);
        EXPECT_EQ(registry.QuerySubkeyCount(nullptr), EINVAL);
    });
}

TEST(EnumKey, LeavesOutDeletedKeys) {
    WithTree([] {
        Software registry;
        EXPECT_EQ(registry.DeleteKey("A"), 0);
        EXPECT_THAT(KeysOf(registry), ElementsAre("B", "61"));
        unsigned count = 0;
        EXPECT_EQ(registry.QuerySubkeyCount(&count), 0);
        EXPECT_EQ(count, 1U);
    });
}

TEST(EnumKey, CutsTheNameToItsBuffer) {
    WithTree([] {
        CRegistry registry;
        (void)registry.Open("HKEY_LOCAL_MACHINE", nullptr, 0);
        AtPageEnd buffer{"12345"};
        unsigned length = 5;
        EXPECT_EQ(registry.EnumKey(buffer.Buffer().data(), &length, 0, nullptr, nullptr), 0);
        EXPECT_STREQ(buffer.Buffer().data(), "SOFT");
        EXPECT_EQ(length, 4U);
        length = 1;
        EXPECT_EQ(registry.EnumKey(buffer.Buffer().data(), &length, 0, nullptr, nullptr), 0);
        EXPECT_STREQ(buffer.Buffer().data(), "");
        EXPECT_EQ(length, 0U);
        buffer.Buffer().data()[0] = 'x';
        EXPECT_EQ(registry.EnumKey(buffer.Buffer().data(), &length, 0, nullptr, nullptr), 0);
        EXPECT_EQ(buffer.Buffer().data()[0], 'x');  // no room, not even for the end
        EXPECT_EQ(registry.EnumKey(nullptr, &length, 0, nullptr, nullptr), EINVAL);
        EXPECT_EQ(registry.EnumKey(buffer.Buffer().data(), nullptr, 0, nullptr, nullptr), EINVAL);
    });
}

TEST(EnumKey, ByValueGivesTheNameAlone) {
    WithTree([] {
        Software registry;
        char name[8];
        EXPECT_EQ(registry.EnumKeyByValue(name, sizeof name, 1, nullptr, 0), 0);
        EXPECT_STREQ(name, "B");
        EXPECT_EQ(registry.EnumKeyByValue(name, sizeof name, 2, nullptr, 0), ENODATA);
        EXPECT_EQ(registry.EnumKeyByValue(nullptr, 1, 0, nullptr, 0), EINVAL);
    });
}

// --- GetValue ----------------------------------------------------------------------------------

TEST(GetValueSize, CountsAsItsTypeDoes) {
    WithTree([] {
        Software registry;
        const std::pair<const char*, unsigned> sizes[] = {{"Path", 9},  {"Home", 18}, {"Blob", 3},
                                                          {"Count", 4}, {"Empty", 0}, {"A", 0},
                                                          {"X", 0},     {nullptr, 0}};
        for (const auto& [name, size] : sizes) {
            EXPECT_EQ(registry.GetValueSize(name, nullptr), size) << (name ? name : "null");
        }
        CRegistry other;
        EXPECT_EQ(other.GetValueSize("Path", registry.Key()), 9U);
    });
}

TEST(GetValue, GivesTheBytesOfEachType) {
    WithTree([] {
        Software registry;
        EXPECT_STREQ(registry.GetValue("Path", nullptr), "/usr/lib");
        EXPECT_EQ(registry.ValueLength(), 9U);
        EXPECT_EQ(registry.ValueType(), kRegistryString);
        EXPECT_EQ(memcmp(registry.GetValue("Blob", nullptr), "\x0A\xFF\x10", 4), 0);
        EXPECT_EQ(registry.ValueLength(), 3U);
        EXPECT_EQ(registry.ValueType(), kRegistryBinary);
        int count = 0;
        memcpy(&count, registry.GetValue("Count", nullptr), sizeof count);
        EXPECT_EQ(count, -42);
        EXPECT_EQ(registry.ValueLength(), 4U);
        EXPECT_EQ(registry.ValueType(), kRegistryDoubleWord);
        for (const char* none : {"X", "Empty", "A"}) {
            EXPECT_EQ(registry.GetValue(none, nullptr), nullptr);
            EXPECT_EQ(registry.ValueLength(), 0U);
        }
        CRegistry other;
        EXPECT_STREQ(other.GetValue("Path", registry.Key()), "/usr/lib");
    });
}

TEST(GetValue, TracesTheLengthAtLevelFour) {
    WithTree([] {
        Software registry;
        TraceCapture trace{4};
        (void)registry.GetValue("Home", nullptr);
        (void)registry.GetValue("X", nullptr);
        (void)registry.GetValue(nullptr, nullptr);
        EXPECT_THAT(trace.Lines(), ElementsAre("CRegistry::GetValue \"Home\" --> len 18",
                                               "CRegistry::GetValue \"X\" --> len 0",
                                               "CRegistry::GetValue \"<null>\" --> len 0"));
    });
}

TEST(GetValue, IsSilentAtLevelThree) {
    WithTree([] {
        Software registry;
        TraceCapture trace{3};
        (void)registry.GetValue("Home", nullptr);
        (void)registry.GetValue("X", nullptr);
        EXPECT_THAT(trace.Lines(), IsEmpty());
    });
}

TEST(Registry, ReadsAndSetsValuesOfAnotherKeyThanTheCurrentOne) {
    WithTree([] {
        Software software;
        CRegistry other;  // has no key
        const HKEY key = software.Key();
        EXPECT_TRUE(other.SetValue("New", "xyz", 3, kRegistryString, key));
        unsigned number = 0;
        EXPECT_EQ(other.GetValue(&number, "Count", key), 0);
        EXPECT_EQ(number, static_cast<unsigned>(-42));
        std::string text;
        EXPECT_EQ(other.GetValue(text, "New", key), 0);
        EXPECT_EQ(text, "xyz");
        char buffer[4];
        EXPECT_EQ(other.GetValue(buffer, "New", sizeof buffer, key), 0);
        EXPECT_STREQ(buffer, "xyz");
        unsigned count = sizeof buffer;
        EXPECT_EQ(other.QueryValue(buffer, "Short", &count, key), 0);
        EXPECT_STREQ(buffer, "abc");
        EXPECT_EQ(count, 3U);
        EXPECT_EQ(other.Key(), nullptr);

        EXPECT_EQ(other.Open("B", key, 0), 0);
        EXPECT_TRUE(other.SetValue("Short", "def", 3, kRegistryString, key));
        EXPECT_EQ(software.GetValue(text, "Short", nullptr), 0);
        EXPECT_EQ(text, "def");
        EXPECT_EQ(other.GetValue(text, "Short", nullptr), ENODATA)
            << "the current key is not asked";
        EXPECT_EQ(ContentOf(other), "x=d=1\n\n");
    });
}

TEST(GetValue, UsesItsBufferAgainOnlyWhereTheValueHasRoom) {
    WithTree([] {
        (void)setenv("LWD_LONG", std::string(500, 'l').c_str(), 1);
        Software registry;
        ASSERT_TRUE(registry.SetValue("e", "%LWD_LONG%", 10, kRegistryExpandString, nullptr));
        EXPECT_EQ(registry.SetValue("long", std::string(300, 'x').c_str()), 0);
        for (int i = 0; i < 3; ++i) {
            EXPECT_STREQ(registry.GetValue("Short", nullptr), "abc");
            EXPECT_EQ(registry.GetValue("e", nullptr), std::string(500, 'l'));
            EXPECT_EQ(registry.GetValue("long", nullptr), std::string(300, 'x'));
            registry.CRegistry::operator=(Software{});
        }
    });
}

TEST(GetValue, MayBeAskedForTheNameThatItGave) {
    WithTree([] {
        Software registry;
        EXPECT_EQ(registry.SetValue("Link", "Path"), 0);
        TraceCapture trace{4};
        EXPECT_STREQ(registry.GetValue(registry.GetValue("Link", nullptr), nullptr), "/usr/lib");
        EXPECT_THAT(trace.Lines(), ElementsAre("CRegistry::GetValue \"Link\" --> len 5",
                                               "CRegistry::GetValue \"Path\" --> len 9"));
    });
}

TEST(Registry, WritesTheLinesOfItsOperationsAtLevelTwo) {
    WithTree([] {
        Software registry;
        TraceCapture trace{1};
        (void)registry.DeleteKey("A");
        (void)registry.DeleteValue("Path");
        (void)registry.OpenPointer("HKEY_LOCAL_MACHINE", "None", nullptr, 0);
        EXPECT_THAT(trace.Lines(), IsEmpty());
    });
}

TEST(GetValue, ExpandsVariablesOfTheEnvironment) {
    WithTree([] {
        (void)unsetenv("LWD_QX_HOME");
        (void)setenv("LWD_SET", "value", 1);
        const std::pair<const char*, const char*> cases[] = {
            {"%LWD_QX_HOME%/bin", "/bin"},
            {"100%%", "100%"},
            {"%LWD_SET%", "value"},
            {"a%LWD_SET%b%LWD_SET%c", "avaluebvaluec"},
            {"lone % sign", "lone  sign"},
            {"%", ""},
            {"%%%", "%"},
            {"%%LWD_SET%%", "%LWD_SET%"},
            {"%LWD_QX_HOME%", ""},
            {"", ""},
            {"plain", "plain"},
            {"%LWD_SET", "LWD_SET"},
            {"a%LWD_SET%%LWD_SET%", "avaluevalue"}};
        Software registry;
        for (const auto& [text, expanded] : cases) {
            const auto size = static_cast<unsigned>(strlen(text));
            ASSERT_TRUE(registry.SetValue("e", text, size, kRegistryExpandString, nullptr));
            EXPECT_STREQ(registry.GetValue("e", nullptr), expanded);
            EXPECT_EQ(registry.ValueLength(), strlen(expanded)) << text;
        }
        registry.ExpandStrings(false);
        EXPECT_STREQ(registry.GetValue("Home", nullptr), "%LWD_QX_HOME%/bin");
        EXPECT_EQ(registry.ValueLength(), 18U);  // with its NUL
    });
}

TEST(GetValue, ANumberIsWhateverHasFourBytes) {
    WithTree([] {
        Software registry;
        unsigned number = 0;
        EXPECT_EQ(registry.GetValue(&number, "Count", nullptr), 0);
        EXPECT_EQ(static_cast<int>(number), -42);
        EXPECT_EQ(registry.GetValue(&number, "Short", nullptr), 0);  // "abc" and its NUL
        EXPECT_EQ(memcmp(&number, "abc", 4), 0);
        EXPECT_TRUE(registry.SetValue("Four", "\1\0\xFE\3", 4, kRegistryBinary, nullptr));
        EXPECT_EQ(registry.GetValue(&number, "Four", nullptr), 0);
        EXPECT_EQ(memcmp(&number, "\1\0\xFE\3", 4), 0);
        EXPECT_TRUE(registry.SetValue("Unset", "%u%", 3, kRegistryExpandString, nullptr));
        EXPECT_EQ(registry.GetValue(&number, "Unset", nullptr), 0);  // its size counts, not what
        EXPECT_EQ(memcmp(&number, "%u%", 4), 0);                     // it would be expanded to
        EXPECT_STREQ(registry.GetValue("Unset", nullptr), "");
        for (const char* bad : {"Path", "Blob", "Empty", "A", "X"}) {
            EXPECT_EQ(registry.GetValue(&number, bad, nullptr), ENODATA) << bad;
        }
        EXPECT_EQ(registry.GetValue(static_cast<unsigned*>(nullptr), "Count", nullptr), EINVAL);
        EXPECT_EQ(registry.GetValue(&number, nullptr, nullptr), EINVAL);
    });
}

TEST(GetValue, ATextIsOfOneOfTwoTypes) {
    WithTree([] {
        (void)unsetenv("LWD_QX_HOME");
        Software registry;
        std::string text = "before";
        for (const char* bad : {"Count", "Blob", "Empty", "A", "X"}) {
            EXPECT_EQ(registry.GetValue(text, bad, nullptr), ENODATA) << bad;
        }
        EXPECT_EQ(registry.GetValue(text, nullptr, nullptr), EINVAL);
        EXPECT_EQ(text, "before");
        EXPECT_EQ(registry.GetValue(text, "Home", nullptr), 0);
        EXPECT_EQ(text, "/bin");
        EXPECT_EQ(registry.GetValue(text, "Path", nullptr), 0);
        EXPECT_EQ(text, "/usr/lib");
    });
}

TEST(GetValue, IntoABufferOfTheTextsLengthGives34AndACopyWithoutAnEnd) {
    WithTree([] {
        Software registry;
        AtPageEnd buffer{"........"};
        EXPECT_EQ(registry.GetValue(buffer.Buffer().data(), "Path", 8, nullptr), ERANGE);
        EXPECT_EQ(std::string(buffer.Buffer().data(), 8), "/usr/lib");
        AtPageEnd larger{"........."};
        EXPECT_EQ(registry.GetValue(larger.Buffer().data(), "Path", 9, nullptr), 0);
        EXPECT_STREQ(larger.Buffer().data(), "/usr/lib");
        EXPECT_EQ(registry.GetValue(static_cast<char*>(nullptr), "Path", 0, nullptr), 0);
        EXPECT_EQ(registry.GetValue(static_cast<char*>(nullptr), "X", 0, nullptr), ENODATA);
        EXPECT_EQ(registry.GetValue(buffer.Buffer().data(), "Path", 0, nullptr), ERANGE);
        EXPECT_EQ(registry.GetValue(buffer.Buffer().data(), "Count", 8, nullptr), ENODATA);
        EXPECT_EQ(registry.GetValue(buffer.Buffer().data(), nullptr, 8, nullptr), EINVAL);
    });
}

TEST(GetValue, IntoABufferCountsTheTextAsItIsExpanded) {
    WithTree([] {
        (void)setenv("LWD_QX_HOME", "/opt", 1);
        Software registry;  // "Home" is "%LWD_QX_HOME%/bin"
        char buffer[] = "123456789";
        EXPECT_EQ(registry.GetValue(buffer, "Home", 8, nullptr), ERANGE);
        EXPECT_STREQ(buffer, "/opt/bin9");
        EXPECT_EQ(registry.ValueLength(), 8U);
        EXPECT_EQ(registry.GetValue(buffer, "Home", 9, nullptr), 0);
        EXPECT_STREQ(buffer, "/opt/bin");
        unsigned count = 0;
        EXPECT_EQ(registry.QueryValue(nullptr, "Home", &count, nullptr), 0);
        EXPECT_EQ(count, 9U);
        registry.ExpandStrings(false);
        EXPECT_EQ(registry.GetValue(buffer, "Home", 9, nullptr), ERANGE);
        EXPECT_STREQ(buffer, "%LWD_QX_H");
        EXPECT_EQ(registry.ValueLength(), 18U);
    });
}

TEST(QueryValue, CountsTheNulWhenAskedForTheSizeOnly) {
    WithTree([] {
        Software registry;
        unsigned count = 0;
        EXPECT_EQ(registry.QueryValue(nullptr, "Path", &count, nullptr), 0);
        EXPECT_EQ(count, 9U);
        AtPageEnd buffer{"........."};
        EXPECT_EQ(registry.QueryValue(buffer.Buffer().data(), "Path", &count, nullptr), 0);
        EXPECT_EQ(count, 8U);
        EXPECT_STREQ(buffer.Buffer().data(), "/usr/lib");
        AtPageEnd small{"........"};
        EXPECT_EQ(registry.QueryValue(small.Buffer().data(), "Path", &count, nullptr), ERANGE);
        EXPECT_EQ(std::string(small.Buffer().data(), 8), "/usr/lib");
        EXPECT_EQ(registry.QueryValue(small.Buffer().data(), "Count", &count, nullptr), ENODATA);
        EXPECT_EQ(registry.QueryValue(small.Buffer().data(), nullptr, &count, nullptr), EINVAL);
    });
}

TEST(QueryValue, TellsOfANullCount) {
    WithTree([] {
        Software registry;
        char buffer[16];
        TraceCapture trace{1};
        EXPECT_EQ(registry.QueryValue(buffer, "Path", nullptr, nullptr), ERANGE);
        EXPECT_THAT(trace.Lines(),
                    ElementsAre("CRegistry::QueryValue: ** ERROR **  pdwCount is a NULL pointer"));
    });
}

TEST(GetValue, WithoutMemoryThereIsNone) {
    if (!LibcFault::kHeapFaults) GTEST_SKIP() << LibcFault::kNoHeapFaults;
    WithTree([] {
        Software registry;
        std::string text = "before";
        FaultOf<&::malloc> fault;
        fault.AlwaysFail(ENOMEM);
        EXPECT_EQ(registry.GetValue("Path", nullptr), nullptr);
        EXPECT_EQ(registry.GetValue(text, "Path", nullptr), ENODATA);
        EXPECT_EQ(registry.SetValue("Path", "new"), EINVAL);
        EXPECT_FALSE(registry.SetValue("New", "x", 1, kRegistryBinary, nullptr));
        EXPECT_EQ(registry.SetValue("New", 1), EINVAL);
        EXPECT_EQ(registry.SetValue("Count", 1), 0);  // needs none
    });
}

// --- EnumValue ---------------------------------------------------------------------------------

TEST(EnumValue, OfTwoValuesGivesThemThenAnEmptyNameThen61) {
    WithTree([] {
        Software software;
        CRegistry registry;
        EXPECT_EQ(registry.CreateKey(software.Key(), "Two"), 0);
        EXPECT_EQ(registry.CreateKey(nullptr, "key"), 0);
        EXPECT_EQ(registry.Open("Two", software.Key(), 0), 0);
        EXPECT_EQ(registry.SetValue("b", 1), 0);
        EXPECT_EQ(registry.SetValue("a", "x"), 0);
        EXPECT_THAT(ValuesOf(registry, kRegistryAllValues), ElementsAre("a", "b", "", "61"));
    });
}

TEST(EnumValue, CountsByItsFilter) {
    WithTree([] {
        Software registry;
        EXPECT_THAT(ValuesOf(registry, 999),
                    ElementsAre("Blob", "Count", "Empty", "Home", "Path", "Short", "", "61"));
        EXPECT_THAT(ValuesOf(registry, 0), ElementsAre("", "61"));
        EXPECT_THAT(ValuesOf(registry, 1), ElementsAre("Path", "Short", "61"));
        EXPECT_THAT(ValuesOf(registry, 2), ElementsAre("Home", "61"));
        EXPECT_THAT(ValuesOf(registry, 3), ElementsAre("Blob", "Empty", "61"));
        EXPECT_THAT(ValuesOf(registry, 4), ElementsAre("Count", "61"));
        EXPECT_THAT(ValuesOf(registry, 666), ElementsAre("A", "B", "61"));
        EXPECT_THAT(ValuesOf(registry, 5), ElementsAre("61"));
        CRegistry empty{"A", registry.Key(), 0};
        EXPECT_THAT(ValuesOf(empty, 999), ElementsAre("", "61"));
        EXPECT_THAT(ValuesOf(empty, 1), ElementsAre("61"));
    });
}

TEST(EnumValue, GivesTheDataOfTextsAndNumbersOnly) {
    WithTree([] {
        (void)unsetenv("LWD_QX_HOME");
        Software registry;
        char name[16];
        char data[16] = "untouched";
        const auto enumerate = [&](unsigned index, unsigned filter, unsigned dataLength) {
            unsigned length = sizeof name;
            const int result = registry.EnumValue(name, &length, index, filter, data, &dataLength);
            return std::pair{result, dataLength};
        };
        EXPECT_EQ(enumerate(0, 1, sizeof data), (std::pair{0, 8U}));
        EXPECT_STREQ(data, "/usr/lib");
        EXPECT_EQ(enumerate(0, 2, sizeof data), (std::pair{0, 4U}));
        EXPECT_STREQ(data, "/bin");
        EXPECT_EQ(enumerate(0, 1, 8), (std::pair{ERANGE, 8U}));
        EXPECT_STREQ(name, "Path");
        EXPECT_EQ(enumerate(0, 4, 4), (std::pair{0, 4U}));
        int number = 0;
        memcpy(&number, data, sizeof number);
        EXPECT_EQ(number, -42);
        EXPECT_EQ(enumerate(0, 4, 3), (std::pair{0, 0U}));
        EXPECT_EQ(enumerate(0, 3, sizeof data), (std::pair{0, 0U}));
        EXPECT_EQ(enumerate(0, 666, sizeof data), (std::pair{0, 0U}));
        EXPECT_EQ(enumerate(0, 0, sizeof data), (std::pair{0, 0U}));
        EXPECT_STREQ(name, "");
    });
}

TEST(EnumValue, CutsTheNameAndNeedsItsArguments) {
    WithTree([] {
        Software registry;
        AtPageEnd buffer{"123"};
        unsigned length = 3;
        EXPECT_EQ(registry.EnumValue(buffer.Buffer().data(), &length, 0, 1, nullptr, nullptr), 0);
        EXPECT_STREQ(buffer.Buffer().data(), "Pa");
        EXPECT_EQ(length, 2U);
        EXPECT_EQ(registry.EnumValue(nullptr, &length, 0, 1, nullptr, nullptr), EINVAL);
        EXPECT_EQ(registry.EnumValue(buffer.Buffer().data(), nullptr, 0, 1, nullptr, nullptr),
                  EINVAL);
    });
}

TEST(EnumValue, ByValueStoresNameAndData) {
    WithTree([] {
        Software registry;
        char name[16];
        char data[16];
        EXPECT_EQ(registry.EnumValueByValue(name, sizeof name, 0, 1, data, sizeof data), 0);
        EXPECT_STREQ(name, "Path");
        EXPECT_STREQ(data, "/usr/lib");
        EXPECT_EQ(registry.EnumValueByValue(name, sizeof name, 2, 1, data, sizeof data), ENODATA);
    });
}

// --- SetValue, DeleteValue ---------------------------------------------------------------------

TEST(SetValue, StoresEachType) {
    WithTree([] {
        Software software;
        CRegistry registry;
        EXPECT_EQ(registry.CreateKey(software.Key(), "New"), 0);
        EXPECT_TRUE(registry.SetValue("s", "text and more", 4, kRegistryString, nullptr));
        EXPECT_TRUE(registry.SetValue("e", "%x%", 3, kRegistryExpandString, nullptr));
        EXPECT_TRUE(registry.SetValue("b", "\1\2\0", 3, kRegistryBinary, nullptr));
        EXPECT_TRUE(registry.SetValue("n", nullptr, 0, kRegistryBinary, nullptr));
        const int number = -5;
        EXPECT_TRUE(registry.SetValue("d", &number, 4, kRegistryDoubleWord, nullptr));
        EXPECT_EQ(registry.SetValue("i", 77), 0);
        EXPECT_EQ(registry.SetValue("t", "words"), 0);
        EXPECT_EQ(ContentOf(registry),
                  "b=b=01 02 00 \nd=d=-5\ne=es=%x%\ni=d=77\nn=b=\ns=s=text\nt=s=words\n\n");
    });
}

TEST(SetValue, RefusesOtherTypesAndSizesButTheTreeCountsAsChanged) {
    RegistryHost host{kTree};
    host.Run([] {
        Software registry;
        const std::string before = ContentOf(registry);
        for (const unsigned type : {0U, 5U, 666U, 999U}) {
            EXPECT_FALSE(registry.SetValue("x", "abcd", 4, type, nullptr));
        }
        EXPECT_FALSE(registry.SetValue("x", "abcde", 5, kRegistryDoubleWord, nullptr));
        EXPECT_FALSE(registry.SetValue("x", "abc", 3, kRegistryDoubleWord, nullptr));
        EXPECT_FALSE(registry.SetValue("x", nullptr, 3, kRegistryString, nullptr));
        EXPECT_EQ(registry.SetValue("x", static_cast<const char*>(nullptr)), EINVAL);
        EXPECT_EQ(ContentOf(registry), before);
    });
    EXPECT_TRUE(host.Exists(kBackup));
}

TEST(SetValue, WithoutANameStoresNothingAndIsContent) {
    WithTree([] {
        Software registry;
        const std::string before = ContentOf(registry);
        EXPECT_TRUE(registry.SetValue(nullptr, "x", 1, kRegistryString, nullptr));
        EXPECT_EQ(registry.SetValue(nullptr, 5), 0);
        EXPECT_EQ(registry.SetValue(nullptr, "x"), 0);
        EXPECT_EQ(ContentOf(registry), before);
    });
}

TEST(SetValue, TracesItsArgumentsAndTheOldValue) {
    WithTree([] {
        Software registry;
        TraceCapture trace{2};
        EXPECT_EQ(registry.SetValue("Path", "x"), 0);
        ASSERT_EQ(trace.Lines().size(), 2U);
        EXPECT_EQ(trace.Lines()[0], "CRegistry::SetValue \"Path\" 1 1");
        EXPECT_THAT(trace.Lines()[1], StartsWith("CRegistry::SetValue oEntry = 0x"));
        trace.Clear();
        EXPECT_EQ(registry.SetValue("New", 5), 0);
        EXPECT_EQ(registry.SetValue("New", 0), 0);  // a former number is shown as a pointer
        EXPECT_EQ(registry.SetValue("New", 6), 0);  // 0 is none
        EXPECT_THAT(
            trace.Lines(),
            ElementsAre("CRegistry::SetValue \"New\" 4 4", "CRegistry::SetValue \"New\" 4 4",
                        "CRegistry::SetValue oEntry = 0x5", "CRegistry::SetValue \"New\" 4 4"));
    });
}

TEST(SetValue, UnderTheNameOfASubkeyFreesItsSubtree) {
    WithTree([] {
        Software registry;
        TraceCapture trace{2};
        EXPECT_EQ(registry.SetValue("B", 5), 0);
        EXPECT_EQ(trace.LinesWith("deleteNode"), (Lines{"CRegistryNode::deleteNode \"x\""}));
        EXPECT_THAT(KeysOf(registry), ElementsAre("A", "61"));
        unsigned value = 0;
        EXPECT_EQ(registry.GetValue(&value, "B", nullptr), 0);
        EXPECT_EQ(value, 5U);
    });
}

TEST(DeleteValue, TakesAValueOut) {
    WithTree([] {
        Software registry;
        TraceCapture trace{2};
        EXPECT_EQ(registry.DeleteValue("Path"), 0);
        EXPECT_THAT(trace.Lines(), ElementsAre("CRegistry::DeleteValue \"Path\""));
        EXPECT_EQ(registry.GetValue("Path", nullptr), nullptr);
        EXPECT_STREQ(registry.GetValue("Short", nullptr), "abc");
    });
}

TEST(DeleteValue, TakesASubkeyOutIfTheNameIsOne) {
    WithTree([] {
        Software registry;
        TraceCapture trace{2};
        EXPECT_EQ(registry.DeleteValue("B"), 0);
        EXPECT_THAT(trace.Lines(),
                    ElementsAre("CRegistry::DeleteValue \"B\"", "CRegistryNode::deleteNode \"x\""));
        EXPECT_EQ(registry.DeleteKey("B"), EINVAL);  // the entry has gone
    });
}

TEST(DeleteValue, OfAnAbsentNameStillMarksTheTreeAsChanged) {
    RegistryHost host{kTree};
    host.Run([] {
        Software registry;
        EXPECT_EQ(registry.DeleteValue("X"), 0);
    });
    EXPECT_EQ(host.Read(kBackup), kTree);
    EXPECT_EQ(host.Read(kRegistry), kTree);
    RegistryHost other{kTree};
    other.Run([] {
        Software registry;
        EXPECT_EQ(registry.DeleteValue(nullptr), 0);
    });
    EXPECT_TRUE(other.Exists(kBackup));
}

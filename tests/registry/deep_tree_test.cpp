// Trees as deep as a file can make them, on a stack that no recursion would get along with.

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "registry/registry_host.h"
#include "support/repeated.h"
#include "support/sanitizers.h"
#include "support/small_stack.h"

namespace {

/// A sanitizer makes each key several times as large; the depth is still one that no stack holds.
constexpr size_t kMillion = kAddressSanitizer || kThreadSanitizer ? 100'000 : 1'000'000;

/// Keys in keys, with a value in the last one.
std::string DeepText(size_t depth) {
    return Repeated("[a]\n", depth) + "v=d=1\n" + Repeated("\n", depth + 1);
}

size_t DepthOf(CRegistryNode& node) {
    size_t depth = 0;
    for (CRegistryNode* at = node.FindChild("a"); at != nullptr; at = at->FindChild("a")) ++depth;
    return depth;
}

}  // namespace

TEST(DeepTree, AFileOfNothingButKeysDoesNotStopTheProcess) {
    RegistryHost host{Repeated("[a]\n", 28 * 1024 / 4)};
    host.File(kBackup, TreeWith("backup"));
    host.Run([] {
        OnSmallStack([] { EXPECT_EQ(NameInTree(), "backup"); });
        CRegistry root;
        EXPECT_EQ(root.Open("", nullptr, 0), 0);
        EXPECT_EQ(DepthOf(*root.Key()), 28U * 1024 / 4);
    });
}

TEST(DeepTree, AMillionLevelsAreReadWrittenAndFreed) {
    const std::string text = DeepText(kMillion);
    OnSmallStack([&] {
        CRegistryNode node;
        EXPECT_EQ(ReadText(node, text), 1U);
        EXPECT_EQ(DepthOf(node), kMillion);
        EXPECT_TRUE(Written(node) == text);
    });
}

TEST(DeepTree, AMillionLevelsThatTheFileDoesNotEndAreRead) {
    const std::string text = Repeated("[a]\n", kMillion) + "v=d=1";
    OnSmallStack([&] {
        CRegistryNode node;
        EXPECT_EQ(ReadText(node, text), 1U);
        EXPECT_EQ(DepthOf(node), kMillion);
    });
}

TEST(DeepTree, AMillionLevelsAreDisposedOfByEachOperation) {
    RegistryHost host{TreeWith("x")};
    host.Run([] {
        const std::string text = DeepText(kMillion / 4);
        OnSmallStack([&] {
            CRegistry registry;
            const auto fill = [&] {
                EXPECT_EQ(registry.Open("", nullptr, 0), 0);
                EXPECT_EQ(registry.CreateKey(nullptr, "HKEY_LOCAL_MACHINE\\deep"), 0);
                EXPECT_EQ(ReadText(*registry.Key(), text), 1U);
                EXPECT_EQ(registry.Open("HKEY_LOCAL_MACHINE", nullptr, 0), 0);
                EXPECT_EQ(DepthOf(*registry.Key()->FindChild("deep")), kMillion / 4);
            };
            fill();
            EXPECT_EQ(registry.DeleteKey("deep"), 0);
            fill();
            EXPECT_EQ(registry.SetValue("deep", 1), 0);
            EXPECT_EQ(registry.DeleteValue("deep"), 0);
            fill();
            EXPECT_EQ(registry.DeleteValue("deep"), 0);
            fill();
            CRegistry::DeleteNode(registry.Key());
            EXPECT_EQ(registry.Key()->FindChild("deep"), nullptr);
        });
    });
}

TEST(DeepTree, APathOfAMillionNamesIsMadeAndOpened) {
    RegistryHost host{TreeWith("x")};
    host.Run([] {
        const std::string path = "HKEY_LOCAL_MACHINE" + Repeated("\\a", kMillion / 4);
        OnSmallStack([&] {
            CRegistry registry;
            EXPECT_EQ(registry.Open("", nullptr, 0), 0);
            EXPECT_EQ(registry.CreateKey(nullptr, path.c_str()), 0);
            EXPECT_EQ(registry.SetValue("v", 1), 0);
            CRegistry other{path.c_str(), nullptr, 0};
            EXPECT_EQ(other.Key(), registry.Key());
            EXPECT_NE(other.Key(), nullptr);
        });
    });
    host.Run([] {
        CRegistry machine{"HKEY_LOCAL_MACHINE", nullptr, 0};
        EXPECT_EQ(DepthOf(*machine.Key()), kMillion / 4);
    });
}

#include "registry/registry_node.h"

#include <cstring>
#include <string>
#include <type_traits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "registry/registry_host.h"
#include "support/trace_capture.h"

using testing::ElementsAre;
using testing::IsEmpty;

TEST(RegistryNode, IsATableOfNamesAndNothingElse) {
    EXPECT_TRUE((std::is_base_of_v<CNameTable, CRegistryNode>));
    EXPECT_EQ(sizeof(CRegistryNode), sizeof(CNameTable));
    EXPECT_TRUE((std::is_same_v<HKEY, CRegistryNode*>));
}

TEST(RegistryNode, FindsTheChildOfASubkey) {
    CRegistryNode node;
    EXPECT_EQ(ReadText(node, "v=d=1\n[k]\n\n"), 1U);
    const RecursiveLockGuard hold{node.Lock()};
    ASSERT_NE(node.Find("k"), nullptr);
    EXPECT_EQ(node.Find("k")->Type, kRegistrySubkey);
    EXPECT_EQ(node.FindChild("k"), reinterpret_cast<CRegistryNode*>(node.Find("k")->Value));
    EXPECT_EQ(node.FindChild("v"), nullptr);
    EXPECT_EQ(node.FindChild("x"), nullptr);
    EXPECT_EQ(node.FindChild(nullptr), nullptr);
}

TEST(RegistryNode, HoldsEachTypeAsItsWordTells) {
    CRegistryNode node;
    ReadText(node, "s=s=text\ne=es=%A%\nb=b=0a ff \nd=d=-2\n");
    const RecursiveLockGuard hold{node.Lock()};
    EXPECT_EQ(node.Find("s")->Type, 1U);
    EXPECT_STREQ(reinterpret_cast<char*>(node.Find("s")->Value), "text");
    EXPECT_EQ(node.Find("e")->Type, 2U);
    EXPECT_STREQ(reinterpret_cast<char*>(node.Find("e")->Value), "%A%");
    EXPECT_EQ(node.Find("b")->Type, 3U);
    EXPECT_EQ(memcmp(reinterpret_cast<char*>(node.Find("b")->Value), "\2\0\0\0\x0A\xFF", 6), 0);
    EXPECT_EQ(node.Find("d")->Type, 4U);
    EXPECT_EQ(node.Find("d")->Value, 0xFFFFFFFEU);
}

TEST(RegistryNode, NamesThatDifferInCaseAreTwoEntries) {
    CRegistryNode node;
    ReadText(node, "name=s=small\nName=s=large\n[KEY]\n\n[key]\nx=d=1\n\n");
    EXPECT_EQ(Written(node), "Name=s=large\nname=s=small\n[KEY]\n\n[key]\nx=d=1\n\n\n");
}

TEST(DeleteNode, TracesEachNameInOrderAndDepthFirst) {
    CRegistryNode node;
    ReadText(node, "z=s=1\na=d=0\n[m]\nv=b=\n[n]\nw=es=\n\n[o]\n\n\n");
    TraceCapture trace{2};
    CRegistry::DeleteNode(&node);
    EXPECT_THAT(trace.Lines(),
                ElementsAre("CRegistryNode::deleteNode \"a\"", "CRegistryNode::deleteNode \"m\"",
                            "CRegistryNode::deleteNode \"n\"", "CRegistryNode::deleteNode \"w\"",
                            "CRegistryNode::deleteNode \"o\"", "CRegistryNode::deleteNode \"v\"",
                            "CRegistryNode::deleteNode \"z\""));
}

TEST(DeleteNode, LeavesTheNamesOfTheNodeItselfAndNothingToRead) {
    CRegistryNode node;
    ReadText(node, "a=s=1\nn=d=7\n[k]\nb=s=2\n\n");
    CRegistry::DeleteNode(&node);
    const RecursiveLockGuard hold{node.Lock()};
    ASSERT_EQ(node.Entries().size(), 3U);
    EXPECT_STREQ(node.Entries()[0].Name, "a");
    EXPECT_EQ(node.Entries()[0].Value, 0U);
    EXPECT_EQ(node.FindChild("k"), nullptr);
    EXPECT_EQ(Written(node), "n=d=7\n\n");
}

TEST(DeleteNode, TracesEntriesWithoutAValueNotAtAll) {
    CRegistryNode node;
    node.Insert("key", 0, kRegistrySubkey);
    node.Insert("text", 0, kRegistryString);
    node.Insert("number", 0, kRegistryDoubleWord);
    TraceCapture trace{2};
    CRegistry::DeleteNode(&node);
    EXPECT_THAT(trace.Lines(), ElementsAre("CRegistryNode::deleteNode \"number\""));
}

TEST(DeleteNode, DoesNothingForNone) {
    TraceCapture trace{2};
    CRegistry::DeleteNode(nullptr);
    EXPECT_THAT(trace.Lines(), IsEmpty());
}

TEST(DeleteNode, IsSilentBelowLevelTwo) {
    CRegistryNode node;
    ReadText(node, "a=s=1\n");
    TraceCapture trace{1};
    CRegistry::DeleteNode(&node);
    EXPECT_THAT(trace.Lines(), IsEmpty());
}

TEST(RegistryNode, FreesAllBelowItWithoutALine) {
    TraceCapture trace{2};
    {
        CRegistryNode node;
        ReadText(node, "a=s=1\n[k]\nb=b=01 \n[l]\n\n\n");
    }
    EXPECT_THAT(trace.Lines(), IsEmpty());
}

TEST(RegistryNode, AChildWithoutAnObjectIsNotWritten) {
    CRegistryNode node;
    node.Insert("key", 0, kRegistrySubkey);
    node.Insert("text", 0, kRegistryString);
    node.Insert("blob", 0, kRegistryBinary);
    node.Insert("number", 0, kRegistryDoubleWord);
    EXPECT_EQ(Written(node), "number=d=0\n\n");
}

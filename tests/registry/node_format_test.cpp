// How the content of a key is read and written.

#include <cstring>
#include <map>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "registry/lock_count.h"
#include "registry/registry_host.h"
#include "registry/slow_registry.h"
#include "support/every_prefix.h"
#include "support/libc_fault.h"
#include "support/trace_capture.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// What a text becomes when it is read and written.
std::string Again(std::string_view text) {
    CRegistryNode node;
    (void)ReadText(node, text);
    return Written(node);
}

unsigned ResultOf(std::string_view text) {
    CRegistryNode node;
    return ReadText(node, text);
}

std::string BinaryOf(std::string_view line) {
    CRegistryNode node;
    (void)ReadText(node, line);
    const RecursiveLockGuard hold{node.Lock()};
    const auto* block = reinterpret_cast<const char*>(node.Entries()[0].Value);
    uint32_t size = 0;
    memcpy(&size, block, sizeof size);
    return {block + sizeof size, size};
}

/// Reads the texts one after the other into one node.
void ExpectAsModel(const std::vector<std::string>& texts) {
    CRegistryNode node;
    SlowRegistry model;
    for (const std::string& text : texts) {
        EXPECT_EQ(ReadText(node, text), model.Read(StreamOf(text).get())) << text;
        EXPECT_EQ(Written(node), model.Text()) << testing::PrintToString(texts);
    }
}

/// Reads a key into a node that gets another one of that name meanwhile.
void ReadWhileAKeyComes(CRegistryNode& node) {
    std::string text = "[k]\nv=s=read\n\n";
    text.append(size_t{70} * 1024, '-');  // so that it is read in two steps
    CRegistryNode other;
    EXPECT_EQ(ReadText(other, "[k]\nv=s=other\n\n"), 1U);
    FaultOf<&::fread> reads;
    reads.PassThrough();
    reads.Answer([&](void* to, size_t size, size_t count, FILE* from) {
        delete[] node.Exchange(other.Exchange({})).entries;
        return LibcFault::Real<&::fread>(to, size, count, from);
    });
    EXPECT_EQ(ReadText(node, text), 1U);
}

}  // namespace

TEST(WriteNode, WritesValuesThenSubkeysEachInTheOrderOfTheirNames) {
    EXPECT_EQ(Again("z=s=1\n[b]\n\n[a]\nc=d=1\n\nA=s=2\n"),
              "A=s=2\nz=s=1\n[a]\nc=d=1\n\n[b]\n\n\n");
}

TEST(WriteNode, WritesEachTypeInItsForm) {
    const std::string text =
        "Count=d=42\nHome=es=%LWD_QX_HOME%/bin\nKey=b=0a ff 10 \nPath=s=/usr/lib\n\n";
    EXPECT_EQ(Again(text), text);
}

TEST(WriteNode, WritesATreeWithAnEmptyLineBehindEachKey) {
    const std::string text = "[HKEY_LOCAL_MACHINE]\n[SOFTWARE]\nPath=s=/usr/lib\n\n\n\n";
    EXPECT_EQ(Again(text), text);
}

TEST(WriteNode, WritesAnEmptyBinaryValueAsItsNameAndTag) {
    EXPECT_EQ(Again("b=b=\n"), "b=b=\n\n");
}

TEST(WriteNode, WritesNumbersWithTheirSign) {
    EXPECT_EQ(Again("a=d=-1\nb=d=2147483647\nc=d=-2147483648\nd=d=0\n"),
              "a=d=-1\nb=d=2147483647\nc=d=-2147483648\nd=d=0\n\n");
}

TEST(WriteNode, WritesAnEmptyNodeAsOneNewline) {
    CRegistryNode node;
    EXPECT_EQ(Written(node), "\n");
}

TEST(WriteNode, SkipsOtherTypes) {
    CRegistryNode node;
    node.Insert("odd", 1, 5);
    node.Insert("zero", 1, 0);
    EXPECT_EQ(Written(node), "\n");
}

TEST(WriteNode, RefusesNoFileAndNoNode) {
    CRegistryNode node;
    EXPECT_FALSE(CRegistry::WriteNode(&node, nullptr));
    EXPECT_FALSE(CRegistry::WriteNode(nullptr, StreamOf("x").get()));
}

TEST(WriteNode, TellsThatTheStreamDidNotTakeAll) {
    CRegistryNode node;
    ReadText(node, "a=s=b\n");
    const UniqueFile full{fopen("/dev/full", "we")};
    (void)setvbuf(full.get(), nullptr, _IONBF, 0);
    EXPECT_FALSE(CRegistry::WriteNode(&node, full.get()));
    EXPECT_EQ(errno, ENOSPC);
}

TEST(WriteNode, WritesTextsLongerThanItsBuffer) {
    CRegistryNode node;
    std::string expected;
    for (int i = 100; i < 104; ++i) {
        const std::string name = "text" + std::to_string(i);
        const std::string text(static_cast<size_t>(i) * 999, 'x');
        auto copy = std::make_unique<char[]>(text.size() + 1);
        memcpy(copy.get(), text.c_str(), text.size() + 1);
        node.Insert(name.c_str(), reinterpret_cast<uint64_t>(copy.release()), kRegistryString);
        expected += name + "=s=" + text + "\n";
    }
    EXPECT_EQ(Written(node), expected + "\n");
}

TEST(ReadNode, TellsWhetherThereWasAValue) {
    for (const char* text : {"a=s=\n", "a=es=b\n", "a=b=\n", "a=d=1\n", "a=d=x\n", "[k]\na=d=1\n",
                             "[k]\n[l]\na=d=1\n\n\n[m]\n\n", "x\na=d=1"}) {
        EXPECT_EQ(ResultOf(text), 1U) << text;
    }
    for (const char* text : {"", "\n", "x\n", "[k]\n\n", "[k]\n[l]\n", "a=x=b\n", "a=s\n", "a=es\n",
                             "\na=s=b\n", "a==b\n", "a=S=b\n"}) {
        EXPECT_EQ(ResultOf(text), 0U) << text;
    }
}

TEST(ReadNode, StopsAtAnEmptyLineAndLeavesTheRestInTheStream) {
    const std::string text = "a=s=1\n\nb=s=2\n";
    const UniqueFile file = StreamOf(text);
    CRegistryNode one;
    CRegistryNode other;
    EXPECT_EQ(CRegistry::ReadNode(&one, file.get()), 1U);
    EXPECT_EQ(CRegistry::ReadNode(&other, file.get()), 1U);
    EXPECT_EQ(Written(one), "a=s=1\n\n");
    EXPECT_EQ(Written(other), "b=s=2\n\n");
}

TEST(ReadNode, RefusesNoFileAndNoNode) {
    CRegistryNode node;
    EXPECT_EQ(CRegistry::ReadNode(&node, nullptr), 0U);
    EXPECT_EQ(CRegistry::ReadNode(nullptr, StreamOf("a=s=1\n").get()), 0U);
}

TEST(ReadNode, AFirstCharacterThatIsNulEndsANode) {
    EXPECT_EQ(Again({"a=s=1\n\0x\nb=s=2\n", 15}), "a=s=1\n\n");
}

TEST(ReadNode, AStringWithAnEqualsSignSurvivesANameWithOneDoesNot) {
    EXPECT_EQ(Again("name=s=a=b=s=c\n"), "name=s=a=b=s=c\n\n");
    EXPECT_EQ(Again("na=me=s=text\n"), "\n");
    EXPECT_EQ(Again("na=s=me=s=text\n"), "na=s=me=s=text\n\n");
}

TEST(ReadNode, ALineWithoutANameStoresAnEmptyName) {
    CRegistryNode node;
    ReadText(node, "=s=x\n");
    EXPECT_NE(node.Find(""), nullptr);
    EXPECT_EQ(Written(node), "=s=x\n\n");
}

TEST(ReadNode, AKeyEndsAtTheFirstBracketAndTheRestOfItsLineIsIgnored) {
    EXPECT_EQ(Again("[a]b]=s=c\nx=d=1\n\n"), "[a]\nx=d=1\n\n\n");
    EXPECT_EQ(Again("[]\nx=d=1\n\n"), "[]\nx=d=1\n\n\n");
}

TEST(ReadNode, ABracketThatIsNotClosedBeginsAValue) {
    EXPECT_EQ(Again("[a=s=b\n"), "[a=s=b\n\n");
    EXPECT_EQ(Again(" [a]=s=b\n"), " [a]=s=b\n\n");
}

TEST(ReadNode, ALaterItemOverridesAnEarlierOneOfAnyKind) {
    EXPECT_EQ(Again("a=s=1\na=d=2\n"), "a=d=2\n\n");
    EXPECT_EQ(Again("a=s=1\n[a]\nx=d=1\n\n"), "[a]\nx=d=1\n\n\n");
    EXPECT_EQ(Again("[a]\nx=d=1\n\na=s=1\n"), "a=s=1\n\n");
    EXPECT_EQ(Again("[a]\nx=d=1\n\n[b]\n\n[a]\ny=d=2\n\n"), "[a]\ny=d=2\n\n[b]\n\n\n");
    EXPECT_EQ(Again("b=s=1\na=s=1\nb=s=2\na=s=2\nb=s=3\n"), "a=s=2\nb=s=3\n\n");
    EXPECT_EQ(Again("a=s=1\n[a]\n\na=s=2\n[a]\nx=d=1\n\na=s=3\n[b]\n\n"), "a=s=3\n[b]\n\n\n");
}

TEST(ReadNode, TracesWhatIsBelowAKeyAsItIsOverridden) {
    CRegistryNode node;
    TraceCapture trace{2};
    ReadText(node,
             "[a]\nx=d=1\n[y]\nz=s=1\n\n\n[a]\n\n"  // the first a goes here
             "[b]\n[c]\nv=d=1\n\n[c]\n\nw=d=1\n\n"  // the first c
             "b=d=1\n");                            // b
    EXPECT_THAT(trace.Lines(),
                ElementsAre("CRegistryNode::deleteNode \"x\"", "CRegistryNode::deleteNode \"y\"",
                            "CRegistryNode::deleteNode \"z\"", "CRegistryNode::deleteNode \"v\"",
                            "CRegistryNode::deleteNode \"c\"", "CRegistryNode::deleteNode \"w\""));
}

TEST(ReadNode, TracesNothingForValuesThatAreOverridden) {
    CRegistryNode node;
    TraceCapture trace{6};
    ReadText(node, "a=s=1\na=s=2\na=d=3\n[a]\n\n");
    EXPECT_THAT(trace.Lines(), IsEmpty());
}

TEST(ReadNode, ReplacesNameByNameWhatTheNodeHas) {
    CRegistryNode node;
    ReadText(node, "a=s=1\nb=s=1\n[k]\nx=d=1\ny=d=1\n\n");
    TraceCapture trace{2};
    ReadText(node, "c=s=2\nb=s=2\n[k]\nx=d=2\n\n0=s=2\n");
    EXPECT_EQ(Written(node), "0=s=2\na=s=1\nb=s=2\nc=s=2\n[k]\nx=d=2\n\n\n");
    EXPECT_THAT(trace.Lines(),
                ElementsAre("CRegistryNode::deleteNode \"x\"", "CRegistryNode::deleteNode \"y\""));
}

TEST(ReadNode, OfANumberBeyond32BitsOnlyTheLow32Count) {
    EXPECT_EQ(Again("a=d=4294967298\nb=d=-4294967297\nc=d=99999999999999999999\n"),
              "a=d=2\nb=d=-1\nc=d=-1\n\n");
}

TEST(ReadNode, ANumberWithoutADigitStoresNothingAndCountsAsAValue) {
    CRegistryNode node;
    ReadText(node, "a=d=5\n");
    EXPECT_EQ(ReadText(node, "a=d=x\n"), 1U);
    EXPECT_EQ(Written(node), "a=d=5\n\n");
}

TEST(ReadNode, ANumberMayHaveBlanksInFrontAndAnythingBehind) {
    EXPECT_EQ(Again("a=d= +7 apples\n"), "a=d=7\n\n");
}

TEST(ReadNode, TakesBytesAsHexadecimalNumbers) {
    EXPECT_EQ(BinaryOf("b=b=0a ff 10 \n"), "\x0A\xFF\x10");
    EXPECT_EQ(BinaryOf("b=b=0a ff 10\n"), "\x0A\xFF\x10");
    EXPECT_EQ(BinaryOf("b=b=A F 1\n"), "\x0A\x0F\x01");
    EXPECT_EQ(BinaryOf("b=b=0x41\t1ff -1\n"), "\x41\xFF\xFF");
    EXPECT_EQ(BinaryOf("b=b=41 zz 42\n"), "\x41");
    EXPECT_EQ(BinaryOf("b=b=zz\n"), "");
}

TEST(ReadNode, TakesAllBytesOfTheShortestNumbersThereAre) {
    std::string line = "b=b=1";
    while (line.size() < 1021) line += "+1";
    EXPECT_EQ(BinaryOf(line), std::string(1 + (1021 - 5) / 2, '\1'));
}

TEST(ReadNode, ATextThatIsTooLongComesBackSplitAndItsTailIsSkipped) {
    const std::string text(1100, 'x');
    EXPECT_EQ(Again("a=s=" + text + "\nb=s=1\n"), "a=s=" + text.substr(0, 1019) + "\nb=s=1\n\n");
}

TEST(ReadNode, ATailThatHoldsATagIsALineOfItsOwn) {
    EXPECT_EQ(Again("a=s=" + std::string(1019, 'x') + "b=s=1\n"),
              "a=s=" + std::string(1019, 'x') + "\nb=s=1\n\n");
}

TEST(ReadNode, ALineOf1023CharactersEndsItsNode) {
    // The newline alone is the next piece, as for everything that reads lines with fgets.
    EXPECT_EQ(Again("a=s=" + std::string(1019, 'x') + "\nb=s=1\n"),
              "a=s=" + std::string(1019, 'x') + "\n\n");
    EXPECT_EQ(Again("a=s=" + std::string(1018, 'x') + "\nb=s=1\n"),
              "a=s=" + std::string(1018, 'x') + "\nb=s=1\n\n");
}

TEST(ReadNode, KeysThatAreNotEndedEndWithTheFile) {
    EXPECT_EQ(Again("[a]\n[b]\nx=d=1"), "[a]\n[b]\nx=d=1\n\n\n\n");
}

TEST(ReadNode, AnEmptyKeyComesBack) {
    EXPECT_EQ(Again("[a]\n\nx=d=1\n"), "x=d=1\n[a]\n\n\n");
}

TEST(ReadNode, TakesEveryPrefixOfAFile) {
    const std::string text =
        "v=s=1\n[HKEY]\na=s=x\nb=b=0a ff \n[k]\ne=es=%A%\n\nd=d=-5\n[k]\nz=d=1\n\n\n\n";
    EveryPrefix(text, [](std::string_view prefix) { ExpectAsModel({std::string{prefix}}); });
}

TEST(ReadNode, ReadsWhatTheModelReadsWhateverTheText) {
    static constexpr const char* kPieces[] = {
        "[a]\n",      "[b]\n",   "[c\n", "\n",   "\n",       "a=s=1\n",    "b=s=2\n",
        "c=es=%x%\n", "a=d=7\n", "b=d=", "d=b=", "01 f2 \n", "[a]x=s=1\n", "a\n",
        "=s=\n",      "a=d=x\n", "]",    "=",    "[d]\n",    "d=s=9\n"};
    std::mt19937 random{11};
    for (int round = 0; round < 3000; ++round) {
        std::vector<std::string> texts(2);
        for (std::string& text : texts) {
            const size_t pieces = random() % 60;
            for (size_t i = 0; i < pieces; ++i) text += kPieces[random() % std::size(kPieces)];
        }
        ExpectAsModel(texts);
    }
}

TEST(ReadNode, WhatWasReadWrittenAndReadAgainAgrees) {
    std::mt19937 random{5};
    for (int round = 0; round < 200; ++round) {
        std::string text;
        for (int i = 0; i < 200; ++i) {
            const std::string name = std::to_string(random() % 50);
            switch (random() % 4) {
                case 0:
                    text += "[" + name + "]\n";
                    break;
                case 1:
                    text += "\n";
                    break;
                case 2:
                    text += name + "=s=" + std::string(random() % 1500, 'y') + "\n";
                    break;
                default:
                    text += name + "=d=" + std::to_string(random()) + "\n";
                    break;
            }
        }
        const std::string written = Again(text);
        const bool isSplit = written.find(std::string(1000, 'y')) != written.npos;
        if (!isSplit) {
            EXPECT_EQ(Again(written), written);
        }
    }
}

TEST(ReadNode, WithoutMemoryALineIsLostAndTheReadGoesOn) {
    if (!LibcFault::kHeapFaults) GTEST_SKIP() << LibcFault::kNoHeapFaults;
    const std::string text = "a=s=1\nb=s=2\n[k]\nc=s=3\n\nd=s=4\n";
    const std::string all = Again(text);
    int lost = 0;
    for (int passing = 0; passing < 30; ++passing) {
        const UniqueFile file = StreamOf(text);
        CRegistryNode node;
        {
            FaultOf<&::malloc> fault;
            int left = passing;
            fault.Always([&left](size_t size) {
                return left-- == 0 ? nullptr : LibcFault::Real<&::malloc>(size);
            });
            (void)CRegistry::ReadNode(&node, file.get());
        }
        const std::string written = Written(node);
        EXPECT_LE(written.size(), all.size());
        lost += written != all;
    }
    EXPECT_GT(lost, 8);
}

TEST(ReadNode, WithoutMemoryForTheTableOfAKeyThereIsNoTree) {
    if (!LibcFault::kHeapFaults) GTEST_SKIP() << LibcFault::kNoHeapFaults;
    std::string values;
    for (int i = 0; i < 37; ++i) values += "v" + std::to_string(i) + "=d=1\n";
    for (const char* const rest : {"\nz=s=1\n", "", "[below]\na=s=1\n\n\nz=s=1\n"}) {
        SCOPED_TRACE(rest);
        const std::string text = "a=s=1\n[k]\n" + values + rest;
        const size_t items = *rest == '[' ? 38 : 37;
        CRegistryNode node;
        const UniqueFile file = StreamOf(text);
        {
            FaultOf<&::malloc> fault;
            fault.Only([items](size_t size) { return size == items * sizeof(NameTableEntry); });
            fault.Fail(ENOMEM);
            EXPECT_EQ(CRegistry::ReadNode(&node, file.get()), 0U);
        }
        EXPECT_EQ(Written(node), "\n");
    }
}

TEST(ReadNode, HoldsOneLockAtATimeWhenItReplacesAKeyThatCameMeanwhile) {
    CRegistryNode node;
    {
        const LockCount locks;
        TraceCapture trace{2};
        ReadWhileAKeyComes(node);
        EXPECT_EQ(trace.Lines(), Lines{"CRegistryNode::deleteNode \"v\""});
        EXPECT_EQ(locks.Held(), 0);
        EXPECT_EQ(locks.Most(), 1);
    }
    EXPECT_EQ(Written(node), "[k]\nv=s=read\n\n\n");
}

TEST(ReadNode, LeavesEntriesEmptyThatItHadNoUseFor) {
    if (!LibcFault::kHeapFaults) GTEST_SKIP() << LibcFault::kNoHeapFaults;
    CRegistryNode node;
    {
        FaultOf<&::malloc> fault;
        fault.Always([](size_t size) {
            void* const memory = LibcFault::Real<&::malloc>(size);
            return memory != nullptr ? memset(memory, 0xA5, size) : memory;
        });
        ReadWhileAKeyComes(node);
    }
    const CRegistryNode::Table table = node.Exchange({});
    ASSERT_EQ(table.size, 1);
    ASSERT_EQ(table.capacity, 2) << "room for the key that was replaced too";
    EXPECT_EQ(table.entries[1].Name, nullptr);
    EXPECT_EQ(table.entries[1].Value, 0U);
    EXPECT_EQ(table.entries[1].Type, 0U);
    EXPECT_EQ(node.Exchange(table).size, 0);
}

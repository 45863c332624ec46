// Documents as trees, the faults that are told of them, and that no document takes a deep stack or
// quadratic time.

#include "markup/parse.h"

#include <cerrno>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "markup/markup_document.h"
#include "markup/result_records.h"
#include "support/every_prefix.h"
#include "support/libc_fault.h"
#include "support/processor_time.h"
#include "support/repeated.h"
#include "support/sanitizers.h"
#include "support/small_stack.h"

namespace {

constexpr bool kIsSlow = kAddressSanitizer || kThreadSanitizer;

std::string FlagsOf(uint32_t levelFlags) {
    std::string flags;
    if ((levelFlags & kElementIllFormed) != 0) flags += '!';
    if ((levelFlags & kElementMissesEnd) != 0) flags += 'M';
    if ((levelFlags & kElementFirstSibling) != 0) flags += 'F';
    if ((levelFlags & kElementEmpty) != 0) flags += 'E';
    if ((levelFlags & kElementNonEnded) != 0) flags += 'N';
    constexpr uint32_t kShown = kElementIllFormed | kElementMissesEnd | kElementFirstSibling |
                                kElementEmpty | kElementNonEnded | kElementDepth;
    if ((levelFlags & ~kShown) != 0) flags += '?';
    return flags;
}

/// The elements below one, each as NAME DEPTH START+LENGTH STARTTAG/ENDTAG FLAGS and then its children
/// in brackets. Checks the links.
std::string Below(const MarkupDocument& document, int32_t parent) {
    std::string text;
    int32_t last = 0;
    const int32_t first = document.PositionOf(parent).firstChild;
    for (int32_t position = first; position != 0;) {
        const ElementPosition& element = document.PositionOf(position);
        EXPECT_EQ(element.parent, parent);
        if (position != first) {
            EXPECT_EQ(element.previousSibling, last);
        }
        text += (text.empty() ? "" : " ") + std::string{document.GetNameOf(position)} + " " +
                std::to_string(element.levelFlags & kElementDepth) + " " +
                std::to_string(element.start) + "+" + std::to_string(element.length) + " " +
                std::to_string(element.StartTagLength()) + "/" +
                std::to_string(element.EndTagLength());
        const std::string flags = FlagsOf(element.levelFlags);
        if (!flags.empty()) text += " " + flags;
        const std::string children = Below(document, position);
        if (!children.empty()) text += " [" + children + "]";
        last = position;
        position = element.nextSibling;
    }
    if (first != 0) {
        EXPECT_EQ(document.PositionOf(first).previousSibling, last);
    }
    return text;
}

/// The flags of the root and what is below it.
std::string TreeOf(const MarkupDocument& document) {
    const ElementPosition& root = document.PositionOf(0);
    EXPECT_EQ(root.length, static_cast<int32_t>(document.GetDocumentText().size()));
    EXPECT_EQ(root.start, 0);
    EXPECT_EQ(root.parent, 0);
    EXPECT_EQ(root.nextSibling, 0);
    EXPECT_EQ(root.previousSibling, 0);
    const std::string flags = FlagsOf(root.levelFlags);
    const std::string below = Below(document, 0);
    return flags.empty() || below.empty() ? flags + below : flags + " " + below;
}

struct Row {
    std::string text;
    std::string tree;
    std::string result;
};

void ExpectTrees(const std::vector<Row>& rows, uint32_t flags = 0) {
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        MarkupDocument document;
        document.SetDocumentFlags(flags);
        const bool isWellFormed = document.SetDocumentText(row.text);
        EXPECT_EQ(TreeOf(document), row.tree);
        EXPECT_EQ(document.Result(), row.result);
        EXPECT_EQ(isWellFormed, row.tree.find('!') == std::string::npos);
        EXPECT_EQ(document.IsWellFormed(), isWellFormed);
    }
}

std::string Lone(const std::string& name, size_t offset) {
    return "<lone_end_tag tagname=\"" + name + "\" offset=\"" + std::to_string(offset) + "\"/>";
}
std::string Unended(const std::string& name, size_t offset, size_t offset2) {
    return "<unended_start_tag tagname=\"" + name + "\" offset=\"" + std::to_string(offset) +
           "\" offset2=\"" + std::to_string(offset2) + "\"/>";
}
std::string Fault(const std::string& name, size_t offset) {
    return "<" + name + " offset=\"" + std::to_string(offset) + "\"/>";
}
std::string Unterminated(const std::string& type, size_t offset) {
    return "<unterminated_tag_syntax type=\"" + type + "\" offset=\"" + std::to_string(offset) +
           "\"/>";
}
const std::string kNoRoot = "<no_root_element/>";
const std::string kSibling = "<root_has_sibling/>";

/// The depth of deep documents.
constexpr int32_t kMillion = kIsSlow ? 100'000 : 1'000'000;

/// Processor time of a parse of `times` repetitions of each part, the least of three.
double SecondsOf(const std::vector<std::string_view>& parts, size_t times) {
    std::string text;
    for (const std::string_view part : parts) text += Repeated(part, times);
    double least = 0;
    for (int round = 0; round < 3; ++round) {
        std::optional<MarkupDocument> document;
        const double seconds = ProcessorSecondsOf([&] { document.emplace(text); });
        if (round == 0 || seconds < least) least = seconds;
    }
    return least;
}

}  // namespace

// --- Trees ---------------------------------------------------------------------------------------

TEST(ParseDocument, MakesATreeOfTheElements) {
    ExpectTrees({
        {"<a/>", "a 1 0+4 4/0 FE", ""},
        {"<a></a>", "a 1 0+7 3/4 F", ""},
        {"<a b=\"x>y\"/>", "a 1 0+12 12/0 FE", ""},
        {"<a><b/></a>", "a 1 0+11 3/4 F [b 2 3+4 4/0 FE]", ""},
        {"<a><b/><c/><d/></a>", "a 1 0+19 3/4 F [b 2 3+4 4/0 FE c 2 7+4 4/0 E d 2 11+4 4/0 E]", ""},
        {"<a><b><c></c ></b></a>", "a 1 0+22 3/4 F [b 2 3+15 3/4 F [c 3 6+8 3/5 F]]", ""},
        {"<a><b></b><b></b></a>", "a 1 0+21 3/4 F [b 2 3+7 3/4 F b 2 10+7 3/4]", ""},
        {"<a><b=1></b></a>", "a 1 0+16 3/4 F [b=1 2 3+9 5/4 F]", ""},
    });
}

TEST(ParseDocument, KeepsNothingOfWhatIsNoElement) {
    ExpectTrees({
        {" <?xml version=\"1.0\"?><!DOCTYPE a [<!ELEMENT a ANY>]>\n<!-- <x> --><a>b &bad "
         "<![CDATA[<c>]]>"
         "</a> <!-- y -->",
         "a 1 66+29 3/4 F", ""},
        {"x<a/>y", "a 1 1+4 4/0 FE", ""},
    });
}

TEST(ParseDocument, TakesAnEmptyDocumentWithoutAFault) {
    MarkupDocument document;
    EXPECT_TRUE(document.SetDocumentText(""));
    EXPECT_EQ(document.Result(), "");
    EXPECT_EQ(document.GetElementCount(), 0);
    EXPECT_EQ(TreeOf(document), "");
}

TEST(ParseDocument, TellsWhenThereIsNoElement) {
    ExpectTrees({
        {" \n\t", "", kNoRoot},
        {"x", "", kNoRoot},
        {"<!-- <a/> -->", "", kNoRoot},
        {"</a>", "!M", Lone("a", 0) + kNoRoot},
        {"<1>", "!M", Fault("first_tag_syntax", 1) + kNoRoot},
        {"<", "!M", Unterminated("tag", 0) + kNoRoot},
    });
}

TEST(ParseDocument, TellsOfASecondRootWhichIsNoFault) {
    ExpectTrees({
        {"<a/><b/>", "a 1 0+4 4/0 FE b 1 4+4 4/0 E", kSibling},
        {"<a></a>x<a></a>", "a 1 0+7 3/4 F a 1 8+7 3/4", kSibling},
    });
}

// --- Faults of the structure ---------------------------------------------------------------------

TEST(ParseDocument, LeavesAnUnendedElementWithoutContent) {
    ExpectTrees({
        {"<a><b>text</a>", "! a 1 0+14 3/4 F [b 2 3+3 3/0 FN]", Unended("b", 3, 11)},
        {"<a>", "! a 1 0+3 3/0 FN", Unended("a", 0, 3)},
        {"<a b=c>d", "! a 1 0+7 7/0 FN", Unended("a", 0, 8)},
        {"<a b=x/>", "! a 1 0+8 8/0 FN", Unended("a", 0, 8)},
        {"<a><b c></a>", "! a 1 0+12 3/4 F [b 2 3+5 5/0 FN]", Unended("b", 3, 9)},
    });
}

TEST(ParseDocument, MovesTheChildrenOfAnUnendedElementBehindIt) {
    ExpectTrees({
        {"<a><b><c/><d/></a>", "! a 1 0+18 3/4 F [b 2 3+3 3/0 FN c 3 6+4 4/0 E d 3 10+4 4/0 E]",
         Unended("b", 3, 15)},
        {"<a><x/><b><c/></a>", "! a 1 0+18 3/4 F [x 2 3+4 4/0 FE b 2 7+3 3/0 N c 3 10+4 4/0 E]",
         Unended("b", 7, 15)},
        {"<a><b><c></c></a><z/>", "! a 1 0+17 3/4 F [b 2 3+3 3/0 FN c 3 6+7 3/4] z 1 17+4 4/0 E",
         Unended("b", 3, 14) + kSibling},
        {"<a><b/>", "! a 1 0+3 3/0 FN b 2 3+4 4/0 E", Unended("a", 0, 7) + kSibling},
    });
}

TEST(ParseDocument, EndsUnendedElementsFromTheInnermostOutward) {
    ExpectTrees({
        {"<a><b><c><d/></a>", "! a 1 0+17 3/4 F [b 2 3+3 3/0 FN c 3 6+3 3/0 N d 4 9+4 4/0 E]",
         Unended("c", 6, 14) + Unended("b", 3, 14)},
        {"<a><b><p/><c><q/><r/></a>",
         "! a 1 0+25 3/4 F [b 2 3+3 3/0 FN p 3 6+4 4/0 E c 3 10+3 3/0 N q 4 13+4 4/0 E r 4 17+4 "
         "4/0 "
         "E]",
         Unended("c", 10, 22) + Unended("b", 3, 22)},
        {"<a><b><c>", "! a 1 0+3 3/0 FN b 2 3+3 3/0 N c 3 6+3 3/0 N",
         Unended("c", 6, 9) + Unended("b", 3, 9) + Unended("a", 0, 9) + kSibling},
        {"<a><b><c></b></a>", "! a 1 0+17 3/4 F [b 2 3+10 3/4 F [c 3 6+3 3/0 FN]]",
         Unended("c", 6, 10)},
    });
}

TEST(ParseDocument, GoesOnBehindAnUnendedElementWithTheNextSibling) {
    ExpectTrees({
        {"<a><b><c/></a><d><e/></d>",
         "! a 1 0+14 3/4 F [b 2 3+3 3/0 FN c 3 6+4 4/0 E] d 1 14+11 3/4 [e 2 17+4 4/0 FE]",
         Unended("b", 3, 11) + kSibling},
        {"<r><a><b></a><x/></r>",
         "! r 1 0+21 3/4 F [a 2 3+10 3/4 F [b 3 6+3 3/0 FN] x 2 13+4 4/0 E]", Unended("b", 6, 10)},
    });
}

TEST(ParseDocument, HandsTheMarkOfAMissingEndToTheParent) {
    ExpectTrees({
        {"<a><b></x></a>", "! a 1 0+14 3/4 MF [b 2 3+3 3/0 FN]",
         Lone("x", 6) + Unended("b", 3, 11)},
        {"<a><b><c></x></a>", "! a 1 0+17 3/4 MF [b 2 3+3 3/0 FN c 3 6+3 3/0 N]",
         Lone("x", 9) + Unended("c", 6, 14) + Unended("b", 3, 14)},
        {"<a></x>", "!M a 1 0+3 3/0 FN", Lone("x", 3) + Unended("a", 0, 7)},
        {"<a><b></x></b></a>", "! a 1 0+18 3/4 F [b 2 3+11 3/4 MF]", Lone("x", 6)},
    });
}

TEST(ParseDocument, PassesOverALoneEndTag) {
    ExpectTrees({
        {"</a>", "!M", Lone("a", 0) + kNoRoot},
        {"<a></b></a>", "! a 1 0+11 3/4 MF", Lone("b", 3)},
        {"<a></a></a>", "!M a 1 0+7 3/4 F", Lone("a", 7)},
        {"<a/></a>", "!M a 1 0+4 4/0 FE", Lone("a", 4)},
        {"<a></></a>", "! a 1 0+10 3/4 MF", Lone("", 3)},
        {"<a></ a></a>", "! a 1 0+12 3/4 MF", Lone("", 3)},
        {"<a></a<b></a>", "! a 1 0+13 3/4 MF", Lone("a&lt;b", 3)},
        {"<a></b\"'&></a>", "! a 1 0+14 3/4 MF", Lone("b&quot;&apos;&amp;", 3)},
        {"<a><b></a></b>", "!M a 1 0+10 3/4 F [b 2 3+3 3/0 FN]",
         Unended("b", 3, 7) + Lone("b", 10)},
    });
}

TEST(ParseDocument, TakesAnEndTagThatStopsWhereAPathWouldForTheWholeName) {
    ExpectTrees({
        {"<a=b></a>", "a=b 1 0+9 5/4 F", ""},
        {"<a[1]></a>", "a[1] 1 0+10 6/4 F", ""},
        {"<a]b></a>", "a]b 1 0+9 5/4 F", ""},
        {"<a=b></a=b>", "a=b 1 0+11 5/6 F", ""},
        {"<a:b></a>", "!M a:b 1 0+5 5/0 FN", Lone("a", 5) + Unended("a:b", 0, 9)},
        {"<a></a=b>", "!M a 1 0+3 3/0 FN", Lone("a=b", 3) + Unended("a", 0, 9)},
        {"<ab></a>", "!M ab 1 0+4 4/0 FN", Lone("a", 4) + Unended("ab", 0, 8)},
        {"<a></ab>", "!M a 1 0+3 3/0 FN", Lone("ab", 3) + Unended("a", 0, 8)},
    });
}

TEST(ParseDocument, TakesTheInnermostOfSeveralElementsThatAnEndTagFits) {
    ExpectTrees({
        {"<a><a></a></a>", "a 1 0+14 3/4 F [a 2 3+7 3/4 F]", ""},
        {"<a><a=b></a></a>", "a 1 0+16 3/4 F [a=b 2 3+9 5/4 F]", ""},
    });
}

TEST(ParseDocument, ComparesCaseOfNamesUnlessTold) {
    ExpectTrees({
        {"<a></A>", "!M a 1 0+3 3/0 FN", Lone("A", 3) + Unended("a", 0, 7)},
        {"<\xC3\x84></\xC3\xA4>", "!M \xC3\x84 1 0+4 4/0 FN",
         Lone("\xC3\xA4", 4) + Unended("\xC3\x84", 0, 9)},
    });
    ExpectTrees(
        {
            {"<a></A>", "a 1 0+7 3/4 F", ""},
            {"<aZ></Az>", "aZ 1 0+9 4/5 F", ""},
            {"<\xC3\x84></\xC3\xA4>", "!M \xC3\x84 1 0+4 4/0 FN",
             Lone("\xC3\xA4", 4) + Unended("\xC3\x84", 0, 9)},
            {"<a_></a\x7F>", "!M a_ 1 0+4 4/0 FN", Lone("a\x7F", 4) + Unended("a_", 0, 9)},
        },
        kMarkupIgnoreCase);
}

// --- Faults of tags ------------------------------------------------------------------------------

TEST(ParseDocument, TellsOfEachFaultOfATag) {
    ExpectTrees({
        {"<a><1b></a>", "! a 1 0+11 3/4 MF", Fault("first_tag_syntax", 4)},
        {"<a><!b></a>", "! a 1 0+11 3/4 MF", Fault("exclamation_tag_syntax", 5)},
        {"<a><!-b></a>", "! a 1 0+12 3/4 MF", Fault("comment_tag_syntax", 6)},
        {"<a><![b></a>", "! a 1 0+12 3/4 MF", Fault("cdata_section_syntax", 6)},
        {"<a><!D[<!b>]></a>", "! a 1 0+17 3/4 MF", Fault("doctype_tag_syntax", 9)},
        {"<1><a/>", "!M a 1 3+4 4/0 FE", Fault("first_tag_syntax", 1)},
        {"<a><b", "!M a 1 0+3 3/0 FN", Unterminated("start_tag", 3) + Unended("a", 0, 5)},
        {"<a></a", "!M a 1 0+3 3/0 FN", Unterminated("end_tag", 3) + Unended("a", 0, 6)},
        {"<a/><!-- x", "!M a 1 0+4 4/0 FE", Unterminated("comment", 4)},
        {"<a/><![CDATA[", "!M a 1 0+4 4/0 FE", Unterminated("cdata_section", 4)},
        {"<a/><?x", "!M a 1 0+4 4/0 FE", Unterminated("processing_instruction", 4)},
        {"<a/><!D", "!M a 1 0+4 4/0 FE", Unterminated("document_type", 4)},
        {"<a/><", "!M a 1 0+4 4/0 FE", Unterminated("tag", 4)},
        {"<a/><2", "!M a 1 0+4 4/0 FE", Fault("first_tag_syntax", 5) + Unterminated("tag", 4)},
    });
}

TEST(ParseDocument, LosesNoTagBehindABrokenOne) {
    ExpectTrees({
        {"<1 b=\"<a><c/></a>", "!M a 1 6+11 3/4 F [c 2 9+4 4/0 FE]", Fault("first_tag_syntax", 1)},
        {"<a><2<b/></a>", "! a 1 0+13 3/4 MF [b 2 5+4 4/0 FE]", Fault("first_tag_syntax", 4)},
    });
}

// --- The result ----------------------------------------------------------------------------------

TEST(ParseDocument, AddsNoRecordToAResultOfAThousandBytes) {
    std::string wanted;
    for (size_t i = 0; wanted.size() < kResultLimit; ++i) wanted += Lone("a", 4 * i);
    MarkupDocument document{Repeated("</a>", 1000)};
    EXPECT_EQ(document.Result(), wanted);
    EXPECT_FALSE(document.IsWellFormed());
}

TEST(ParseDocument, AddsOneMoreRecordToAResultOfOneByteLess) {
    // <lone_end_tag tagname="" offset="0"/> takes 37 bytes around the name.
    for (const size_t size : {kResultLimit - 1, kResultLimit}) {
        const std::string name(size - 37, 'n');
        const MarkupDocument document{"</" + name + ">"};
        EXPECT_EQ(document.Result(),
                  Lone(name, 0) + (size < kResultLimit ? kNoRoot : std::string{}));
    }
}

TEST(ParseDocument, AddsTheRecordsOfOneFaultTogether) {
    const std::string name(kResultLimit - 1 - 37, 'n');
    const MarkupDocument document{"</" + name + "><1"};
    EXPECT_EQ(document.Result(), Lone(name, 0) + Fault("first_tag_syntax", name.size() + 4) +
                                     "<unterminated_tag_syntax type=\"tag\" offset=\"" +
                                     std::to_string(name.size() + 3) + "\"/>");
}

TEST(ParseDocument, LimitsTheRecordsOfUnendedElementsAndOfFaultsToo) {
    EXPECT_LT(MarkupDocument{Repeated("<a>", 1000)}.Result().size(), 2 * kResultLimit);
    EXPECT_LT(MarkupDocument{Repeated("<1>", 1000)}.Result().size(), 2 * kResultLimit);
    EXPECT_GE(MarkupDocument{Repeated("<1>", 1000)}.Result().size(), kResultLimit);
}

TEST(ParseDocument, LeavesAnEmptyDocumentWhenThereIsNoMemory) {
    if (!LibcFault::kHeapFaults) GTEST_SKIP() << LibcFault::kNoHeapFaults;
    const std::string text = Repeated("<a/>", 1000);
    for (const int first : {0, 1}) {
        MarkupDocument document{"<b/>"};
        ASSERT_TRUE(document.FindSibling());
        document.SavePosition("b");
        {
            FaultOf<&::realloc> memory;
            memory.PassThrough(first);
            memory.Fail(ENOMEM);
            EXPECT_THROW(document.SetDocumentText(text), std::bad_alloc);
        }
        EXPECT_EQ(document.GetDocumentText(), "");
        EXPECT_EQ(document.GetElementCount(), 0);
        EXPECT_FALSE(document.FindSibling());
        EXPECT_FALSE(document.RestorePosition("b"));
        EXPECT_TRUE(document.SetDocumentText(text)) << "now there is";
        EXPECT_EQ(document.GetElementCount(), 1000);
    }
}

TEST(ParseDocument, ForgetsTheResultOfTheParseBefore) {
    MarkupDocument document{"<a>"};
    EXPECT_FALSE(document.SetDocumentText("</b>"));
    EXPECT_EQ(document.Result(), Lone("b", 0) + kNoRoot);
    EXPECT_FALSE(document.ParseDocument());
    EXPECT_EQ(document.Result(), Lone("b", 0) + kNoRoot);
    EXPECT_TRUE(document.SetDocumentText("<a/>"));
    EXPECT_EQ(document.Result(), "");
    EXPECT_EQ(TreeOf(document), "a 1 0+4 4/0 FE");
}

TEST(ParseDocument, TakesAllBytes) {
    MarkupDocument document;
    EXPECT_TRUE(document.SetDocumentText(std::string{"<a>\0</a>", 8}));
    EXPECT_EQ(TreeOf(document), "a 1 0+8 3/4 F");
    EXPECT_FALSE(document.SetDocumentText("<a>\0</a>"));
    EXPECT_EQ(TreeOf(document), "! a 1 0+3 3/0 FN");
}

TEST(ParseDocument, TakesEachPrefixOfADocument) {
    EveryPrefix(
        "<?xml?><!DOCTYPE a [<!ENTITY b \"'>\">]><a b=\"1>2\" c='/' d=e/><!-- > --><f>&amp;</g>"
        "<h i=j /></f><![CDATA[<]]>",
        [](std::string_view text) {
            const MarkupDocument document{std::string{text}};
            EXPECT_LE(document.GetElementCount(), 3);
            (void)TreeOf(document);
        });
}

TEST(ParseDocument, TellsTheSameOfAManyTimesLargerDocument) {
    // More elements than one piece of memory of their array holds.
    const std::string row = "<r><a/><b>x</b><c><d/></r>";
    MarkupDocument document{"<t>" + Repeated(row, 40'000) + "</t>"};
    EXPECT_EQ(document.GetElementCount(), 1 + 5 * 40'000);
    ASSERT_TRUE(document.FindSibling("t"));
    int rows = 0;
    for (; document.FindChild("r"); ++rows) {
        const int32_t child = document.ChildPosition();
        ASSERT_EQ(document.PositionOf(child).start, 3 + rows * static_cast<int>(row.size()));
        ASSERT_EQ(document.PositionOf(child).length, static_cast<int>(row.size()));
        int children = 0;
        for (int32_t at = document.PositionOf(child).firstChild; at != 0; ++children) {
            ASSERT_EQ(document.GetParentOf(at), child);
            at = document.PositionOf(at).nextSibling;
        }
        ASSERT_EQ(children, 4);
    }
    EXPECT_EQ(rows, 40'000);
}

// --- Instruction sets ----------------------------------------------------------------------------

TEST(FastestTagScan, IsTheOneThatTheProcessorHas) {
    const bool hasAvx2 = __builtin_cpu_supports("avx2") != 0 && __builtin_cpu_supports("bmi") != 0;
    EXPECT_EQ(FastestTagScan() == ScanTagsByAvx2, hasAvx2);
    EXPECT_EQ(FastestTagScan() == ScanTagsBySse2, !hasAvx2);
}

// --- Depth and time ------------------------------------------------------------------------------

TEST(DeepDocument, IsParsedWalkedAndDestroyedOnASmallStack) {
    OnSmallStack([] {
        MarkupDocument document{Repeated("<a>", kMillion) + "<b/>" + Repeated("</a>", kMillion)};
        EXPECT_TRUE(document.IsWellFormed());
        EXPECT_EQ(document.GetElementCount(), kMillion + 1);
        int32_t depth = 0;
        for (; document.FindChild(); ++depth) (void)document.EnterChild();
        EXPECT_EQ(depth, kMillion);
        EXPECT_EQ(document.GetNodeName(), "b");
        EXPECT_EQ(document.GetElementDepth(), (kMillion + 1) & 0xFFFF);
        for (depth = 0; document.LeaveToParent(); ++depth) {
        }
        EXPECT_EQ(depth, kMillion);
        document.ResetPosition();
        EXPECT_TRUE(document.FindSibling("//b"));
        EXPECT_EQ(document.MainPosition(), kMillion + 1);
        document.ResetPosition();
        EXPECT_FALSE(document.FindSibling("//c"));
        EXPECT_TRUE(document.SetDocumentText("<a/>"));
    });
}

TEST(DeepDocument, IsParsedOnASmallStackWithoutAnyEndTag) {
    OnSmallStack([] {
        const MarkupDocument document{Repeated("<a>", kMillion)};
        EXPECT_FALSE(document.IsWellFormed());
        EXPECT_EQ(document.GetElementCount(), kMillion);
        int32_t count = 0;
        for (int32_t at = document.PositionOf(0).firstChild; at != 0; ++count) {
            ASSERT_EQ(document.PositionOf(at).parent, 0);
            ASSERT_EQ(document.PositionOf(at).firstChild, 0);
            at = document.PositionOf(at).nextSibling;
        }
        EXPECT_EQ(count, kMillion);
    });
}

TEST(ParseDocument, TakesTimeInProportionToTheTextHoweverBrokenItIs) {
    if (kIsSlow) GTEST_SKIP() << "a sanitizer's time tells nothing";
    const std::vector<std::vector<std::string_view>> texts = {
        {"<a>"},
        {"</a>"},
        {"<a>", "</a>"},
        {"<a>", "</b>"},
        {"<A>", "</a>"},
        {"<a=b>", "</c>"},
        {"<a><b>", "</a>"},
        {"<a><b><c></a>"},
        {"<a><b></c></a>"},
        {"<a><b></b>", "</c>"},
        {"<a>", "</c>", "<b><d></b>", "</d>"},
        {"<a/>"},
        {"<"},
        {">"},
        {"x>"},
        {"<1"},
        {"<a"},
        {"</a"},
        {"<a b=\""},
        {"<a b='>"},
        {"<1 b=\"", "'"},
        {"<1=\"<1='"},
        {"<!--"},
        {"<!-"},
        {"<![C"},
        {"<!D[<x"},
        {"<!D\""},
        {"<!D[<!-- "},
        {"<!D[<!E \""},
        {"<?"},
        {"<a =", "\""},
        {"<a", "="},
    };
    constexpr size_t kTimes = 30'000;
    constexpr size_t kFactor = 8;
    for (const auto& parts : texts) {
        const double once = SecondsOf(parts, kTimes);
        const double often = SecondsOf(parts, kTimes * kFactor);
        // In proportion it is 8 times, a square would be 64 times as long.
        EXPECT_LT(often, once * 32 + 0.01) << parts.front();
    }
}

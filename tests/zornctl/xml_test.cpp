#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "zornctl/xml/xml_matches.h"
#include "zornctl/zornctl_run.h"

using namespace zornctl;
using testing::ElementsAre;

namespace {

constexpr const char* kList =
    "<?xml version='1.0'?>\n<list>\n"
    "  <group><item id='1'>a</item><item>b</item></group>\n"
    "  <group><item id='3'>c &amp; d</item></group>\n"
    "  <item id='4'>\x1b[31m</item>\n</list>\n";

std::vector<std::string> All(const std::string& path) {
    MarkupDocument document{kList};
    std::vector<std::string> texts;
    for (const int32_t position : FindAllElements(document, path)) {
        document.SetPositions(document.GetParentOf(position), position, 0);
        texts.push_back(document.GetData());
    }
    return texts;
}

class Xml : public testing::Test {
  protected:
    Xml() { m_Host.File("/list.xml", kList); }

    std::string OutputOf(const std::vector<std::string>& arguments, int status = 0) {
        const auto run = RunZornctl(m_Host, arguments);
        EXPECT_EQ(run.end, Exited(status));
        return status == 0 || run.error.empty() ? run.output : run.error;
    }

    FakeHost m_Host;
};

}  // namespace

TEST(FindAllElements, GivesEachInTheOrderOfTheDocument) {
    EXPECT_THAT(All("//item"), ElementsAre("a", "b", "c & d", "\x1b[31m"));
    EXPECT_THAT(All("list/group/item"), ElementsAre("a", "b", "c & d"));
    EXPECT_THAT(All("/list/group/item"), ElementsAre("a", "b", "c & d"));
    EXPECT_THAT(All("list/*/item[@id]"), ElementsAre("a", "c & d"));
    EXPECT_THAT(All("/list/group/item/@id"), ElementsAre("a", "c & d"));
    EXPECT_THAT(All("/list/item[@id='4']"), ElementsAre("\x1b[31m"));
    EXPECT_THAT(All("/list/nothing/item"), ElementsAre());
}

TEST(FindAllElements, CountsInEachParent) {
    EXPECT_THAT(All("/list/group/item[1]"), ElementsAre("a", "c & d"));
    EXPECT_THAT(All("/list/group[1]/item"), ElementsAre("a", "b"));
    EXPECT_THAT(All("//item[3]"), ElementsAre("c & d"));
}

TEST(TextPlace, TellsLineAndColumnFrom1) {
    TextPlace place{"ab\n\nc\n"};
    struct Row {
        size_t offset;
        size_t line;
        size_t column;
    };
    constexpr Row kRows[] = {{0, 1, 1}, {2, 1, 3}, {3, 2, 1}, {4, 3, 1},
                             {5, 3, 2}, {6, 4, 1}, {1, 1, 2}, {6, 4, 1}};
    for (const auto& [offset, line, column] : kRows) {
        place.MoveTo(offset);
        EXPECT_EQ(place.Line(), line) << offset;
        EXPECT_EQ(place.Column(), column) << offset;
    }
}

TEST_F(Xml, ChecksEachFile) {
    m_Host.File("/bad.xml", "<a>\n <b>\n </c>\n</a><d/>");
    EXPECT_EQ(OutputOf({"xml", "check", "/list.xml", "/bad.xml"}, 1),
              "/list.xml: well-formed, elements: 7\n"
              "/bad.xml:3:2: lone end tag 'c' at offset 10\n"
              "/bad.xml:2:2: start tag 'b' at offset 5 expecting end tag at offset 16\n"
              "/bad.xml: root element has sibling\n");
}

TEST_F(Xml, TellsThatADocumentHasNoRootElement) {
    m_Host.File("/empty.xml", "");
    m_Host.File("/blank.xml", " \n");
    EXPECT_EQ(OutputOf({"xml", "check", "/empty.xml", "/blank.xml"}, 1),
              "/empty.xml: no root element\n/blank.xml: no root element\n");
}

TEST_F(Xml, TellsThatNotAllFaultsAreTold) {
    std::string text = "<a>";
    for (int i = 0; i < 100; ++i) text += "</b>";
    m_Host.File("/bad.xml", text);
    const auto output = OutputOf({"xml", "check", "/bad.xml"}, 1);
    EXPECT_TRUE(output.ends_with("\n/bad.xml: there may be more faults\n")) << output;
    EXPECT_TRUE(RunZornctl(m_Host, {"xml", "check", "--json", "/bad.xml"})
                    .Json()["files"][0]["more"]
                    .get<bool>());
}

TEST_F(Xml, LeavesNoNameOfATagThatATerminalActsUpon) {
    m_Host.File("/bad.xml", "<a></\x1b\xFF></a>");
    EXPECT_EQ(OutputOf({"xml", "check", "/bad.xml"}, 1),
              "/bad.xml:1:4: lone end tag '\\x1b\\xff' at offset 3\n");
    const auto json = RunZornctl(m_Host, {"xml", "check", "--json", "/bad.xml"}).Json();
    EXPECT_EQ(json["files"][0]["faults"][0]["text"], "lone end tag '\\x1b\\xff' at offset 3");
}

TEST_F(Xml, GetsTextsAndAttributes) {
    EXPECT_EQ(OutputOf({"xml", "get", "/list/group[2]/item", "/list.xml"}), "c & d\n");
    EXPECT_EQ(OutputOf({"xml", "get", "//item[@id='3']/@id", "/list.xml"}), "3\n");
    EXPECT_EQ(OutputOf({"xml", "get", "--all", "//item/@id", "/list.xml"}), "1\n3\n4\n");
    EXPECT_EQ(OutputOf({"xml", "get", "-a", "list/group/item", "/list.xml"}), "a\nb\nc & d\n");
    EXPECT_EQ(OutputOf({"xml", "get", "list/item", "/list.xml"}), "\x1b[31m\n")
        << "as it is where standard output is no terminal";
}

TEST_F(Xml, GetsWithThePlaceOfTheElement) {
    const auto json =
        RunZornctl(m_Host, {"xml", "get", "-a", "//item", "/list.xml", "--json"}).Json();
    EXPECT_EQ(json["path"], "/list.xml");
    ASSERT_EQ(json["values"].size(), 4u);
    EXPECT_EQ(json["values"][1],
              (nlohmann::json{{"element", "item"}, {"line", 3}, {"column", 31}, {"value", "b"}}));
    EXPECT_EQ(json["values"][3]["line"], 5);
}

TEST_F(Xml, TellsWhatIsNotThere) {
    EXPECT_EQ(OutputOf({"xml", "get", "list/x", "/list.xml"}, 1),
              "zornctl: /list.xml: nothing at 'list/x'\n");
    m_Host.File("/bad.xml", "<a><b></a>");
    EXPECT_EQ(OutputOf({"xml", "get", "a/x", "/bad.xml"}, 1),
              "zornctl: /bad.xml: nothing at 'a/x' (it has faults: see zornctl xml check)\n");
    EXPECT_EQ(OutputOf({"xml", "get", "//a/b", "/list.xml"}, 2),
              "zornctl: no path: '//a/b' (see zornctl help xml)\n");
}

TEST_F(Xml, RefusesUtf16) {
    using namespace std::string_literals;
    for (const std::string& text : {"\xFF\xFE<\0a\0"s, "\xFE\xFF\0<\0a"s, "<\0a\0"s, "\0<\0a"s}) {
        m_Host.File("/utf-16.xml", text);
        EXPECT_EQ(OutputOf({"xml", "check", "/utf-16.xml"}, 3),
                  "zornctl: /utf-16.xml: is UTF-16, which is not read (convert it: iconv -f "
                  "UTF-16 -t UTF-8)\n");
    }
}

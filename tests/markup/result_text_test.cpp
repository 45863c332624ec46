#include "markup/result_text.h"

#include <gtest/gtest.h>

#include "markup/markup_document.h"
#include "markup/result_records.h"

namespace {

struct Case {
    const char* records;
    const char* text;
};

std::string TextOfFaultsIn(const char* document) {
    return ResultText(MarkupDocument{document}.Result());
}

}  // namespace

TEST(ResultText, TellsEachFaultOfADocument) {
    constexpr Case kCases[] = {
        {"<a/><b/>", "root element has sibling"},
        {"text", "no root element"},
        {"<a></b></a>", "lone end tag 'b' at offset 3"},
        {"<a></></a>", "lone end tag '' at offset 3"},
        {"<a><b></a>", "start tag 'b' at offset 3 expecting end tag at offset 7"},
        {"<a><1></a>", "tag syntax error at offset 4 expecting tag name / ! or ?"},
        {"<a><!X></a>", "tag syntax error at offset 5 expecting 'DOCTYPE' [ or -"},
        {"<!DOCTYPE a [<!X>]><a/>", "tag syntax error at offset 15 expecting markup declaration"},
        {"<a><!-X></a>", "tag syntax error at offset 6 expecting - to begin comment"},
        {"<a><![X></a>", "tag syntax error at offset 6 expecting 'CDATA'"},
        {"<a/><!-- x", "unterminated tag at offset 4 (comment)"},
        {"<a/><![CDATA[", "unterminated tag at offset 4 (cdata_section)"},
        {"<a/><", "unterminated tag at offset 4 (tag)"},
    };
    for (const auto& [document, text] : kCases) EXPECT_EQ(TextOfFaultsIn(document), text);
}

TEST(ResultText, TellsEachRecordOfFilesAndEncodings) {
    constexpr Case kCases[] = {
        {"<read encoding=\"UTF-8\" length=\"12\"/>", "read encoding UTF-8 length 12"},
        {"<read encoding=\"\" length=\"0\"/>", "read length 0"},
        {"<read encoding=\"UTF-8\"/>", "read encoding UTF-8"},
        {"<write encoding=\"UTF-16LE\" length=\"6\"/>", "write encoding UTF-16LE length 6"},
        {"<bom/>", "BOM +"},
        {"<nulls_removed count=\"3\"/>", "removed 3 nulls"},
        {"<endian_swap/>", "endian swap"},
        {"<converted_to encoding=\"UTF-8\" length=\"5\"/>", "converted to UTF-8 length 5"},
        {"<converted_from encoding=\"UTF-8\" length=\"5\"/>", "converted from UTF-8 length 5"},
        {"<conversion_loss/>", "(chars lost in conversion!)"},
        {"<utf8_detection/>", "(used UTF-8 detection)"},
        {"<truncation_error encoding=\"ANSI\"/>", "encoding ANSI adjustment error"},
        {"<file_error msg=\"No such file or directory\" n=\"2\"/>",
         "file error: No such file or directory (errno 2)"},
        {"<document_too_large length=\"2147483648\"/>", "document too large: length 2147483648"},
    };
    for (const auto& [records, text] : kCases) EXPECT_EQ(ResultText(records), text);
}

TEST(ResultText, JoinsSeveralRecordsReadably) {
    constexpr Case kCases[] = {
        {"<bom/><read encoding=\"UTF-8\" length=\"3\"/>", "BOM + read encoding UTF-8 length 3"},
        {"<read encoding=\"\" length=\"3\"/><utf8_detection/>",
         "read length 3 (used UTF-8 detection)"},
        {"<converted_to encoding=\"UTF-8\" length=\"3\"/><conversion_loss/><endian_swap/>",
         "converted to UTF-8 length 3 (chars lost in conversion!), endian swap"},
        {"<lone_end_tag tagname=\"a\" offset=\"0\"/><no_root_element/>",
         "lone end tag 'a' at offset 0, no root element"},
    };
    for (const auto& [records, text] : kCases) EXPECT_EQ(ResultText(records), text);
}

TEST(ResultText, ShowsAnUnknownRecordAsItStands) {
    EXPECT_EQ(ResultText("<no_root_element/><new_one msg=\"a &lt; b\"/>"),
              "no root element, <new_one msg=\"a &lt; b\"/>");
}

TEST(ResultText, LeavesOutWhatARecordDoesNotTell) {
    EXPECT_EQ(ResultText("<unended_start_tag tagname=\"b\" offset=\"3\"/>"),
              "start tag 'b' at offset 3");
    EXPECT_EQ(ResultText("<unterminated_tag_syntax offset=\"3\"/>"),
              "unterminated tag at offset 3");
}

TEST(ResultText, ShowsNamesAsTheyAreInTheDocument) {
    std::string result;
    AddErrorRecord(result, "lone_end_tag", "a&b<\"'\xFF", 7);
    EXPECT_EQ(ResultText(result), "lone end tag 'a&b<\"'\xFF' at offset 7");
}

TEST(ResultText, IsEmptyWithoutARecord) {
    EXPECT_EQ(ResultText(""), "");
    EXPECT_EQ(ResultText("text"), "");
    EXPECT_EQ(TextOfFaultsIn("<a/>"), "");
}

// The examples of docs/markup.md and of the header, and the table of faults.

#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "markup/header_example.h"
#include "markup/markup_document.h"
#include "markup/result_text.h"
#include "support/fenced_block.h"

void ReadOrder();  // its code, as it stands there

namespace {

std::vector<std::string> g_Shown;

const std::string kDocument = ZORN_SOURCE_DIR "/docs/markup.md";

/// "| `DOCUMENT` | TEXT |", split; empty for another line.
std::pair<std::string, std::string> FaultOf(const std::string& line) {
    const auto middle = line.find("` | ");
    if (!line.starts_with("| `") || middle == line.npos || !line.ends_with(" |")) return {};
    return {line.substr(3, middle - 3), line.substr(middle + 4, line.size() - middle - 6)};
}

}  // namespace

void Show(const std::string& text) {
    g_Shown.push_back(text);
}

void Complain(const std::string& text) {
    ADD_FAILURE() << text;
}

TEST(MarkupDocumentation, ShowsInItsHeaderWhatTheCommentsSay) {
    g_Shown.clear();
    RunHeaderExample();
    std::ifstream header{ZORN_SOURCE_DIR "/src/markup/markup_document.h"};
    std::string line;
    std::vector<std::string> told;
    while (std::getline(header, line) && line.find("class ZORN_API") == line.npos) {
        const size_t comment = line.find("  // \"");
        if (comment == line.npos) continue;
        for (size_t open = line.find('"', comment); open != line.npos;) {
            const size_t close = line.find('"', open + 1);
            told.push_back(line.substr(open + 1, close - open - 1));
            open = line.find('"', close + 1);
        }
    }
    EXPECT_EQ(g_Shown, told);
    EXPECT_EQ(told.size(), 4U);
}

TEST(MarkupDocumentation, PrintsWhatItSays) {
    testing::internal::CaptureStdout();
    ReadOrder();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), FencedBlock(kDocument, "text"));
}

TEST(MarkupDocumentation, TellsTheFaultsThatAreFound) {
    std::ifstream faults{kDocument};
    int count = 0;
    std::string line;
    while (line != "## Faults") ASSERT_TRUE(std::getline(faults, line));
    while (std::getline(faults, line)) {
        const auto [document, told] = FaultOf(line);
        if (document.empty()) continue;
        ++count;
        EXPECT_EQ(ResultText(MarkupDocument{document}.Result()), told) << document;
    }
    EXPECT_EQ(count, 6);
}

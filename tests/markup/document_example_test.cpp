// The example and the table of faults of docs/markup.md.

#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "markup/markup_document.h"
#include "markup/result_text.h"
#include "support/fenced_block.h"

void ReadOrder();  // its code, as it stands there

namespace {

const std::string kDocument = ZORN_SOURCE_DIR "/docs/markup.md";

/// "| `DOCUMENT` | TEXT |", split; empty for another line.
std::pair<std::string, std::string> FaultOf(const std::string& line) {
    const auto middle = line.find("` | ");
    if (!line.starts_with("| `") || middle == line.npos || !line.ends_with(" |")) return {};
    return {line.substr(3, middle - 3), line.substr(middle + 4, line.size() - middle - 6)};
}

}  // namespace

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

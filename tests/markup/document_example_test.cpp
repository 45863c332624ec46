// The example and the table of faults of docs/markup.md.

#include <fstream>
#include <iterator>
#include <sstream>

#include <gtest/gtest.h>

#include "markup/markup_document.h"
#include "markup/result_text.h"

void ReadOrder();  // its code, as it stands there

namespace {

std::string Document() {
    std::ifstream file{ZORN_SOURCE_DIR "/docs/markup.md"};
    return {std::istreambuf_iterator<char>{file}, {}};
}

/// The only fenced block of that language.
std::string Block(const std::string& language) {
    const std::string text = Document();
    const std::string head = "\n```" + language + "\n";
    const auto begin = text.find(head);
    if (begin == text.npos || text.find(head, begin + 1) != text.npos) {
        ADD_FAILURE() << "docs/markup.md does not hold one block of " << language;
        return {};
    }
    const auto first = begin + head.size();
    return text.substr(first, text.find("\n```", first) + 1 - first);
}

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
    EXPECT_EQ(testing::internal::GetCapturedStdout(), Block("text"));
}

TEST(MarkupDocumentation, TellsTheFaultsThatAreFound) {
    const std::string text = Document();
    std::istringstream faults{text.substr(text.find("\n## Faults\n"))};
    int count = 0;
    for (std::string line; std::getline(faults, line);) {
        const auto [document, told] = FaultOf(line);
        if (document.empty()) continue;
        ++count;
        EXPECT_EQ(ResultText(MarkupDocument{document}.Result()), told) << document;
    }
    EXPECT_EQ(count, 6);
}

#include "support/golden.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <gtest/gtest.h>

namespace {

bool g_Update = false;

std::string ReadWhole(const std::filesystem::path& path) {
    std::ifstream in{path, std::ios::binary};
    return {std::istreambuf_iterator<char>{in}, {}};
}

void Write(const std::filesystem::path& path, std::string_view text, const Where& where) {
    std::error_code ignored;
    std::filesystem::create_directories(path.parent_path(), ignored);
    std::ofstream out{path, std::ios::binary | std::ios::trunc};
    out << text << std::flush;
    if (!out) ADD_FAILURE_AT(where.file, where.line) << "cannot write " << path;
}

}  // namespace

bool UpdatesGoldens() {
    const char* asked = std::getenv("ZORN_UPDATE_GOLDEN");
    return g_Update || (asked != nullptr && *asked != '\0' && *asked != '0');
}

void UpdateGoldens() {
    g_Update = true;
}

void ExpectGolden(std::string_view name, std::string_view text, Where where) {
    const auto path = std::filesystem::path{ZORN_SOURCE_DIR} / "tests" / name;
    if (UpdatesGoldens()) return Write(path, text, where);
    const std::string expected = ReadWhole(path);
    const auto same =
        testing::internal::EqHelper::Compare("the file", "the text", expected, std::string{text});
    if (same) return;
    ADD_FAILURE_AT(where.file, where.line)
        << "The text differs from " << path.native() << ":\n"
        << same.message() << "\nIf the change is meant, run this test with --update.";
}

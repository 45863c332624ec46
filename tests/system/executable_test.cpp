// What the linker has made of the executable: the symbols that modules can reach, and the libraries
// and the run path that the dynamic linker goes by.

#include <cxxabi.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/fake_host.h"
#include "support/golden.h"
#include "support/sanitizers.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSubsetOf;

namespace {

constexpr const char* kSanitized = "sanitizers bring symbols and libraries of their own";

std::vector<std::string> OutputLines(const std::string& command) {
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe{popen(command.c_str(), "re"), pclose};
    if (!pipe) throw std::runtime_error{"cannot run " + command};
    std::string text;
    for (int letter = 0; (letter = fgetc(pipe.get())) != EOF;) text += static_cast<char>(letter);
    if (text.empty()) throw std::runtime_error{"no output of " + command};
    std::istringstream stream{text};
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

std::string Demangle(const std::string& symbol) {
    int status = 0;
    const std::unique_ptr<char, void (*)(void*)> text{
        abi::__cxa_demangle(symbol.c_str(), nullptr, nullptr, &status), std::free};
    return status == 0 ? text.get() : symbol;
}

/// Whether a mangled name (Itanium C++ ABI, 5.1) is one of namespace std or __gnu_cxx: "_Z", what
/// kind of special name it is, "Z" of one inside a function, "N" and qualifiers of a nested one, the
/// namespace.
bool IsOfLanguageLibrary(std::string_view symbol) {
    const auto skip = [&](std::string_view prefix) {
        if (symbol.starts_with(prefix)) symbol.remove_prefix(prefix.size());
    };
    if (!symbol.starts_with("_Z")) return false;
    for (const char* prefix : {"_Z", "TV", "TT", "TI", "TS", "GV", "GR", "Z", "N"}) skip(prefix);
    symbol.remove_prefix(std::min(symbol.find_first_not_of("rVKRO"), symbol.size()));
    for (const char* prefix : {"St", "Sa", "Sb", "Ss", "Si", "So", "Sd", "9__gnu_cxx"}) {
        if (symbol.starts_with(prefix)) return true;
    }
    return false;
}

/// Symbols that every executable may have from the toolchain.
bool IsOfToolchain(const std::string& symbol) {
    static const std::set<std::string> own{"_init",        "_fini",      "_start",
                                           "_end",         "_edata",     "__bss_start",
                                           "__data_start", "data_start", "_IO_stdin_used"};
    return own.contains(symbol);
}

/// The values of one tag of the dynamic section: readelf shows "(TAG) Text: [value]".
std::vector<std::string> DynamicEntries(const std::string& tag) {
    std::vector<std::string> values;
    for (const std::string& line : OutputLines("readelf -dW " + FakeHost::Executable())) {
        if (line.find("(" + tag + ")") == line.npos) continue;
        const size_t begin = line.find('[') + 1;
        values.push_back(line.substr(begin, line.rfind(']') - begin));
    }
    return values;
}

TEST(Executable, ExportsWhatTheReviewedListSaysAndNothingElse) {
    if (kAddressSanitizer || kThreadSanitizer) GTEST_SKIP() << kSanitized;
    std::set<std::string> names;
    for (const std::string& symbol :
         OutputLines("nm -D --defined-only --format=just-symbols " + FakeHost::Executable())) {
        if (!IsOfToolchain(symbol) && !IsOfLanguageLibrary(symbol)) names.insert(Demangle(symbol));
    }
    std::string text;
    for (const std::string& name : names) text += name + "\n";
    ExpectGolden("../src/service/exported_symbols.txt", text);
}

TEST(Executable, FindsItsModuleHostByARunPathThatTheEnvironmentCanOverride) {
    EXPECT_THAT(DynamicEntries("RUNPATH"), ElementsAre("/opt/Corvanthimex/lib64"));
    EXPECT_THAT(DynamicEntries("RPATH"), IsEmpty());
}

TEST(Executable, HoldsItsWholeVersionRecord) {
    std::string bytes;
    if (FILE* file = fopen(FakeHost::Executable().c_str(), "re")) {
        char chunk[65536];
        while (const size_t length = fread(chunk, 1, sizeof chunk, file))
            bytes.append(chunk, length);
        (void)fclose(file);
    }
    for (const char* text :
         {"2024/04/16-15:56", "/usr/sbin/mirl", "Tarnhollow Agentless Service Daemon", "10.70-06",
          "Kelmora", "mirl", "Tarnhollow Linux Agents", "Copyright (C) "}) {
        EXPECT_THAT(bytes, testing::HasSubstr(text));
    }
}

TEST(Executable, NeedsNoLibrariesButThoseOfTheLanguage) {
    if (kAddressSanitizer || kThreadSanitizer) GTEST_SKIP() << kSanitized;
    const std::vector<std::string> needed = DynamicEntries("NEEDED");
    EXPECT_THAT(needed, testing::Contains("libc.so.6"));
    EXPECT_THAT(needed, IsSubsetOf({"libstdc++.so.6", "libgcc_s.so.1", "libc.so.6", "libm.so.6"}));
}

}  // namespace

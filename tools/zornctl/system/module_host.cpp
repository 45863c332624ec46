// The linker is asked as ldd(1) does it: it maps the libraries, says where each was found, and ends
// before any of their code runs. Symbols are looked up as the service's dlopen does it (RTLD_NOW):
// the library is put in front of the service's own ones (--preload), and the three variables have
// the linker look up everything and end then; ld.so(8).

#include "zornctl/system/module_host.h"

#include <algorithm>
#include <vector>

#include "zornctl/order/trace_prefix.h"
#include "zornctl/system/child.h"

namespace zornctl {

namespace {

/// Where the x86-64 ABI has the linker.
constexpr const char* kLinker = "/lib64/ld-linux-x86-64.so.2";

std::optional<std::string> ProblemOf(const ChildResult& result) {
    if (auto problem = ParseLoadProblem(result.output)) return problem;
    if (auto problem = ParseLoadProblem(result.error)) return problem;
    if (result.status != 0) return FirstLine(result.error);
    return std::nullopt;
}

}  // namespace

std::optional<std::string> ParseLoadProblem(std::string_view text) {
    while (!text.empty()) {
        auto line = BareLine(TakeLine(text));
        line.remove_prefix(std::min(line.find_first_not_of('\t'), line.size()));
        const bool isProblem = line.ends_with("=> not found") ||
                               line.starts_with("undefined symbol: ") ||
                               line.find("not found (required by ") != line.npos ||
                               line.find(" not defined in file ") != line.npos;
        if (isProblem) return std::string{line};
    }
    return std::nullopt;
}

std::optional<std::string> FindLoadProblem(const std::string& library, const std::string& program,
                                           const std::string& libraryPath) {
    std::vector<std::string> environment;
    if (!libraryPath.empty()) environment.push_back("LD_LIBRARY_PATH=" + libraryPath);
    const auto listed = RunChild({kLinker, "--list", library}, {.environment = environment});
    if (auto problem = ProblemOf(listed)) return problem;
    if (program.empty()) return std::nullopt;
    for (const char* wish : {"LD_TRACE_LOADED_OBJECTS=1", "LD_BIND_NOW=1", "LD_WARN=1"}) {
        environment.emplace_back(wish);
    }
    return ProblemOf(
        RunChild({kLinker, "--preload", library, program}, {.environment = environment}));
}

}  // namespace zornctl

// The linker is asked as ldd(1) does it: it maps the libraries, says where each was found, and ends
// before any of their code runs. The library is put in front of the service's own ones (--preload), as
// its dlopen would come to it. It is never the program that the linker is asked about (--list): of that
// one, the libraries named as its auditors (DT_AUDIT) are run even then. Symbols are looked up as the
// service's dlopen does it (RTLD_NOW): two variables have the linker look up everything; ld.so(8).

#include "zornctl/system/module_host.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <vector>

#include "zornctl/order/trace_prefix.h"
#include "zornctl/output/failure.h"
#include "zornctl/system/child.h"

namespace zornctl {

namespace {

/// Where the x86-64 ABI has the linker.
constexpr const char* kLinker = "/lib64/ld-linux-x86-64.so.2";

/// A program that is known to name no auditors.
std::string OwnExecutable() {
    constexpr const char* kSelf = "/proc/self/exe";
    std::error_code error;
    auto path = std::filesystem::read_symlink(kSelf, error).native();
    if (error) throw SystemFailure(kSelf, error.value());
    return path;
}

/// A symbol is missing because its library is: that comes first.
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
                               line.find(" cannot be preloaded (") != line.npos ||
                               line.find(" not defined in file ") != line.npos;
        if (isProblem) return std::string{line};
    }
    return std::nullopt;
}

std::optional<std::string> FindLoadProblem(const std::string& library, const std::string& program,
                                           const std::string& libraryPath) {
    // Two names, to --preload.
    if (library.find_first_of(" :") != library.npos) {
        throw Failure{ExitStatus::kNoAccess, library, "a path with a blank or a colon is not tried",
                      "give the folder another name"};
    }
    std::vector<std::string> environment{"LD_TRACE_LOADED_OBJECTS=1"};
    if (!libraryPath.empty()) environment.push_back("LD_LIBRARY_PATH=" + libraryPath);
    if (!program.empty()) {
        for (const char* wish : {"LD_BIND_NOW=1", "LD_WARN=1"}) environment.emplace_back(wish);
    }
    const auto asked = program.empty() ? OwnExecutable() : program;
    return ProblemOf(
        RunChild({kLinker, "--preload", library, asked}, {.environment = environment}));
}

}  // namespace zornctl

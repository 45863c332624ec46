#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace zornctl {

struct ChildOptions {
    int input = -1;                             ///< standard input; -1: /dev/null
    size_t limit = size_t{1} << 20U;            ///< most bytes that are taken of its output
    std::vector<std::string> environment = {};  ///< besides PATH; "NAME=value"
};

struct ChildResult {
    int status = 0;      ///< exit status; 128 and the signal's number if a signal ended it
    std::string output;  ///< what it wrote to standard output
    std::string error;   ///< and to standard error, up to 1 MiB
};

/// Runs a program, found by PATH if its name has no slash, and waits for its end. One that writes
/// more than the limit is killed. Throws `Failure` if it cannot be started.
/// Thread-safety of all here: any thread; no state.
[[nodiscard]] ChildResult RunChild(const std::vector<std::string>& arguments,
                                   const ChildOptions& options = {});

/// The first line of a text that is not empty, without its newline; "no reason given" if there is
/// none.
[[nodiscard]] std::string FirstLine(std::string_view text);

}  // namespace zornctl

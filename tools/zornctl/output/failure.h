#pragma once

#include <string>

namespace zornctl {

/// With what zornctl ends: other programs test for these numbers.
enum class ExitStatus {
    kDone = 0,
    kNotFound = 1,  ///< what was asked for is not there, or a check failed
    kWrongUse = 2,
    kNoAccess = 3,  ///< something could not be read or written
};

/// What keeps a subcommand from its work. Thrown, and told by the program's entry: as one line on
/// standard error and, with --json, as an object on standard output.
struct Failure {
    ExitStatus status;
    std::string path;    ///< what it is about; may be empty
    std::string cause;   ///< why it does not go on, without a full stop
    std::string remedy;  ///< what to do about it; may be empty
};

/// Thrown where nobody reads the output any more: the program ends without a word.
struct ReaderGone {};

/// Failures of a system call on `path`, by its error number: kNotFound if it does not exist.
[[nodiscard]] Failure SystemFailure(std::string path, int error);

}  // namespace zornctl

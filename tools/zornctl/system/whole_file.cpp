#include "zornctl/system/whole_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <vector>

#include "platform/unique_fd.h"
#include "zornctl/output/failure.h"
#include "zornctl/system/child.h"

namespace zornctl {

namespace {

constexpr size_t kChunk = 65536;
constexpr std::string_view kGzipMagic = "\x1F\x8B";

Failure TooLarge(const std::string& path, size_t limit) {
    return {ExitStatus::kNoAccess, path, "holds more than " + std::to_string(limit) + " bytes",
            "name a file of the service"};
}

/// A pipe among the files does not stop the program.
UniqueFd Open(const std::string& path) {
    UniqueFd file{open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK)};
    if (!file) throw SystemFailure(path, errno);
    return file;
}

size_t SizeOf(const UniqueFd& file) {
    struct stat status {};
    const bool isFile = fstat(file.Get(), &status) == 0 && S_ISREG(status.st_mode);
    return isFile ? static_cast<size_t>(status.st_size) : 0;
}

/// `path` is what a failure names.
std::string ReadAll(int file, const std::string& path, std::string text, size_t limit) {
    for (;;) {
        const size_t before = text.size();
        text.resize(before + kChunk);
        const ssize_t got = read(file, text.data() + before, kChunk);
        const int error = errno;
        text.resize(before + (got > 0 ? static_cast<size_t>(got) : 0));
        if (got == 0) return text;
        if (got < 0 && error != EINTR) throw SystemFailure(path, error);
        if (text.size() > limit) throw TooLarge(path, limit);
    }
}

}  // namespace

std::string ReadWholeFile(const std::string& path, size_t limit) {
    const UniqueFd file = Open(path);
    const size_t size = SizeOf(file);
    if (size > limit) throw TooLarge(path, limit);
    std::string text;
    text.reserve(size + 1);
    return ReadAll(file.Get(), path, std::move(text), limit);
}

std::string ReadOperand(const std::string& operand, size_t limit) {
    if (operand != "-") return ReadWholeFile(operand, limit);
    return ReadAll(STDIN_FILENO, OperandName(operand), {}, limit);
}

std::string OperandName(const std::string& operand) {
    return operand == "-" ? "standard input" : operand;
}

bool IsCompressed(std::string_view text) {
    return text.starts_with(kGzipMagic);
}

std::string Uncompress(const std::string& path, size_t limit) {
    const UniqueFd file = Open(path);
    auto gzip = RunChild({"gzip", "-dc"}, {.input = file.Get(), .limit = limit});
    if (gzip.output.size() > limit) throw TooLarge(path, limit);
    if (gzip.status == 0) return std::move(gzip.output);
    throw Failure{ExitStatus::kNoAccess, path, FirstLine(gzip.error),
                  "the file is damaged, or gzip is still at work"};
}

}  // namespace zornctl

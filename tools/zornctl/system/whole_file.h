#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace zornctl {

/// The whole of a file, as much as it holds at the time of reading. Throws `Failure` if it cannot
/// be opened or read, or holds more than `limit` bytes.
/// Thread-safety of all here: any thread; no state.
[[nodiscard]] std::string ReadWholeFile(const std::string& path, size_t limit);

/// The same of what an operand stands for: "-" is standard input.
[[nodiscard]] std::string ReadOperand(const std::string& operand, size_t limit);

/// What messages call it.
[[nodiscard]] std::string OperandName(const std::string& operand);

/// Whether a text is what gzip makes.
[[nodiscard]] bool IsCompressed(std::string_view text);

/// The text that a compressed file was. Throws `Failure` if it holds more than `limit` bytes, gzip
/// is not there or it refuses the file.
[[nodiscard]] std::string Uncompress(const std::string& path, size_t limit);

/// The most that a log file may hold: its limit is a number of 32 bits.
inline constexpr size_t kLargestLog = size_t{4} << 30U;
/// The most that a ring file may hold.
inline constexpr size_t kLargestRing = size_t{1} << 30U;
/// The most that is taken for a registry file.
inline constexpr size_t kLargestRegistry = size_t{256} << 20U;

}  // namespace zornctl

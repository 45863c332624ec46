#pragma once

#include <cerrno>
#include <type_traits>

/// Makes a system call again as long as a signal interrupts it (-1, or a null pointer, and EINTR).
/// Gives the result of the last try, with its `errno`.
///
///     const UniqueFd fd{RetryInterrupted([&] { return open(path, O_RDONLY | O_CLOEXEC); })};
///
/// Not for close(2), which frees the number also when it is interrupted. Thread-safety: the call's.
template <typename Call>
auto RetryInterrupted(Call call) {
    for (;;) {
        const auto result = call();
        bool failed = false;
        if constexpr (std::is_pointer_v<decltype(result)>) {
            failed = result == nullptr;
        } else {
            failed = result < 0;
        }
        if (!failed || errno != EINTR) return result;
    }
}

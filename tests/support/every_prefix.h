#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include <gtest/gtest.h>

#include "support/at_page_end.h"

/// Gives `f` each prefix of `text`, from the empty one up to the whole, in memory that ends at a
/// protected page: `f` must neither look beyond what it was given nor stumble over a cut.
///
///     EveryPrefix(kSample, [](std::string_view text) { (void)ParseUptime(text); });
///     EveryPrefix(kTable, [](std::span<const std::byte> bytes) { (void)DecodeTable(bytes); });
///
/// Failures inside `f` tell the length of the prefix. Quadratic: samples up to some 20 KB.
template <typename F>
void EveryPrefix(std::string_view text, F&& f) {
    AtPageEnd copy{text};
    for (size_t length = 0; length <= text.size(); ++length) {
        testing::ScopedTrace trace{__FILE__, __LINE__,
                                   "prefix of " + std::to_string(length) + " bytes"};
        copy.Assign(text.substr(0, length));
        if constexpr (std::is_invocable_v<F, std::string_view>) {
            f(std::as_const(copy).Text());
        } else {
            f(std::as_const(copy).Bytes());
        }
    }
}

template <typename F>
void EveryPrefix(std::span<const std::byte> bytes, F&& f) {
    EveryPrefix(std::string_view{reinterpret_cast<const char*>(bytes.data()), bytes.size()},
                std::forward<F>(f));
}

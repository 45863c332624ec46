#pragma once

#include <cxxabi.h>

#include <exception>
#include <optional>
#include <string>

/// Runs `call` and gives the text of the exception that left it; empty if it returned. The
/// exception itself is gone by then: its class may live in the library that the caller unmaps next.
/// The unwinding of a cancelled thread is no exception and passes through.
template <typename Call>
std::optional<std::string> ThrownText(Call&& call) {
    try {
        call();
        return std::nullopt;
    } catch (const abi::__forced_unwind&) {
        throw;
    } catch (const std::exception& error) {
        return error.what();
    } catch (...) {
        return "an exception of another kind than std::exception";
    }
}

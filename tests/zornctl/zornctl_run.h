#pragma once

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/fake_host.h"

// Running the built zornctl on a fake host.

inline std::string ZornctlExecutable() {
    return FakeHost::Executable() + "ctl";
}

struct ZornctlRun {
    ProcessEnd end;
    std::string output;
    std::string error;

    /// Standard output as the one JSON object that it has to be.
    [[nodiscard]] nlohmann::json Json() const {
        EXPECT_EQ(output.find('\n') + 1, output.size()) << output;
        return nlohmann::json::parse(output);
    }
};

inline HostProcess StartZornctl(FakeHost& host, std::vector<std::string> arguments,
                                const StartOptions& options = {}) {
    arguments.insert(arguments.begin(), ZornctlExecutable());
    return host.Start(arguments, options);
}

inline ZornctlRun RunZornctl(FakeHost& host, const std::vector<std::string>& arguments,
                             const StartOptions& options = {}) {
    auto process = StartZornctl(host, arguments, options);
    const auto end = process.Wait();
    return {end, process.StandardOutput(), process.StandardError()};
}

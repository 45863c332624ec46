#pragma once

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

/// What an assertion of a test reported.
struct Failure {
    testing::TestPartResult::Type type;
    std::string file;
    int line;
    std::string text;
};

/// Runs `body` and gives what its assertions report instead of passing it on to the running test:
/// for tests of the test support itself.
inline std::vector<Failure> FailuresOf(const std::function<void()>& body) {
    testing::TestPartResultArray results;
    {
        testing::ScopedFakeTestPartResultReporter listen{
            testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &results};
        body();
    }
    std::vector<Failure> failures;
    for (int i = 0; i < results.size(); ++i) {
        const auto& result = results.GetTestPartResult(i);
        failures.push_back({result.type(), result.file_name() == nullptr ? "" : result.file_name(),
                            result.line_number(), result.message()});
    }
    return failures;
}

#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "support/leak_census.h"

/// Takes a census around each test of the program; what is left fails the test.
class LeakListener : public testing::EmptyTestEventListener {
  public:
    void OnTestStart(const testing::TestInfo& info) override;
    void OnTestEnd(const testing::TestInfo& info) override;

  private:
    std::optional<LeakCensus> m_Before;
};

/// "`what` left behind:" and a line for each leak since `before`; empty if there is none.
[[nodiscard]] std::string DescribeLeaks(const LeakCensus& before, const std::string& what);

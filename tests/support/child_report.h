#pragma once

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>

#include "support/where.h"

// How the results of a test's assertions come from a child process to the test: each as one record
// through a pipe, in the order in which they happen.

/// The child's side: while it lives, what assertions of this process (of any thread) report goes
/// into the pipe and nowhere else.
class ChildReport {
  public:
    explicit ChildReport(int pipe);
    ~ChildReport();
    ChildReport(const ChildReport&) = delete;
    ChildReport& operator=(const ChildReport&) = delete;

    /// Tells that the body has come to its end.
    void Done();

  private:
    class Listener;
    class ToTheTest;

    int m_Pipe;
    testing::TestPartResultArray m_Unused;
    std::unique_ptr<ToTheTest> m_ToTheTest;
};

/// The test's side: takes the bytes as they come and reports what they tell, at the original
/// places.
class ParentReport {
  public:
    void Take(std::string_view bytes);
    /// Whether the child has come to the end of its body.
    [[nodiscard]] bool IsDone() const { return m_IsDone; }

  private:
    bool TakeRecord();

    std::string m_Rest;
    bool m_IsDone = false;
};

/// Reports a failure at a place.
void ReportFailure(const Where& where, const std::string& text);

/// To be called once, before the tests run: from then on a child can report to the running test
/// even where the test listens for failures itself (EXPECT_NONFATAL_FAILURE).
void PrepareChildReports();

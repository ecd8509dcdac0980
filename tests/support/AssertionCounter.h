#pragma once

#include <string>
#include <vector>

#include "tests/support/LogCapture.h"
#include "tests/support/TemporaryDirectory.h"

namespace KoTest
{

/// Expects exactly this many assertions while it lives, and that none of them is reported. A different number
/// fails the test at the end of the scope.
class AssertionCounter
{
public:
    explicit AssertionCounter(unsigned int expectedCount = 1);
    ~AssertionCounter();
    AssertionCounter(const AssertionCounter&) = delete;
    AssertionCounter& operator=(const AssertionCounter&) = delete;

    /// Assertions since the construction.
    unsigned int count() const;

private:
    unsigned int m_expectedCount;
    unsigned int m_occurredBefore;
    unsigned int m_expectedBefore;
};

/// One reported assertion, taken from its log line.
struct ReportedAssertion
{
    std::string message; ///< "???" for an assertion without one
    std::string file;
    unsigned int line;
};

bool operator==(const ReportedAssertion& a, const ReportedAssertion& b);

/// Lets assertions be reported in full while it lives: log lines are captured, standard error goes to a file
/// and backtraces go to a temporary directory. Not for use from several threads, and not nested.
class AssertionReports
{
public:
    AssertionReports();
    ~AssertionReports();
    AssertionReports(const AssertionReports&) = delete;
    AssertionReports& operator=(const AssertionReports&) = delete;

    /// What was reported since the construction or the last clear, in order.
    std::vector<ReportedAssertion> assertions() const;
    /// "file: message" of each report, for comparisons that do not care about line numbers.
    std::vector<std::string> summaries() const;
    /// Forgets the lines, not the files.
    void clear() { m_log.clear(); }

private:
    TemporaryDirectory m_backtraces;
    TemporaryDirectory m_output;
    ScopedEnvironment m_directoryVariable;
    ScopedEnvironment m_abortVariable;
    LogCapture m_log;
    unsigned int m_expectedBefore;
    int m_standardError;
};

} // namespace KoTest

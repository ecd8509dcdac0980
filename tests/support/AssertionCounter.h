#pragma once

#include <functional>
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
    explicit AssertionCounter(unsigned int expectedCount);
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

/// Lets assertions be reported in full while it lives: log lines are captured, standard error is
/// swallowed and backtraces go to a temporary directory. Not for use from several threads, and not nested.
class AssertionReports
{
public:
    AssertionReports();
    ~AssertionReports();
    AssertionReports(const AssertionReports&) = delete;
    AssertionReports& operator=(const AssertionReports&) = delete;

    /// What was reported, in order, as "file: message" or, with lines, "file line: message"; the message is
    /// "???" when there is none.
    std::vector<std::string> summaries(bool withLines = false) const;

private:
    TemporaryDirectory m_directory;
    ScopedEnvironment m_directoryVariable;
    ScopedEnvironment m_abortVariable;
    LogCapture m_log;
    unsigned int m_expectedBefore;
};

/// A call that is to report once, as "file: message" or "file line: message".
struct ReportCase
{
    const char* summary;
    std::function<void()> call;

    /// Makes the call and compares.
    void expectReport() const;
};

/// Makes the calls and lets `check` look after each that nothing has changed.
template <std::size_t COUNT, class Check>
void expectReports(const ReportCase (&cases)[COUNT], Check check)
{
    for (const ReportCase& each : cases)
    {
        each.expectReport();
        check();
    }
}

} // namespace KoTest

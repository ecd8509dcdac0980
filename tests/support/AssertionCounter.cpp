#include "tests/support/AssertionCounter.h"

#include <cstdio>
#include <cstdlib>

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "pf/oswrapper/CKoAsserter.h"

namespace KoTest
{

namespace
{

const char* const STANDARD_ERROR_FILE = "stderr";

/// Takes apart "ASSERTION \"message\" failed in file line". Searched from the right: a message may contain
/// anything.
bool parseReport(const std::string& text, ReportedAssertion& report)
{
    const std::string begin = "ASSERTION \"";
    const std::string middle = "\" failed in ";
    const std::size_t middleAt = text.rfind(middle);
    const std::size_t lineAt = text.rfind(' ');
    if (text.compare(0, begin.size(), begin) != 0 || middleAt == std::string::npos ||
        lineAt < middleAt + middle.size())
    {
        return false;
    }
    const std::size_t fileAt = middleAt + middle.size();
    report.message = text.substr(begin.size(), middleAt - begin.size());
    report.file = text.substr(fileAt, lineAt - fileAt);
    report.line = static_cast<unsigned int>(std::strtoul(text.c_str() + lineAt, nullptr, 10));
    return true;
}

int redirectStandardError(const std::string& path)
{
    std::fflush(stderr);
    const int former = dup(STDERR_FILENO);
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    dup2(file, STDERR_FILENO);
    close(file);
    return former;
}

} // namespace

AssertionCounter::AssertionCounter(unsigned int expectedCount)
    : m_expectedCount(expectedCount)
    , m_occurredBefore(CKoAsserter::getOccuredAssertions())
    , m_expectedBefore(CKoAsserter::getExpectedAssertions())
{
    CKoAsserter::setExpectedAssertions(m_occurredBefore + expectedCount);
}

AssertionCounter::~AssertionCounter()
{
    CKoAsserter::setExpectedAssertions(m_expectedBefore);
    EXPECT_EQ(count(), m_expectedCount) << "assertions in the scope";
}

unsigned int AssertionCounter::count() const
{
    return CKoAsserter::getOccuredAssertions() - m_occurredBefore;
}

bool operator==(const ReportedAssertion& a, const ReportedAssertion& b)
{
    return a.message == b.message && a.file == b.file && a.line == b.line;
}

AssertionReports::AssertionReports()
    : m_directoryVariable("KO_ASSERTION_BACKTRACE_DIR", m_backtraces.path().c_str())
    , m_abortVariable("KO_ENABLE_ABORT_ON_ASSERTION", nullptr)
    , m_expectedBefore(CKoAsserter::getExpectedAssertions())
    , m_standardError(redirectStandardError(m_output.file(STANDARD_ERROR_FILE)))
{
    CKoAsserter::setExpectedAssertions(0);
}

AssertionReports::~AssertionReports()
{
    CKoAsserter::setExpectedAssertions(m_expectedBefore);
    std::fflush(stderr);
    dup2(m_standardError, STDERR_FILENO);
    close(m_standardError);
}

std::vector<ReportedAssertion> AssertionReports::assertions() const
{
    const int critical = 1;
    std::vector<ReportedAssertion> result;
    for (const std::string& text : m_log.texts(critical))
    {
        ReportedAssertion report{};
        if (parseReport(text, report))
        {
            result.push_back(report);
        }
    }
    return result;
}

std::vector<std::string> AssertionReports::summaries() const
{
    std::vector<std::string> result;
    for (const ReportedAssertion& report : assertions())
    {
        result.push_back(report.file + ": " + report.message);
    }
    return result;
}

} // namespace KoTest

#include "tests/support/AssertionCounter.h"

#include <cctype>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "pf/oswrapper/CKoAsserter.h"

namespace KoTest
{

namespace
{

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

AssertionReports::AssertionReports()
    : m_directoryVariable("KO_ASSERTION_BACKTRACE_DIR", m_directory.path().c_str())
    , m_abortVariable("KO_ENABLE_ABORT_ON_ASSERTION", nullptr)
    , m_expectedBefore(CKoAsserter::getExpectedAssertions())
    , m_standardError(redirectStandardError(m_directory.file("stderr")))
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

/// Takes apart "ASSERTION \"message\" failed in file line"; a message may contain anything.
std::vector<std::string> AssertionReports::summaries(bool withLines) const
{
    constexpr int CRITICAL = 1;
    const std::string begin = "ASSERTION \"";
    const std::string middle = "\" failed in ";
    std::vector<std::string> result;
    for (const std::string& text : m_log.texts(CRITICAL))
    {
        const std::size_t end = text.rfind(middle);
        if (text.rfind(begin, 0) != 0 || end == std::string::npos)
            continue;
        const std::string place = text.substr(end + middle.size());
        result.push_back((withLines ? place : place.substr(0, place.rfind(' '))) + ": " +
                         text.substr(begin.size(), end - begin.size()));
    }
    return result;
}

void ReportCase::expectReport() const
{
    const AssertionReports reports;
    call();
    const bool withLine =
        std::isdigit(static_cast<unsigned char>(summary[std::strcspn(summary, ":") - 1])) != 0;
    EXPECT_EQ(std::vector<std::string>{summary}, reports.summaries(withLine));
}

} // namespace KoTest

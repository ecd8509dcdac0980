#include "tests/support/AssertionCounter.h"

#include <cctype>
#include <cstring>

#include <gtest/gtest.h>

#include "pf/oswrapper/CKoAsserter.h"

namespace KoTest
{

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
{
    CKoAsserter::setExpectedAssertions(0);
    testing::internal::CaptureStderr();
}

AssertionReports::~AssertionReports()
{
    CKoAsserter::setExpectedAssertions(m_expectedBefore);
    testing::internal::GetCapturedStderr();
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

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include "pf/containers/TKoVector.h"
#include "tests/support/BacktraceText.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FaultInjection.h"
#include "tests/support/TemporaryDirectory.h"

namespace
{

using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;

/// Runs the probe, which inserts out of range, as a process of its own.
class ReportPath : public testing::Test
{
protected:
    using Environment = std::vector<std::pair<std::string, const char*>>;

    KoTest::ChildResult insertOutOfRange(const Environment& environment = {})
    {
        KoTest::ChildProcess::Program program{KO_REPORT_PROBE, {}, {}, {}};
        program.environment = {{"KO_ASSERTION_BACKTRACE_DIR", m_directory.path().c_str()}};
        program.environment.insert(program.environment.end(), environment.begin(), environment.end());
        return KoTest::ChildProcess::execute(program);
    }

    static std::string backtraceName(const KoTest::ChildResult& result)
    {
        return "PID" + std::to_string(result.pid) + ".ass";
    }

    std::string backtrace(const KoTest::ChildResult& result) const
    {
        return m_directory.read(backtraceName(result));
    }

    KoTest::TemporaryDirectory m_directory;
};

/// The one record that the insertion leaves, every line of it.
std::string recordPattern(const KoTest::ChildResult& result)
{
    return KoTest::backtraceRecord("ASSERTION \"Index our of range\" failed in TKoVector [0-9]+",
                                   KoTest::backtraceHeader(result.pid));
}

/// The line number in "\nTKoVector:34: ...".
std::string sourceLine(const std::string& report)
{
    const std::size_t begin = report.find(':') + 1;
    const std::string line = report.substr(begin, report.find(':', begin) - begin);
    EXPECT_THAT(line, MatchesRegex("[1-9][0-9]*"));
    return line;
}

TEST_F(ReportPath, insertionOutOfRangeIsReportedInFullAndTheProcessGoesOn)
{
    const KoTest::ChildResult result = insertOutOfRange();

    EXPECT_EQ(result.exitStatus, 0) << result.describe();
    EXPECT_EQ(result.standardOutput, "1 2 3 goes on\n");

    const std::string line = sourceLine(result.standardError);
    EXPECT_EQ(result.standardError, "\nTKoVector:" + line + ": ASSERTION \"Index our of range\" failed\n");

    const std::string prefix = KoTest::pidPrefix(result.pid);
    ASSERT_EQ(result.log.size(), 2U) << result.describe();
    EXPECT_EQ(result.log[0].describe(),
              "2 (10000) " + prefix + "TKoVector:" + line + ": ASSERTION \"Index our of range\" failed");
    EXPECT_EQ(result.log[1].describe(),
              "1 (10000) " + prefix + "ASSERTION \"Index our of range\" failed in TKoVector " + line);

    EXPECT_THAT(m_directory.names(), ElementsAre(backtraceName(result)));
    EXPECT_THAT(backtrace(result), MatchesRegex(recordPattern(result)));
    EXPECT_THAT(backtrace(result), HasSubstr("/report_probe\n"));
    EXPECT_THAT(backtrace(result), HasSubstr("/libsys_vanta.gpp.so.7"));
}

TEST_F(ReportPath, abortSwitchEndsTheProcessAfterItsLinesAndBeforeTheBacktrace)
{
    const KoTest::ChildResult result = insertOutOfRange({{"KO_ENABLE_ABORT_ON_ASSERTION", ""}});

    EXPECT_EQ(result.signal, SIGABRT) << result.describe();
    ASSERT_EQ(result.log.size(), 2U);
    EXPECT_THAT(result.standardError, testing::StartsWith("\nTKoVector:"));
    EXPECT_EQ(result.standardOutput, "");
    EXPECT_TRUE(m_directory.names().empty());
}

TEST_F(ReportPath, missingDirectoryAndLoggerLeaveTheProcessGoing)
{
    const std::string missing = m_directory.file("missing");
    const KoTest::ChildResult result = insertOutOfRange(
        {{"KO_PLATFORM_LOG", missing.c_str()}, {"KO_ASSERTION_BACKTRACE_DIR", missing.c_str()}});
    EXPECT_EQ(result.exitStatus, 0) << result.describe();
    EXPECT_EQ(result.standardOutput,
              "Cannot open " + missing + "/" + backtraceName(result) + "\n1 2 3 goes on\n");
    EXPECT_THAT(result.standardError, testing::StartsWith("\nTKoVector:"));
    EXPECT_TRUE(result.log.empty()) << result.describe();
}

TEST_F(ReportPath, interruptionsAndShortTransfersCutNothing)
{
    KO_SKIP_WITHOUT_FAULT_INJECTION();
    const KoTest::ChildResult result = KoTest::ChildProcess::run(
        [this]
        {
            setenv("KO_ASSERTION_BACKTRACE_DIR", m_directory.path().c_str(), 1);
            const KoTest::FailingCall opening(KoTest::FAULT_OPEN, EINTR, 2);
            const KoTest::FailingCall reading(KoTest::FAULT_READ, EINTR, 3, 0, 11);
            const KoTest::FailingCall writing(KoTest::FAULT_WRITE, EINTR, 3, 1, 7);
            TKoVector<int>().insert(1, 5);
            return opening.failed() == 2 && reading.failed() == 3 && writing.failed() == 3 ? EXIT_SUCCESS
                                                                                           : EXIT_FAILURE;
        });

    EXPECT_EQ(result.exitStatus, EXIT_SUCCESS) << result.describe();
    EXPECT_EQ(result.log.size(), 2U);
    EXPECT_THAT(backtrace(result), MatchesRegex(recordPattern(result)));
    EXPECT_THAT(backtrace(result), HasSubstr("/libsys_vanta.gpp.so.7"));
}

} // namespace

#include "pf/oswrapper/CKoAsserter.h"

#include "pf/oswrapper/KoError.h"
#include "tests/support/AssertionCounter.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace
{

using KoTest::ChildProcess;
using KoTest::ChildResult;
using KoTest::ScopedEnvironment;
using KoTest::TemporaryDirectory;
using testing::ElementsAre;

std::vector<int> severities(const ChildResult& result)
{
    std::vector<int> found;
    for (const KoTest::LogLine& line : result.log)
    {
        found.push_back(line.severity);
    }
    return found;
}

std::size_t countRecords(const std::string& file)
{
    std::size_t count = 0;
    for (std::size_t at = file.find("INFO - "); at != std::string::npos; at = file.find("INFO - ", at + 1))
    {
        ++count;
    }
    return count;
}

/// Everything a child leaves behind in its backtrace directory.
class Assertions : public testing::Test
{
protected:
    ChildResult run(const std::function<int()>& body)
    {
        return ChildProcess::run(
            [&body]
            {
                CKoAsserter::setOccuredAssertions(0);
                CKoAsserter::setExpectedAssertions(0);
                return body();
            });
    }

    std::string backtraceOf(const ChildResult& result) const
    {
        return m_directory.read("PID" + std::to_string(result.pid) + ".ass");
    }

    TemporaryDirectory m_directory;
    ScopedEnvironment m_directoryVariable{"KO_ASSERTION_BACKTRACE_DIR", m_directory.path().c_str()};
    ScopedEnvironment m_limit{"KO_ASSERTION_BACKTRACE_MAX", nullptr};
    ScopedEnvironment m_abortOnAssertion{"KO_ENABLE_ABORT_ON_ASSERTION", nullptr};
    ScopedEnvironment m_abortOnFatalError{"KO_ENABLE_ABORT_ON_FATAL_ERROR", nullptr};
};

TEST_F(Assertions, AreReportedInFullAndTheProcessGoesOn)
{
    const struct
    {
        const char* message;
        const char* first;
        const char* second;
    } cases[] = {{nullptr, "X:12: ASSERTION failed", "ASSERTION \"???\" failed in X 12"},
                 {"too %s%n late", "X:12: ASSERTION \"too %s%n late\" failed",
                  "ASSERTION \"too %s%n late\" failed in X 12"}};
    for (const auto& wanted : cases)
    {
        const ChildResult result = run(
            [&wanted]
            {
                errno = EDOM;
                wanted.message == nullptr ? doCheapAssert(12, "X") : doAssert(12, "X", wanted.message);
                return errno == EDOM ? 5 : 6;
            });
        EXPECT_EQ(result.exitStatus, 5) << result.describe();
        EXPECT_THAT(result.logTexts(), ElementsAre(wanted.first, wanted.second));
        EXPECT_THAT(severities(result), ElementsAre(2, 1));
        EXPECT_EQ(result.standardError, "\n" + std::string(wanted.first) + "\n");
        const std::string start = "\n[QNX backtrace] INFO - " + std::string(wanted.second) + "\n";
        EXPECT_EQ(backtraceOf(result).substr(0, start.size()), start);
    }
}

TEST_F(Assertions, ThatAreExpectedAreOnlyCounted)
{
    const ChildResult result = run(
        []
        {
            CKoAsserter::setExpectedAssertions(2);
            doCheapAssert(1, "A");
            doAssert(2, "A", "b");
            const unsigned int counted = CKoAsserter::getOccuredAssertions();
            doCheapAssert(3, "A");
            return static_cast<int>(counted * 10 + CKoAsserter::getOccuredAssertions());
        });
    EXPECT_EQ(result.exitStatus, 23);
    EXPECT_THAT(result.logTexts(), ElementsAre("A:3: ASSERTION failed", "ASSERTION \"???\" failed in A 3"));
    EXPECT_EQ(countRecords(backtraceOf(result)), 1U);
}

TEST_F(Assertions, WriteAtMostTheConfiguredNumberOfBacktraces)
{
    const struct
    {
        const char* limit;
        std::size_t records;
    } cases[] = {{nullptr, 5}, {"3", 3}, {"0", 5}, {"many", 5}, {"-1", 0}, {"2 of them", 2}};
    for (const auto& wanted : cases)
    {
        const ScopedEnvironment limit("KO_ASSERTION_BACKTRACE_MAX", wanted.limit);
        const ChildResult result = run(
            []
            {
                for (unsigned int i = 0; i < 5; ++i)
                {
                    doCheapAssert(i, "B");
                    ::setenv("KO_ASSERTION_BACKTRACE_MAX", "4", 1); // read once only
                }
                return 0;
            });
        EXPECT_EQ(result.log.size(), 10U) << result.describe();
        EXPECT_EQ(countRecords(backtraceOf(result)), wanted.records) << wanted.records;
    }
}

TEST_F(Assertions, CountABacktraceThatCouldNotBeWritten)
{
    const ScopedEnvironment limit("KO_ASSERTION_BACKTRACE_MAX", "1");
    const std::string missing = m_directory.file("missing");
    const ChildResult result = run(
        [this, &missing]
        {
            ::setenv("KO_ASSERTION_BACKTRACE_DIR", missing.c_str(), 1);
            doCheapAssert(1, "C");
            ::setenv("KO_ASSERTION_BACKTRACE_DIR", m_directory.path().c_str(), 1);
            doCheapAssert(2, "C");
            return 0;
        });
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.standardOutput,
              "Cannot open " + missing + "/PID" + std::to_string(result.pid) + ".ass\n");
    EXPECT_TRUE(m_directory.names().empty());
}

TEST_F(Assertions, AbortBeforeTheBacktraceWhenTheSwitchIsSetAtThatMoment)
{
    const ChildResult result = run(
        []
        {
            doCheapAssert(1, "D");
            ::setenv("KO_ENABLE_ABORT_ON_ASSERTION", "", 1);
            doCheapAssert(2, "D");
            return 0;
        });
    EXPECT_EQ(result.signal, SIGABRT);
    EXPECT_EQ(result.log.size(), 4U);
    EXPECT_EQ(result.standardError, "\nD:1: ASSERTION failed\n\nD:2: ASSERTION failed\n");
    EXPECT_EQ(countRecords(backtraceOf(result)), 1U);
}

TEST_F(Assertions, FatalErrorsEndTheProcessAndLeaveNoBacktrace)
{
    const struct
    {
        const char* message;
        const char* abortSwitch;
        std::vector<std::string> lines;
        std::vector<int> severities;
    } cases[] = {
        {"gone",
         nullptr,
         {"E:7: FATAL ERROR \"gone\" occured", "E:7: FATAL ERROR \"gone\" occured",
          "terminating process using exit(EXIT_FAILURE)"},
         {2, 1, 5}},
        {nullptr,
         nullptr,
         {"E:7: FATAL ERROR occured", "E:7: FATAL ERROR occured",
          "terminating process using exit(EXIT_FAILURE)"},
         {2, 1, 5}},
        {nullptr, "", {"E:7: FATAL ERROR occured", "E:7: FATAL ERROR \"???\" occured"}, {2, 1}},
        {"a %d", "1", {"E:7: FATAL ERROR \"a %d\" occured", "E:7: FATAL ERROR \"a %d\" occured"}, {2, 1}},
    };
    for (const auto& wanted : cases)
    {
        const ScopedEnvironment abortSwitch("KO_ENABLE_ABORT_ON_FATAL_ERROR", wanted.abortSwitch);
        const ChildResult result = run(
            [&wanted]() -> int
            {
                if (wanted.message == nullptr)
                {
                    doCheapFatalError(7, "E");
                }
                doFatalError(7, "E", wanted.message);
            });
        EXPECT_EQ(result.exitStatus, wanted.abortSwitch == nullptr ? 1 : -1) << result.describe();
        EXPECT_EQ(result.signal, wanted.abortSwitch == nullptr ? 0 : SIGABRT);
        EXPECT_EQ(result.logTexts(), wanted.lines);
        EXPECT_EQ(severities(result), wanted.severities);
        EXPECT_EQ(result.standardError, "\n" + wanted.lines[0] + "\n");
        EXPECT_TRUE(m_directory.names().empty());
    }
}

TEST_F(Assertions, AFatalErrorDuringExitAborts)
{
    const ChildResult result = run(
        []() -> int
        {
            std::atexit([] { doCheapFatalError(2, "F"); });
            doCheapFatalError(1, "F");
        });
    EXPECT_EQ(result.signal, SIGABRT);
    ASSERT_EQ(result.log.size(), 6U) << result.describe();
    EXPECT_EQ(result.logTexts()[5], "terminating process using abort()");
    EXPECT_EQ(result.log[5].severity, 5);
}

void exitWithArgument(void* argument)
{
    ::_exit(*static_cast<int*>(argument));
}

void doNothing(void*)
{
}

TEST_F(Assertions, AnInstalledHandlerDecidesTheEnding)
{
    static int status = 42;
    EXPECT_EQ(run(
                  []() -> int
                  {
                      KoError::setErrorHandler(exitWithArgument, &status);
                      doCheapFatalError(1, "G");
                  })
                  .exitStatus,
              42);
    EXPECT_EQ(run(
                  []() -> int
                  {
                      KoError::setErrorHandler(doNothing, nullptr);
                      KoError::criticalError(0, "%s", "returns");
                  })
                  .signal,
              SIGABRT);
    EXPECT_EQ(run(
                  []() -> int
                  {
                      KoError::setErrorHandler(exitWithArgument, &status);
                      KoError::setErrorHandler(nullptr, &status);
                      KoError::criticalError(0, "%s", "restored");
                  })
                  .exitStatus,
              1);
}

TEST_F(Assertions, OperatingSystemErrorsCarryNumberAndText)
{
    const std::string reason = std::string("(operating system error 2, ") + std::strerror(ENOENT) + ")";
    KoTest::LogCapture log;
    KoError::reportOSError(3, KoSyslog::Notice, ENOENT, "no %s");
    errno = ENOENT;
    KoError::reportOSError(0, KoSyslog::Error, "here");
    EXPECT_THAT(log.texts(), ElementsAre("no %s " + reason, "here " + reason));
    EXPECT_EQ(log.lines()[0].opcode, 10000 | (3 << 20));
    EXPECT_EQ(log.lines()[0].severity, 4);

    const struct
    {
        void (*die)();
        std::string line;
    } cases[] = {
        {[] { KoError::fatalOSError(1, ENOENT, "a"); }, "a " + reason + " - aborting process"},
        {[] { errno = ENOENT, KoError::fatalOSError(1, "b"); }, "b " + reason + " - aborting process"},
        {[] { KoError::fatalError(1, "c %s"); }, "c %s - aborting process"}};
    for (const auto& wanted : cases)
    {
        const ChildResult result = run([&wanted] { return wanted.die(), 0; });
        EXPECT_EQ(result.signal, SIGABRT);
        EXPECT_THAT(result.logTexts(), ElementsAre(wanted.line));
        EXPECT_THAT(severities(result), ElementsAre(1));
    }
}

} // namespace

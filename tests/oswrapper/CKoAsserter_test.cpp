#include "pf/oswrapper/CKoAsserter.h"

#include "pf/oswrapper/KoError.h"
#include "tests/support/BacktraceText.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <unistd.h>

namespace
{

using KoTest::ChildProcess;
using KoTest::ChildResult;
using KoTest::ScopedEnvironment;
using Lines = std::vector<std::string>;

constexpr int ABORTED = 1000 + SIGABRT;
const std::string EXITING = "5 terminating process using exit(EXIT_FAILURE)";
const std::string ABORTING = "5 terminating process using abort()";

/// Runs reports in a process of their own, whose backtraces go to a fresh directory.
class Reports : public testing::Test
{
protected:
    /// Expects how the process ends (status, or 1000 + signal), its log lines with their severity in front,
    /// standard-error lines for those of severity 2, and the number of backtrace records.
    void expect(const std::function<int()>& body, int ending, const Lines& lines, std::size_t records = 0)
    {
        const ChildResult result = ChildProcess::run(body);
        EXPECT_EQ(result.signal != 0 ? 1000 + result.signal : result.exitStatus, ending) << result.describe();
        Lines logged;
        std::string standardError;
        for (std::size_t i = 0; i < result.log.size(); ++i)
        {
            const std::string text = result.logTexts()[i];
            logged.push_back(std::to_string(result.log[i].severity) + " " + text);
            standardError += result.log[i].severity == 2 ? "\n" + text + "\n" : "";
        }
        EXPECT_EQ(logged, lines);
        // An emulator adds a line of its own about an abort.
        EXPECT_EQ(result.standardError.substr(0, result.standardError.find("qemu: ")), standardError);
        EXPECT_EQ(countRecords(result), records);
    }

    std::size_t countRecords(const ChildResult& result) const
    {
        return KoTest::countOf("INFO - ", m_directory.read("PID" + std::to_string(result.pid) + ".ass"));
    }

    KoTest::TemporaryDirectory m_directory;
    ScopedEnvironment m_directoryVariable{"KO_ASSERTION_BACKTRACE_DIR", m_directory.path().c_str()};
    ScopedEnvironment m_limit{"KO_ASSERTION_BACKTRACE_MAX", nullptr};
    ScopedEnvironment m_abortOnAssertion{"KO_ENABLE_ABORT_ON_ASSERTION", nullptr};
    ScopedEnvironment m_abortOnFatalError{"KO_ENABLE_ABORT_ON_FATAL_ERROR", nullptr};
};

TEST_F(Reports, OfAssertionsLetTheProcessGoOn)
{
    const auto report = []
    {
        errno = EDOM;
        doAssert(12, "X", "too %s%n late");
        return errno == EDOM ? 5 : 6;
    };
    expect(report, 5,
           {"2 X:12: ASSERTION \"too %s%n late\" failed", "1 ASSERTION \"too %s%n late\" failed in X 12"}, 1);
    const auto reportBeyondExpected = []
    {
        CKoAsserter::setOccuredAssertions(0);
        CKoAsserter::setExpectedAssertions(2);
        doCheapAssert(1, "A");
        doAssert(2, "A", "b");
        const unsigned int counted = CKoAsserter::getOccuredAssertions();
        doCheapAssert(3, "A");
        return static_cast<int>(counted * 10 + CKoAsserter::getOccuredAssertions());
    };
    expect(reportBeyondExpected, 23, {"2 A:3: ASSERTION failed", "1 ASSERTION \"???\" failed in A 3"}, 1);
    const auto switchToAbort = []
    {
        doCheapAssert(1, "D");
        ::setenv("KO_ENABLE_ABORT_ON_ASSERTION", "", 1);
        doCheapAssert(2, "D");
        return 0;
    };
    expect(switchToAbort, ABORTED,
           {"2 D:1: ASSERTION failed", "1 ASSERTION \"???\" failed in D 1", "2 D:2: ASSERTION failed",
            "1 ASSERTION \"???\" failed in D 2"},
           1);
}

TEST_F(Reports, WriteAtMostTheConfiguredNumberOfBacktraces)
{
    const struct
    {
        const char* limit;
        std::size_t records;
    } cases[] = {{nullptr, 4}, {"3", 2}, {"0", 4}, {"many", 4}, {"-1", 0}, {"2 of them", 1}};
    for (const auto& wanted : cases)
    {
        const ScopedEnvironment limit("KO_ASSERTION_BACKTRACE_MAX", wanted.limit);
        const ChildResult result = ChildProcess::run(
            [this]
            {
                ::setenv("KO_ASSERTION_BACKTRACE_DIR", "/missing", 1);
                doCheapAssert(0, "B"); // counts although nothing is written
                ::setenv("KO_ASSERTION_BACKTRACE_DIR", m_directory.path().c_str(), 1);
                ::setenv("KO_ASSERTION_BACKTRACE_MAX", "4", 1); // read once only
                for (unsigned int i = 1; i < 5; ++i)
                {
                    doCheapAssert(i, "B");
                }
                return 0;
            });
        EXPECT_EQ(result.log.size(), 10U) << result.describe();
        EXPECT_EQ(countRecords(result), wanted.records) << wanted.records;
    }
}

TEST_F(Reports, LeaveTheirBacktraceInTheSharedMemoryDirectoryByDefault)
{
    const ScopedEnvironment unset("KO_ASSERTION_BACKTRACE_DIR", nullptr);
    const ChildResult result = ChildProcess::run([] { return doCheapAssert(1, "F"), 0; });
    const std::string directory = ::access("/dev/shmem", F_OK) == 0 ? "/dev/shmem" : "/dev/shm";
    EXPECT_EQ(::unlink((directory + "/PID" + std::to_string(result.pid) + ".ass").c_str()), 0);
}

TEST_F(Reports, OfFatalErrorsEndTheProcessWithoutABacktrace)
{
    const auto die = []() -> int { doCheapFatalError(7, "E"); };
    const auto dieOf = []() -> int { doFatalError(7, "E", "a %d"); };
    expect(die, 1, {"2 E:7: FATAL ERROR occured", "1 E:7: FATAL ERROR occured", EXITING});
    expect(dieOf, 1, {"2 E:7: FATAL ERROR \"a %d\" occured", "1 E:7: FATAL ERROR \"a %d\" occured", EXITING});
    const auto dieTwice = [&die]() -> int
    {
        std::atexit([] { doCheapFatalError(8, "E"); });
        return die();
    };
    expect(dieTwice, ABORTED,
           {"2 E:7: FATAL ERROR occured", "1 E:7: FATAL ERROR occured", EXITING, "2 E:8: FATAL ERROR occured",
            "1 E:8: FATAL ERROR occured", ABORTING});
    const ScopedEnvironment abortSwitch("KO_ENABLE_ABORT_ON_FATAL_ERROR", "");
    expect(die, ABORTED, {"2 E:7: FATAL ERROR occured", "1 E:7: FATAL ERROR \"???\" occured"});
    expect(dieOf, ABORTED, {"2 E:7: FATAL ERROR \"a %d\" occured", "1 E:7: FATAL ERROR \"a %d\" occured"});
}

/// Installs a handler, and restores the initial one if wanted; then reports a critical error.
int dieWithHandler(void (*handler)(void*), bool isRestored = false)
{
    static int status = 42;
    KoError::setErrorHandler(handler, &status);
    if (isRestored)
    {
        KoError::setErrorHandler(nullptr, &status);
    }
    KoError::criticalError(0, "%s %d", "end", 1);
}

TEST_F(Reports, OfCriticalErrorsEndAsTheInstalledHandlerDecides)
{
    const auto leave = [](void* status) { ::_exit(*static_cast<int*>(status)); };
    expect([&] { return dieWithHandler(leave); }, 42, {"1 end 1"});
    expect([&] { return dieWithHandler(leave, true); }, 1, {"1 end 1", EXITING});
    expect([&] { return dieWithHandler([](void*) {}); }, ABORTED, {"1 end 1"});
}

TEST_F(Reports, OfOperatingSystemErrorsCarryNumberAndText)
{
    const std::string reason = " (operating system error 2, No such file or directory)";
    const auto report = []
    {
        KoError::reportOSError(3, KoSyslog::Notice, ENOENT, "no %s");
        errno = ENOENT;
        KoError::reportOSError(0, KoSyslog::Info, "here");
        return 0;
    };
    expect(report, 0, {"4 no %s" + reason, "5 here" + reason});
    expect([]() -> int { KoError::fatalOSError(1, ENOENT, "a"); }, ABORTED,
           {"1 a" + reason + " - aborting process"});
    expect([]() -> int { errno = ENOENT, KoError::fatalOSError(1, "b"); }, ABORTED,
           {"1 b" + reason + " - aborting process"});
    expect([]() -> int { KoError::fatalError(1, "c %s"); }, ABORTED, {"1 c %s - aborting process"});
}

} // namespace

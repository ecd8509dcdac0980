#pragma once

#include "pf/base/KoExport.h"

#include <atomic>

/// Reports of broken preconditions and of conditions a process cannot survive.
///
/// An assertion is logged, leaves a backtrace file, and the process goes on: code after the call must be
/// safe. A fatal error is logged and ends the process through the error handler of KoError.
/// "KO_ENABLE_ABORT_ON_ASSERTION" and "KO_ENABLE_ABORT_ON_FATAL_ERROR" in the environment turn either into an
/// immediate abort. `doCheapAssert(__LINE__, "CKoString")` is the form for plain precondition checks.
///
/// `file` is the base name of the reporting source without extension; `message` may be null. Any thread may
/// report.
extern "C"
{
    /// Reports an assertion; returns unless aborting. At most "KO_ASSERTION_BACKTRACE_MAX" backtraces are
    /// written (0 or unset: no limit), into the directory "KO_ASSERTION_BACKTRACE_DIR" or "/dev/shmem".
    KO_EXPORT void doAssert(unsigned int line, const char* file, const char* message);

    /// doAssert without a message.
    KO_EXPORT void doCheapAssert(unsigned int line, const char* file);

    /// Reports a fatal error and ends the process.
    [[noreturn]] KO_EXPORT void doFatalError(unsigned int line, const char* file, const char* message);

    /// doFatalError without a message.
    [[noreturn]] KO_EXPORT void doCheapFatalError(unsigned int line, const char* file);
}

/// The logging and counting half of the reports.
///
/// A test harness that provokes assertions sets the expected count: assertions are counted but not reported
/// while the occurred count is below it.
class KO_EXPORT CKoAsserter
{
public:
    CKoAsserter() = delete;

    /// Counts an assertion and, unless it was expected, prints its first line to the system log and to
    /// standard error. \return 1 when the assertion is to be reported further, 0 when it was expected.
    static unsigned int logAssertion(unsigned int line, const char* file, const char* message);

    /// Prints the first line of a fatal error to the system log and to standard error.
    static void logFatalError(unsigned int line, const char* file, const char* message);

    /// Assertions counted so far, reported or not, unless a harness has overwritten the count.
    static unsigned int getOccuredAssertions();
    /// Overwrites the occurred count.
    static void setOccuredAssertions(unsigned int count);
    /// The occurred count from which on assertions are reported; 0 reports all.
    static unsigned int getExpectedAssertions();
    /// Overwrites the expected count.
    static void setExpectedAssertions(unsigned int count);

private:
    struct SData
    {
        std::atomic<unsigned int> occured;
        std::atomic<unsigned int> expected;
    };

    static SData sData;
};

namespace KoPrivate
{

/// The value of "KO_ASSERTION_BACKTRACE_MAX", 0 when it is unset or no number.
KO_EXPORT unsigned int getMaxNumOfBacktraces();

/// The directory of backtrace files: "KO_ASSERTION_BACKTRACE_DIR", or "/dev/shmem" when it is unset.
const char* getBacktraceDirectory();

} // namespace KoPrivate

#include "pf/oswrapper/CKoAsserter.h"

#include "pf/base/CKoString.h"
#include "pf/oswrapper/KoErrnoGuard.h"
#include "pf/oswrapper/KoError.h"
#include "pf/oswrapper/KoSyslog.h"
#include "pf/util/KoBacktrace.h"

#include <cstdio>
#include <cstdlib>

namespace
{

constexpr char MISSING_TEXT[] = "???";
constexpr char BACKTRACE_EXTENSION[] = "ass";

bool isSet(const char* variable)
{
    return std::getenv(variable) != nullptr;
}

const char* textOf(const char* message)
{
    return message != nullptr ? message : MISSING_TEXT;
}

void dumpBacktrace(unsigned int line, const char* file, const char* message)
{
    CKoString information;
    information.format("ASSERTION \"%s\" failed in %s %u", textOf(message), file, line);
    const CKoString directory(KoPrivate::getBacktraceDirectory());
    KoBacktrace::doBacktrace(information, directory, CKoString(BACKTRACE_EXTENSION), true);
}

} // namespace

void doAssert(unsigned int line, const char* file, const char* message)
{
    const KoErrnoGuard errnoGuard;
    if (CKoAsserter::logAssertion(line, file, message) == 0)
    {
        return;
    }
    KoSyslog::logMsg(0, KoSyslog::Critical, "ASSERTION \"%s\" failed in %s %u", textOf(message), file, line);
    if (isSet("KO_ENABLE_ABORT_ON_ASSERTION"))
    {
        std::abort();
    }
    static const int maxNumBacktraces = static_cast<int>(KoPrivate::getMaxNumOfBacktraces());
    // Relaxed: a count alone. Threads that assert at once may overshoot the limit.
    static std::atomic<int> backTracesReported{0};
    if (maxNumBacktraces != 0 && maxNumBacktraces <= backTracesReported.load(std::memory_order_relaxed))
    {
        return;
    }
    dumpBacktrace(line, file, message);
    backTracesReported.fetch_add(1, std::memory_order_relaxed);
}

void doCheapAssert(unsigned int line, const char* file)
{
    doAssert(line, file, nullptr);
}

void doFatalError(unsigned int line, const char* file, const char* message)
{
    CKoAsserter::logFatalError(line, file, message);
    if (isSet("KO_ENABLE_ABORT_ON_FATAL_ERROR"))
    {
        KoSyslog::logMsg(0, KoSyslog::Critical, "%s:%d: FATAL ERROR \"%s\" occured", file,
                         static_cast<int>(line), textOf(message));
        std::abort();
    }
    if (message != nullptr)
    {
        KoError::criticalError(0, "%s:%d: FATAL ERROR \"%s\" occured", file, static_cast<int>(line), message);
    }
    KoError::criticalError(0, "%s:%d: FATAL ERROR occured", file, static_cast<int>(line));
}

void doCheapFatalError(unsigned int line, const char* file)
{
    doFatalError(line, file, nullptr);
}

// Relaxed, like every access to the two counters: they count and order nothing.
CKoAsserter::SData CKoAsserter::sData = {{0}, {0}};

unsigned int CKoAsserter::logAssertion(unsigned int line, const char* file, const char* message)
{
    const unsigned int before = sData.occured.fetch_add(1, std::memory_order_relaxed);
    if (getExpectedAssertions() > before)
    {
        return 0;
    }
    if (message != nullptr)
    {
        KoSyslog::logMsg(0, KoSyslog::Error, "%s:%u: ASSERTION \"%s\" failed", file, line, message);
        std::fprintf(stderr, "\n%s:%u: ASSERTION \"%s\" failed\n", file, line, message);
        return 1;
    }
    KoSyslog::logMsg(0, KoSyslog::Error, "%s:%u: ASSERTION failed", file, line);
    std::fprintf(stderr, "\n%s:%u: ASSERTION failed\n", file, line);
    return 1;
}

void CKoAsserter::logFatalError(unsigned int line, const char* file, const char* message)
{
    if (message != nullptr)
    {
        KoSyslog::logMsg(0, KoSyslog::Error, "%s:%u: FATAL ERROR \"%s\" occured", file, line, message);
        std::fprintf(stderr, "\n%s:%u: FATAL ERROR \"%s\" occured\n", file, line, message);
        return;
    }
    KoSyslog::logMsg(0, KoSyslog::Error, "%s:%u: FATAL ERROR occured", file, line);
    std::fprintf(stderr, "\n%s:%u: FATAL ERROR occured\n", file, line);
}

unsigned int CKoAsserter::getOccuredAssertions()
{
    return sData.occured.load(std::memory_order_relaxed);
}

void CKoAsserter::setOccuredAssertions(unsigned int count)
{
    sData.occured.store(count, std::memory_order_relaxed);
}

unsigned int CKoAsserter::getExpectedAssertions()
{
    return sData.expected.load(std::memory_order_relaxed);
}

void CKoAsserter::setExpectedAssertions(unsigned int count)
{
    sData.expected.store(count, std::memory_order_relaxed);
}

unsigned int KoPrivate::getMaxNumOfBacktraces()
{
    const char* text = std::getenv("KO_ASSERTION_BACKTRACE_MAX");
    int value = 0;
    if (text == nullptr || std::sscanf(text, "%d", &value) != 1)
    {
        return 0;
    }
    return static_cast<unsigned int>(value);
}

const char* KoPrivate::getBacktraceDirectory()
{
    const char* directory = std::getenv("KO_ASSERTION_BACKTRACE_DIR");
    return directory != nullptr ? directory : "/dev/shmem";
}

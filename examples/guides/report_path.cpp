// What becomes of a broken precondition, of an expected one, and of an error that a process cannot survive.
#include "pf/oswrapper/CKoAsserter.h"
#include "pf/oswrapper/KoError.h"
#include "pf/platform/KoPlatformLog.h"

#include <cstdio>
#include <cstdlib>

namespace
{

constexpr int MODULE = 7; // the number of this program's module in the log

class Tank
{
public:
    /// \param percent 0 to 100; more is reported and changes nothing. \return whether it was taken.
    bool fill(unsigned int percent)
    {
        if (percent > 100U)
        {
            doAssert(__LINE__, "Tank", "A tank holds 100 percent");
            return false;
        }
        m_percent = percent;
        return true;
    }

    unsigned int percent() const { return m_percent; }

private:
    unsigned int m_percent = 0;
};

int printLine(int /*opcode*/, int severity, const char* line)
{
    return std::printf("log, severity %d: %s\n", severity, line);
}

[[noreturn]] void leaveCleanly(void* /*argument*/)
{
    std::puts("valves closed");
    std::exit(3);
}

} // namespace

int main()
{
    KoPlatform::setLogSink(printLine); // for this guide; without a sink the lines go to the system's logger
    KoError::setErrorHandler(leaveCleanly, nullptr);

    Tank tank;
    tank.fill(40);
    tank.fill(140);
    std::printf("the tank holds %u %%\n", tank.percent());

    // A test provokes the report and expects it: it is counted and not reported.
    CKoAsserter::setExpectedAssertions(CKoAsserter::getOccuredAssertions() + 1);
    tank.fill(101);
    std::printf("%u assertions\n", CKoAsserter::getOccuredAssertions());

    KoError::criticalError(MODULE, "no pump answers on line %d", 2);
}

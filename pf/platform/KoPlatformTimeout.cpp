#include "pf/platform/KoPlatformTimeout.h"

#include "pf/platform/KoPlatformClock.h"

#include <cerrno>

namespace
{

struct ArmedTimeout
{
    unsigned int states;
    unsigned long long deadlineNs;
};

__thread ArmedTimeout sArmed __attribute__((tls_model("initial-exec")));

} // namespace

namespace KoPlatform
{

int TimerTimeout(int clockId, int flags, const struct sigevent* notify, const unsigned long long* time,
                 unsigned long long* oldTime)
{
    if (clockId != CLOCK_ID_MONOTONIC || notify != nullptr || oldTime != nullptr)
    {
        errno = EINVAL;
        return -1;
    }
    const unsigned int bits = static_cast<unsigned int>(flags);
    const unsigned long long given = time != nullptr ? *time : 0ULL;
    const unsigned long long start = (bits & TIMEOUT_ABSOLUTE) != 0U ? 0ULL : monotonicNow();
    sArmed.states = bits & ~static_cast<unsigned int>(TIMEOUT_ABSOLUTE);
    sArmed.deadlineNs = given > NO_DEADLINE - start ? NO_DEADLINE : start + given;
    return 0;
}

unsigned long long takeTimeout(unsigned int states, unsigned int* takenStates)
{
    const unsigned int armed = sArmed.states;
    sArmed.states = 0U;
    if (takenStates != nullptr)
    {
        *takenStates = armed;
    }
    return (armed & states) != 0U ? sArmed.deadlineNs : NO_DEADLINE;
}

} // namespace KoPlatform

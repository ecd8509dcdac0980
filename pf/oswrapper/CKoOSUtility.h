#pragma once

#include "pf/base/KoExport.h"

#include <ctime>

/// Conversions between the library's times and the platform's.
class CKoOSUtility
{
public:
    /// Fills `ts` with the absolute wall-clock time `ms` milliseconds from now; a negative `ms` counts as 0.
    /// \return `ts`. Any thread. Expanded in the caller, so that it fits whatever width the caller's
    /// `timespec` has.
    static timespec& translateToOSTimeout(int ms, timespec& ts)
    {
        long long seconds = 0;
        long nanoseconds = 0;
        realTimeAfter(ms, seconds, nanoseconds);
        ts.tv_sec = static_cast<decltype(ts.tv_sec)>(seconds);
        ts.tv_nsec = nanoseconds;
        return ts;
    }

private:
    KO_EXPORT static void realTimeAfter(int ms, long long& seconds, long& nanoseconds);
};

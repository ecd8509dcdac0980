#pragma once

/// A count of nanoseconds taken apart for display; see CKoPerformanceCheck::translate.
struct SKoTimeBreakdown
{
    unsigned int seconds;
    unsigned int milliseconds; ///< 0 to 999
    unsigned int microseconds; ///< 0 to 999
    unsigned int nanoseconds;  ///< 0 to 999
};

#pragma once

#include <chrono>
#include <cstdint>

#include <sched.h>

#include <gtest/gtest.h>

namespace KoTest
{

/// True when this executable runs under the user-mode emulator.
constexpr bool isEmulated()
{
#ifdef KO_TEST_EMULATOR
    return true;
#else
    return false;
#endif
}

/// By how much upper bounds are stretched here: 1 on the bare processor, more under emulation and sanitizers.
constexpr unsigned int slowness()
{
#ifdef KO_TEST_SANITIZER
    return 8;
#else
    return isEmulated() ? 10 : 1;
#endif
}

/// Monotonic time since the construction.
class Stopwatch
{
public:
    /// Succeeds when at least lowerMs have passed (to the nanosecond) and at most upperMs times slowness().
    testing::AssertionResult isWithin(std::uint64_t lowerMs, std::uint64_t upperMs) const
    {
        const std::chrono::nanoseconds elapsed = Clock::now() - m_start;
        if (elapsed >= std::chrono::milliseconds(lowerMs) && !isLater(elapsed, upperMs))
            return testing::AssertionSuccess();
        return testing::AssertionFailure() << elapsed.count() << " ns passed, expected " << lowerMs << " to "
                                           << upperMs * slowness() << " ms";
    }
    /// For loops that wait for another thread or process: whether timeoutMs times slowness() have passed.
    bool isPast(std::uint64_t timeoutMs) const { return isLater(Clock::now() - m_start, timeoutMs); }

private:
    using Clock = std::chrono::steady_clock;

    static bool isLater(std::chrono::nanoseconds elapsed, std::uint64_t ms)
    {
        return elapsed > std::chrono::milliseconds(ms * slowness());
    }

    Clock::time_point m_start = Clock::now();
};

/// Calls until condition() holds, giving up the processor in between; false when the deadline passes first.
template <typename Condition>
bool waitUntil(Condition condition, std::uint64_t timeoutMs = 10000)
{
    const Stopwatch watch;
    while (!condition())
    {
        if (watch.isPast(timeoutMs))
            return false;
        sched_yield();
    }
    return true;
}

} // namespace KoTest

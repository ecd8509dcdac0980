#pragma once

#include <cstdint>

#include <sched.h>

#include <gtest/gtest.h>

namespace KoTest
{

/// By how much upper bounds are stretched here: 1 on the bare processor, more under emulation and sanitizers.
unsigned int slowness();

/// True when this executable runs under the user-mode emulator.
bool isEmulated();

/// Monotonic time since the construction.
class Stopwatch
{
public:
    Stopwatch();
    /// Succeeds when at least lowerMs have passed (to the nanosecond) and at most upperMs times slowness().
    testing::AssertionResult isWithin(std::uint64_t lowerMs, std::uint64_t upperMs) const;
    /// For loops that wait for another thread or process: whether timeoutMs times slowness() have passed.
    bool isPast(std::uint64_t timeoutMs) const;

private:
    std::uint64_t m_startNs;
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

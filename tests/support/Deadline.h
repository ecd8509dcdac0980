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

private:
    std::uint64_t m_startNs;
};

/// A generous bound for loops that wait for another thread or process: upper bound times slowness().
class Deadline
{
public:
    explicit Deadline(std::uint64_t timeoutMs = 10000);
    bool hasPassed() const;

private:
    std::uint64_t m_deadlineNs;
};

/// Calls until condition() holds, giving up the processor in between; false when the deadline passes first.
template <typename Condition>
bool waitUntil(Condition condition, std::uint64_t timeoutMs = 10000)
{
    const Deadline deadline(timeoutMs);
    while (!condition())
    {
        if (deadline.hasPassed())
        {
            return false;
        }
        sched_yield();
    }
    return true;
}

} // namespace KoTest

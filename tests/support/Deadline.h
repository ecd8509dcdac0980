#pragma once

#include <cstdint>

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
    std::uint64_t elapsedNs() const;
    std::uint64_t elapsedMs() const;

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
    /// Milliseconds left, rounded up, 0 when it has passed; fits poll().
    int remainingMs() const;

private:
    std::uint64_t m_deadlineNs;
};

/// Calls until condition() holds, yielding in between; false when the deadline passes first.
template <typename Condition>
bool waitUntil(Condition condition, std::uint64_t timeoutMs = 10000);

/// Gives up the processor for a moment.
void yieldProcessor();

template <typename Condition>
bool waitUntil(Condition condition, std::uint64_t timeoutMs)
{
    const Deadline deadline(timeoutMs);
    while (!condition())
    {
        if (deadline.hasPassed())
        {
            return false;
        }
        yieldProcessor();
    }
    return true;
}

} // namespace KoTest

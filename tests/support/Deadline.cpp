#include "tests/support/Deadline.h"

#include <ctime>

namespace KoTest
{

namespace
{

constexpr std::uint64_t NS_PER_MS = 1000000;

std::uint64_t nowNs()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000000000U + static_cast<std::uint64_t>(now.tv_nsec);
}

} // namespace

bool isEmulated()
{
#ifdef KO_TEST_EMULATOR
    return true;
#else
    return false;
#endif
}

unsigned int slowness()
{
#if defined(KO_TEST_SANITIZER)
    return 8;
#elif defined(KO_TEST_EMULATOR)
    return 10;
#else
    return 1;
#endif
}

Stopwatch::Stopwatch()
    : m_startNs(nowNs())
{
}

testing::AssertionResult Stopwatch::isWithin(std::uint64_t lowerMs, std::uint64_t upperMs) const
{
    const std::uint64_t elapsed = nowNs() - m_startNs;
    if (elapsed >= lowerMs * NS_PER_MS && elapsed <= upperMs * slowness() * NS_PER_MS)
        return testing::AssertionSuccess();
    return testing::AssertionFailure()
           << elapsed << " ns passed, expected " << lowerMs << " to " << upperMs * slowness() << " ms";
}

bool Stopwatch::isPast(std::uint64_t timeoutMs) const
{
    return nowNs() - m_startNs >= timeoutMs * slowness() * NS_PER_MS;
}

} // namespace KoTest

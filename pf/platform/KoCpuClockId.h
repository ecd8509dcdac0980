#pragma once

#include <ctime>

/// How clocks of processor time are numbered. The host has negative ids for them, which the layer's calls do
/// not take.
namespace KoPlatform
{

/// Set in the ids of these clocks and in no other.
constexpr unsigned int CPU_CLOCK = 0x40000000U;

/// The layer's id of a host's clock of processor time.
constexpr int fromHostCpuClock(clockid_t host)
{
    return static_cast<int>(CPU_CLOCK | ~static_cast<unsigned int>(host));
}

/// The host's id of any clock of the layer but the monotonic one.
constexpr clockid_t toHostClock(int clockId)
{
    const auto bits = static_cast<unsigned int>(clockId);
    return (bits & CPU_CLOCK) != 0U ? static_cast<clockid_t>(~(bits & ~CPU_CLOCK)) : clockId;
}

} // namespace KoPlatform

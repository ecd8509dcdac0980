#pragma once

#include "pf/oswrapper/KoError.h"
#include "pf/platform/KoPlatformChannel.h"

#include <exception>

/// What the timer managers share: their private channel, the pulse of a timer and the guard around callbacks.
namespace KoPrivate
{

constexpr unsigned long long TIMER_NS_PER_MS = 1000000ULL;

/// The poll time-out that a manager works with: 0 would not wait at all.
constexpr int pollTimeout(int timeoutMs)
{
    return timeoutMs == 0 ? 1 : timeoutMs;
}

/// Creates a channel for the pulses of timers. \return its id, or -1 with `errno`.
int createTimerChannel();

/// Connects to a channel of the own process. \return the connection's id, or -1 with `errno`.
int connectToTimerChannel(int channelId);

/// Creates a disarmed timer whose pulse carries an address. \return its id, or -1 with `errno`.
int createPulseTimer(int connectionId, const void* target);

/// Arms a timer, or disarms it with 0 and 0. \param flags 0, or TIMER_ABSTIME. \return whether that worked.
bool setPulseTimer(int timerId, int flags, unsigned long long firstNs, unsigned long long intervalNs);

/// Waits for a pulse, at most `timeoutMs` if that is above 0. \return whether one came; false after the
/// time-out and after an interruption. Any other failure ends the process.
bool receiveTimerPulse(int channelId, int timeoutMs, _pulse& pulse);

/// Calls the timer's onTimeout, in which the timer may be destroyed. An exception that leaves it ends the
/// process.
template <class Timer>
void runTimerCallback(Timer& timer)
{
    try
    {
        timer.onTimeout();
    }
    catch (const std::exception& exception)
    {
        KoError::criticalError(0, "Unhandled exception in CNubConnection: %s", exception.what());
    }
    catch (...)
    {
        KoError::criticalError(0, "Unhandled unknown exception in CNubConnection");
    }
}

} // namespace KoPrivate

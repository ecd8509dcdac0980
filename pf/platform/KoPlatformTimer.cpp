#include "pf/platform/KoPlatformTimer.h"

#include "pf/platform/KoChannel.h"
#include "pf/platform/KoConnection.h"
#include "pf/platform/KoFailure.h"
#include "pf/platform/KoKernelTimer.h"
#include "pf/platform/KoPlatformClock.h"
#include "pf/platform/KoRegistry.h"

#include <cerrno>
#include <new>

namespace
{

using namespace KoPlatform;

constexpr int HIGHEST_PRIORITY = 255;
constexpr int LOWEST_CODE = -128;
constexpr int HIGHEST_CODE = 127;

bool isValid(int clockId, const SPulseEvent* event)
{
    return clockId == CLOCK_ID_MONOTONIC && event != nullptr && event->priority >= 0 &&
           event->priority <= HIGHEST_PRIORITY && event->code >= LOWEST_CODE && event->code <= HIGHEST_CODE;
}

/// Makes room among the channel's timers for one more.
int reserve(const Connection& connection)
{
    if (connection.channel() == nullptr)
    {
        return ENOTSUP;
    }
    Channel::Session session(*connection.channel());
    if (session.isDestroyed() || connection.isDetached())
    {
        return session.isDestroyed() ? ESRCH : EBADF;
    }
    return session.timers().reserve() ? 0 : ENOMEM;
}

int create(Connection& connection, const SPulseEvent& event)
{
    const int error = reserve(connection);
    if (error != 0)
    {
        return failWith(error);
    }
    KernelTimer* timer = new (std::nothrow) KernelTimer(connection, event);
    const int timerId = timer != nullptr ? Registry::addTimer(*timer) : failWith(ENOMEM);
    if (timerId != -1)
    {
        return timerId;
    }
    const int failure = errno;
    Channel::Session(*connection.channel()).timers().unreserve();
    if (timer != nullptr)
    {
        timer->release();
    }
    return failWith(failure);
}

STimerSetting settingOf(const KernelTimer& timer, unsigned long long now)
{
    if (timer.place == KernelTimer::NOT_ARMED)
    {
        return STimerSetting{0ULL, 0ULL};
    }
    // What expires this very moment is still armed, which 0 would deny.
    const unsigned long long left = timer.expiryNs > now ? timer.expiryNs - now : 1ULL;
    return STimerSetting{left, timer.intervalNs};
}

unsigned long long expiryOf(int flags, const STimerSetting& setting, unsigned long long now)
{
    const unsigned long long start = (flags & TIMER_ABSTIME) != 0 ? 0ULL : now;
    return setting.firstNs < NO_DEADLINE - start ? start + setting.firstNs : NO_DEADLINE;
}

void set(Channel::Session& session, KernelTimer& timer, int flags, const STimerSetting& setting,
         unsigned long long now)
{
    session.timers().remove(timer);
    timer.intervalNs = setting.intervalNs;
    if (setting.firstNs == 0ULL || session.isDestroyed())
    {
        return;
    }
    session.unqueuePulse(timer);
    timer.expiryNs = expiryOf(flags, setting, now);
    session.timers().add(timer);
    session.wakeLeaderBy(timer.expiryNs);
}

} // namespace

namespace KoPlatform
{

int TimerCreate(int clockId, const SPulseEvent* event)
{
    if (!isValid(clockId, event))
    {
        return failWith(EINVAL);
    }
    Connection* connection = Registry::connection(event->coid);
    if (connection == nullptr)
    {
        return failWith(EBADF);
    }
    const int timerId = create(*connection, *event);
    const int error = errno;
    connection->release();
    errno = error;
    return timerId;
}

int TimerSettime(int timerId, int flags, const STimerSetting* setting, STimerSetting* old)
{
    if ((flags & ~TIMER_ABSTIME) != 0 || setting == nullptr)
    {
        return failWith(EINVAL);
    }
    const STimerSetting given = *setting;
    KernelTimer* timer = Registry::timer(timerId);
    if (timer == nullptr)
    {
        return failWith(EINVAL);
    }
    {
        Channel::Session session(*timer->connection().channel());
        session.queueDueTimers();
        const unsigned long long now = monotonicNow();
        if (old != nullptr)
        {
            *old = settingOf(*timer, now);
        }
        if (!timer->destroyed)
        {
            set(session, *timer, flags, given, now);
        }
    }
    timer->release();
    return 0;
}

int TimerDestroy(int timerId)
{
    KernelTimer* timer = Registry::removeTimer(timerId);
    if (timer == nullptr)
    {
        return failWith(EINVAL);
    }
    {
        Channel::Session session(*timer->connection().channel());
        session.queueDueTimers();
        session.timers().remove(*timer);
        session.timers().unreserve();
        timer->destroyed = true; // another thread may be about to arm it
        timer->pulse.value = 0;
    }
    timer->release();
    return 0;
}

} // namespace KoPlatform

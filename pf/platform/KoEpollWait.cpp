#include "pf/platform/KoEpollWait.h"

#include "pf/platform/KoPlatformClock.h"
#include "pf/platform/KoPlatformTimeout.h"

#include <cerrno>
#include <ctime>
#include <poll.h>
#include <sys/epoll.h>

namespace
{

constexpr unsigned long long NS_PER_SECOND = 1000000000ULL;

/// Set once the kernel has said that it has no epoll_pwait2, or a sandbox that it does not know it. Guards
/// nothing: relaxed.
bool sNoFineWait = false;

timespec toTimespec(unsigned long long ns)
{
    timespec result{};
    result.tv_sec = static_cast<time_t>(ns / NS_PER_SECOND);
    result.tv_nsec = static_cast<long>(ns % NS_PER_SECOND);
    return result;
}

/// The kernel may lack a wait in nanoseconds for sets, but has one for descriptors, and a set is one.
int waitAsDescriptor(int epollDescriptor, epoll_event* events, int capacity, const timespec& timeout)
{
    pollfd set{epollDescriptor, POLLIN, 0};
    const int ready = ::ppoll(&set, 1, &timeout, nullptr);
    return ready > 0 ? ::epoll_wait(epollDescriptor, events, capacity, 0) : ready;
}

int waitFor(int epollDescriptor, epoll_event* events, int capacity, unsigned long long ns)
{
    const timespec timeout = toTimespec(ns);
    if (!__atomic_load_n(&sNoFineWait, __ATOMIC_RELAXED))
    {
        const int count = ::epoll_pwait2(epollDescriptor, events, capacity, &timeout, nullptr);
        if (count != -1 || (errno != ENOSYS && errno != EPERM))
        {
            return count;
        }
        __atomic_store_n(&sNoFineWait, true, __ATOMIC_RELAXED);
    }
    return waitAsDescriptor(epollDescriptor, events, capacity, timeout);
}

} // namespace

int KoPlatform::waitForEvents(int epollDescriptor, epoll_event* events, int capacity,
                              unsigned long long deadlineNs) noexcept
{
    if (deadlineNs == NO_DEADLINE)
    {
        return ::epoll_wait(epollDescriptor, events, capacity, -1);
    }
    for (;;)
    {
        const unsigned long long now = monotonicNow();
        if (now >= deadlineNs)
        {
            return ::epoll_wait(epollDescriptor, events, capacity, 0);
        }
        // An event that another thread was faster to take ends the wait early.
        const int count = waitFor(epollDescriptor, events, capacity, deadlineNs - now);
        if (count != 0)
        {
            return count;
        }
    }
}

// How threads wait on a channel.

#include "pf/platform/KoChannel.h"
#include "pf/platform/KoFutex.h"
#include "pf/platform/KoPlatformClock.h"
#include "pf/platform/KoThreadWait.h"

#include <algorithm>
#include <cerrno>
#include <ctime>

namespace
{

using namespace KoPlatform;

constexpr unsigned long long NS_PER_SECOND = 1000000000ULL;
constexpr int EVENTS_AT_ONCE = 16;

/// How long the leader of a channel that never had a client sleeps on its word, from where it is woken faster
/// than from the descriptors, after somebody looked there: longer than the kernel's tick, so that the limit
/// costs no timer interrupt. The first client from another process may have to wait that long, once.
constexpr unsigned long long REST_NS = 10000000ULL;

/// Receives that may be served in a row without a look at the descriptors.
constexpr int SERVED_WITHOUT_LOOK = 32;

/// How often a receive whose deadline has passed looks again as long as there are events: what a new client
/// has sent shows behind its connecting and its introduction.
constexpr int LOOKS_BEYOND_DEADLINE = 8;

constexpr unsigned long long AT_ONCE = 0ULL;

bool hasPassed(unsigned long long deadlineNs)
{
    return deadlineNs != NO_DEADLINE && monotonicNow() >= deadlineNs;
}

/// The time at the last tick: exact enough for a rest, and cheaper.
unsigned long long roughlyNow()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return static_cast<unsigned long long>(now.tv_sec) * NS_PER_SECOND +
           static_cast<unsigned long long>(now.tv_nsec);
}

struct Sleeper
{
    ChannelBell& bell;
    Waiter& waiter;
};

void wakeSleeper(void* object)
{
    Sleeper& sleeper = *static_cast<Sleeper*>(object);
    futexWake(&sleeper.waiter.word, 1, false);
    sleeper.bell.ring();
}

} // namespace

namespace KoPlatform
{

/// What a waiter saw when it woke up.
struct Channel::Look
{
    int interruption = 0; ///< `EINTR`, `ECANCELED`, or 0
    bool haveEvents = false;
    int eventCount = 0;
    epoll_event events[EVENTS_AT_ONCE];
};

int Channel::awaitWork(WorkKind kind, unsigned long long deadlineNs, Work& work) noexcept
{
    Waiter waiter(kind);
    const int error = startWaiting(deadlineNs, waiter, work);
    if (error != NOTHING)
    {
        return error;
    }
    const int result = waitEnlisted(waiter, deadlineNs, work);
    m_bell.release();
    return result;
}

/// Takes what is there, or makes the caller one of those who wait and keeps the bell.
int Channel::startWaiting(unsigned long long deadlineNs, Waiter& waiter, Work& work) noexcept
{
    const Session session(*this);
    Look look;
    if (m_servedWithoutLook == SERVED_WITHOUT_LOOK)
    {
        lookAtDescriptors(look);
    }
    else
    {
        ++m_servedWithoutLook;
    }
    int error = lookAndTake(look, waiter.kind, work);
    if (error == NOTHING && hasPassed(deadlineNs))
    {
        error = takeLate(waiter.kind, work);
    }
    if (error == NOTHING)
    {
        m_waiters.add(waiter);
        m_bell.retain();
        plan(waiter, deadlineNs);
    }
    wakeForRest();
    return error;
}

/// The last looks of a receive whose deadline has passed from the start.
int Channel::takeLate(WorkKind kind, Work& work) noexcept
{
    for (int i = 0; i < LOOKS_BEYOND_DEADLINE; ++i)
    {
        Look look;
        lookAtDescriptors(look);
        const int error = lookAndTake(look, kind, work);
        if (error != NOTHING)
        {
            return error;
        }
        if (look.eventCount <= 0)
        {
            break;
        }
    }
    return ETIMEDOUT;
}

int Channel::waitEnlisted(Waiter& waiter, unsigned long long deadlineNs, Work& work) noexcept
{
    Sleeper sleeper = {m_bell, waiter};
    const ThreadWait announced(wakeSleeper, &sleeper);
    int error = NOTHING;
    while (error == NOTHING)
    {
        Look look;
        sleep(waiter, look);
        error = lookAgain(waiter, deadlineNs, look, work);
    }
    return error;
}

/// \return NOTHING when the waiter has to sleep on; otherwise it waits no longer.
int Channel::lookAgain(Waiter& waiter, unsigned long long deadlineNs, Look& look, Work& work) noexcept
{
    const Session session(*this);
    int error = look.interruption == ECANCELED ? ECANCELED : lookAndTake(look, waiter.kind, work);
    if (error == NOTHING)
    {
        error = giveUpReason(waiter, deadlineNs, look);
    }
    if (error == NOTHING)
    {
        plan(waiter, deadlineNs);
    }
    else
    {
        m_waiters.remove(waiter, *m_wakes);
    }
    wakeForRest();
    return error;
}

/// Handles what was seen at the descriptors, and takes what the caller accepts.
int Channel::lookAndTake(Look& look, WorkKind kind, Work& work) noexcept
{
    m_isLooking = true;
    unsigned int lanesBefore = m_lanesEver;
    handleEvents(look);
    while (m_lanesEver != lanesBefore && !m_isDestroyed)
    {
        // What new clients have sent already takes its place before anything is taken.
        lanesBefore = m_lanesEver;
        look.eventCount = m_bell.wait(look.events, EVENTS_AT_ONCE, AT_ONCE);
        handleEvents(look);
    }
    const int error = takeWork(kind, work);
    m_isLooking = false;
    return error;
}

int Channel::giveUpReason(Waiter& waiter, unsigned long long deadlineNs, const Look& look) noexcept
{
    if (hasPassed(deadlineNs) &&
        (look.eventCount <= 0 || ++waiter.looksBeyondDeadline > LOOKS_BEYOND_DEADLINE))
    {
        return ETIMEDOUT;
    }
    return look.interruption != 0 ? look.interruption : NOTHING;
}

/// Decides where and until when a waiter sleeps that has found nothing to do.
void Channel::plan(Waiter& waiter, unsigned long long deadlineNs) noexcept
{
    const bool leads = m_waiters.leader() == &waiter;
    waiter.signalled = false;
    // Relaxed: others set it under the lock only.
    __atomic_store_n(&waiter.word, 0U, __ATOMIC_RELAXED);
    waiter.wakeAtNs = leads ? std::min(deadlineNs, m_timers.earliestNs()) : deadlineNs;
    const bool rests = leads && mayRest();
    waiter.atDescriptors = leads && !rests;
    if (rests)
    {
        waiter.wakeAtNs = std::min(waiter.wakeAtNs, m_lookedNs + REST_NS);
    }
}

/// Whether nobody has to look at the descriptors for a moment.
bool Channel::mayRest() const noexcept
{
    return !m_lanes->hadClients() && m_servedWithoutLook < SERVED_WITHOUT_LOOK &&
           roughlyNow() < m_lookedNs + REST_NS;
}

void Channel::sleep(Waiter& waiter, Look& look) noexcept
{
    if (isTerminationRequested())
    {
        look.interruption = ECANCELED;
        return;
    }
    if (waiter.atDescriptors)
    {
        look.haveEvents = true;
        look.eventCount = m_bell.wait(look.events, EVENTS_AT_ONCE, waiter.wakeAtNs);
        look.interruption = look.eventCount == -1 ? EINTR : 0;
        return;
    }
    // With a time limit, however far, the kernel tells of an interruption whatever the handler's flags are.
    const unsigned long long wakeAtNs = std::min(waiter.wakeAtNs, NO_DEADLINE - 1ULL);
    look.interruption = futexWaitOnce(&waiter.word, 0U, false, wakeAtNs) == EINTR ? EINTR : 0;
}

/// Only where nobody waits, so that no event of a leader is taken away.
void Channel::lookAtDescriptors(Look& look) noexcept
{
    if (!m_isDestroyed && m_waiters.leader() == nullptr)
    {
        look.haveEvents = true;
        look.eventCount = m_bell.wait(look.events, EVENTS_AT_ONCE, AT_ONCE);
    }
}

void Channel::handleEvents(const Look& look) noexcept
{
    if (look.haveEvents)
    {
        m_servedWithoutLook = 0;
        m_lookedNs = m_lanesEver == 0U ? roughlyNow() : 0ULL; // who knows clients does not rest
    }
    for (int i = 0; i < look.eventCount && !m_isDestroyed; ++i)
    {
        if (LaneServer::isOwnEvent(look.events[i].data.u64))
        {
            m_lanes->handleEvent(look.events[i].data.u64, look.events[i].events);
        }
    }
}

/// Whoever looked leaves the rest to others; it may also have been woken for something that it did not take.
void Channel::wakeForRest() noexcept
{
    if (m_waiters.isEmpty())
    {
        return;
    }
    if (!m_messages.isEmpty())
    {
        m_waiters.wakeFor(WorkKind::ANY, *m_wakes);
    }
    if (!m_pulses.isEmpty())
    {
        m_waiters.wakeFor(WorkKind::PULSES, *m_wakes);
    }
}

} // namespace KoPlatform

#include "pf/platform/KoKernelTimer.h"

#include "pf/oswrapper/KoMemory.h"
#include "pf/platform/KoConnection.h"

#include <algorithm>

namespace
{

constexpr int FIRST_CAPACITY = 4;

} // namespace

namespace KoPlatform
{

KernelTimer::KernelTimer(Connection& connection, const SPulseEvent& event) noexcept
    : m_connection(connection)
{
    connection.retain();
    pulse.priority = event.priority;
    pulse.code = event.code;
    pulse.value = event.value;
    pulse.scoid = connection.serverId();
    pulse.timer = this;
}

KernelTimer::~KernelTimer()
{
    m_connection.release();
}

void KernelTimer::release() noexcept
{
    if (!KoAtomic::testDecrement(m_references))
    {
        delete this;
    }
}

bool KernelTimer::advance(unsigned long long nowNs) noexcept
{
    if (intervalNs == 0ULL)
    {
        expiryNs = NO_DEADLINE;
        return false;
    }
    const unsigned long long missed = (nowNs - expiryNs) / intervalNs;
    const unsigned long long grid = expiryNs + missed * intervalNs;
    expiryNs = intervalNs < NO_DEADLINE - grid ? grid + intervalNs : NO_DEADLINE;
    return expiryNs != NO_DEADLINE;
}

TimerHeap::~TimerHeap()
{
    KoMemory::release(m_timers);
}

bool TimerHeap::reserve() noexcept
{
    if (m_reserved == m_capacity && !resize(std::max(FIRST_CAPACITY, m_capacity * 2)))
    {
        return false;
    }
    ++m_reserved;
    return true;
}

void TimerHeap::unreserve() noexcept
{
    if (--m_reserved == 0)
    {
        KoMemory::release(m_timers);
        m_timers = nullptr;
        m_capacity = 0;
    }
}

void TimerHeap::add(KernelTimer& timer) noexcept
{
    timer.armed = ++m_everArmed;
    put(m_count, timer);
    moveUp(m_count++);
}

void TimerHeap::remove(KernelTimer& timer) noexcept
{
    const int place = timer.place;
    if (place == KernelTimer::NOT_ARMED)
    {
        return;
    }
    timer.place = KernelTimer::NOT_ARMED;
    if (place != --m_count)
    {
        KernelTimer& last = *m_timers[m_count];
        put(place, last);
        moveUp(place);
        moveDown(last.place);
    }
}

void TimerHeap::put(int place, KernelTimer& timer) noexcept
{
    m_timers[place] = &timer;
    timer.place = place;
}

void TimerHeap::moveUp(int place) noexcept
{
    KernelTimer& timer = *m_timers[place];
    while (place > 0 && isEarlier(timer, *m_timers[(place - 1) / 2]))
    {
        const int parent = (place - 1) / 2;
        put(place, *m_timers[parent]);
        place = parent;
    }
    put(place, timer);
}

void TimerHeap::moveDown(int place) noexcept
{
    KernelTimer& timer = *m_timers[place];
    for (;;)
    {
        int child = 2 * place + 1;
        if (child + 1 < m_count && isEarlier(*m_timers[child + 1], *m_timers[child]))
        {
            ++child;
        }
        if (child >= m_count || isEarlier(timer, *m_timers[child]))
        {
            break;
        }
        put(place, *m_timers[child]);
        place = child;
    }
    put(place, timer);
}

bool TimerHeap::isEarlier(const KernelTimer& timer, const KernelTimer& other) noexcept
{
    return timer.expiryNs != other.expiryNs ? timer.expiryNs < other.expiryNs : timer.armed < other.armed;
}

bool TimerHeap::resize(int capacity) noexcept
{
    const unsigned int bytes = static_cast<unsigned int>(capacity) * static_cast<unsigned int>(sizeof(void*));
    KernelTimer** timers = static_cast<KernelTimer**>(KoMemory::alloc(bytes));
    if (timers == nullptr)
    {
        return false;
    }
    std::copy(m_timers, m_timers + m_count, timers);
    KoMemory::release(m_timers);
    m_timers = timers;
    m_capacity = capacity;
    return true;
}

} // namespace KoPlatform

#include "pf/platform/KoChannelWaiters.h"

namespace
{

using namespace KoPlatform;

bool accepts(const Waiter& waiter, WorkKind queued)
{
    return waiter.kind == WorkKind::ANY || queued == WorkKind::PULSES;
}

} // namespace

namespace KoPlatform
{

void ChannelWaiters::add(Waiter& waiter) noexcept
{
    waiter.previous = m_last;
    (m_last != nullptr ? m_last->next : m_first) = &waiter;
    m_last = &waiter;
    if (m_leader == nullptr)
    {
        m_leader = &waiter;
    }
}

void ChannelWaiters::remove(Waiter& waiter, WakeList& wakes) noexcept
{
    (waiter.previous != nullptr ? waiter.previous->next : m_first) = waiter.next;
    (waiter.next != nullptr ? waiter.next->previous : m_last) = waiter.previous;
    if (m_leader != &waiter)
    {
        return;
    }
    m_leader = m_first;
    if (m_leader != nullptr)
    {
        wake(*m_leader, wakes);
    }
}

void ChannelWaiters::wakeFor(WorkKind queued, WakeList& wakes) noexcept
{
    Waiter* waiter = pick(queued);
    if (waiter != nullptr)
    {
        wake(*waiter, wakes);
    }
}

void ChannelWaiters::wakeLeaderBy(unsigned long long timeNs, WakeList& wakes) noexcept
{
    if (m_leader != nullptr && timeNs < m_leader->wakeAtNs)
    {
        wake(*m_leader, wakes);
    }
}

void ChannelWaiters::wakeAll(WakeList& wakes) noexcept
{
    for (Waiter* waiter = m_first; waiter != nullptr; waiter = waiter->next)
    {
        wake(*waiter, wakes);
    }
}

Waiter* ChannelWaiters::pick(WorkKind queued) const noexcept
{
    Waiter* best = nullptr;
    int bestRank = -1;
    for (Waiter* waiter = m_first; waiter != nullptr; waiter = waiter->next)
    {
        const int rank = (waiter->kind == queued ? 2 : 0) + (waiter != m_leader ? 1 : 0);
        if (!waiter->signalled && accepts(*waiter, queued) && rank > bestRank)
        {
            best = waiter;
            bestRank = rank;
        }
    }
    return best;
}

void ChannelWaiters::wake(Waiter& waiter, WakeList& wakes) noexcept
{
    if (waiter.signalled)
    {
        return;
    }
    waiter.signalled = true;
    if (waiter.atDescriptors)
    {
        wakes.add(m_bell);
        return;
    }
    // Relaxed: what the sleeper is to look at is guarded by the lock; this only keeps it from sleeping.
    __atomic_store_n(&waiter.word, 1U, __ATOMIC_RELAXED);
    wakes.add(waiter.word);
}

} // namespace KoPlatform

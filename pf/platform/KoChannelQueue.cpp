#include "pf/platform/KoChannelQueue.h"

namespace KoPlatform
{

void ChannelQueue::insert(QueueItem& item) noexcept
{
    QueueItem* previous = lastNotBelow(item.priority);
    QueueItem* next = previous != nullptr ? previous->next : m_first;
    item.previous = previous;
    item.next = next;
    (previous != nullptr ? previous->next : m_first) = &item;
    (next != nullptr ? next->previous : m_last) = &item;
    item.queued = true;
}

void ChannelQueue::remove(QueueItem& item) noexcept
{
    (item.previous != nullptr ? item.previous->next : m_first) = item.next;
    (item.next != nullptr ? item.next->previous : m_last) = item.previous;
    item.next = nullptr;
    item.previous = nullptr;
    item.queued = false;
}

QueueItem* ChannelQueue::lastNotBelow(int priority) const noexcept
{
    // Above all or below all is what happens nearly always.
    if (m_first == nullptr || m_first->priority < priority)
    {
        return nullptr;
    }
    QueueItem* item = m_last;
    while (item->priority < priority)
    {
        item = item->previous;
    }
    return item;
}

bool isBefore(const QueueItem* item, const QueueItem* other) noexcept
{
    if (item == nullptr || other == nullptr)
    {
        return item != nullptr;
    }
    return item->priority != other->priority ? item->priority > other->priority
                                             : item->arrival < other->arrival;
}

} // namespace KoPlatform

#pragma once

namespace KoPlatform
{

/// What waits in a queue of a channel. Belongs to its owner; the queue only links it.
struct QueueItem
{
    QueueItem* next = nullptr;
    QueueItem* previous = nullptr;
    unsigned long long arrival = 0ULL; ///< number among all that ever arrived on the channel
    int priority = 0;
    bool queued = false;
};

/// Items by priority, highest first, then by arrival. Not synchronised.
class ChannelQueue
{
public:
    QueueItem* first() const noexcept { return m_first; }
    bool isEmpty() const noexcept { return m_first == nullptr; }
    void insert(QueueItem& item) noexcept;
    void remove(QueueItem& item) noexcept;

private:
    QueueItem* lastNotBelow(int priority) const noexcept;

    QueueItem* m_first = nullptr;
    QueueItem* m_last = nullptr;
};

/// Whether the first item has to be delivered before the second; null is behind everything.
bool isBefore(const QueueItem* item, const QueueItem* other) noexcept;

} // namespace KoPlatform

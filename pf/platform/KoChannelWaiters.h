#pragma once

#include "pf/platform/KoWakeList.h"

namespace KoPlatform
{

/// What a receive asks for, and what is queued.
enum class WorkKind
{
    ANY,   ///< of a receive: messages and pulses; of what is queued: a message
    PULSES ///< pulses only; a pulse
};

/// A thread that waits on a channel. On its stack; guarded by the channel's lock but for the word.
struct Waiter
{
    explicit Waiter(WorkKind wanted) noexcept
        : kind(wanted)
    {
    }

    const WorkKind kind;
    Waiter* next = nullptr;
    Waiter* previous = nullptr;
    unsigned long long wakeAtNs = 0ULL; ///< when it looks by itself
    unsigned int word = 0U;             ///< 0 while nobody wants it to look; it sleeps on it
    bool signalled = false;             ///< somebody wants it to look
    bool atDescriptors = false;         ///< sleeps at the descriptors instead
    int looksBeyondDeadline = 0;        ///< how often it looked again although its time was up
};

/// The threads that wait on a channel. One of them, the leader, watches the descriptors and the timers for
/// all; the others sleep on a word of their own. Guarded by the channel's lock.
class ChannelWaiters
{
public:
    explicit ChannelWaiters(ChannelBell& bell) noexcept
        : m_bell(bell)
    {
    }

    bool isEmpty() const noexcept { return m_first == nullptr; }
    const Waiter* leader() const noexcept { return m_leader; }

    /// Adds a thread; the first one leads.
    void add(Waiter& waiter) noexcept;

    /// Takes a thread out. If it was the leader another one becomes it and is woken.
    void remove(Waiter& waiter, WakeList& wakes) noexcept;

    /// Wakes a thread that may take what is queued, one that waits for just that rather than another, and
    /// the leader last.
    void wakeFor(WorkKind queued, WakeList& wakes) noexcept;

    /// Wakes the leader if it would sleep beyond that time.
    void wakeLeaderBy(unsigned long long timeNs, WakeList& wakes) noexcept;

    void wakeAll(WakeList& wakes) noexcept;

private:
    Waiter* pick(WorkKind queued) const noexcept;
    void wake(Waiter& waiter, WakeList& wakes) noexcept;

    ChannelBell& m_bell;
    Waiter* m_first = nullptr;
    Waiter* m_last = nullptr;
    Waiter* m_leader = nullptr;
};

} // namespace KoPlatform

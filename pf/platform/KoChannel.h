#pragma once

#include "pf/platform/KoChannelBell.h"
#include "pf/platform/KoChannelLock.h"
#include "pf/platform/KoChannelWaiters.h"
#include "pf/platform/KoExchange.h"
#include "pf/platform/KoKernelTimer.h"
#include "pf/platform/KoLane.h"
#include "pf/platform/KoWakeList.h"

namespace KoPlatform
{

class Connection;

/// What a receive was given: a message or a pulse.
struct Work
{
    Exchange* exchange = nullptr; ///< null for a pulse
    int receiveId = 0;            ///< of the exchange; pending
    int code = 0;
    int scoid = 0;
    int priority = 0;
    std::intptr_t value = 0;
};

/// A channel: what is queued on it, its timers, its lanes, and the threads that wait for all that.
///
/// Counted references keep the object; its descriptors go when it is destroyed (as a channel) and nobody uses
/// them any more. What has to be done under its lock is done through a Session, or in one.
class Channel final : private ILaneChannel
{
public:
    class Session;

    Channel() noexcept;
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    /// Makes the descriptors and listens under the id. \return 0, or -1 with `errno`; `EADDRINUSE` when
    /// another process has taken the id's name.
    int open(int id) noexcept;

    void retain() noexcept { KoAtomic::increment(m_references); }
    /// The last release frees the object.
    void release() noexcept;

    int id() const noexcept { return m_id; }

    /// Waits for work. \return 0, or an error number: `ESRCH` destroyed; `ETIMEDOUT`; `EINTR`; `ECANCELED`
    /// the thread is to end; `ENOMEM` or `EAGAIN` without a receive id for a message, which stays queued.
    int awaitWork(WorkKind kind, unsigned long long deadlineNs, Work& work) noexcept;

    /// For the forking thread, and its child.
    void lockForFork() noexcept { m_lock.lock(); }
    void unlockAfterFork() noexcept { m_lock.unlock(); }
    void abandonInChild() noexcept;

private:
    ~Channel();

    struct Look;

    static constexpr int NOTHING = -1; // not an error number: there is nothing to take

    // Of KoChannel.cpp, in a session.
    void dropAll() noexcept;
    int queueSentPulse(int priority, int code, std::intptr_t value, int scoid) noexcept;
    PulseItem* takeSparePulse() noexcept;
    void append(ChannelQueue& queue, QueueItem& item, WorkKind kind) noexcept;
    int takeWork(WorkKind kind, Work& work) noexcept;
    int takeMessage(Work& work) noexcept;
    void takePulse(Work& work) noexcept;
    void queueDueTimers() noexcept;

    // Of KoChannelWait.cpp.
    int startWaiting(unsigned long long deadlineNs, Waiter& waiter, Work& work) noexcept;
    int waitEnlisted(Waiter& waiter, unsigned long long deadlineNs, Work& work) noexcept;
    int lookAgain(Waiter& waiter, unsigned long long deadlineNs, Look& look, Work& work) noexcept;
    int takeLate(WorkKind kind, Work& work) noexcept;
    int lookAndTake(Look& look, WorkKind kind, Work& work) noexcept;
    static int giveUpReason(Waiter& waiter, unsigned long long deadlineNs, const Look& look) noexcept;
    void plan(Waiter& waiter, unsigned long long deadlineNs) noexcept;
    bool mayRest() const noexcept;
    void sleep(Waiter& waiter, Look& look) noexcept;
    void lookAtDescriptors(Look& look) noexcept;
    void handleEvents(const Look& look) noexcept;
    void wakeForRest() noexcept;

    bool laneOpened(ServerLane& lane) override;
    void messageArrived(ServerLane& lane, int priority) override;
    bool pulseArrived(ServerLane& lane, int priority, int code, std::int64_t value) override;
    void laneClosed(ServerLane& lane) override;

    ChannelLock m_lock;
    unsigned int m_references = 1;
    WakeList* m_wakes = nullptr; // that of the session that holds the lock
    ChannelQueue m_messages;
    ChannelQueue m_pulses;
    unsigned long long m_arrivals = 0ULL;
    unsigned long long m_lookedNs = 0ULL; // when somebody looked at the descriptors, roughly
    TimerHeap m_timers;
    ChannelBell m_bell;
    ChannelWaiters m_waiters;
    LaneServer* m_lanes = nullptr;
    int m_id = 0;
    PulseItem* m_sparePulse = nullptr; // one block is kept for the next pulse
    unsigned int m_lanesEver = 0U;
    int m_sentPulses = 0;        // queued ones that are not timers'
    int m_servedWithoutLook = 0; // receives since the descriptors were looked at
    bool m_isDestroyed = false;
    bool m_isLooking = false; // whoever looks takes first, and wakes others for the rest afterwards
};

/// Holds a channel's lock while it lives, and wakes those who are to be woken afterwards.
class Channel::Session
{
public:
    explicit Session(Channel& channel) noexcept;
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    bool isDestroyed() const noexcept { return m_channel.m_isDestroyed; }
    TimerHeap& timers() noexcept { return m_channel.m_timers; }

    void queueMessage(Exchange& exchange) noexcept;
    /// Takes a message back that is still queued. \return false when it is not.
    bool unqueueMessage(Exchange& exchange) noexcept;
    /// Ends the queued messages of a connection, or all if it is null.
    void endQueuedMessages(const Connection* connection, int error) noexcept;

    /// Queues a pulse. \return 0; `EAGAIN` when too many are queued; `ENOMEM`.
    int queueSentPulse(int priority, int code, std::intptr_t value, int scoid) noexcept
    {
        return m_channel.queueSentPulse(priority, code, value, scoid);
    }

    /// Turns the timers that are due into queued pulses.
    void queueDueTimers() noexcept { m_channel.queueDueTimers(); }
    /// Takes a timer's pulse back if it is queued.
    void unqueuePulse(KernelTimer& timer) noexcept;
    /// Makes the leader look in time at a timer that was just armed.
    void wakeLeaderBy(unsigned long long timeNs) noexcept;

    /// Ends the channel with all that is queued on it.
    void destroyChannel() noexcept;

private:
    WakeList m_wakes; // runs after the lock was given back
    Channel& m_channel;
};

} // namespace KoPlatform

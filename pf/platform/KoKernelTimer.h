#pragma once

#include "pf/oswrapper/KoAtomic.h"
#include "pf/platform/KoChannelQueue.h"
#include "pf/platform/KoPlatformTimeout.h"
#include "pf/platform/KoPlatformTimer.h"

#include <cstdint>

namespace KoPlatform
{

class Connection;
class KernelTimer;

/// A queued pulse: one that was sent, in a block of its own, or that of a timer, which is part of the timer.
struct PulseItem : QueueItem
{
    int code = 0;
    int scoid = 0;
    std::intptr_t value = 0;
    KernelTimer* timer = nullptr;
};

/// An expiry that sends a pulse. Guarded by the lock of the channel that its connection leads to.
class KernelTimer
{
public:
    static constexpr int NOT_ARMED = -1;

    /// Keeps the connection.
    KernelTimer(Connection& connection, const SPulseEvent& event) noexcept;
    KernelTimer(const KernelTimer&) = delete;
    KernelTimer& operator=(const KernelTimer&) = delete;

    void retain() noexcept { KoAtomic::increment(m_references); }
    /// The last release frees the timer.
    void release() noexcept;

    Connection& connection() const noexcept { return m_connection; }

    /// Goes to the next expiry after `nowNs` on the grid. \return false when there is none.
    bool advance(unsigned long long nowNs) noexcept;

    unsigned long long expiryNs = NO_DEADLINE;
    unsigned long long intervalNs = 0ULL;
    unsigned long long armed = 0ULL; ///< number among all that were armed: the first of equal ones goes first
    int place = NOT_ARMED;           ///< in the channel's heap
    bool destroyed = false;
    PulseItem pulse;

private:
    ~KernelTimer();

    Connection& m_connection;
    unsigned int m_references = 1;
};

/// The armed timers of a channel, the earliest first. Guarded by the channel's lock. Room is reserved
/// when a timer is created, so that arming never fails.
class TimerHeap
{
public:
    TimerHeap() noexcept = default;
    ~TimerHeap();
    TimerHeap(const TimerHeap&) = delete;
    TimerHeap& operator=(const TimerHeap&) = delete;

    /// Makes room for one more timer. \return false when memory is exhausted.
    bool reserve() noexcept;
    /// Gives the room of a timer back.
    void unreserve() noexcept;

    /// When the earliest expires; NO_DEADLINE if none is armed.
    unsigned long long earliestNs() const noexcept
    {
        return m_count > 0 ? m_timers[0]->expiryNs : NO_DEADLINE;
    }
    KernelTimer& earliest() const noexcept { return *m_timers[0]; }
    bool isEmpty() const noexcept { return m_count == 0; }

    void add(KernelTimer& timer) noexcept;
    void remove(KernelTimer& timer) noexcept;

private:
    void put(int place, KernelTimer& timer) noexcept;
    void moveUp(int place) noexcept;
    void moveDown(int place) noexcept;
    static bool isEarlier(const KernelTimer& timer, const KernelTimer& other) noexcept;
    bool resize(int capacity) noexcept;

    KernelTimer** m_timers = nullptr;
    unsigned long long m_everArmed = 0ULL;
    int m_count = 0;
    int m_reserved = 0;
    int m_capacity = 0;
};

} // namespace KoPlatform

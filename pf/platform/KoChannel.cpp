#include "pf/platform/KoChannel.h"

#include "pf/platform/KoConnection.h"
#include "pf/platform/KoLaneExchange.h"
#include "pf/platform/KoPlatformClock.h"
#include "pf/platform/KoReceiveIds.h"

#include <cerrno>
#include <new>

namespace
{

// What receivers are told as the connection starts here for lanes, above the numbers of the own process's
// connections.
constexpr int FIRST_LANE_SERVER_ID = 0x10000;
constexpr unsigned int LANE_SERVER_IDS = 0x10000U;

} // namespace

namespace KoPlatform
{

// --------------------------------------------------------------------------------------------------- session

Channel::Session::Session(Channel& channel) noexcept
    : m_channel(channel)
{
    m_channel.m_lock.lock();
    m_channel.m_wakes = &m_wakes;
}

Channel::Session::~Session()
{
    m_channel.m_wakes = nullptr;
    m_channel.m_lock.unlock();
}

void Channel::Session::queueMessage(Exchange& exchange) noexcept
{
    m_channel.append(m_channel.m_messages, exchange, WorkKind::ANY);
}

bool Channel::Session::unqueueMessage(Exchange& exchange) noexcept
{
    const bool queued = exchange.queued;
    if (queued)
    {
        m_channel.m_messages.remove(exchange);
    }
    return queued;
}

void Channel::Session::endQueuedMessages(const Connection* connection, int error) noexcept
{
    QueueItem* next = nullptr;
    for (QueueItem* item = m_channel.m_messages.first(); item != nullptr; item = next)
    {
        next = item->next;
        Exchange& exchange = *static_cast<Exchange*>(item);
        if (connection == nullptr || exchange.connection() == connection)
        {
            m_channel.m_messages.remove(exchange);
            exchange.replyError(error);
        }
    }
}

void Channel::Session::unqueuePulse(KernelTimer& timer) noexcept
{
    if (timer.pulse.queued)
    {
        m_channel.m_pulses.remove(timer.pulse);
        timer.release();
    }
}

void Channel::Session::wakeLeaderBy(unsigned long long timeNs) noexcept
{
    m_channel.m_waiters.wakeLeaderBy(timeNs, m_wakes);
}

void Channel::Session::destroyChannel() noexcept
{
    m_channel.dropAll();
    endQueuedMessages(nullptr, ESRCH);
    ReceiveIds::endAll(m_channel, nullptr, ESRCH);
}

// --------------------------------------------------------------------------------------------------- channel

Channel::Channel() noexcept
    : m_waiters(m_bell)
{
}

Channel::~Channel()
{
    delete m_lanes;
}

int Channel::open(int id) noexcept
{
    m_id = id;
    m_lanes = new (std::nothrow) LaneServer(*this);
    if (m_lanes == nullptr)
    {
        errno = ENOMEM;
        return -1;
    }
    return m_bell.open() == 0 ? m_lanes->open(id, m_bell.epollDescriptor()) : -1;
}

void Channel::release() noexcept
{
    if (!KoAtomic::testDecrement(m_references))
    {
        delete this;
    }
}

void Channel::abandonInChild() noexcept
{
    m_lock.startOver();
    m_isDestroyed = true;
    m_lanes->abandonInChild();
    m_bell.abandonInChild();
}

void Channel::dropAll() noexcept
{
    m_isDestroyed = true;
    m_lanes->close();
    delete m_lanes;
    m_lanes = nullptr;
    while (!m_pulses.isEmpty())
    {
        Work dropped;
        takePulse(dropped);
    }
    while (!m_timers.isEmpty())
    {
        m_timers.remove(m_timers.earliest());
    }
    delete m_sparePulse;
    m_sparePulse = nullptr;
    m_waiters.wakeAll(*m_wakes);
    m_bell.release();
}

void Channel::append(ChannelQueue& queue, QueueItem& item, WorkKind kind) noexcept
{
    item.arrival = ++m_arrivals;
    queue.insert(item);
    if (!m_isLooking)
    {
        m_waiters.wakeFor(kind, *m_wakes);
    }
}

int Channel::queueSentPulse(int priority, int code, std::intptr_t value, int scoid) noexcept
{
    if (m_sentPulses == MAX_QUEUED_PULSES)
    {
        return EAGAIN;
    }
    PulseItem* pulse = takeSparePulse();
    if (pulse == nullptr)
    {
        return ENOMEM;
    }
    pulse->priority = priority;
    pulse->code = code;
    pulse->value = value;
    pulse->scoid = scoid;
    ++m_sentPulses;
    append(m_pulses, *pulse, WorkKind::PULSES);
    return 0;
}

PulseItem* Channel::takeSparePulse() noexcept
{
    PulseItem* pulse = m_sparePulse;
    m_sparePulse = nullptr;
    return pulse != nullptr ? pulse : new (std::nothrow) PulseItem;
}

int Channel::takeWork(WorkKind kind, Work& work) noexcept
{
    if (m_isDestroyed)
    {
        return ESRCH;
    }
    queueDueTimers();
    if (kind == WorkKind::ANY && isBefore(m_messages.first(), m_pulses.first()))
    {
        return takeMessage(work);
    }
    if (m_pulses.isEmpty())
    {
        return NOTHING;
    }
    takePulse(work);
    m_lanes->resumePulses();
    return 0;
}

int Channel::takeMessage(Work& work) noexcept
{
    Exchange& exchange = *static_cast<Exchange*>(m_messages.first());
    work.receiveId = ReceiveIds::add(exchange);
    if (work.receiveId == -1)
    {
        return errno;
    }
    m_messages.remove(exchange);
    work.exchange = &exchange;
    work.priority = exchange.priority;
    return 0;
}

void Channel::takePulse(Work& work) noexcept
{
    PulseItem& pulse = *static_cast<PulseItem*>(m_pulses.first());
    m_pulses.remove(pulse);
    work.code = pulse.code;
    work.scoid = pulse.scoid;
    work.priority = pulse.priority;
    work.value = pulse.value;
    if (pulse.timer != nullptr)
    {
        pulse.timer->release();
        return;
    }
    --m_sentPulses;
    delete m_sparePulse;
    m_sparePulse = &pulse;
}

void Channel::queueDueTimers() noexcept
{
    if (m_timers.isEmpty())
    {
        return;
    }
    const unsigned long long now = monotonicNow();
    while (m_timers.earliestNs() <= now)
    {
        KernelTimer& timer = m_timers.earliest();
        m_timers.remove(timer);
        if (timer.connection().isDetached())
        {
            continue; // nobody has to wake up for it any more
        }
        if (timer.advance(now))
        {
            m_timers.add(timer);
        }
        if (!timer.pulse.queued)
        {
            timer.retain();
            append(m_pulses, timer.pulse, WorkKind::PULSES);
        }
    }
}

// ----------------------------------------------------------------------------------------------------- lanes

bool Channel::laneOpened(ServerLane& lane)
{
    const int serverId = FIRST_LANE_SERVER_ID + static_cast<int>(m_lanesEver++ % LANE_SERVER_IDS);
    LaneExchange* exchange = new (std::nothrow) LaneExchange(*this, lane, serverId);
    lane.context = exchange;
    return exchange != nullptr;
}

void Channel::messageArrived(ServerLane& lane, int priority)
{
    LaneExchange& exchange = *static_cast<LaneExchange*>(lane.context);
    exchange.priority = priority;
    append(m_messages, exchange, WorkKind::ANY);
}

bool Channel::pulseArrived(ServerLane& lane, int priority, int code, std::int64_t value)
{
    const int scoid = static_cast<const LaneExchange*>(lane.context)->serverId();
    return queueSentPulse(priority, code, static_cast<std::intptr_t>(value), scoid) == 0;
}

void Channel::laneClosed(ServerLane& lane)
{
    LaneExchange& exchange = *static_cast<LaneExchange*>(lane.context);
    if (exchange.queued)
    {
        m_messages.remove(exchange);
    }
    else if (ReceiveIds::breakOff(exchange, ESRCH))
    {
        exchange.release(); // what the id kept
    }
    exchange.release();
}

} // namespace KoPlatform

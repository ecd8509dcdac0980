#include "pf/platform/KoClientLane.h"

#include "pf/platform/KoLocalSocket.h"

#include <cerrno>
#include <new>
#include <utility>

namespace
{

using namespace KoPlatform;

/// Lanes that wait for the next message; more are closed when they are done.
constexpr int MAX_IDLE_LANES = 4;

void destroy(ClientLane* lane) noexcept
{
    const int savedErrno = errno;
    delete lane;
    errno = savedErrno;
}

} // namespace

namespace KoPlatform
{

LaneClient::LaneClient() noexcept = default;

LaneClient::~LaneClient()
{
    close();
    closeDescriptor(m_process);
}

int LaneClient::open(int pid, int channel, int connection) noexcept
{
    m_pid = pid;
    m_channel = channel;
    m_connection = connection;
    ClientLane* const lane = takeLane();
    if (lane == nullptr)
    {
        return -1;
    }
    giveLaneBack(lane);
    return 0;
}

int LaneClient::send(const SLaneParts& message, const SLaneParts& reply, unsigned long long deadlineNs,
                     int priority, int thread) noexcept
{
    ClientLane* const lane = takeLane();
    if (lane == nullptr)
    {
        return -1;
    }
    const int status = lane->exchange(message, reply, deadlineNs, priority, thread, m_closed);
    if (status == -1 && errno == ESRCH && !lane->isReusable())
    {
        m_peerGone.store(true, std::memory_order_relaxed);
    }
    giveLaneBack(lane);
    return status;
}

int LaneClient::sendPulse(int priority, int code, std::int64_t value) noexcept
{
    const ChannelLockGuard guard(m_lock);
    if (!isUsable())
    {
        return -1;
    }
    if (m_pulses == nullptr)
    {
        m_pulses = makeLane();
    }
    if (m_pulses == nullptr)
    {
        return -1;
    }
    return m_pulses->pushPulse(priority, code, value, m_process);
}

void LaneClient::close() noexcept
{
    const ChannelLockGuard guard(m_lock);
    // Release: pairs with the load of a sender that the bell wakes.
    m_closed.store(true, std::memory_order_release);
    if (m_pulses != nullptr)
    {
        m_pulses->nextIdle = m_idle;
        m_idle = std::exchange(m_pulses, nullptr);
    }
    while (m_idle != nullptr)
    {
        ClientLane* const lane = popIdle();
        unlink(*lane);
        destroy(lane);
    }
    for (ClientLane* lane = m_lanes; lane != nullptr; lane = lane->next)
    {
        lane->wake();
    }
}

void LaneClient::lockForFork() noexcept
{
    m_lock.lock();
}

void LaneClient::unlockAfterFork() noexcept
{
    m_lock.unlock();
}

void LaneClient::abandonInChild() noexcept
{
    for (ClientLane* lane = m_lanes; lane != nullptr; lane = lane->next)
    {
        lane->abandon();
    }
    closeDescriptor(m_process);
}

/// \return a lane for one exchange, or null with `errno`.
ClientLane* LaneClient::takeLane() noexcept
{
    const ChannelLockGuard guard(m_lock);
    if (!isUsable())
    {
        return nullptr;
    }
    return m_idle != nullptr ? popIdle() : makeLane();
}

ClientLane* LaneClient::popIdle() noexcept
{
    ClientLane* const lane = m_idle;
    m_idle = lane->nextIdle;
    --m_idleCount;
    return lane;
}

/// Keeps the lane for the next message, or frees it.
void LaneClient::giveLaneBack(ClientLane* lane) noexcept
{
    const ChannelLockGuard guard(m_lock);
    // Relaxed: close changes it with the lock held.
    if (lane->isReusable() && !m_closed.load(std::memory_order_relaxed) && m_idleCount < MAX_IDLE_LANES)
    {
        lane->nextIdle = m_idle;
        m_idle = lane;
        ++m_idleCount;
        return;
    }
    unlink(*lane);
    destroy(lane);
}

/// With the lock held, as lanes are destroyed: a fork waits until it can tell its child of all that are open.
ClientLane* LaneClient::makeLane() noexcept
{
    ClientLane* const lane = new (std::nothrow) ClientLane;
    if (lane == nullptr)
    {
        errno = ENOMEM;
        return nullptr;
    }
    if (!lane->connect(m_pid, m_channel) || !findServerProcess(*lane) ||
        !lane->equip(m_process, m_connection))
    {
        destroy(lane);
        return nullptr;
    }
    link(*lane);
    return lane;
}

/// Asks for the server's process when the first lane is made.
bool LaneClient::findServerProcess(const ClientLane& lane) noexcept
{
    if (m_processKnown)
    {
        return true;
    }
    m_process = lane.openServerProcess(m_pid);
    m_processKnown = m_process != -1 || errno == ENOSYS;
    return m_processKnown;
}

void LaneClient::link(ClientLane& lane) noexcept
{
    lane.next = m_lanes;
    m_lanes = &lane;
}

void LaneClient::unlink(ClientLane& lane) noexcept
{
    ClientLane** place = &m_lanes;
    while (*place != &lane)
    {
        place = &(*place)->next;
    }
    *place = lane.next;
}

/// Whether the connection may be used; else sets `errno`. Relaxed: each flag is set for good, and says all.
bool LaneClient::isUsable() const noexcept
{
    if (m_closed.load(std::memory_order_relaxed))
    {
        errno = EBADF;
        return false;
    }
    if (m_peerGone.load(std::memory_order_relaxed))
    {
        errno = ESRCH;
        return false;
    }
    return true;
}

} // namespace KoPlatform

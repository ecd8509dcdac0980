#include "pf/platform/KoLane.h"

#include "pf/platform/KoLaneRegion.h"
#include "pf/platform/KoLocalSocket.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <new>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace
{

using namespace KoPlatform;

/// Map of an event's data: the top bit marks ours, the next tell the descriptor, then the generation of
/// the lane, which makes stale events known, and its slot.
constexpr std::uint64_t OURS = 1ULL << 63;
constexpr std::uint64_t KIND_LISTENER = 1ULL << 62;
constexpr std::uint64_t KIND_SOCKET = 1ULL << 61;
constexpr std::uint64_t KINDS = KIND_LISTENER | KIND_SOCKET; // a bell has neither
constexpr unsigned int GENERATION_SHIFT = 24;
constexpr int MAX_SLOTS = 1 << GENERATION_SHIFT;

constexpr int FIRST_SLOTS = 4;

/// Clients that are accepted in a row before other events have their turn.
constexpr int MAX_ACCEPTED = 64;

constexpr unsigned int ROOT = 0;

bool mayConnect(int socket, SPeer& peer) noexcept
{
    return queryPeer(socket, peer) && (peer.user == ::geteuid() || peer.user == ROOT);
}

bool isOutOfDescriptors(int error) noexcept
{
    return error == EMFILE || error == ENFILE;
}

} // namespace

namespace KoPlatform
{

LaneServer::LaneServer(ILaneChannel& channel) noexcept
    : m_channel(channel)
{
}

LaneServer::~LaneServer()
{
    close();
    delete[] m_lanes;
}

int LaneServer::open(int channel, int epollDescriptor) noexcept
{
    m_epoll = epollDescriptor;
    m_listener = listenLocal(::getpid(), channel);
    m_reserve = m_listener != -1 ? ::fcntl(m_listener, F_DUPFD_CLOEXEC, 0) : -1;
    if (m_reserve == -1 || !watch(EPOLL_CTL_ADD, m_listener, EPOLLIN | EPOLLET, OURS | KIND_LISTENER))
    {
        closeDescriptor(m_listener);
        closeDescriptor(m_reserve);
        return -1;
    }
    return 0;
}

void LaneServer::handleEvent(std::uint64_t data, std::uint32_t events) noexcept
{
    ServerLane* const lane = (data & KIND_LISTENER) == 0U ? findLane(data) : nullptr;
    if (lane != nullptr && (data & KIND_SOCKET) != 0U)
    {
        handleSocket(*lane, events);
    }
    else if (lane != nullptr && lane->m_opened)
    {
        handleBell(*lane);
    }
    // Descriptors may be there again.
    if ((data & KIND_LISTENER) != 0U || m_acceptLater)
    {
        acceptClients();
    }
}

void LaneServer::resumePulses() noexcept
{
    if (!m_pulsesHeldBack)
    {
        return;
    }
    m_pulsesHeldBack = false;
    for (int slot = 0; slot < m_slotCount; ++slot)
    {
        ServerLane* const lane = m_lanes[slot];
        if (lane != nullptr && lane->m_pulsesHeldBack && deliverPulses(*lane) && lane->m_hungUp)
        {
            remove(*lane);
        }
    }
}

void LaneServer::close() noexcept
{
    if (m_listener == -1)
    {
        return;
    }
    for (int slot = 0; slot < m_slotCount; ++slot)
    {
        if (m_lanes[slot] != nullptr)
        {
            remove(*m_lanes[slot]);
        }
    }
    watch(EPOLL_CTL_DEL, m_listener, 0U, 0U);
    // Refuses those who wait to be accepted, also while a forked child still holds the listener.
    ::shutdown(m_listener, SHUT_RDWR);
    closeDescriptor(m_listener);
    closeDescriptor(m_reserve);
}

void LaneServer::abandonInChild() noexcept
{
    for (int slot = 0; slot < m_slotCount; ++slot)
    {
        if (m_lanes[slot] != nullptr)
        {
            m_lanes[slot]->abandon();
        }
    }
    closeDescriptor(m_listener);
    closeDescriptor(m_reserve);
}

void LaneServer::acceptClients() noexcept
{
    m_acceptLater = false;
    if (m_reserve == -1)
    {
        m_reserve = ::fcntl(m_listener, F_DUPFD_CLOEXEC, 0);
    }
    int accepted = 0;
    while (accepted < MAX_ACCEPTED && acceptOne())
    {
        ++accepted;
    }
    if (accepted == MAX_ACCEPTED)
    {
        // The rest raises another event.
        watch(EPOLL_CTL_MOD, m_listener, EPOLLIN | EPOLLET, OURS | KIND_LISTENER);
    }
    hearNewClients();
}

/// What a thread sent first has to come first, although its pulses and its message come by two lanes: the
/// pulses are the earlier ones, because it sends none while its message waits for the reply.
void LaneServer::hearNewClients() noexcept
{
    for (int slot = 0; slot < m_slotCount; ++slot)
    {
        if (m_lanes[slot] != nullptr && m_lanes[slot]->m_isNew)
        {
            deliverPulses(*m_lanes[slot]);
        }
    }
    for (int slot = 0; slot < m_slotCount; ++slot)
    {
        if (m_lanes[slot] != nullptr && std::exchange(m_lanes[slot]->m_isNew, false))
        {
            handleBell(*m_lanes[slot]);
        }
    }
}

/// \return false when there is nobody, or nobody can be accepted now.
bool LaneServer::acceptOne() noexcept
{
    const int socket = acceptLocal(m_listener);
    if (socket != -1)
    {
        admit(socket);
        return true;
    }
    if (isOutOfDescriptors(errno))
    {
        return refuseOne();
    }
    m_acceptLater = errno != EAGAIN;
    return errno == ECONNABORTED;
}

/// Without descriptors clients are turned away: they would wait for ever otherwise.
bool LaneServer::refuseOne() noexcept
{
    closeDescriptor(m_reserve);
    int socket = acceptLocal(m_listener);
    const int error = errno;
    const bool refused = socket != -1;
    closeDescriptor(socket);
    m_reserve = ::fcntl(m_listener, F_DUPFD_CLOEXEC, 0);
    // Another thread may have taken the descriptor.
    m_acceptLater = !refused && error != EAGAIN;
    return refused;
}

void LaneServer::admit(int socket) noexcept
{
    SPeer peer{};
    ServerLane* const lane = mayConnect(socket, peer) ? new (std::nothrow) ServerLane : nullptr;
    const int slot = lane != nullptr ? findFreeSlot() : -1;
    if (slot == -1)
    {
        closeDescriptor(socket);
        delete lane;
        return;
    }
    lane->m_socket = socket;
    lane->m_pid = peer.pid;
    lane->m_slot = slot;
    lane->m_tag = OURS | static_cast<std::uint64_t>(++m_generation) << GENERATION_SHIFT |
                  static_cast<std::uint64_t>(slot);
    m_lanes[slot] = lane;
    const bool isWatched =
        watch(EPOLL_CTL_ADD, socket, EPOLLIN | EPOLLRDHUP | EPOLLET, lane->m_tag | KIND_SOCKET);
    // The hello is sent right after the connecting, so it is there as a rule.
    lane->m_isNew = isWatched && welcome(*lane);
    if (!isWatched || (!lane->m_isNew && errno != EAGAIN))
    {
        remove(*lane);
    }
}

/// \return a slot without a lane, or -1.
int LaneServer::findFreeSlot() noexcept
{
    ServerLane** const end = m_lanes + m_slotCount;
    ServerLane** const place = std::find(m_lanes, end, nullptr);
    if (place != end)
    {
        return static_cast<int>(place - m_lanes);
    }
    const int count = std::max(FIRST_SLOTS, m_slotCount * 2);
    ServerLane** const lanes =
        count <= MAX_SLOTS ? new (std::nothrow) ServerLane*[static_cast<std::size_t>(count)]() : nullptr;
    if (lanes == nullptr)
    {
        return -1;
    }
    std::copy(m_lanes, end, lanes);
    delete[] m_lanes;
    m_lanes = lanes;
    return std::exchange(m_slotCount, count);
}

/// \return the lane of an event; null when it is gone.
ServerLane* LaneServer::findLane(std::uint64_t data) const noexcept
{
    const int slot = static_cast<int>(data & (static_cast<std::uint64_t>(MAX_SLOTS) - 1U));
    ServerLane* const lane = slot < m_slotCount ? m_lanes[slot] : nullptr;
    return lane != nullptr && lane->m_tag == (data & ~KINDS) ? lane : nullptr;
}

void LaneServer::handleSocket(ServerLane& lane, std::uint32_t events) noexcept
{
    const bool hasEnded = (events & (EPOLLRDHUP | EPOLLHUP | EPOLLERR)) != 0U;
    if (lane.m_opened && !hasEnded)
    {
        remove(lane); // says what no client says
        return;
    }
    if (!lane.m_opened && !welcome(lane))
    {
        if (hasEnded || errno != EAGAIN)
        {
            remove(lane);
        }
        return;
    }
    handleBell(lane);
    lane.m_hungUp = hasEnded;
    if (hasEnded && !lane.m_pulsesHeldBack)
    {
        remove(lane);
    }
}

/// Lets a client in whose hello has come. \return false with `errno` = `EAGAIN` when it has not; with another
/// one when the client has to go.
bool LaneServer::welcome(ServerLane& lane) noexcept
{
    if (!lane.takeHello() || !watch(EPOLL_CTL_ADD, lane.m_bell, EPOLLIN | EPOLLET, lane.m_tag))
    {
        return false;
    }
    lane.m_opened = m_channel.laneOpened(lane);
    errno = ECONNREFUSED;
    return lane.m_opened;
}

void LaneServer::handleBell(ServerLane& lane) noexcept
{
    SLaneHeader& header = lane.m_memory.header();
    // Relaxed: the client queues only after it has seen the reply, before which the phase was set.
    if (loadShared(header.state) == LANE_QUEUED &&
        lane.m_phase.load(std::memory_order_relaxed) == ServerLane::Phase::IDLE)
    {
        lane.m_phase.store(ServerLane::Phase::QUEUED, std::memory_order_relaxed);
        m_channel.messageArrived(lane, claimedPriority(header.priority));
    }
    deliverPulses(lane);
}

/// \return false when some had to be held back.
bool LaneServer::deliverPulses(ServerLane& lane) noexcept
{
    SLaneHeader& header = lane.m_memory.header();
    const std::uint32_t sent = loadShared(header.pulsesSent);
    lane.m_pulsesHeldBack = false;
    if (sent - lane.m_pulsesTaken > LANE_PULSES)
    {
        lane.breakOff();
        return true;
    }
    for (; lane.m_pulsesTaken != sent; storeShared(header.pulsesTaken, ++lane.m_pulsesTaken))
    {
        const SLanePulse& pulse = header.pulses[lane.m_pulsesTaken % LANE_PULSES];
        const int code = std::clamp(readClaim(pulse.code), SCHAR_MIN, SCHAR_MAX);
        if (!m_channel.pulseArrived(lane, claimedPriority(pulse.priority), code, readClaim(pulse.value)))
        {
            lane.m_pulsesHeldBack = true;
            m_pulsesHeldBack = true;
            return false;
        }
    }
    return true;
}

/// Cuts the client off. After this call only those who retained the lane may use it.
void LaneServer::remove(ServerLane& lane) noexcept
{
    m_lanes[lane.m_slot] = nullptr;
    watch(EPOLL_CTL_DEL, lane.m_socket, 0U, 0U);
    watch(EPOLL_CTL_DEL, lane.m_bell, 0U, 0U);
    ::shutdown(lane.m_socket, SHUT_RDWR);
    // Relaxed: see hasSenderGone.
    lane.m_removed.store(true, std::memory_order_relaxed);
    if (lane.m_opened)
    {
        m_channel.laneClosed(lane);
    }
    lane.release();
}

bool LaneServer::watch(int operation, int descriptor, std::uint32_t events, std::uint64_t data) const noexcept
{
    epoll_event event{};
    event.events = events;
    event.data.u64 = data;
    return ::epoll_ctl(m_epoll, operation, descriptor, &event) == 0;
}

} // namespace KoPlatform

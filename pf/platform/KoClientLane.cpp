#include "pf/platform/KoClientLane.h"

#include "pf/platform/KoEpollWait.h"
#include "pf/platform/KoLaneBell.h"
#include "pf/platform/KoLocalSocket.h"
#include "pf/platform/KoMessageParts.h"
#include "pf/platform/KoPlatformRetry.h"
#include "pf/platform/KoThreadWait.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

using namespace KoPlatform;

constexpr unsigned int ROOT = 0;

// What an event of the lane's set is about.
constexpr std::uint32_t ABOUT_BELL = 0;
constexpr std::uint32_t ABOUT_SERVER = 1;

/// Whether this process may talk to the peer: it serves its own user and root only.
bool isAllowed(const SPeer& peer) noexcept
{
    const unsigned int self = ::geteuid();
    return self == ROOT || peer.user == self;
}

void wakeLane(void* lane)
{
    static_cast<ClientLane*>(lane)->wake();
}

} // namespace

namespace KoPlatform
{

ClientLane::~ClientLane()
{
    if (m_socket != -1)
    {
        // Reaches the server also while a forked child still holds the socket.
        ::shutdown(m_socket, SHUT_RDWR);
    }
    abandon();
}

void ClientLane::abandon() noexcept
{
    m_memory.close();
    closeDescriptor(m_epoll);
    closeDescriptor(m_socket);
    closeDescriptor(m_serverBell);
    closeDescriptor(m_bell);
}

bool ClientLane::connect(int pid, int channel) noexcept
{
    m_socket = connectLocal(pid, channel);
    if (m_socket == -1)
    {
        errno = errno == ECONNREFUSED ? ESRCH : errno;
        return false;
    }
    SPeer peer{};
    if (!queryPeer(m_socket, peer))
    {
        return false;
    }
    if (peer.pid != pid || !isAllowed(peer))
    {
        errno = peer.pid != pid ? ESRCH : EPERM;
        return false;
    }
    return true;
}

int ClientLane::openServerProcess(int pid) const noexcept
{
    const int process = openPeerProcess(m_socket, pid);
    if (process == -1 && errno == ENOSYS)
    {
        errno = ::kill(pid, 0) != 0 && errno == ESRCH ? ESRCH : ENOSYS;
    }
    return process;
}

bool ClientLane::equip(int process, int connection) noexcept
{
    if (!m_memory.create())
    {
        return false;
    }
    m_serverBell = makeBell();
    m_bell = makeBell();
    m_epoll = ::epoll_create1(EPOLL_CLOEXEC);
    return m_serverBell != -1 && m_bell != -1 && m_epoll != -1 && watch(m_bell, EPOLLIN | EPOLLET) &&
           watch(m_socket, EPOLLRDHUP) && (process == -1 || watch(process, EPOLLIN)) && handOver(connection);
}

bool ClientLane::watch(int descriptor, std::uint32_t events) noexcept
{
    epoll_event event{};
    event.events = events;
    event.data.u32 = descriptor == m_bell ? ABOUT_BELL : ABOUT_SERVER;
    return ::epoll_ctl(m_epoll, EPOLL_CTL_ADD, descriptor, &event) == 0;
}

bool ClientLane::handOver(int connection) noexcept
{
    const SLaneHello hello{LANE_MAGIC, LANE_VERSION, sizeof(SLaneHeader), connection};
    const int descriptors[LANE_DESCRIPTORS] = {m_memory.descriptor(), m_serverBell, m_bell};
    if (sendDescriptors(m_socket, &hello, sizeof(hello), descriptors, LANE_DESCRIPTORS))
    {
        return true;
    }
    if (errno == EPIPE || errno == ECONNRESET)
    {
        errno = ESRCH;
    }
    else if (errno == ETOOMANYREFS)
    {
        errno = EAGAIN;
    }
    return false;
}

int ClientLane::exchange(const SLaneParts& message, const SLaneParts& reply, unsigned long long deadlineNs,
                         int priority, int thread, const std::atomic<bool>& closed) noexcept
{
    if (!m_memory.grow(std::max(message.bytes, reply.bytes)) || !m_memory.reach(message.bytes))
    {
        return -1;
    }
    queueMessage(message, reply.bytes, priority, thread);
    const int error = awaitReply(deadlineNs, closed);
    if (error != 0 && breakOff())
    {
        errno = error;
        return -1;
    }
    return fetchReply(reply);
}

void ClientLane::queueMessage(const SLaneParts& message, std::size_t replyRoom, int priority,
                              int thread) noexcept
{
    SLaneHeader& header = m_memory.header();
    const iovec area = m_memory.part(message.bytes);
    copyParts(SLaneParts{&area, 1, area.iov_len}, message);
    writeClaim(header.messageBytes, static_cast<std::uint32_t>(message.bytes));
    writeClaim(header.replyRoom, static_cast<std::uint32_t>(replyRoom));
    writeClaim(header.priority, static_cast<std::int32_t>(priority));
    writeClaim(header.thread, static_cast<std::int32_t>(thread));
    storeShared<std::uint32_t>(header.state, LANE_QUEUED);
    ringBell(m_serverBell);
}

/// \return 0, or what ended the wait. Once the reply is there, it counts whatever else has happened.
int ClientLane::awaitReply(unsigned long long deadlineNs, const std::atomic<bool>& closed) noexcept
{
    const ThreadWait wait(wakeLane, this);
    for (;;)
    {
        if (isTerminationRequested())
        {
            return ECANCELED;
        }
        // Acquire: pairs with the exchange in LaneClient::close, which rings after it.
        if (closed.load(std::memory_order_acquire))
        {
            return EBADF;
        }
        const int error = waitForChange(deadlineNs);
        if (isReplied())
        {
            return 0;
        }
        if (error != 0)
        {
            return error;
        }
    }
}

/// \return 0 when there is something to look at, else what has happened.
int ClientLane::waitForChange(unsigned long long deadlineNs) noexcept
{
    epoll_event events[2];
    const int count = repeatInterrupted([&] { return waitForEvents(m_epoll, events, 2, deadlineNs); });
    if (count <= 0)
    {
        return count == 0 ? ETIMEDOUT : errno;
    }
    const auto isEnd = [](const epoll_event& event) { return event.data.u32 == ABOUT_SERVER; };
    return std::any_of(events, events + count, isEnd) ? ESRCH : 0;
}

bool ClientLane::isReplied() const noexcept
{
    return loadShared(m_memory.header().state) == LANE_REPLIED;
}

int ClientLane::fetchReply(const SLaneParts& reply) noexcept
{
    SLaneHeader& header = m_memory.header();
    const int status = readClaim(header.status);
    const int error = readClaim(header.error);
    const std::size_t bytes =
        error == 0 ? std::min<std::size_t>(readClaim(header.replyBytes), reply.bytes) : 0U;
    const bool reached = m_memory.reach(bytes);
    if (reached)
    {
        const iovec area = m_memory.part(bytes);
        copyParts(reply, SLaneParts{&area, 1, area.iov_len});
    }
    m_memory.giveBack();
    writeClaim<std::uint32_t>(header.state, LANE_IDLE);
    if (reached && error == 0)
    {
        return status;
    }
    errno = error != 0 ? error : ENOMEM;
    return -1;
}

/// From now on no reply can arrive here, and the lane must not be used any more, because the server may still
/// copy. \return false when the reply was faster; it counts. Acquire: pairs with the server's reply.
bool ClientLane::breakOff() noexcept
{
    m_reusable = __atomic_exchange_n(&m_memory.header().state, std::uint32_t{LANE_CANCELLED},
                                     __ATOMIC_ACQ_REL) == LANE_REPLIED;
    return !m_reusable;
}

int ClientLane::pushPulse(int priority, int code, std::int64_t value, int process) noexcept
{
    SLaneHeader& header = m_memory.header();
    if (isServerGone(process))
    {
        errno = ESRCH;
        return -1;
    }
    if (m_pulsesSent - loadShared(header.pulsesTaken) >= LANE_PULSES)
    {
        errno = EAGAIN;
        return -1;
    }
    SLanePulse& pulse = header.pulses[m_pulsesSent % LANE_PULSES];
    writeClaim(pulse.priority, static_cast<std::int32_t>(priority));
    writeClaim(pulse.code, static_cast<std::int32_t>(code));
    writeClaim(pulse.value, value);
    storeShared(header.pulsesSent, ++m_pulsesSent);
    ringBell(m_serverBell);
    return 0;
}

bool ClientLane::isServerGone(int process) const noexcept
{
    pollfd ends[2] = {{m_socket, POLLRDHUP, 0}, {process, POLLIN, 0}};
    return repeatInterrupted([&] { return ::poll(ends, 2, 0); }) > 0;
}

void ClientLane::wake() noexcept
{
    ringBell(m_bell);
}

} // namespace KoPlatform

#include "pf/platform/KoLane.h"

#include "pf/platform/KoLaneBell.h"
#include "pf/platform/KoLaneRegion.h"
#include "pf/platform/KoLocalSocket.h"
#include "pf/platform/KoMessageParts.h"
#include "pf/platform/KoPlatformClock.h"

#include <algorithm>
#include <cerrno>
#include <sys/socket.h>

namespace
{

using namespace KoPlatform;

/// A reply that comes so soon is not preceded by a look at whether the client still lives.
constexpr unsigned long long PROMPT_REPLY_NS = 10000ULL;

} // namespace

namespace KoPlatform
{

ServerLane::~ServerLane()
{
    abandon();
}

void ServerLane::abandon() noexcept
{
    m_memory.close();
    closeDescriptor(m_socket);
    closeDescriptor(m_bell);
    closeDescriptor(m_clientBell);
}

void ServerLane::retain() noexcept
{
    // Relaxed: who retains has a reference, or the channel's lock.
    m_references.fetch_add(1U, std::memory_order_relaxed);
}

void ServerLane::release() noexcept
{
    // Acquire and release: what others did with the lane comes before its end.
    if (m_references.fetch_sub(1U, std::memory_order_acq_rel) == 1U)
    {
        const int savedErrno = errno;
        delete this;
        errno = savedErrno;
    }
}

/// \return false with `errno`: `EAGAIN` it has not come yet; else the client has to be cut off.
bool ServerLane::takeHello() noexcept
{
    SLaneHello hello{};
    int descriptors[LANE_DESCRIPTORS];
    if (!receiveDescriptors(m_socket, &hello, sizeof(hello), descriptors, LANE_DESCRIPTORS))
    {
        return false;
    }
    m_bell = descriptors[LANE_SERVER_BELL];
    m_clientBell = descriptors[LANE_CLIENT_BELL];
    m_connection = hello.connection;
    const bool isKnown = hello.magic == LANE_MAGIC && hello.version == LANE_VERSION &&
                         hello.headerBytes == sizeof(SLaneHeader) && isHarmlessBell(m_bell) &&
                         isHarmlessBell(m_clientBell);
    if (!m_memory.adopt(descriptors[LANE_MEMORY]) || !isKnown)
    {
        errno = EPROTO;
        return false;
    }
    return true;
}

int ServerLane::receive(const SLaneParts& parts, SLaneMessage& message) noexcept
{
    SLaneHeader& header = m_memory.header();
    if (!moveState(header, LANE_QUEUED, LANE_RECEIVED))
    {
        errno = ECANCELED;
        return -1;
    }
    // Relaxed: only this thread and, after the reply, the leader look; the reply's change of state orders
    // them.
    m_phase.store(Phase::RECEIVED, std::memory_order_relaxed);
    message = SLaneMessage{m_pid,
                           readClaim(header.thread),
                           m_connection,
                           m_slot,
                           claimedPriority(header.priority),
                           readClaim(header.messageBytes),
                           0U,
                           std::min<std::size_t>(readClaim(header.replyRoom), LANE_MAX_BYTES)};
    message.copiedBytes = std::min(message.bytes, parts.bytes);
    if (message.bytes > LANE_MAX_BYTES || !m_memory.reach(message.copiedBytes))
    {
        return refuseMessage(message.bytes > LANE_MAX_BYTES ? EPROTO : errno);
    }
    const iovec area = m_memory.part(message.copiedBytes);
    copyParts(parts, SLaneParts{&area, 1, area.iov_len});
    m_replyRoom = message.replyBytesRoom;
    m_receivedNs = monotonicNow();
    return 0;
}

/// A message that cannot be had: its sender claims what is not there, and is cut off, or memory is short
/// here, and the sender is told.
int ServerLane::refuseMessage(int error) noexcept
{
    if (error == EPROTO)
    {
        breakOff();
    }
    else
    {
        finish(0, error, 0U);
    }
    errno = ECANCELED;
    return -1;
}

int ServerLane::reply(int status, const SLaneParts& parts) noexcept
{
    const std::size_t bytes = std::min(parts.bytes, m_replyRoom);
    if (hasSenderGone())
    {
        errno = ESRCH;
        return -1;
    }
    if (m_memory.reach(bytes))
    {
        const iovec area = m_memory.part(bytes);
        copyParts(SLaneParts{&area, 1, area.iov_len}, parts);
        return finish(status, 0, bytes);
    }
    if (errno == EPROTO)
    {
        breakOff();
        errno = ESRCH;
        return -1;
    }
    return finish(0, errno, 0U);
}

int ServerLane::replyError(int error) noexcept
{
    if (hasSenderGone())
    {
        errno = ESRCH;
        return -1;
    }
    return finish(0, error, 0U);
}

/// Whether it is known that nobody waits for the reply.
bool ServerLane::hasSenderGone() const noexcept
{
    // Relaxed: a removal that happens at this moment may be missed, as a death may.
    if (m_removed.load(std::memory_order_relaxed) || loadShared(m_memory.header().state) != LANE_RECEIVED)
    {
        return true;
    }
    return monotonicNow() - m_receivedNs > PROMPT_REPLY_NS && isHungUp(m_socket);
}

/// Publishes the reply, whose bytes are in the area. From the change of state on the lane may carry the next
/// message.
int ServerLane::finish(int status, int error, std::size_t bytes) noexcept
{
    SLaneHeader& header = m_memory.header();
    m_memory.trim();
    writeClaim(header.replyBytes, static_cast<std::uint32_t>(bytes));
    writeClaim(header.status, static_cast<std::int32_t>(status));
    writeClaim(header.error, static_cast<std::int32_t>(error));
    m_phase.store(Phase::IDLE, std::memory_order_relaxed);
    if (!moveState(header, LANE_RECEIVED, LANE_REPLIED))
    {
        errno = ESRCH;
        return -1;
    }
    ringBell(m_clientBell);
    return 0;
}

/// The client learns of it at once, the channel by the event.
void ServerLane::breakOff() noexcept
{
    ::shutdown(m_socket, SHUT_RDWR);
}

} // namespace KoPlatform

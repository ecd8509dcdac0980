#include "pf/platform/KoPlatformChannel.h"

#include "pf/platform/KoCallersPriority.h"
#include "pf/platform/KoChannel.h"
#include "pf/platform/KoConnection.h"
#include "pf/platform/KoFailure.h"
#include "pf/platform/KoLocalExchange.h"
#include "pf/platform/KoMessageParts.h"
#include "pf/platform/KoPlatformThread.h"
#include "pf/platform/KoPlatformTimeout.h"
#include "pf/platform/KoReceiveIds.h"
#include "pf/platform/KoRegistry.h"
#include "pf/platform/KoThreadWait.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

static_assert(sizeof(_pulse) == 16, "a pulse is 16 bytes on every target");

namespace
{

using namespace KoPlatform;

constexpr int HIGHEST_PRIORITY = 255;
constexpr int LOWEST_CODE = -128;
constexpr int HIGHEST_CODE = 127;
constexpr int OWN_PRIORITY = -1;

int toResult(int error)
{
    return error == 0 ? 0 : failWith(error);
}

/// Before a call that can block has begun: a thread that finds something to do each time is ended, too.
void endIfRequested()
{
    if (isTerminationRequested())
    {
        endCallingThread();
    }
}

/// Where everything is in order again, so that the thread may end if that is why the call failed.
int finish(int result)
{
    if (result == -1 && errno == ECANCELED && isTerminationRequested())
    {
        endCallingThread();
    }
    return result;
}

// ------------------------------------------------------------------------------------------------ sending

int sendOn(Connection& connection, const SLaneParts& message, const SLaneParts& reply,
           unsigned long long deadlineNs)
{
    if (connection.remote() != nullptr)
    {
        return connection.remote()->send(message, reply, deadlineNs, callersPriority(), threadSelf());
    }
    return LocalExchange(connection, message, reply).send(deadlineNs);
}

int send(int coid, const SLaneParts& message, const SLaneParts& reply, unsigned long long deadlineNs)
{
    endIfRequested();
    Connection* connection = Registry::connection(coid);
    if (connection == nullptr)
    {
        return failWith(EBADF);
    }
    const int status = sendOn(*connection, message, reply, deadlineNs);
    const int error = errno;
    connection->release();
    errno = error;
    return finish(status);
}

unsigned long long takeSendDeadline()
{
    return takeTimeout(TIMEOUT_SEND | TIMEOUT_REPLY, nullptr);
}

// ---------------------------------------------------------------------------------------------- receiving

void deliverPulse(const Channel& channel, const Work& work, const SLaneParts& parts, _msg_info* info)
{
    _pulse pulse = {};
    pulse.code = static_cast<std::int8_t>(work.code);
    std::memcpy(&pulse.value, &work.value, sizeof(work.value));
    const iovec record = {&pulse, sizeof(pulse)};
    copyParts(parts, SLaneParts{&record, 1, sizeof(pulse)});
    if (info != nullptr)
    {
        *info = _msg_info{};
        info->chid = channel.id();
        info->scoid = work.scoid;
        info->priority = work.priority;
    }
}

/// Fetches a message. \return its receive id; 0 when it is not there any more.
int deliverMessage(const Work& work, const SLaneParts& parts, _msg_info* info)
{
    _msg_info facts = {};
    if (work.exchange->fetch(parts, facts) != 0)
    {
        ReceiveIds::remove(work.receiveId);
        work.exchange->release();
        return 0;
    }
    const int endedError = ReceiveIds::publish(work.receiveId);
    if (endedError != 0)
    {
        // The message was received; what its receiver replies reaches nobody.
        work.exchange->replyError(endedError);
    }
    if (info != nullptr)
    {
        *info = facts;
    }
    return work.receiveId;
}

int receiveOn(Channel& channel, WorkKind kind, const SLaneParts& parts, _msg_info* info,
              unsigned long long deadlineNs)
{
    for (;;)
    {
        Work work;
        const int error = channel.awaitWork(kind, deadlineNs, work);
        if (error != 0)
        {
            return failWith(error);
        }
        if (work.exchange == nullptr)
        {
            deliverPulse(channel, work, parts, info);
            return 0;
        }
        const int receiveId = deliverMessage(work, parts, info);
        if (receiveId != 0)
        {
            return receiveId;
        }
    }
}

int receive(int chid, WorkKind kind, const SLaneParts& parts, _msg_info* info, unsigned long long deadlineNs)
{
    endIfRequested();
    Channel* channel = Registry::channel(chid);
    if (channel == nullptr)
    {
        return failWith(ESRCH);
    }
    const int result = receiveOn(*channel, kind, parts, info, deadlineNs);
    const int error = errno;
    channel->release();
    errno = error;
    return finish(result);
}

int receiveBlock(int chid, WorkKind kind, void* buffer, int bytes, _msg_info* info)
{
    const unsigned long long deadlineNs = takeTimeout(TIMEOUT_RECEIVE, nullptr);
    iovec part;
    SLaneParts parts;
    const int error = measureBlock(buffer, bytes, part, parts);
    return error == 0 ? receive(chid, kind, parts, info, deadlineNs) : failWith(error);
}

// ----------------------------------------------------------------------------------------------- replying

int reply(int rcvid, int status, const SLaneParts& parts)
{
    Exchange* exchange = status >= 0 ? ReceiveIds::claim(rcvid) : nullptr;
    if (exchange == nullptr)
    {
        return failWith(status >= 0 ? ESRCH : EINVAL);
    }
    return toResult(exchange->reply(status, parts));
}

// ------------------------------------------------------------------------------------------------- pulses

int sendLocalPulse(const Connection& connection, int priority, int code, std::intptr_t value)
{
    Channel::Session session(*connection.channel());
    if (session.isDestroyed() || connection.isDetached())
    {
        return session.isDestroyed() ? ESRCH : EBADF;
    }
    return session.queueSentPulse(priority, code, value, connection.serverId());
}

int sendPulseOn(const Connection& connection, int priority, int code, std::intptr_t value)
{
    if (connection.remote() == nullptr)
    {
        return toResult(sendLocalPulse(connection, priority, code, value));
    }
    return connection.remote()->sendPulse(priority, code, value);
}

} // namespace

namespace KoPlatform
{

int ChannelCreate(unsigned int flags)
{
    const bool known = (flags & ~(CHANNEL_FIXED_PRIORITY | CHANNEL_UNBLOCK)) == 0U;
    return known ? Registry::addChannel() : failWith(EINVAL);
}

int ChannelDestroy(int chid)
{
    return Registry::removeChannel(chid);
}

int ConnectAttach(unsigned int node, int pid, int chid, unsigned int index, int flags)
{
    if (node != 0U)
    {
        return failWith(ENOTSUP);
    }
    if ((index != 0U && index != CONNECTION_SIDE_CHANNEL) || (flags & ~CONNECTION_CLOSE_ON_EXEC) != 0)
    {
        return failWith(EINVAL);
    }
    if (pid < 0 || chid < 1)
    {
        return failWith(ESRCH);
    }
    const bool own = pid == 0 || pid == Registry::processId();
    return own ? Registry::addLocalConnection(chid) : Registry::addRemoteConnection(pid, chid);
}

int ConnectDetach(int coid)
{
    return Registry::removeConnection(coid);
}

int MsgSend(int coid, const void* message, int bytes, void* replyBuffer, int replyBytes)
{
    const unsigned long long deadlineNs = takeSendDeadline();
    iovec blocks[2];
    SLaneParts parts;
    SLaneParts replyParts;
    const int error = measureBlock(message, bytes, blocks[0], parts);
    const int replyError = measureBlock(replyBuffer, replyBytes, blocks[1], replyParts);
    if (error != 0 || replyError != 0)
    {
        return failWith(error != 0 ? error : replyError);
    }
    return send(coid, parts, replyParts, deadlineNs);
}

int MsgSendv(int coid, const iovec* parts, int partCount, const iovec* replyParts, int replyPartCount)
{
    const unsigned long long deadlineNs = takeSendDeadline();
    SLaneParts message;
    SLaneParts room;
    const int error = measureParts(parts, partCount, message);
    const int replyError = measureParts(replyParts, replyPartCount, room);
    if (error != 0 || replyError != 0)
    {
        return failWith(error != 0 ? error : replyError);
    }
    return send(coid, message, room, deadlineNs);
}

int MsgReceive(int chid, void* buffer, int bytes, _msg_info* info)
{
    return receiveBlock(chid, WorkKind::ANY, buffer, bytes, info);
}

int MsgReceivev(int chid, const iovec* parts, int partCount, _msg_info* info)
{
    const unsigned long long deadlineNs = takeTimeout(TIMEOUT_RECEIVE, nullptr);
    SLaneParts room;
    const int error = measureParts(parts, partCount, room);
    return error == 0 ? receive(chid, WorkKind::ANY, room, info, deadlineNs) : failWith(error);
}

int MsgReceivePulse(int chid, void* pulse, int bytes, _msg_info* info)
{
    return receiveBlock(chid, WorkKind::PULSES, pulse, bytes, info);
}

int MsgReply(int rcvid, int status, const void* replyData, int bytes)
{
    iovec part;
    SLaneParts parts;
    const int error = measureBlock(replyData, bytes, part, parts);
    return error == 0 ? reply(rcvid, status, parts) : failWith(error);
}

int MsgReplyv(int rcvid, int status, const iovec* parts, int partCount)
{
    SLaneParts measured;
    const int error = measureParts(parts, partCount, measured);
    return error == 0 ? reply(rcvid, status, measured) : failWith(error);
}

int MsgError(int rcvid, int error)
{
    Exchange* exchange = error > 0 ? ReceiveIds::claim(rcvid) : nullptr;
    if (exchange == nullptr)
    {
        return failWith(error > 0 ? ESRCH : EINVAL);
    }
    return toResult(exchange->replyError(error));
}

int MsgSendPulse(int coid, int priority, int code, std::intptr_t value)
{
    if (priority < OWN_PRIORITY || priority > HIGHEST_PRIORITY || code < LOWEST_CODE || code > HIGHEST_CODE)
    {
        return failWith(EINVAL);
    }
    Connection* connection = Registry::connection(coid);
    if (connection == nullptr)
    {
        return failWith(EBADF);
    }
    const int used = priority == OWN_PRIORITY ? callersPriority() : priority;
    const int result = sendPulseOn(*connection, used, code, value);
    const int error = errno;
    connection->release();
    errno = error;
    return result;
}

} // namespace KoPlatform

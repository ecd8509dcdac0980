#include "pf/oswrapper/KoChannelAccess.h"

#include "pf/oswrapper/KoOperatingSystem.h"
#include "pf/platform/KoPlatformChannel.h"
#include "pf/platform/KoPlatformClock.h"
#include "pf/platform/KoPlatformRetry.h"
#include "pf/platform/KoPlatformTimeout.h"

#include <cerrno>

namespace
{

constexpr int RECEIVE_STATE = KoPlatform::TIMEOUT_RECEIVE;
constexpr int SEND_AND_REPLY_STATES = KoPlatform::TIMEOUT_SEND | KoPlatform::TIMEOUT_REPLY;

constexpr int PULSE = 0;

bool isPast(unsigned long long deadline)
{
    return KoOperatingSystem::getClockValue(KoPlatform::CLOCK_ID_MONOTONIC) >= deadline;
}

/// Bounds the next call that blocks in one of the states; without a deadline nothing is to be done.
bool isBounded(unsigned long long deadline, int states)
{
    return deadline == KoPlatform::NO_DEADLINE || KoOperatingSystem::setKernelTimeout(deadline, states);
}

/// Receives; `deadline` may be 0, one that could not be computed.
template <class Receive>
int receiveUntil(unsigned long long deadline, Receive receive)
{
    if (deadline == 0ULL)
    {
        return -1;
    }
    return KoPlatform::repeatInterrupted([&] { return isBounded(deadline, RECEIVE_STATE) ? receive() : -1; });
}

/// Receives what comes first.
template <class Receive>
int receiveAny(int timeoutMs, Receive receive)
{
    return receiveUntil(KoOperatingSystem::calculateKernelTimeout(timeoutMs), receive);
}

/// Receives a message and drops the pulses in front of it, all within one deadline. After that what is queued
/// is still taken, but a flood of pulses does not hold the caller.
template <class Receive>
int receiveMessage(int timeoutMs, Receive receive)
{
    const unsigned long long deadline = KoOperatingSystem::calculateKernelTimeout(timeoutMs);
    int lateDrops = 0;
    for (;;)
    {
        const int result = receiveUntil(deadline, receive);
        if (result != PULSE)
        {
            return result;
        }
        if (isPast(deadline) && ++lateDrops > KoPlatform::MAX_QUEUED_PULSES)
        {
            errno = ETIMEDOUT;
            return -1;
        }
    }
}

} // namespace

namespace KoChannelAccess
{

bool attach(int& connection, const int& channel, int pid, unsigned int node)
{
    connection = KoPlatform::ConnectAttach(node, pid, channel, KoPlatform::CONNECTION_SIDE_CHANNEL,
                                           KoPlatform::CONNECTION_CLOSE_ON_EXEC);
    return connection != -1;
}

int send(const int& connection, const void* message, int messageBytes, void* reply, int replyBytes)
{
    return KoPlatform::repeatInterrupted(
        [&] { return KoPlatform::MsgSend(connection, message, messageBytes, reply, replyBytes); });
}

int sendv(const int& connection, const iovec* messageParts, int messagePartCount, const iovec* replyParts,
          int replyPartCount)
{
    return sendv(connection, messageParts, messagePartCount, replyParts, replyPartCount, -1);
}

int sendv(const int& connection, const iovec* messageParts, int messagePartCount, const iovec* replyParts,
          int replyPartCount, int timeoutMs)
{
    const unsigned long long deadline = KoOperatingSystem::calculateKernelTimeout(timeoutMs);
    if (deadline == 0ULL)
    {
        return -1;
    }
    return KoPlatform::repeatInterrupted(
        [&]
        {
            const int status = isBounded(deadline, SEND_AND_REPLY_STATES)
                                   ? KoPlatform::MsgSendv(connection, messageParts, messagePartCount,
                                                          replyParts, replyPartCount)
                                   : -1;
            if (status == -1 && errno == EINTR && isPast(deadline))
            {
                errno = ETIMEDOUT;
            }
            return status;
        });
}

int receivePulse(const int& channel, void* pulse, int bytes, int timeoutMs)
{
    return receiveAny(timeoutMs, [&] { return KoPlatform::MsgReceivePulse(channel, pulse, bytes, nullptr); });
}

int receiveMessageOrPulse(const int& channel, void* buffer, int bytes, int timeoutMs, _msg_info* info)
{
    return receiveAny(timeoutMs, [&] { return KoPlatform::MsgReceive(channel, buffer, bytes, info); });
}

int receiveMessageOrPulsev(const int& channel, const iovec* parts, int partCount, int timeoutMs,
                           _msg_info* info)
{
    return receiveAny(timeoutMs, [&] { return KoPlatform::MsgReceivev(channel, parts, partCount, info); });
}

int receive(const int& channel, void* buffer, int bytes, int timeoutMs, _msg_info* info)
{
    return receiveMessage(timeoutMs, [&] { return KoPlatform::MsgReceive(channel, buffer, bytes, info); });
}

int receivev(const int& channel, const iovec* parts, int partCount, int timeoutMs, _msg_info* info)
{
    return receiveMessage(timeoutMs,
                          [&] { return KoPlatform::MsgReceivev(channel, parts, partCount, info); });
}

} // namespace KoChannelAccess

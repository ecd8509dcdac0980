#include "pf/platform/KoLocalExchange.h"

#include "pf/platform/KoCallersPriority.h"
#include "pf/platform/KoChannel.h"
#include "pf/platform/KoConnection.h"
#include "pf/platform/KoFutex.h"
#include "pf/platform/KoPlatformThread.h"
#include "pf/platform/KoReceiveIds.h"
#include "pf/platform/KoRegistry.h"
#include "pf/platform/KoThreadWait.h"

#include <cerrno>

namespace KoPlatform
{

LocalExchange::LocalExchange(const Connection& connection, const SLaneParts& message,
                             const SLaneParts& reply) noexcept
    : Exchange(*connection.channel(), &connection)
    , m_message(message)
    , m_reply(reply)
    , m_channel(*connection.channel())
    , m_thread(threadSelf())
{
    priority = callersPriority();
}

int LocalExchange::send(unsigned long long deadlineNs) noexcept
{
    const int refusal = queue();
    const int error = refusal != 0 ? refusal : await(deadlineNs);
    if (error != 0)
    {
        errno = error;
        return -1;
    }
    return m_status;
}

int LocalExchange::queue() noexcept
{
    Channel::Session session(m_channel);
    if (connection()->isDetached())
    {
        return EBADF;
    }
    if (session.isDestroyed())
    {
        return ESRCH;
    }
    session.queueMessage(*this);
    return 0;
}

int LocalExchange::await(unsigned long long deadlineNs) noexcept
{
    const ThreadWait announced(wakeSender, this);
    int reason = 0;
    while (!hasEnded() && reason == 0)
    {
        const int slept = isTerminationRequested() ? ECANCELED : futexWait(&m_ended, 0U, false, deadlineNs);
        reason = slept == ECANCELED || slept == ETIMEDOUT ? slept : 0;
    }
    if (reason != 0 && breakOff(reason))
    {
        return reason;
    }
    // Whoever copies at this moment ends the exchange without waiting for anybody.
    while (!hasEnded())
    {
        futexWait(&m_ended, 0U, false, NO_DEADLINE);
    }
    return m_error;
}

/// \return true when nobody else knows the exchange any more.
bool LocalExchange::breakOff(int error) noexcept
{
    {
        Channel::Session session(m_channel);
        if (session.unqueueMessage(*this))
        {
            return true;
        }
    }
    return ReceiveIds::breakOff(*this, error);
}

int LocalExchange::fetch(const SLaneParts& parts, _msg_info& info) noexcept
{
    info.pid = Registry::processId();
    info.tid = m_thread;
    info.chid = m_channel.id();
    info.coid = connection()->id();
    info.scoid = connection()->serverId();
    info.srcmsglen = static_cast<int>(m_message.bytes);
    info.dstmsglen = static_cast<int>(m_reply.bytes);
    info.priority = priority;
    info.msglen = static_cast<int>(copyParts(parts, m_message));
    return 0;
}

int LocalExchange::reply(int status, const SLaneParts& parts) noexcept
{
    copyParts(m_reply, parts);
    end(status, 0);
    return 0;
}

int LocalExchange::replyError(int error) noexcept
{
    end(-1, error);
    return 0;
}

/// Acquire pairs with the release in end.
bool LocalExchange::hasEnded() const noexcept
{
    return __atomic_load_n(&m_ended, __ATOMIC_ACQUIRE) != 0U;
}

void LocalExchange::end(int status, int error) noexcept
{
    m_status = status;
    m_error = error;
    unsigned int* word = &m_ended;
    __atomic_store_n(word, 1U, __ATOMIC_RELEASE);
    // From here on the sender may have gone, and the record with it; the kernel does not mind.
    futexWake(word, 1, false);
}

void LocalExchange::wakeSender(void* exchange)
{
    futexWake(&static_cast<LocalExchange*>(exchange)->m_ended, 1, false);
}

} // namespace KoPlatform

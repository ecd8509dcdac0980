#pragma once

#include "pf/platform/KoChannelQueue.h"
#include "pf/platform/KoMessageParts.h"
#include "pf/platform/KoPlatformChannel.h"

namespace KoPlatform
{

class Channel;
class Connection;

/// A message on its way: queued on a channel, then received under a receive id, then replied to.
class Exchange : public QueueItem
{
public:
    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;

    /// Keeps the record alive; a record on its sender's stack lives until it is ended in any case.
    virtual void retain() noexcept = 0;
    virtual void release() noexcept = 0;

    /// Copies the message to the receiver, without a lock. \return 0, or an error number: there is nothing to
    /// reply to, look for the next message.
    virtual int fetch(const SLaneParts& parts, _msg_info& info) noexcept = 0;

    /// Ends a received exchange and gives up the reference that its receive id kept: it may be gone
    /// afterwards. \return 0, or `ESRCH`: the sender gave up or has gone.
    virtual int reply(int status, const SLaneParts& parts) noexcept = 0;
    virtual int replyError(int error) noexcept = 0;

    /// The channel it is queued on or was received on, and the connection where that is one of this process.
    const Channel* channel() const noexcept { return m_channel; }
    const Connection* connection() const noexcept { return m_connection; }

    /// The last receive id it had; guarded by the lock of the receive ids.
    int receiveId() const noexcept { return m_receiveId; }
    void setReceiveId(int receiveId) noexcept { m_receiveId = receiveId; }

protected:
    Exchange(const Channel& channel, const Connection* connection) noexcept
        : m_channel(&channel)
        , m_connection(connection)
    {
    }
    ~Exchange() = default;

private:
    const Channel* m_channel;
    const Connection* m_connection;
    int m_receiveId = 0;
};

} // namespace KoPlatform

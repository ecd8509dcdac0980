#pragma once

#include "pf/oswrapper/KoAtomic.h"
#include "pf/platform/KoExchange.h"
#include "pf/platform/KoLane.h"

namespace KoPlatform
{

/// The record of a lane of a channel: the message that it carries, again and again. It belongs to the lane,
/// and to whoever works with the message.
class LaneExchange final : public Exchange
{
public:
    /// Keeps the lane. \param serverId the number that receivers are told.
    LaneExchange(const Channel& channel, ServerLane& lane, int serverId) noexcept;

    void retain() noexcept override { KoAtomic::increment(m_references); }
    void release() noexcept override;
    int fetch(const SLaneParts& parts, _msg_info& info) noexcept override;
    int reply(int status, const SLaneParts& parts) noexcept override;
    int replyError(int error) noexcept override;

    int serverId() const noexcept { return m_serverId; }

private:
    ~LaneExchange();

    ServerLane& m_lane;
    const int m_serverId;
    unsigned int m_references = 1;
};

} // namespace KoPlatform

#include "pf/platform/KoLaneExchange.h"

#include "pf/platform/KoChannel.h"

#include <cerrno>

namespace KoPlatform
{

LaneExchange::LaneExchange(const Channel& channel, ServerLane& lane, int serverId) noexcept
    : Exchange(channel, nullptr)
    , m_lane(lane)
    , m_serverId(serverId)
{
    m_lane.retain();
}

LaneExchange::~LaneExchange()
{
    m_lane.release();
}

void LaneExchange::release() noexcept
{
    if (!KoAtomic::testDecrement(m_references))
    {
        delete this;
    }
}

int LaneExchange::fetch(const SLaneParts& parts, _msg_info& info) noexcept
{
    SLaneMessage message = {};
    if (m_lane.receive(parts, message) != 0)
    {
        return errno;
    }
    info.pid = message.pid;
    info.tid = message.thread;
    info.chid = channel()->id();
    info.coid = message.connection;
    info.scoid = m_serverId;
    info.msglen = static_cast<int>(message.copiedBytes);
    info.srcmsglen = static_cast<int>(message.bytes);
    info.dstmsglen = static_cast<int>(message.replyBytesRoom);
    info.priority = message.priority;
    return 0;
}

int LaneExchange::reply(int status, const SLaneParts& parts) noexcept
{
    const int error = m_lane.reply(status, parts) == 0 ? 0 : errno;
    release();
    return error;
}

int LaneExchange::replyError(int error) noexcept
{
    const int result = m_lane.replyError(error) == 0 ? 0 : errno;
    release();
    return result;
}

} // namespace KoPlatform

#include "RecorderLink.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/uio.h>

#include "pf/oswrapper/KoChannelAccess.h"
#include "pf/oswrapper/KoSyslog.h"
#include "pf/platform/KoPlatformChannel.h"

namespace
{

constexpr int MODULE = 1;
constexpr int ANSWER_MS = 500;            ///< a recorder that takes longer is taken for gone
constexpr std::size_t MOST_WAITING = 256; ///< about five seconds of all sources

unsigned int asUnsigned(std::size_t count)
{
    return static_cast<unsigned int>(count);
}

} // namespace

RecorderLink::RecorderLink(const std::string& directory)
    : m_rendezvous(directory)
{
}

RecorderLink::~RecorderLink()
{
    disconnect();
}

void RecorderLink::addSource(const Message::Announcement& source)
{
    m_announcements.push_back(Message::make(Message::ANNOUNCE, source));
}

void RecorderLink::add(const Message::Sample& sample)
{
    if (m_queue.size() == MOST_WAITING)
    {
        m_queue.erase(m_queue.begin());
    }
    m_queue.push_back(Message::make(Message::SAMPLE, sample));
    ++m_samples;
}

bool RecorderLink::deliver()
{
    if (!connect())
    {
        return false;
    }
    while (!m_queue.empty() && send(m_queue.front()))
    {
        m_queue.erase(m_queue.begin());
    }
    return m_queue.empty();
}

bool RecorderLink::finish()
{
    return deliver() && send(Message::make(Message::FINISH));
}

bool RecorderLink::connect()
{
    if (isConnected())
    {
        return true;
    }
    const std::optional<Address> recorder = m_rendezvous.read();
    if (!recorder || !KoChannelAccess::attach(m_connection, recorder->channel, recorder->pid, 0))
    {
        return false;
    }
    m_restarts += m_recorder.pid != 0 && m_recorder.pid != recorder->pid ? 1U : 0U;
    m_recorder = *recorder;
    reportConnection();
    return announce();
}

void RecorderLink::disconnect()
{
    if (isConnected())
    {
        KoPlatform::ConnectDetach(m_connection);
        m_connection = -1;
    }
}

void RecorderLink::reportConnection()
{
    const unsigned int waiting = asUnsigned(m_queue.size());
    std::printf("sampler: connected to recorder %d, %u samples wait\n", m_recorder.pid, waiting);
    KoSyslog::logMsg(MODULE, KoSyslog::Notice, "connected to recorder %d, %u samples wait", m_recorder.pid,
                     waiting);
}

bool RecorderLink::announce()
{
    if (m_values != nullptr && !send(Message::make(Message::VALUES, m_values->memory())))
    {
        return false;
    }
    return std::all_of(m_announcements.begin(), m_announcements.end(),
                       [this](const CKoByteStream& source) { return send(source); });
}

bool RecorderLink::send(const CKoByteStream& message)
{
    // A message that is sent is only read.
    const iovec part{const_cast<unsigned char*>(message.getData()), message.length()};
    const iovec noReply{nullptr, 0};
    if (KoChannelAccess::sendv(m_connection, &part, 1, &noReply, 1, ANSWER_MS) >= 0)
    {
        return true;
    }
    const char* const reason = std::strerror(errno);
    std::printf("sampler: lost recorder %d: %s\n", m_recorder.pid, reason);
    KoSyslog::logMsg(MODULE, KoSyslog::Warning, "lost recorder %d: %s", m_recorder.pid, reason);
    disconnect();
    return false;
}

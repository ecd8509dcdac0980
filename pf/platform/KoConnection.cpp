#include "pf/platform/KoConnection.h"

#include "pf/platform/KoChannel.h"
#include "pf/platform/KoReceiveIds.h"

#include <cerrno>
#include <new>

namespace KoPlatform
{

Connection::~Connection()
{
    delete m_remote;
    if (m_channel != nullptr)
    {
        m_channel->release();
    }
}

void Connection::openLocal(int id, Channel& channel) noexcept
{
    channel.retain();
    m_channel = &channel;
    m_id = id;
    m_isOpen = true;
}

Connection* Connection::makeRemote() noexcept
{
    Connection* connection = new (std::nothrow) Connection;
    if (connection == nullptr)
    {
        return nullptr;
    }
    connection->m_remote = new (std::nothrow) LaneClient;
    if (connection->m_remote == nullptr)
    {
        connection->release();
        return nullptr;
    }
    return connection;
}

int Connection::openRemote(int id, int pid, int channel) noexcept
{
    m_id = id;
    return m_remote->open(pid, channel, id);
}

void Connection::release() noexcept
{
    if (!KoAtomic::testDecrement(m_references))
    {
        delete this;
    }
}

void Connection::detach() noexcept
{
    if (m_remote != nullptr)
    {
        m_remote->close();
        return;
    }
    Channel::Session session(*m_channel);
    m_isDetached = true;
    session.endQueuedMessages(this, EBADF);
    ReceiveIds::endAll(*m_channel, this, EBADF);
}

int Connection::serverId() const noexcept
{
    return m_id & ~static_cast<int>(CONNECTION_SIDE_CHANNEL);
}

void Connection::lockForFork() noexcept
{
    if (m_remote != nullptr)
    {
        m_remote->lockForFork();
    }
}

void Connection::unlockAfterFork() noexcept
{
    if (m_remote != nullptr)
    {
        m_remote->unlockAfterFork();
    }
}

void Connection::abandonInChild() noexcept
{
    m_isOpen = false;
    if (m_remote != nullptr)
    {
        m_remote->abandonInChild();
    }
}

} // namespace KoPlatform

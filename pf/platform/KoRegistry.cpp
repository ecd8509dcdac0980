#include "pf/platform/KoRegistry.h"

#include "pf/platform/KoChannel.h"
#include "pf/platform/KoConnection.h"
#include "pf/platform/KoFailure.h"
#include "pf/platform/KoIdTable.h"
#include "pf/platform/KoReceiveIds.h"

#include <cerrno>
#include <new>
#include <pthread.h>
#include <unistd.h>

namespace
{

using namespace KoPlatform;

constexpr int SIDE_CHANNEL = static_cast<int>(CONNECTION_SIDE_CHANNEL);

ChannelLock sLock; // guards the tables
TIdTable<Channel> sChannels;
TIdTable<Connection> sConnections;
TIdTable<KernelTimer> sTimers;
int sProcessId = 0; // 0 as long as it is not known; the same for every writer

template <class T>
T* retained(T* object)
{
    if (object != nullptr)
    {
        object->retain();
    }
    return object;
}

template <class T>
void callAll(const TIdTable<T>& table, void (T::*member)() noexcept)
{
    for (int id = 1; id < table.end(); ++id)
    {
        T* object = table.find(id);
        if (object != nullptr)
        {
            (object->*member)();
        }
    }
}

// A fork takes all locks, so that the child finds whole objects.
void lockForFork()
{
    sLock.lock();
    callAll(sChannels, &Channel::lockForFork);
    callAll(sConnections, &Connection::lockForFork);
    ReceiveIds::lockForFork();
}

void unlockInParent()
{
    ReceiveIds::unlockAfterFork();
    callAll(sConnections, &Connection::unlockAfterFork);
    callAll(sChannels, &Channel::unlockAfterFork);
    sLock.unlock();
}

/// The objects themselves are left as they are: the forking thread may be at work with some, and threads that
/// are not here were.
void startOverInChild()
{
    callAll(sChannels, &Channel::abandonInChild);
    callAll(sConnections, &Connection::abandonInChild);
    sChannels.startOver();
    sConnections.startOver();
    sTimers.startOver();
    ReceiveIds::startOverInChild();
    sProcessId = 0;
    sLock.startOver();
}

/// Nothing may get an id before forks are provided for. With the lock held.
bool isReadyForForks()
{
    static bool sReady = false;
    if (!sReady)
    {
        sReady = pthread_atfork(lockForFork, unlockInParent, startOverInChild) == 0;
    }
    errno = sReady ? errno : ENOMEM;
    return sReady;
}

/// \return the id, or -1 with `errno`; of `EADDRINUSE`, `lowest` is moved behind the number that another
/// process has taken.
int openChannel(Channel& channel, int& lowest)
{
    const int chid = sChannels.add(channel, lowest);
    if (chid == -1 || channel.open(chid) == 0)
    {
        return chid;
    }
    const int error = errno;
    sChannels.remove(chid);
    lowest = chid + 1;
    return failWith(error);
}

/// One attempt at making a channel; as openChannel.
int tryAddChannel(int& lowest)
{
    Channel* channel = new (std::nothrow) Channel;
    if (channel == nullptr)
    {
        return failWith(ENOMEM);
    }
    const int chid = openChannel(*channel, lowest);
    if (chid == -1)
    {
        const int error = errno;
        channel->release();
        errno = error;
    }
    return chid;
}

int addConnection(Connection& connection)
{
    const int number = isReadyForForks() ? sConnections.add(connection) : -1;
    return number == -1 ? -1 : number | SIDE_CHANNEL;
}

int numberOf(int coid)
{
    return (coid & SIDE_CHANNEL) != 0 ? coid & ~SIDE_CHANNEL : 0;
}

} // namespace

namespace KoPlatform
{

Channel* Registry::channel(int chid) noexcept
{
    const ChannelLockGuard guard(sLock);
    return retained(sChannels.find(chid));
}

Connection* Registry::connection(int coid) noexcept
{
    const ChannelLockGuard guard(sLock);
    Connection* connection = sConnections.find(numberOf(coid));
    return connection != nullptr && connection->isOpen() ? retained(connection) : nullptr;
}

KernelTimer* Registry::timer(int timerId) noexcept
{
    const ChannelLockGuard guard(sLock);
    return retained(sTimers.find(timerId));
}

int Registry::addChannel() noexcept
{
    // Under the lock as a whole, so that no descriptor gets into a forked child unnoticed.
    const ChannelLockGuard guard(sLock);
    int lowest = 1;
    int chid = isReadyForForks() ? tryAddChannel(lowest) : -1;
    while (chid == -1 && errno == EADDRINUSE)
    {
        chid = tryAddChannel(lowest);
    }
    return chid;
}

int Registry::addLocalConnection(int chid) noexcept
{
    Connection* connection = new (std::nothrow) Connection;
    if (connection == nullptr)
    {
        return failWith(ENOMEM);
    }
    int coid = -1;
    {
        const ChannelLockGuard guard(sLock);
        Channel* channel = sChannels.find(chid);
        errno = ESRCH;
        coid = channel != nullptr ? addConnection(*connection) : -1;
        if (coid != -1)
        {
            connection->openLocal(coid, *channel);
        }
    }
    if (coid == -1)
    {
        connection->release();
    }
    return coid;
}

int Registry::addRemoteConnection(int pid, int chid) noexcept
{
    Connection* connection = Connection::makeRemote();
    if (connection == nullptr)
    {
        return failWith(ENOMEM);
    }
    sLock.lock();
    const int coid = addConnection(*connection);
    sLock.unlock();
    // Here it has its number, but nobody can use it yet.
    const bool opened = coid != -1 && connection->openRemote(coid, pid, chid) == 0;
    const int error = errno;
    sLock.lock();
    connection->setOpen(opened);
    if (!opened && coid != -1)
    {
        sConnections.remove(numberOf(coid));
    }
    sLock.unlock();
    if (!opened)
    {
        connection->release();
        return failWith(error);
    }
    return coid;
}

int Registry::addTimer(KernelTimer& timer) noexcept
{
    const ChannelLockGuard guard(sLock);
    return sTimers.add(timer);
}

int Registry::removeChannel(int chid) noexcept
{
    Channel* channel = nullptr;
    {
        const ChannelLockGuard guard(sLock);
        channel = sChannels.remove(chid);
        if (channel == nullptr)
        {
            return failWith(EINVAL);
        }
        Channel::Session(*channel).destroyChannel();
    }
    channel->release();
    return 0;
}

int Registry::removeConnection(int coid) noexcept
{
    Connection* connection = nullptr;
    {
        const ChannelLockGuard guard(sLock);
        connection = sConnections.find(numberOf(coid));
        if (connection == nullptr || !connection->isOpen())
        {
            return failWith(EINVAL);
        }
        sConnections.remove(numberOf(coid));
    }
    connection->detach();
    connection->release();
    return 0;
}

KernelTimer* Registry::removeTimer(int timerId) noexcept
{
    const ChannelLockGuard guard(sLock);
    return sTimers.remove(timerId);
}

int Registry::processId() noexcept
{
    int pid = __atomic_load_n(&sProcessId, __ATOMIC_RELAXED);
    if (pid == 0)
    {
        pid = getpid();
        __atomic_store_n(&sProcessId, pid, __ATOMIC_RELAXED);
    }
    return pid;
}

} // namespace KoPlatform

#include "pf/platform/KoChannelBell.h"

#include "pf/platform/KoEpollWait.h"

#include <cerrno>
#include <cstdint>
#include <initializer_list>
#include <sys/eventfd.h>
#include <unistd.h>

namespace KoPlatform
{

ChannelBell::~ChannelBell()
{
    closeAll();
}

int ChannelBell::open() noexcept
{
    m_epoll = epoll_create1(EPOLL_CLOEXEC);
    m_event = m_epoll != -1 ? eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK) : -1;
    epoll_event event = {};
    event.events = EPOLLIN | EPOLLET; // each ring counts, nobody has to read it back
    event.data.u64 = BELL;
    if (m_event == -1 || epoll_ctl(m_epoll, EPOLL_CTL_ADD, m_event, &event) != 0)
    {
        const int error = errno;
        closeAll();
        errno = error;
        return -1;
    }
    m_references = 1;
    return 0;
}

void ChannelBell::release() noexcept
{
    if (!KoAtomic::testDecrement(m_references))
    {
        closeAll();
    }
}

void ChannelBell::ring() noexcept
{
    const int savedErrno = errno;
    const std::uint64_t one = 1U;
    // The count would overflow after 2^64 rings; nothing else can go wrong.
    [[maybe_unused]] const ssize_t written = write(m_event, &one, sizeof(one));
    errno = savedErrno;
}

int ChannelBell::wait(epoll_event* events, int capacity, unsigned long long wakeAtNs) noexcept
{
    return waitForEvents(m_epoll, events, capacity, wakeAtNs);
}

void ChannelBell::abandonInChild() noexcept
{
    closeAll();
}

void ChannelBell::closeAll() noexcept
{
    // Closing the set ends what it watches.
    for (int* descriptor : {&m_epoll, &m_event})
    {
        if (*descriptor != -1)
        {
            close(*descriptor);
            *descriptor = -1;
        }
    }
}

} // namespace KoPlatform

#pragma once

#include "pf/oswrapper/KoAtomic.h"

#include <sys/epoll.h>

namespace KoPlatform
{

/// The descriptors that a channel's leader waits for, and the bell that wakes it there.
///
/// Who rings or waits without the channel's lock retains them, so that their numbers are never another
/// file's; the last release closes them. Any thread may ring.
class ChannelBell
{
public:
    ChannelBell() noexcept = default;
    ~ChannelBell();
    ChannelBell(const ChannelBell&) = delete;
    ChannelBell& operator=(const ChannelBell&) = delete;

    /// Makes the descriptors, with one reference. \return 0, or -1 with `errno`.
    int open() noexcept;
    void retain() noexcept { KoAtomic::increment(m_references); }
    void release() noexcept;

    /// Makes a wait return that is under way, else the next one.
    void ring() noexcept;

    /// Waits until there are events, or the time has come. \return their number, 0 also when the bell rang;
    /// -1 with `errno` = `EINTR`. Never early. Time 0 does not wait.
    int wait(epoll_event* events, int capacity, unsigned long long wakeAtNs) noexcept;

    /// Whether an event is that of the bell.
    static bool isBell(const epoll_event& event) noexcept { return event.data.u64 == BELL; }

    int epollDescriptor() const noexcept { return m_epoll; }

    /// In a forked child: closes the child's copies. What is watched stays with the parent.
    void abandonInChild() noexcept;

private:
    static constexpr unsigned long long BELL = 0ULL;

    void closeAll() noexcept;

    unsigned int m_references = 0;
    int m_epoll = -1;
    int m_event = -1;
};

} // namespace KoPlatform

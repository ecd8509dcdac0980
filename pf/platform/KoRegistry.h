#pragma once

namespace KoPlatform
{

class Channel;
class Connection;
class KernelTimer;

/// The channels, connections and timers of the process by their ids. Any thread may call all members. In a
/// forked child there are none: it closes its copies of their descriptors, and leaves alone what the parent
/// goes on with.
class Registry
{
public:
    /// Objects that the caller has to release; null when there is no such id.
    static Channel* channel(int chid) noexcept;
    static Connection* connection(int coid) noexcept;
    static KernelTimer* timer(int timerId) noexcept;

    /// Make objects and give them an id. \return the id, or -1 with `errno`.
    static int addChannel() noexcept;
    static int addLocalConnection(int chid) noexcept;
    static int addRemoteConnection(int pid, int chid) noexcept;
    /// Takes the caller's reference, if it succeeds.
    static int addTimer(KernelTimer& timer) noexcept;

    /// Takes a channel or connection out and ends it. \return 0, or -1 with `errno` = `EINVAL`.
    static int removeChannel(int chid) noexcept;
    static int removeConnection(int coid) noexcept;
    /// Takes a timer out. \return what the caller has to release; null when there is no such id.
    static KernelTimer* removeTimer(int timerId) noexcept;

    /// The calling process.
    static int processId() noexcept;
};

} // namespace KoPlatform

#pragma once

#include "pf/oswrapper/KoAtomic.h"

namespace KoPlatform
{

class Channel;
class LaneClient;

/// A connection: to a channel of the own process, or by lanes to that of another.
///
/// Counted references keep the object; a connection that was detached sends nothing any more.
class Connection
{
public:
    Connection() noexcept = default;
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /// Connects to a channel of the own process, and keeps it.
    void openLocal(int id, Channel& channel) noexcept;
    /// Makes a connection that can be connected to a channel of another process; null without memory.
    static Connection* makeRemote() noexcept;
    /// Connects it, once. \return 0, or -1 with `errno`.
    int openRemote(int id, int pid, int channel) noexcept;
    /// Whether it may be used; guarded by the registry's lock.
    bool isOpen() const noexcept { return m_isOpen; }
    void setOpen(bool open) noexcept { m_isOpen = open; }

    void retain() noexcept { KoAtomic::increment(m_references); }
    /// The last release frees the object.
    void release() noexcept;

    /// Ends the connection and the sends that are under way.
    void detach() noexcept;

    /// Null when the channel is another process's.
    Channel* channel() const noexcept { return m_channel; }
    /// Null when the channel is the own process's.
    LaneClient* remote() const noexcept { return m_remote; }
    int id() const noexcept { return m_id; }
    /// The number by which receivers know a connection of their own process.
    int serverId() const noexcept;

    /// Of a connection to the own process, under the channel's lock.
    bool isDetached() const noexcept { return m_isDetached; }

    /// For the forking thread, and its child.
    void lockForFork() noexcept;
    void unlockAfterFork() noexcept;
    void abandonInChild() noexcept;

private:
    ~Connection();

    Channel* m_channel = nullptr;
    LaneClient* m_remote = nullptr;
    int m_id = 0;
    unsigned int m_references = 1;
    bool m_isDetached = false;
    bool m_isOpen = false;
};

} // namespace KoPlatform

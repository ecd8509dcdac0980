#pragma once

#include <csignal>
#include <string>

#include <sys/types.h>

/// The datagram socket at which a logger listens.
namespace KoLogView
{

/// Owns the socket file: created on open, removed at the end if it is still ours.
class LogSocket
{
public:
    enum Received
    {
        DATAGRAM,
        NOTHING, ///< nothing is waiting
        INTERRUPTED
    };

    LogSocket() = default;
    ~LogSocket();
    LogSocket(const LogSocket&) = delete;
    LogSocket& operator=(const LogSocket&) = delete;

    /// Binds the path. A socket file that no process listens at any more is replaced; one that is in use, and
    /// any other kind of file, is left alone. \return an empty text, or why it failed.
    std::string open(const std::string& path);

    /// Waits for a datagram with the signals of `waitMask` let in.
    Received wait(std::string& datagram, const sigset_t& waitMask);

    /// Takes a datagram that has already arrived.
    Received take(std::string& datagram);

private:
    std::string bindPath(const std::string& path);

    int m_descriptor = -1;
    std::string m_path;
    dev_t m_device = 0;
    ino_t m_inode = 0;
};

} // namespace KoLogView

#include "tools/ko_logview/LogSocket.h"

#include <cerrno>
#include <cstring>

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace KoLogView
{

namespace
{

/// Larger than any line that is sent; a longer datagram is cut.
constexpr std::size_t MAX_DATAGRAM = 65536;

const sockaddr* generic(const sockaddr_un& address)
{
    const void* const untyped = &address;
    return static_cast<const sockaddr*>(untyped);
}

bool makeAddress(const std::string& path, sockaddr_un& address)
{
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof(address.sun_path))
    {
        return false;
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return true;
}

/// Whether the path is a socket file that nobody listens at.
bool isAbandoned(const std::string& path, const sockaddr_un& address)
{
    struct stat status
    {
    };
    if (lstat(path.c_str(), &status) != 0 || !S_ISSOCK(status.st_mode))
    {
        return false;
    }
    const int probe = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const bool refused = connect(probe, generic(address), sizeof(address)) != 0 && errno == ECONNREFUSED;
    close(probe);
    return refused;
}

} // namespace

LogSocket::~LogSocket()
{
    if (m_descriptor < 0)
    {
        return;
    }
    struct stat status
    {
    };
    if (lstat(m_path.c_str(), &status) == 0 && status.st_dev == m_device && status.st_ino == m_inode)
    {
        unlink(m_path.c_str());
    }
    close(m_descriptor);
}

std::string LogSocket::open(const std::string& path)
{
    m_descriptor = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const std::string error = m_descriptor < 0 ? std::strerror(errno) : bindPath(path);
    if (!error.empty() && m_descriptor >= 0)
    {
        close(m_descriptor);
        m_descriptor = -1;
    }
    return error;
}

std::string LogSocket::bindPath(const std::string& path)
{
    sockaddr_un address{};
    if (!makeAddress(path, address))
    {
        return "a socket path has 1 to " + std::to_string(sizeof(address.sun_path) - 1) + " bytes";
    }
    if (isAbandoned(path, address))
    {
        unlink(path.c_str());
    }
    struct stat status
    {
    };
    if (bind(m_descriptor, generic(address), sizeof(address)) != 0 || lstat(path.c_str(), &status) != 0)
    {
        return std::strerror(errno);
    }
    m_path = path;
    m_device = status.st_dev;
    m_inode = status.st_ino;
    return std::string();
}

LogSocket::Received LogSocket::wait(std::string& datagram, const sigset_t& waitMask)
{
    pollfd readable{m_descriptor, POLLIN, 0};
    if (ppoll(&readable, 1, nullptr, &waitMask) < 0)
    {
        return INTERRUPTED;
    }
    return take(datagram);
}

LogSocket::Received LogSocket::take(std::string& datagram)
{
    char buffer[MAX_DATAGRAM];
    const ssize_t count = recv(m_descriptor, buffer, sizeof(buffer), 0);
    if (count < 0)
    {
        return errno == EINTR ? INTERRUPTED : NOTHING;
    }
    datagram.assign(buffer, static_cast<std::size_t>(count));
    return DATAGRAM;
}

} // namespace KoLogView

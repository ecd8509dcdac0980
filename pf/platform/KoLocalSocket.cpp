#include "pf/platform/KoLocalSocket.h"

#include "pf/platform/KoPlatformRetry.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

// Newer than the oldest C library that this is built with.
#ifndef SO_PEERPIDFD
#define SO_PEERPIDFD 77
#endif
#ifndef SYS_pidfd_open
#define SYS_pidfd_open 434
#endif

namespace
{

constexpr int SOCKET_TYPE = SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK;

// More than any caller passes. A message with more of them is cut by the kernel, which closes the rest.
constexpr std::size_t MAX_DESCRIPTORS = 4;

/// A name of the host's abstract namespace: it needs no file and nobody can take it over while it is in use.
class Address
{
public:
    Address(int pid, int channel) noexcept
    {
        m_address.sun_family = AF_UNIX;
        const int length = std::snprintf(m_address.sun_path + 1, sizeof(m_address.sun_path) - 1,
                                         "libsys_vanta/channel/%d/%d", pid, channel);
        m_bytes =
            static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1U + static_cast<unsigned int>(length));
    }

    const sockaddr* get() const noexcept
    {
        const void* const generic = &m_address;
        return static_cast<const sockaddr*>(generic);
    }
    socklen_t size() const noexcept { return m_bytes; }

private:
    sockaddr_un m_address{};
    socklen_t m_bytes;
};

/// A message of one part with room for descriptors.
struct Envelope
{
    Envelope(void* message, std::size_t bytes, std::size_t descriptorRoom) noexcept
        : part{message, bytes}
    {
        header.msg_iov = &part;
        header.msg_iovlen = 1;
        header.msg_control = control;
        header.msg_controllen = CMSG_SPACE(descriptorRoom * sizeof(int));
    }
    Envelope(const Envelope&) = delete;
    Envelope& operator=(const Envelope&) = delete;

    iovec part;
    alignas(cmsghdr) unsigned char control[CMSG_SPACE(MAX_DESCRIPTORS * sizeof(int))] = {};
    msghdr header{};
};

/// The descriptors that came with a message.
std::size_t takeDescriptors(msghdr& header, int (&descriptors)[MAX_DESCRIPTORS]) noexcept
{
    const cmsghdr* const rights = CMSG_FIRSTHDR(&header);
    if (rights == nullptr || rights->cmsg_level != SOL_SOCKET || rights->cmsg_type != SCM_RIGHTS)
    {
        return 0;
    }
    const std::size_t bytes = rights->cmsg_len - CMSG_LEN(0);
    std::memcpy(descriptors, CMSG_DATA(rights), bytes);
    return bytes / sizeof(int);
}

int fail(int descriptor) noexcept
{
    KoPlatform::closeDescriptor(descriptor);
    return -1;
}

} // namespace

namespace KoPlatform
{

int listenLocal(int pid, int channel) noexcept
{
    const Address address(pid, channel);
    const int listener = ::socket(AF_UNIX, SOCKET_TYPE, 0);
    if (listener == -1 || ::bind(listener, address.get(), address.size()) != 0 ||
        ::listen(listener, SOMAXCONN) != 0)
    {
        return fail(listener);
    }
    return listener;
}

int connectLocal(int pid, int channel) noexcept
{
    const Address address(pid, channel);
    const int socket = ::socket(AF_UNIX, SOCKET_TYPE, 0);
    if (socket == -1 ||
        repeatInterrupted([&] { return ::connect(socket, address.get(), address.size()); }) != 0)
    {
        return fail(socket);
    }
    return socket;
}

int acceptLocal(int listener) noexcept
{
    return repeatInterrupted([=]
                             { return ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK); });
}

bool queryPeer(int socket, SPeer& peer) noexcept
{
    ucred credentials{};
    socklen_t size = sizeof(credentials);
    if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0)
    {
        return false;
    }
    peer = SPeer{credentials.pid, credentials.uid};
    return true;
}

int openPeerProcess(int socket, int pid) noexcept
{
    int process = -1;
    socklen_t size = sizeof(process);
    // The socket knows the very process, where an id alone may be another's by now.
    if (::getsockopt(socket, SOL_SOCKET, SO_PEERPIDFD, &process, &size) == 0)
    {
        return process;
    }
    process = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0U));
    errno = process == -1 && errno == EPERM ? ENOSYS : errno; // a sandbox that does not know the call
    return process;
}

bool sendDescriptors(int socket, const void* message, std::size_t bytes, const int* descriptors,
                     std::size_t count) noexcept
{
    Envelope envelope(const_cast<void*>(message), bytes, count);
    cmsghdr* const rights = CMSG_FIRSTHDR(&envelope.header);
    rights->cmsg_level = SOL_SOCKET;
    rights->cmsg_type = SCM_RIGHTS;
    rights->cmsg_len = CMSG_LEN(count * sizeof(int));
    std::memcpy(CMSG_DATA(rights), descriptors, count * sizeof(int));
    return repeatInterrupted([&]
                             { return ::sendmsg(socket, &envelope.header, MSG_NOSIGNAL | MSG_DONTWAIT); }) ==
           static_cast<ssize_t>(bytes);
}

bool receiveDescriptors(int socket, void* message, std::size_t bytes, int* descriptors,
                        std::size_t count) noexcept
{
    Envelope envelope(message, bytes, MAX_DESCRIPTORS);
    const ssize_t received = repeatInterrupted(
        [&] { return ::recvmsg(socket, &envelope.header, MSG_CMSG_CLOEXEC | MSG_DONTWAIT); });
    if (received == -1)
    {
        return false;
    }
    int came[MAX_DESCRIPTORS];
    const std::size_t cameCount = takeDescriptors(envelope.header, came);
    const bool isCut = (envelope.header.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) != 0;
    if (received == static_cast<ssize_t>(bytes) && cameCount == count && !isCut)
    {
        std::memcpy(descriptors, came, count * sizeof(int));
        return true;
    }
    for (std::size_t i = 0; i < cameCount; ++i)
    {
        closeDescriptor(came[i]);
    }
    errno = EPROTO;
    return false;
}

bool isHungUp(int socket) noexcept
{
    char byte;
    const ssize_t peeked =
        repeatInterrupted([&] { return ::recv(socket, &byte, sizeof(byte), MSG_PEEK | MSG_DONTWAIT); });
    return peeked == 0 || (peeked == -1 && errno != EAGAIN);
}

void closeDescriptor(int& descriptor) noexcept
{
    if (descriptor != -1)
    {
        const int savedErrno = errno;
        ::close(descriptor);
        errno = savedErrno;
        descriptor = -1;
    }
}

} // namespace KoPlatform

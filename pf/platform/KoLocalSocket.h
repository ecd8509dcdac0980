#pragma once

#include <cstddef>

/// Sockets between processes of this host that keep message boundaries, under names that vanish with the
/// process. All are closed by exec and never block. Nothing here raises a signal. Failures are -1 or false
/// with `errno`.
namespace KoPlatform
{

/// Who is at the other end of a socket, as the kernel says: of a client's socket who listened, of an accepted
/// one who connected.
struct SPeer
{
    int pid;
    unsigned int user;
};

/// Listens under the name of a process and one of its channels. `EADDRINUSE` when somebody has that name.
int listenLocal(int pid, int channel) noexcept;

/// Connects to a name, without waiting for the server. `ECONNREFUSED` nobody listens, `EAGAIN` the queue of
/// those who connect is full.
int connectLocal(int pid, int channel) noexcept;

/// The next client. `EAGAIN` when there is none.
int acceptLocal(int listener) noexcept;

/// Asks for the peer.
bool queryPeer(int socket, SPeer& peer) noexcept;

/// A descriptor of the peer's process that becomes readable when the process has ended. `ESRCH` when it has
/// already, `ENOSYS` where the kernel has no such descriptors.
int openPeerProcess(int socket, int pid) noexcept;

/// Sends one message with descriptors, which the caller keeps.
bool sendDescriptors(int socket, const void* message, std::size_t bytes, const int* descriptors,
                     std::size_t count) noexcept;

/// Receives one message of exactly this size with exactly so many descriptors, which the caller owns then.
/// `EAGAIN` none is there; `EPROTO` when it is different, or the peer is gone: no descriptor is left open.
bool receiveDescriptors(int socket, void* message, std::size_t bytes, int* descriptors,
                        std::size_t count) noexcept;

/// Whether the other end has been closed or shut down. One system call.
bool isHungUp(int socket) noexcept;

/// Closes a descriptor unless it is -1, and makes it -1. Keeps `errno`.
void closeDescriptor(int& descriptor) noexcept;

} // namespace KoPlatform

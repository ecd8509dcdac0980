#pragma once

#include <string>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace KoTest
{

/// A datagram socket that is bound or connected to a path; -1 when that fails.
inline int openLogSocket(int (*attach)(int, const sockaddr*, socklen_t), const std::string& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    const void* const generic = &address;
    const int descriptor = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (attach(descriptor, static_cast<const sockaddr*>(generic), sizeof(address)) == 0)
        return descriptor;
    close(descriptor);
    return -1;
}

} // namespace KoTest

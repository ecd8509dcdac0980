#include "pf/platform/KoTimedTransfer.h"

#include "pf/oswrapper/KoErrnoGuard.h"
#include "pf/platform/KoFailure.h"
#include "pf/platform/KoPlatformClock.h"
#include "pf/platform/KoPlatformRetry.h"
#include "pf/platform/KoThreadWait.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <ctime>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

namespace
{

using namespace KoPlatform;

constexpr unsigned long long NS_PER_SECOND = 1000000000ULL;

/// Nothing but time breaks a wait for a descriptor, so it looks that often whether the thread is to end.
constexpr unsigned long long SLICE_NS = 100000000ULL;

/// What a terminal that is ready is sure to take: more may block.
constexpr std::size_t TERMINAL_PIECE = 1;

/// The ways to transfer without blocking.
enum class Route
{
    SOCKET,    ///< the socket's own calls
    NO_WAIT,   ///< the kernel's transfers that are told not to wait, which not all files and kernels know
    WHEN_READY ///< looking before each call, on a description of its own where one can be had
};

enum class Direction
{
    READ,
    WRITE
};

Route routeFor(mode_t mode)
{
    if (S_ISSOCK(mode))
    {
        return Route::SOCKET;
    }
    // Of regular files only few can block (those of the kernel); they know how to tell that they are ready.
    const bool isStored = S_ISREG(mode) || S_ISBLK(mode) || S_ISDIR(mode);
    return isStored ? Route::WHEN_READY : Route::NO_WAIT;
}

/// Whether the kernel or the file does not know transfers that do not wait. A sandbox may say `EPERM`, an
/// early kernel `EINVAL`.
bool isUnknownCall(int error)
{
    return error == EOPNOTSUPP || error == ENOSYS || error == EINVAL || error == EPERM;
}

bool isMasterOfTerminal(int descriptor)
{
    int number = 0;
    return ::ioctl(descriptor, TIOCGPTN, &number) == 0;
}

/// One direction of a descriptor, used without blocking.
class End
{
public:
    End(int descriptor, Direction direction, mode_t mode)
        : m_descriptor(descriptor)
        , m_direction(direction)
        , m_mode(mode)
        , m_route(routeFor(mode))
    {
    }
    ~End()
    {
        if (m_twin != -1)
        {
            ::close(m_twin);
        }
    }
    End(const End&) = delete;
    End& operator=(const End&) = delete;

    /// \return the bytes moved; -1 with `errno`, `EAGAIN` where the call would have blocked.
    ssize_t transfer(char* data, std::size_t size)
    {
        if (m_route == Route::SOCKET)
        {
            return transferOnSocket(data, size);
        }
        if (m_route == Route::NO_WAIT)
        {
            const ssize_t moved = transferWithoutWaiting(data, size);
            if (moved != -1 || !isUnknownCall(errno))
            {
                return moved;
            }
            lookFirst();
        }
        return isReady() ? transferNow(data, std::min(size, m_piece)) : failWith(EAGAIN);
    }

    /// Whether the descriptor's own description does not block.
    bool isNonBlocking() const
    {
        const int flags = ::fcntl(m_descriptor, F_GETFL);
        return flags != -1 && (flags & O_NONBLOCK) != 0;
    }

    /// Waits for readiness. \return 0; `ETIMEDOUT` at the deadline, `ECANCELED` when the thread is to end.
    int waitUntil(unsigned long long deadlineNs) const
    {
        for (;;)
        {
            if (isTerminationRequested())
            {
                return ECANCELED;
            }
            const unsigned long long now = monotonicNow();
            if (now >= deadlineNs)
            {
                return ETIMEDOUT;
            }
            const unsigned long long left = deadlineNs - now;
            const int ready = poll(mayBeEnded() ? std::min(left, SLICE_NS) : left);
            if (ready > 0)
            {
                return 0;
            }
            if (ready == -1 && errno != EINTR)
            {
                return errno;
            }
        }
    }

private:
    ssize_t transferOnSocket(char* data, std::size_t size) const
    {
        return m_direction == Direction::READ ? ::recv(m_descriptor, data, size, MSG_DONTWAIT)
                                              : ::send(m_descriptor, data, size, MSG_DONTWAIT);
    }

    ssize_t transferWithoutWaiting(char* data, std::size_t size) const
    {
        const iovec part = {data, size};
        constexpr off_t CURRENT_POSITION = -1;
        return m_direction == Direction::READ
                   ? ::preadv2(m_descriptor, &part, 1, CURRENT_POSITION, RWF_NOWAIT)
                   : ::pwritev2(m_descriptor, &part, 1, CURRENT_POSITION, RWF_NOWAIT);
    }

    ssize_t transferNow(char* data, std::size_t size) const
    {
        const int descriptor = m_twin != -1 ? m_twin : m_descriptor;
        return m_direction == Direction::READ ? ::read(descriptor, data, size)
                                              : ::write(descriptor, data, size);
    }

    /// Changes the route. A pipe or terminal gets a twin: a description of its own that does not block.
    /// Without one a write keeps to what a ready file takes at once.
    void lookFirst()
    {
        m_route = Route::WHEN_READY;
        const bool isTerminal = S_ISCHR(m_mode) && ::isatty(m_descriptor) == 1;
        if ((isTerminal && !isMasterOfTerminal(m_descriptor)) || S_ISFIFO(m_mode))
        {
            m_twin = openTwin();
        }
        if (m_twin == -1 && m_direction == Direction::WRITE)
        {
            m_piece = isTerminal ? TERMINAL_PIECE : S_ISFIFO(m_mode) ? std::size_t{PIPE_BUF} : m_piece;
        }
    }

    int openTwin() const
    {
        char path[sizeof("/proc/self/fd/") + 10];
        std::snprintf(path, sizeof(path), "/proc/self/fd/%d", m_descriptor);
        const int access = m_direction == Direction::READ ? O_RDONLY : O_WRONLY;
        return repeatInterrupted([&] { return ::open(path, access | O_NONBLOCK | O_CLOEXEC | O_NOCTTY); });
    }

    bool isReady() const { return poll(0ULL) > 0; }

    int poll(unsigned long long ns) const
    {
        pollfd self = {m_descriptor, static_cast<short>(m_direction == Direction::READ ? POLLIN : POLLOUT),
                       0};
        timespec timeout = {};
        timeout.tv_sec = static_cast<time_t>(ns / NS_PER_SECOND);
        timeout.tv_nsec = static_cast<long>(ns % NS_PER_SECOND);
        return ::ppoll(&self, 1, &timeout, nullptr);
    }

    const int m_descriptor;
    const Direction m_direction;
    const mode_t m_mode;
    Route m_route;
    int m_twin = -1;
    std::size_t m_piece = SSIZE_MAX;
};

/// What follows a step that failed. \param isInterrupted receives whether the step has been interrupted after
/// the deadline. \return 0 to try again, or an error number.
int recover(const End& end, int error, unsigned long long deadlineNs, bool& isInterrupted)
{
    if (error == EINTR)
    {
        // A file that is ready may be interrupted before it has begun, so the last look is taken twice.
        const bool isOver = monotonicNow() >= deadlineNs;
        const bool isSecond = isInterrupted;
        isInterrupted = isOver;
        return isOver && isSecond ? ETIMEDOUT : 0;
    }
    return error == EAGAIN && !end.isNonBlocking() ? end.waitUntil(deadlineNs) : error;
}

/// Moves data until all (for a read: any) of it is through, or an end, a failure or the deadline comes.
/// \param moved receives the bytes. \return 0 or an error number.
int move(End& end, char* data, std::size_t size, Direction direction, unsigned long long deadlineNs,
         std::size_t& moved)
{
    bool isInterrupted = false;
    for (;;)
    {
        const ssize_t step = end.transfer(data + moved, size - moved);
        if (step == -1)
        {
            const int error = recover(end, errno, deadlineNs, isInterrupted);
            if (error != 0)
            {
                return error;
            }
            continue;
        }
        moved += static_cast<std::size_t>(step);
        if (step == 0 || moved == size || direction == Direction::READ)
        {
            return 0;
        }
        if (monotonicNow() >= deadlineNs)
        {
            return ETIMEDOUT;
        }
    }
}

ssize_t transferUntil(int descriptor, Direction direction, char* data, std::size_t size,
                      unsigned long long deadlineNs)
{
    if (size > SSIZE_MAX)
    {
        return failWith(EINVAL); // the socket calls would cut it to what they can count
    }
    struct stat status = {};
    if (::fstat(descriptor, &status) == -1)
    {
        return -1;
    }
    int error = 0;
    std::size_t moved = 0;
    {
        const KoErrnoGuard guard; // what the way there tried and missed is no business of the caller
        End end(descriptor, direction, status.st_mode);
        error = move(end, data, size, direction, deadlineNs, moved);
    }
    if (error == ECANCELED && isTerminationRequested())
    {
        endCallingThread();
    }
    return error == 0 || moved != 0 ? static_cast<ssize_t>(moved) : failWith(error);
}

} // namespace

ssize_t KoPlatform::readUntil(int descriptor, void* buffer, std::size_t size, unsigned long long deadlineNs)
{
    // Asking for nothing blocks nowhere, and takes no datagram.
    return size == 0
               ? ::read(descriptor, buffer, size)
               : transferUntil(descriptor, Direction::READ, static_cast<char*>(buffer), size, deadlineNs);
}

ssize_t KoPlatform::writeUntil(int descriptor, const void* buffer, std::size_t size,
                               unsigned long long deadlineNs)
{
    char* const data = static_cast<char*>(const_cast<void*>(buffer));
    return transferUntil(descriptor, Direction::WRITE, data, size, deadlineNs);
}

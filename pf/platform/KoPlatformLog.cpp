#include "pf/platform/KoPlatformLog.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

namespace
{

constexpr int FACILITY_USER = 1 << 3;
constexpr int SEVERITY_MASK = 7;
constexpr int SEVERITY_WARNING = 3;
constexpr std::size_t LINE_SIZE = 1152;
constexpr std::size_t PROGRAM_NAME_LENGTH = 64;
/// "<15>", the program's name, "[4294967295]: (-2147483648) ".
constexpr std::size_t HEADER_SIZE = 4 + PROGRAM_NAME_LENGTH + 12 + 16;
/// A process that closes descriptors wholesale soon reuses the low numbers; a line must not end up in such a
/// stranger.
constexpr int LOWEST_DESCRIPTOR = 200;

/// The connected socket of the process, -1 before the first line that found a logger. Once there it is
/// never closed, because another thread may be about to send on it.
std::atomic<int> sSocket{-1};
std::atomic<unsigned int> sLostLines{0};
std::atomic<KoPlatform::LogSink> sSink{nullptr};

struct SDatagram
{
    char text[HEADER_SIZE + LINE_SIZE];
    std::size_t length;

    std::size_t room() const { return sizeof(text) - length; }
};

void appendText(SDatagram& datagram, const char* text, std::size_t maxLength)
{
    const std::size_t length = strnlen(text, maxLength < datagram.room() ? maxLength : datagram.room());
    std::memcpy(datagram.text + datagram.length, text, length);
    datagram.length += length;
}

void appendNumber(SDatagram& datagram, int number)
{
    char digits[12];
    char* begin = digits + sizeof(digits);
    unsigned int rest =
        number < 0 ? 0U - static_cast<unsigned int>(number) : static_cast<unsigned int>(number);
    do
    {
        *--begin = static_cast<char>('0' + rest % 10);
        rest /= 10;
    } while (rest != 0);
    if (number < 0)
    {
        *--begin = '-';
    }
    appendText(datagram, begin, static_cast<std::size_t>(digits + sizeof(digits) - begin));
}

void beginDatagram(SDatagram& datagram, int opcode, int severity)
{
    datagram.length = 0;
    appendText(datagram, "<", 1);
    appendNumber(datagram, FACILITY_USER | (severity & SEVERITY_MASK));
    appendText(datagram, ">", 1);
    appendText(datagram, program_invocation_short_name, PROGRAM_NAME_LENGTH);
    appendText(datagram, "[", 1);
    appendNumber(datagram, ::getpid());
    appendText(datagram, "]: (", 4);
    appendNumber(datagram, opcode);
    appendText(datagram, ") ", 2);
}

/// \return false when the text cannot be formatted.
KO_PRINTF(2, 0)
bool appendFormatted(SDatagram& datagram, const char* format, va_list arguments)
{
    if (std::strcmp(format, "%s") == 0)
    {
        // The line is formatted already, as nearly always: no second pass through the formatter.
        const char* line = va_arg(arguments, const char*);
        appendText(datagram, line != nullptr ? line : "(null)", LINE_SIZE - 1);
        datagram.text[datagram.length] = '\0';
        return true;
    }
    const int length = std::vsnprintf(datagram.text + datagram.length, LINE_SIZE, format, arguments);
    if (length < 0)
    {
        return false;
    }
    const std::size_t wanted = static_cast<std::size_t>(length);
    datagram.length += wanted < LINE_SIZE ? wanted : LINE_SIZE - 1;
    return true;
}

bool loggerAddress(sockaddr_un& address)
{
    const char* configured = std::getenv("KO_PLATFORM_LOG");
    const char* path = configured != nullptr ? configured : "/dev/log";
    const std::size_t length = std::strlen(path);
    if (length >= sizeof(address.sun_path))
    {
        errno = ENAMETOOLONG;
        return false;
    }
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path, length + 1);
    return true;
}

/// Connects, or connects again: a datagram socket changes its peer in one step, so that threads may do it at
/// once.
bool connectToLogger(int socket)
{
    sockaddr_un address = {};
    if (!loggerAddress(address))
    {
        return false;
    }
    // The bare kernel call: ThreadSanitizer takes the library's for a change of the descriptor itself, which
    // would race with the other threads' sends.
    if (::syscall(SYS_connect, socket, &address, sizeof(address)) == 0)
    {
        return true;
    }
    if (errno == ECONNREFUSED)
    {
        errno = ENOENT; // the file of a logger that has ended: no logger runs
    }
    return false;
}

int moveUp(int descriptor)
{
    const int moved = ::fcntl(descriptor, F_DUPFD_CLOEXEC, LOWEST_DESCRIPTOR);
    if (moved < 0)
    {
        return descriptor;
    }
    ::close(descriptor);
    return moved;
}

void closeQuietly(int descriptor)
{
    const int error = errno;
    ::close(descriptor);
    errno = error;
}

/// Opens the connection that replaces `stale`. \return the socket now in use, which may be another thread's,
/// or -1.
int openConnection(int stale)
{
    int descriptor = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0)
    {
        return -1;
    }
    if (!connectToLogger(descriptor))
    {
        closeQuietly(descriptor);
        return -1;
    }
    descriptor = moveUp(descriptor);
    // Acquire and release: pairs with itself in another thread; the socket is connected before it is seen.
    if (!sSocket.compare_exchange_strong(stale, descriptor, std::memory_order_acq_rel,
                                         std::memory_order_acquire))
    {
        closeQuietly(descriptor);
        return stale;
    }
    return descriptor;
}

ssize_t trySend(int descriptor, const SDatagram& datagram)
{
    return ::send(descriptor, datagram.text, datagram.length, MSG_DONTWAIT | MSG_NOSIGNAL);
}

/// Brings the connection back after `send` failed with the current `errno`. \return the socket to try once
/// more, or -1.
int restoreConnection(int descriptor)
{
    switch (errno)
    {
    case ECONNREFUSED: // the logger was restarted or has ended
    case ECONNRESET:
    case ENOTCONN:
    case EDESTADDRREQ:
    case EPIPE:
        return connectToLogger(descriptor) ? descriptor : -1;
    case EBADF: // the process has closed a descriptor that is not its own
    case ENOTSOCK:
        return openConnection(descriptor);
    default:
        return -1;
    }
}

int sendDatagram(const SDatagram& datagram)
{
    // Acquire: pairs with the exchange in openConnection.
    int descriptor = sSocket.load(std::memory_order_acquire);
    if (descriptor < 0)
    {
        descriptor = openConnection(descriptor);
    }
    if (descriptor < 0)
    {
        return -1;
    }
    ssize_t sent = trySend(descriptor, datagram);
    if (sent < 0)
    {
        descriptor = restoreConnection(descriptor);
        sent = descriptor < 0 ? -1 : trySend(descriptor, datagram);
    }
    return static_cast<int>(sent);
}

/// Tells the logger how many lines it has refused, before it gets the next one.
void reportLostLines()
{
    // Relaxed, like every access to the counter: it is a statistic and orders nothing.
    const unsigned int lost = sLostLines.exchange(0, std::memory_order_relaxed);
    if (lost == 0)
    {
        return;
    }
    SDatagram notice;
    beginDatagram(notice, 0, SEVERITY_WARNING);
    appendNumber(notice, static_cast<int>(lost));
    appendText(notice, " log lines lost", LINE_SIZE);
    if (sendDatagram(notice) < 0)
    {
        sLostLines.fetch_add(lost, std::memory_order_relaxed);
    }
}

int sendToLogger(const SDatagram& datagram)
{
    const int before = errno;
    if (sLostLines.load(std::memory_order_relaxed) != 0)
    {
        reportLostLines();
    }
    const int sent = sendDatagram(datagram);
    if (sent >= 0)
    {
        errno = before;
    }
    else if (errno == EAGAIN || errno == ENOBUFS)
    {
        sLostLines.fetch_add(1, std::memory_order_relaxed);
    }
    return sent;
}

} // namespace

int KoPlatform::slogf(int opcode, int severity, const char* format, ...)
{
    SDatagram datagram;
    beginDatagram(datagram, opcode, severity);
    const char* line = datagram.text + datagram.length;
    va_list arguments;
    va_start(arguments, format);
    const bool formatted = appendFormatted(datagram, format, arguments);
    va_end(arguments);
    if (!formatted)
    {
        return -1;
    }
    // Acquire: pairs with the exchange in setLogSink, so that the sink finds what its owner prepared.
    const LogSink sink = sSink.load(std::memory_order_acquire);
    return sink != nullptr ? sink(opcode, severity, line) : sendToLogger(datagram);
}

KoPlatform::LogSink KoPlatform::setLogSink(LogSink sink)
{
    // Acquire and release: pairs with the load in slogf and with the next exchange.
    return sSink.exchange(sink, std::memory_order_acq_rel);
}

#include "tests/support/FaultInjection.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <ctime>

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

namespace KoTest
{

namespace
{

struct CallState
{
    unsigned int skip;
    unsigned int left; ///< calls that still fail
    unsigned int failed;
    int errorNumber;
    std::size_t maxBytes; ///< 0 = transfers are not shortened
};

thread_local CallState tCalls[FAULT_CALL_COUNT]{};

} // namespace

FailingCall::FailingCall(FaultCall call, int errorNumber, unsigned int count, unsigned int skip)
    : m_call(call)
{
    CallState& state = tCalls[call];
    state.errorNumber = errorNumber;
    state.skip = skip;
    state.failed = 0;
    state.left = count;
}

FailingCall::~FailingCall()
{
    tCalls[m_call].left = 0;
}

unsigned int FailingCall::failed() const
{
    return tCalls[m_call].failed;
}

ShortTransfer::ShortTransfer(FaultCall call, std::size_t maxBytes)
    : m_call(call)
{
    tCalls[call].maxBytes = maxBytes;
}

ShortTransfer::~ShortTransfer()
{
    tCalls[m_call].maxBytes = 0;
}

#ifndef KO_TEST_SANITIZER

namespace
{

/// Tells whether this call is to fail; sets errno then.
bool failsNow(FaultCall call)
{
    CallState& state = tCalls[call];
    if (state.left == 0)
    {
        return false;
    }
    if (state.skip > 0)
    {
        --state.skip;
        return false;
    }
    --state.left;
    ++state.failed;
    errno = state.errorNumber;
    return true;
}

std::size_t shortened(FaultCall call, std::size_t size)
{
    const std::size_t maxBytes = tCalls[call].maxBytes;
    return maxBytes == 0 ? size : std::min(size, maxBytes);
}

/// The C library's function behind an interposed one.
template <typename Function>
Function* realFunction(Function*& cached, const char* name)
{
    if (cached == nullptr)
    {
        const int formerErrno = errno;
        void* const address = dlsym(RTLD_NEXT, name);
        __builtin_memcpy(&cached, &address, sizeof(address));
        errno = formerErrno;
    }
    return cached;
}

} // namespace

#endif

} // namespace KoTest

#ifndef KO_TEST_SANITIZER

// On a 32-bit target the headers rename what carries times; the interposed function then has the other name,
// too.
#ifdef __USE_TIME_BITS64
#define KO_TIME_NAME(plain, wide) wide
#else
#define KO_TIME_NAME(plain, wide) plain
#endif

#define KO_REAL(function, name)                                                                              \
    static decltype(function)* sReal = nullptr;                                                              \
    decltype(function)* const real = KoTest::realFunction(sReal, name)

extern "C"
{
    int open(const char* path, int flags, ...)
    {
        va_list arguments;
        va_start(arguments, flags);
        const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
        va_end(arguments);
        KO_REAL(open, "open64");
        return KoTest::failsNow(KoTest::FAULT_OPEN) ? -1 : real(path, flags, mode);
    }

    int openat(int directory, const char* path, int flags, ...)
    {
        va_list arguments;
        va_start(arguments, flags);
        const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
        va_end(arguments);
        KO_REAL(openat, "openat64");
        return KoTest::failsNow(KoTest::FAULT_OPEN) ? -1 : real(directory, path, flags, mode);
    }

    ssize_t read(int descriptor, void* buffer, std::size_t size)
    {
        KO_REAL(read, "read");
        return KoTest::failsNow(KoTest::FAULT_READ)
                   ? -1
                   : real(descriptor, buffer, KoTest::shortened(KoTest::FAULT_READ, size));
    }

    ssize_t readv(int descriptor, const iovec* parts, int count)
    {
        KO_REAL(readv, "readv");
        return KoTest::failsNow(KoTest::FAULT_READ) ? -1 : real(descriptor, parts, count);
    }

    ssize_t pread(int descriptor, void* buffer, std::size_t size, off_t offset)
    {
        KO_REAL(pread, "pread64");
        return KoTest::failsNow(KoTest::FAULT_READ)
                   ? -1
                   : real(descriptor, buffer, KoTest::shortened(KoTest::FAULT_READ, size), offset);
    }

    ssize_t write(int descriptor, const void* buffer, std::size_t size)
    {
        KO_REAL(write, "write");
        return KoTest::failsNow(KoTest::FAULT_WRITE)
                   ? -1
                   : real(descriptor, buffer, KoTest::shortened(KoTest::FAULT_WRITE, size));
    }

    ssize_t writev(int descriptor, const iovec* parts, int count)
    {
        KO_REAL(writev, "writev");
        return KoTest::failsNow(KoTest::FAULT_WRITE) ? -1 : real(descriptor, parts, count);
    }

    ssize_t pwrite(int descriptor, const void* buffer, std::size_t size, off_t offset)
    {
        KO_REAL(pwrite, "pwrite64");
        return KoTest::failsNow(KoTest::FAULT_WRITE)
                   ? -1
                   : real(descriptor, buffer, KoTest::shortened(KoTest::FAULT_WRITE, size), offset);
    }

    ssize_t send(int descriptor, const void* buffer, std::size_t size, int flags)
    {
        KO_REAL(send, "send");
        return KoTest::failsNow(KoTest::FAULT_SEND)
                   ? -1
                   : real(descriptor, buffer, KoTest::shortened(KoTest::FAULT_SEND, size), flags);
    }

    ssize_t sendto(int descriptor, const void* buffer, std::size_t size, int flags, const sockaddr* address,
                   socklen_t length)
    {
        KO_REAL(sendto, "sendto");
        return KoTest::failsNow(KoTest::FAULT_SEND) ? -1
                                                    : real(descriptor, buffer, size, flags, address, length);
    }

    ssize_t sendmsg(int descriptor, const msghdr* message, int flags)
    {
        KO_REAL(sendmsg, KO_TIME_NAME("sendmsg", "__sendmsg64"));
        return KoTest::failsNow(KoTest::FAULT_SEND) ? -1 : real(descriptor, message, flags);
    }

    ssize_t recv(int descriptor, void* buffer, std::size_t size, int flags)
    {
        KO_REAL(recv, "recv");
        return KoTest::failsNow(KoTest::FAULT_RECEIVE)
                   ? -1
                   : real(descriptor, buffer, KoTest::shortened(KoTest::FAULT_RECEIVE, size), flags);
    }

    ssize_t recvfrom(int descriptor, void* buffer, std::size_t size, int flags, sockaddr* address,
                     socklen_t* length)
    {
        KO_REAL(recvfrom, "recvfrom");
        return KoTest::failsNow(KoTest::FAULT_RECEIVE)
                   ? -1
                   : real(descriptor, buffer, size, flags, address, length);
    }

    ssize_t recvmsg(int descriptor, msghdr* message, int flags)
    {
        KO_REAL(recvmsg, KO_TIME_NAME("recvmsg", "__recvmsg64"));
        return KoTest::failsNow(KoTest::FAULT_RECEIVE) ? -1 : real(descriptor, message, flags);
    }

    int poll(pollfd* waits, nfds_t count, int timeoutMs)
    {
        KO_REAL(poll, "poll");
        return KoTest::failsNow(KoTest::FAULT_POLL) ? -1 : real(waits, count, timeoutMs);
    }

    int ppoll(pollfd* waits, nfds_t count, const timespec* timeout, const sigset_t* mask)
    {
        KO_REAL(ppoll, KO_TIME_NAME("ppoll", "__ppoll64"));
        return KoTest::failsNow(KoTest::FAULT_POLL) ? -1 : real(waits, count, timeout, mask);
    }

    pid_t waitpid(pid_t pid, int* status, int options)
    {
        KO_REAL(waitpid, "waitpid");
        return KoTest::failsNow(KoTest::FAULT_WAITPID) ? -1 : real(pid, status, options);
    }

    int nanosleep(const timespec* time, timespec* remaining)
    {
        KO_REAL(nanosleep, KO_TIME_NAME("nanosleep", "__nanosleep64"));
        return KoTest::failsNow(KoTest::FAULT_SLEEP) ? -1 : real(time, remaining);
    }

    int clock_nanosleep(clockid_t clock, int flags, const timespec* time, timespec* remaining)
    {
        KO_REAL(clock_nanosleep, KO_TIME_NAME("clock_nanosleep", "__clock_nanosleep_time64"));
        return KoTest::failsNow(KoTest::FAULT_SLEEP) ? errno : real(clock, flags, time, remaining);
    }

    void* mmap(void* address, std::size_t size, int protection, int flags, int descriptor,
               off_t offset) noexcept
    {
        KO_REAL(mmap, "mmap64");
        return KoTest::failsNow(KoTest::FAULT_MAP)
                   ? MAP_FAILED
                   : real(address, size, protection, flags, descriptor, offset);
    }

    long syscall(long number, ...) noexcept
    {
        long words[6];
        va_list arguments;
        va_start(arguments, number);
        for (long& word : words)
        {
            word = va_arg(arguments, long);
        }
        va_end(arguments);
#ifdef SYS_futex_time64
        const bool isFutex = number == SYS_futex || number == SYS_futex_time64;
#else
        const bool isFutex = number == SYS_futex;
#endif
        KO_REAL(syscall, "syscall");
        return isFutex && KoTest::failsNow(KoTest::FAULT_FUTEX)
                   ? -1
                   : real(number, words[0], words[1], words[2], words[3], words[4], words[5]);
    }
}

#endif

#include "tests/support/FaultInjection.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
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

FailingCall::FailingCall(FaultCall call, int errorNumber, unsigned int count, unsigned int skip,
                         std::size_t maxBytes)
    : m_call(call)
{
    tCalls[call] = {skip, count, 0, errorNumber, maxBytes};
}

FailingCall::~FailingCall()
{
    tCalls[m_call] = {};
}

unsigned int FailingCall::failed() const
{
    return tCalls[m_call].failed;
}

} // namespace KoTest

#ifndef KO_TEST_SANITIZER

namespace
{

using namespace KoTest;

/// Tells whether this call is to fail; sets errno then.
bool failsNow(FaultCall call)
{
    CallState& state = tCalls[call];
    if (state.left == 0)
        return false;
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

#define KO_REAL(function, name)                                                                              \
    static decltype(function)* sReal = nullptr;                                                              \
    decltype(function)* const real = realFunction(sReal, name)

extern "C"
{
    int openat(int directory, const char* path, int flags, ...)
    {
        va_list arguments;
        va_start(arguments, flags);
        const bool hasMode = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
        const mode_t mode = hasMode ? va_arg(arguments, mode_t) : 0;
        va_end(arguments);
        KO_REAL(openat, "openat64");
        return failsNow(FAULT_OPEN) ? -1 : real(directory, path, flags, mode);
    }

    ssize_t read(int descriptor, void* buffer, std::size_t size)
    {
        KO_REAL(read, "read");
        return failsNow(FAULT_READ) ? -1 : real(descriptor, buffer, shortened(FAULT_READ, size));
    }

    ssize_t write(int descriptor, const void* buffer, std::size_t size)
    {
        KO_REAL(write, "write");
        return failsNow(FAULT_WRITE) ? -1 : real(descriptor, buffer, shortened(FAULT_WRITE, size));
    }

    void* mmap(void* address, std::size_t size, int protection, int flags, int descriptor,
               off_t offset) noexcept
    {
        KO_REAL(mmap, "mmap64");
        return failsNow(FAULT_MAP) ? MAP_FAILED : real(address, size, protection, flags, descriptor, offset);
    }

    int munmap(void* address, std::size_t size) noexcept
    {
        KO_REAL(munmap, "munmap");
        return failsNow(FAULT_UNMAP) ? -1 : real(address, size);
    }

    long syscall(long number, ...) noexcept
    {
        long words[6];
        va_list arguments;
        va_start(arguments, number);
        for (long& word : words)
            word = va_arg(arguments, long);
        va_end(arguments);
#ifdef SYS_futex_time64
        const bool isFutex = number == SYS_futex || number == SYS_futex_time64;
#else
        const bool isFutex = number == SYS_futex;
#endif
        KO_REAL(syscall, "syscall");
        return isFutex && failsNow(FAULT_FUTEX)
                   ? -1
                   : real(number, words[0], words[1], words[2], words[3], words[4], words[5]);
    }
}

#endif

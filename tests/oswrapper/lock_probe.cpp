// Creates and uses locks on a kernel that cannot block on them.

#include <cerrno>
#include <cstdarg>
#include <thread>

#include <dlfcn.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "pf/oswrapper/CKoCriticalSection.h"
#include "pf/oswrapper/KoMutexAccess.h"
#include "pf/oswrapper/TKoAutoLock.h"

/// Refuses the futex calls, as a kernel does that does not know them, and passes the others on.
extern "C" long syscall(long number, ...) noexcept
{
    bool isFutex = number == SYS_futex;
#ifdef SYS_futex_time64
    isFutex = isFutex || number == SYS_futex_time64;
#endif
    if (isFutex)
    {
        errno = ENOSYS;
        return -1;
    }
    va_list arguments;
    va_start(arguments, number);
    const long first = va_arg(arguments, long);
    const long second = va_arg(arguments, long);
    const long third = va_arg(arguments, long);
    va_end(arguments);
    long (*real)(long, ...) = nullptr;
    void* const address = dlsym(RTLD_NEXT, "syscall");
    __builtin_memcpy(&real, &address, sizeof(real));
    return real(number, first, second, third);
}

namespace
{

CKoCriticalSection sSection;
long sCounter = 0;

void count()
{
    for (int i = 0; i < 100; ++i)
    {
        const TKoAutoLock<CKoCriticalSection> guard(sSection);
        ++sCounter;
        std::this_thread::yield();
    }
}

} // namespace

int main()
{
    std::thread other(count);
    count();
    other.join();
    _sync mutex{};
    KoMutexAccess::create(mutex, false, true, false);
    const bool usable = KoPlatform::pthread_mutex_unlock(&mutex) == 0 && KoMutexAccess::lock(mutex, 10);
    return usable && sCounter == 200 ? 0 : 1;
}

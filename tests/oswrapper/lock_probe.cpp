// Creates and uses locks on a kernel that cannot block on them.

#include <cerrno>
#include <cstdarg>
#include <thread>

#include <sys/syscall.h>
#include <unistd.h>

#include "pf/oswrapper/CKoCriticalSection.h"
#include "pf/oswrapper/KoMutexAccess.h"
#include "pf/oswrapper/TKoAutoLock.h"

/// Refuses every call, as a kernel does that does not know it. The library makes no others than futex calls
/// this way.
extern "C" long syscall(long /*number*/, ...) noexcept
{
    errno = ENOSYS;
    return -1;
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

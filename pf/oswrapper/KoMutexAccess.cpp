#include "pf/oswrapper/KoMutexAccess.h"

#include "pf/oswrapper/CKoAsserter.h"
#include "pf/oswrapper/KoLockDeadline.h"
#include "pf/oswrapper/KoSyslog.h"

namespace
{

constexpr const char* SOURCE = "KoMutexAccess";

void applyAttributes(KoPlatform::SyncAttributes& attributes, bool shared, bool recursive)
{
    int error = KoPlatform::pthread_mutexattr_init(&attributes);
    if (error != 0)
    {
        KoSyslog::logMsg(0, KoSyslog::Critical, "Failed tpthread_mutexattr_init: error=%d", error);
    }
    error = KoPlatform::pthread_mutexattr_setrecursive(&attributes, recursive ? 1 : 0);
    if (error != 0)
    {
        KoSyslog::logMsg(0, KoSyslog::Critical,
                         "Failed pthread_mutexattr_setrecursive: error=%d Recursive: %d", error,
                         recursive ? 1 : 0);
    }
    error = KoPlatform::pthread_mutexattr_setpshared(&attributes, shared ? 1 : 0);
    if (error != 0)
    {
        KoSyslog::logMsg(0, KoSyslog::Critical, "Failed pthread_mutexattr_setpshared: error=%d shareable: %d",
                         error, shared ? 1 : 0);
    }
}

} // namespace

namespace KoMutexAccess
{

void create(_sync& m, bool unlocked, bool shared, bool recursive)
{
    KoPlatform::SyncAttributes attributes = {};
    applyAttributes(attributes, shared, recursive);
    const int error = KoPlatform::pthread_mutex_init(&m, &attributes);
    if (error != 0)
    {
        KoSyslog::logMsg(0, KoSyslog::Critical, "Failed to create mutex: error=%d", error);
        doCheapAssert(__LINE__, SOURCE);
    }
    if (!unlocked)
    {
        KoPlatform::pthread_mutex_lock(&m);
    }
    KoPlatform::pthread_mutexattr_destroy(&attributes);
}

bool lock(_sync& m, int timeoutMs)
{
    if (timeoutMs == -1)
    {
        return KoPlatform::pthread_mutex_lock(&m) == 0;
    }
    if (timeoutMs == 0)
    {
        return KoPlatform::pthread_mutex_trylock(&m) == 0;
    }
    if (timeoutMs < 0)
    {
        return false;
    }
    return KoPlatform::pthread_mutex_timedlock_monotonic(&m, KoPrivate::deadlineAfter(timeoutMs)) == 0;
}

void destroy(_sync& m)
{
    const int error = KoPlatform::pthread_mutex_destroy(&m);
    if (error != 0)
    {
        KoSyslog::logMsg(0, KoSyslog::Critical, "Failed to destroy mutex: error=%d", error);
        doCheapAssert(__LINE__, SOURCE);
    }
}

} // namespace KoMutexAccess

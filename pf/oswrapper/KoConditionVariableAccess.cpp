#include "pf/oswrapper/KoConditionVariableAccess.h"

#include "pf/oswrapper/KoLockDeadline.h"
#include "pf/oswrapper/KoSyslog.h"

#include <cerrno>

namespace
{

int initialise(_sync& cond, const KoPlatform::SyncAttributes& attributes)
{
    const int error = KoPlatform::pthread_cond_init(&cond, &attributes);
    if (error != 0)
    {
        KoSyslog::logMsg(0, KoSyslog::Critical, "Failed pthread_cond_init: error=%d", error);
    }
    return error;
}

int setMonotonicClock(KoPlatform::SyncAttributes& attributes)
{
    const int error = KoPlatform::pthread_condattr_setclock(&attributes, KoPlatform::CLOCK_ID_MONOTONIC);
    if (error != 0)
    {
        KoSyslog::logMsg(0, KoSyslog::Critical, "Failed pthread_condattr_setclock: error=%d", error);
    }
    return error;
}

int waitWithTimeout(_sync& cond, _sync& mutex, int timeoutMs)
{
    if (timeoutMs == -1)
    {
        return KoPlatform::pthread_cond_wait(&cond, &mutex);
    }
    if (timeoutMs < 0)
    {
        return EINVAL;
    }
    return KoPlatform::pthread_cond_timedwait(&cond, &mutex, KoPrivate::deadlineAfter(timeoutMs));
}

} // namespace

namespace KoConditionVariableAccess
{

bool create(_sync& cond)
{
    KoPlatform::SyncAttributes attributes = {};
    int error = KoPlatform::pthread_condattr_init(&attributes);
    if (error != 0)
    {
        KoSyslog::logMsg(0, KoSyslog::Critical, "Failed pthread_condattr_init: error=%d", error);
        errno = error;
        return false;
    }
    error = setMonotonicClock(attributes);
    if (error == 0)
    {
        error = initialise(cond, attributes);
    }
    KoPlatform::pthread_condattr_destroy(&attributes);
    if (error != 0)
    {
        errno = error;
    }
    return error == 0;
}

bool wait(_sync& cond, _sync& mutex, int timeoutMs)
{
    const int error = waitWithTimeout(cond, mutex, timeoutMs);
    errno = error;
    return error == 0 || (error == ETIMEDOUT && timeoutMs != 0);
}

} // namespace KoConditionVariableAccess

#include "pf/oswrapper/KoTriggerAccess.h"

#include "pf/oswrapper/CKoAsserter.h"
#include "pf/oswrapper/KoLockDeadline.h"
#include "pf/oswrapper/KoOperatingSystem.h"
#include "pf/platform/KoPlatformRetry.h"

#include <cerrno>

namespace
{

constexpr const char* SOURCE = "KoTriggerAccess";

} // namespace

namespace KoTriggerAccess
{

bool create(KoOSTypes::TRIGGER_HANDLE& h)
{
    return KoPlatform::sem_init(&h, 0, 0U) == 0;
}

int destroy(KoOSTypes::TRIGGER_HANDLE& h)
{
    return KoPlatform::sem_destroy(&h);
}

bool signal(KoOSTypes::TRIGGER_HANDLE& h)
{
    int value = 0;
    if (KoPlatform::sem_getvalue(&h, &value) != 0)
    {
        return false;
    }
    return value > 0 || KoPlatform::sem_post(&h) == 0;
}

int tryWait(KoOSTypes::TRIGGER_HANDLE& h)
{
    if (KoPlatform::repeatInterrupted([&] { return KoPlatform::sem_trywait(&h); }) == 0)
    {
        return 1;
    }
    switch (KoOperatingSystem::getLastError())
    {
    case 0:
        return 1;
    case EAGAIN:
        return 0;
    default:
        return -1;
    }
}

bool wait(KoOSTypes::TRIGGER_HANDLE& h)
{
    return KoPlatform::repeatInterrupted([&] { return KoPlatform::sem_wait(&h); }) == 0 ||
           KoOperatingSystem::getLastError() == 0;
}

bool wait(KoOSTypes::TRIGGER_HANDLE& h, int timeoutMs)
{
    if (timeoutMs < 0)
    {
        return wait(h);
    }
    if (KoPlatform::sem_timedwait_monotonic(&h, KoPrivate::deadlineAfter(timeoutMs)) == 0)
    {
        return true;
    }
    if (KoOperatingSystem::getLastError() != ETIMEDOUT)
    {
        doCheapAssert(__LINE__, SOURCE);
    }
    return false;
}

} // namespace KoTriggerAccess

#include "pf/oswrapper/CKoCriticalSection.h"

#include "pf/oswrapper/KoSyslog.h"
#include "pf/oswrapper/TKoOptional.h"
#include "pf/oswrapper/TKoStartupCaller.h"
#include "pf/platform/KoSyncRecord.h"

#include <cerrno>

static_assert(sizeof(CKoCriticalSection) == 8 && alignof(CKoCriticalSection) == 4,
              "callers reserve this much");
static_assert(sizeof(TKoOptional<CKoCriticalSection, 8, 4>) == 12, "a flag, then the section");

namespace
{

/// Sections are initialised at compile time. The one way in which creating them can fail is the kernel's and
/// the same for all, so it is looked at once.
void checkCreation()
{
    _sync mutex = {};
    const int error = KoPlatform::pthread_mutex_init(&mutex, nullptr);
    if (error != 0)
    {
        KoSyslog::logMsg(0, KoSyslog::Critical, "Failed to create CKoCriticalSection: error=%d", error);
    }
}

const TKoStartupCaller<checkCreation> sCheckAtLoad;

} // namespace

CKoCriticalSection::~CKoCriticalSection()
{
    const int error = KoPlatform::pthread_mutex_destroy(&m_mutex);
    if (error != 0)
    {
        KoSyslog::logMsg(0, KoSyslog::Critical, "Failed to destroy CKoCriticalSection: error=%d", error);
    }
}

bool CKoCriticalSection::isHeldByCaller() const noexcept
{
    // A thread that has never locked anything has no id yet.
    const unsigned int self = KoPlatform::sThreadIdentity.kernelId;
    return self != 0U && KoPlatform::isOwnedBy(m_mutex, self);
}

void CKoCriticalSection::lockContended() noexcept
{
    if (KoPlatform::sThreadIdentity.kernelId == 0U)
    {
        KoPlatform::loadKernelThreadId();
        lock();
        return;
    }
    // A timeout that the thread had armed for another call is gone with the first try and must not cost the
    // lock, nor must a new owner that the kernel has chosen but not yet let run.
    int error = ETIMEDOUT;
    while (error == ETIMEDOUT || error == EINVAL)
    {
        error = KoPlatform::SyncMutexLock_r(&m_mutex);
    }
}

void CKoCriticalSection::unlockContended() noexcept
{
    KoPlatform::SyncMutexUnlock_r(&m_mutex);
}

#pragma once

#include "pf/platform/KoPlatformTimeout.h"
#include "pf/platform/KoSyncRecord.h"
#include "pf/platform/KoThreadWait.h"

namespace KoPlatform
{

/// Holds a lock of the layer while it lives. The thread is not ended meanwhile, neither waiting for the lock
/// nor owning it, and an armed timeout stays armed.
class LayerLock
{
public:
    explicit LayerLock(_sync& mutex) noexcept
        : m_mutex(mutex)
    {
        lockMutexUntil(m_mutex, NO_DEADLINE);
    }
    ~LayerLock() { pthread_mutex_unlock(&m_mutex); }
    LayerLock(const LayerLock&) = delete;
    LayerLock& operator=(const LayerLock&) = delete;

private:
    const TerminationDeferral m_deferral;
    _sync& m_mutex;
};

} // namespace KoPlatform

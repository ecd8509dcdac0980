#pragma once

#include "pf/oswrapper/KoMutexAccess.h"

/// A mutex with time-outs, recursive if wanted, priority inheriting. CKoCriticalSection is smaller in code
/// and faster where neither is needed.
///
/// Owns one `_sync` record. Not copyable. Any thread may lock; the thread that locked unlocks. Memory order:
/// lock acquires what unlock released.
class CKoMutex
{
public:
    enum RecursionMode
    {
        RECURSIVE = 0,
        NON_RECURSIVE = 1
    };

    /// \param unlocked false makes the mutex the calling thread's at once.
    CKoMutex(bool unlocked, RecursionMode mode)
    {
        KoMutexAccess::create(m_mutex, unlocked, false, mode == RECURSIVE);
    }

    /// A mutex that is still locked is logged and reported as an assertion.
    ~CKoMutex() { KoMutexAccess::destroy(m_mutex); }

    CKoMutex(const CKoMutex&) = delete;
    CKoMutex& operator=(const CKoMutex&) = delete;

    /// Takes the mutex; see KoMutexAccess::lock for time-out and result.
    bool lock(int timeoutMs = -1) { return KoMutexAccess::lock(m_mutex, timeoutMs); }

    /// Gives the mutex back, or one of several locks of a recursive one. \return 0; `EPERM` when it is not
    /// the caller's.
    int unlock() { return KoPlatform::pthread_mutex_unlock(&m_mutex); }

private:
    friend class CKoWaitCondition;

    _sync m_mutex;
};

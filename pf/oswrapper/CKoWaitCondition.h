#pragma once

#include "pf/base/KoExport.h"
#include "pf/oswrapper/KoOSTypes.h"

class CKoCriticalSection;
class CKoMutex;

/// A condition variable on the monotonic clock, for waiting with a CKoMutex or a CKoCriticalSection.
///
///     while (!m_ready) { m_condition.wait(m_lock); }
///
/// Owns one `_sync` record. Not copyable. Any thread may call. All waiters of one object use the same lock at
/// a time.
class CKoWaitCondition
{
public:
    /// Ends the process with a fatal error if the condition cannot be created.
    KO_EXPORT CKoWaitCondition();

    /// A condition that threads still wait on is logged.
    KO_EXPORT ~CKoWaitCondition();

    CKoWaitCondition(const CKoWaitCondition&) = delete;
    CKoWaitCondition& operator=(const CKoWaitCondition&) = delete;

    /// Gives the caller's lock back, waits, and takes the lock again; see KoConditionVariableAccess::wait for
    /// time-out and result.
    KO_EXPORT bool wait(CKoMutex& mutex, int timeoutMs = -1);
    /// \overload
    KO_EXPORT bool wait(CKoCriticalSection& section, int timeoutMs = -1);

    /// Wakes one waiter, if there is one. \return 0. The caller need not hold the lock; signalling after
    /// unlocking saves the woken thread from waiting for it.
    KO_EXPORT int signal();
    /// Wakes all waiters. \return 0.
    KO_EXPORT int broadcast();

private:
    KoOSTypes::CONDVAR_HANDLE m_condition;
};

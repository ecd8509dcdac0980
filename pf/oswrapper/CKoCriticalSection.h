#pragma once

#include "pf/base/KoExport.h"
#include "pf/platform/KoPlatformSync.h"

/// The library's plain lock: not recursive, private to the process, priority inheriting, small enough to be a
/// member everywhere. Use it through TKoAutoLock; use CKoMutex for a recursive lock or one with time-outs.
///
///     TKoAutoLock<CKoCriticalSection> guard(m_lock);
///
/// Owns one `_sync` record (two words). Not copyable. Any thread may lock; the thread that locked unlocks. A
/// static object of this class is initialised at compile time and can be used by any constructor. One that
/// was destroyed is left free, so that a late user at process end still finds a working lock.
///
/// Memory order: lock acquires what the last unlock released.
///
/// Cost: without contention one compare-and-swap each, no call and no kernel entry. A thread that locks a
/// section it already holds is not blocked, and its first unlock releases the lock. A section whose owner
/// ended without unlocking is taken over by the next one.
class CKoCriticalSection
{
public:
    /// Creates a free section. A kernel that cannot block on sections is logged when the library is loaded;
    /// waiting then costs polling.
    constexpr CKoCriticalSection() noexcept
        : m_mutex{0U, 0U}
    {
    }

    /// A section that is still locked is logged.
    KO_EXPORT ~CKoCriticalSection();

    CKoCriticalSection(const CKoCriticalSection&) = delete;
    CKoCriticalSection& operator=(const CKoCriticalSection&) = delete;

    /// Waits without limit until the section is the caller's. Preserves `errno`.
    void lock() noexcept
    {
        if (__builtin_expect(!KoPlatform::takePrivateMutex(m_mutex), 0))
        {
            lockContended();
        }
    }

    /// Releases the section; nothing happens when it is not the caller's. Preserves `errno`.
    void unlock() noexcept
    {
        if (__builtin_expect(!KoPlatform::releasePrivateMutex(m_mutex), 0))
        {
            unlockContended();
        }
    }

    /// Whether the calling thread has locked the section: for code that both the owner and others reach.
    KO_EXPORT bool isHeldByCaller() const noexcept;

private:
    friend class CKoWaitCondition;

    KO_EXPORT void lockContended() noexcept;
    KO_EXPORT void unlockContended() noexcept;

    _sync m_mutex;
};

#pragma once

#include "pf/platform/KoPlatformTimeout.h"
#include "pf/platform/KoSyncRecord.h"
#include "pf/platform/KoThreadWait.h"

namespace KoPlatform
{

/// A lock of the channels' own: private to the process, held for short sections only, in which the thread
/// neither blocks nor ends. Constant-initialised. Leaves `errno` and the thread's armed timeout alone.
///
/// Order, where several are held: the registry's, a channel's, that of the receive ids.
class ChannelLock
{
public:
    constexpr ChannelLock() noexcept = default;
    ChannelLock(const ChannelLock&) = delete;
    ChannelLock& operator=(const ChannelLock&) = delete;

    void lock() noexcept
    {
        if (!takePrivateMutex(m_sync))
        {
            lockContended();
        }
    }

    void unlock() noexcept
    {
        if (!releasePrivateMutex(m_sync))
        {
            SyncMutexUnlock_r(&m_sync);
        }
    }

    /// In a forked child: free again, whoever held it.
    void startOver() noexcept { m_sync = _sync{0U, 0U}; }

private:
    void lockContended() noexcept
    {
        const TerminationDeferral deferral;
        kernelThreadSelf(); // the fast path knows only threads that were asked once
        lockMutexUntil(m_sync, NO_DEADLINE);
    }

    _sync m_sync{0U, 0U};
};

/// Holds a ChannelLock while it lives.
class ChannelLockGuard
{
public:
    explicit ChannelLockGuard(ChannelLock& lock) noexcept
        : m_lock(lock)
    {
        m_lock.lock();
    }
    ~ChannelLockGuard() { m_lock.unlock(); }
    ChannelLockGuard(const ChannelLockGuard&) = delete;
    ChannelLockGuard& operator=(const ChannelLockGuard&) = delete;

private:
    ChannelLock& m_lock;
};

} // namespace KoPlatform

#pragma once

/// Holds a lock for the length of a scope: the constructor locks, the destructor unlocks.
///
///     TKoAutoLock<CKoCriticalSection> guard(m_lock);
///
/// Keeps a pointer to the lock, which must live longer. Not copyable; one thread.
template <class Lock>
class TKoAutoLock
{
public:
    /// Waits until the lock is the caller's.
    explicit TKoAutoLock(Lock& lock)
        : m_lock(&lock)
    {
        m_lock->lock();
    }
    ~TKoAutoLock() { m_lock->unlock(); }

    TKoAutoLock(const TKoAutoLock&) = delete;
    TKoAutoLock& operator=(const TKoAutoLock&) = delete;

private:
    Lock* m_lock;
};

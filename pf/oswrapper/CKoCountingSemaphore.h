#pragma once

#include "pf/oswrapper/KoSemaphoreAccess.h"

/// A semaphore that holds up to a given number of units; giving more does nothing. CKoBinarySemaphore holds
/// one.
///
///     if (semaphore.lock(100)) { work(); semaphore.unlock(); }
///
/// Owns one record of 32 bytes. Not copyable. Any thread may take and give units, whoever took them. What it
/// promises when a process is killed, and what it costs, is told at KoSemaphoreAccess.
class CKoCountingSemaphore
{
public:
    /// \param initial the first number of units, clamped to 0 and `maximum`. \param maximum at least 1.
    /// \param shared makes it usable across processes when the object lies in shared memory. A failure is
    /// logged and reported as an assertion; every call fails with `EINVAL` then.
    CKoCountingSemaphore(int initial, int maximum, bool shared = false)
        : m_handle(KoOSTypes::sInvalidSemHandle)
    {
        KoSemaphoreAccess::create(m_handle, initial, maximum, shared);
    }

    /// Nobody may use the semaphore any more. One that another thread is inside of is logged.
    ~CKoCountingSemaphore() { KoSemaphoreAccess::destroy(m_handle); }

    CKoCountingSemaphore(const CKoCountingSemaphore&) = delete;
    CKoCountingSemaphore& operator=(const CKoCountingSemaphore&) = delete;

    /// Takes a unit; see KoSemaphoreAccess::lock for time-out, result and last error.
    bool lock(int timeoutMs = -1) { return KoSemaphoreAccess::lock(m_handle, timeoutMs); }

    /// Gives a unit; see KoSemaphoreAccess::unlock.
    int unlock() { return KoSemaphoreAccess::unlock(m_handle); }

private:
    KoOSTypes::SEMHANDLE m_handle;
};

#pragma once

#include "pf/oswrapper/KoSemaphoreAccess.h"

/// A semaphore that holds one unit or none: giving a second one does nothing. CKoCountingSemaphore holds
/// more.
///
///     if (semaphore.lock(100)) { work(); semaphore.unlock(); }
///
/// Owns one record of 32 bytes. Not copyable. Any thread may take and give units, whoever took them. What it
/// promises when a process is killed, and what it costs, is told at KoSemaphoreAccess.
class CKoBinarySemaphore
{
public:
    /// \param signalled whether the unit is there at first. \param shared makes it usable across processes
    /// when the object lies in shared memory. A failure is logged and reported as an assertion; every call
    /// fails with `EINVAL` then.
    explicit CKoBinarySemaphore(bool signalled, bool shared = false)
        : m_handle(KoOSTypes::sInvalidSemHandle)
    {
        KoSemaphoreAccess::create(m_handle, signalled ? 1 : 0, 1, shared);
    }

    /// Nobody may use the semaphore any more. One that another thread is inside of is logged.
    ~CKoBinarySemaphore() { KoSemaphoreAccess::destroy(m_handle); }

    CKoBinarySemaphore(const CKoBinarySemaphore&) = delete;
    CKoBinarySemaphore& operator=(const CKoBinarySemaphore&) = delete;

    /// Takes a unit; see KoSemaphoreAccess::lock for time-out, result and last error.
    bool lock(int timeoutMs = -1) { return KoSemaphoreAccess::lock(m_handle, timeoutMs); }

    /// Gives a unit; see KoSemaphoreAccess::unlock.
    int unlock() { return KoSemaphoreAccess::unlock(m_handle); }

private:
    KoOSTypes::SEMHANDLE m_handle;
};

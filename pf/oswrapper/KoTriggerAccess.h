#pragma once

#include "pf/base/KoExport.h"
#include "pf/oswrapper/KoOSTypes.h"

/// A trigger: a wake-up signal between threads of one process that is either set or not. Signalling it twice
/// leaves it set once; a waiter that consumes the signal clears it. It is a platform semaphore that is posted
/// only while it is zero.
///
/// Two threads that signal at the same moment may leave two units: take a signal to mean that at least one
/// came. Any thread may call; a trigger must not be destroyed while others wait for it. Operations on a
/// trigger that was not created fail with `EINVAL`.
namespace KoTriggerAccess
{

/// Creates a trigger that is not set. \return whether that worked.
KO_EXPORT bool create(KoOSTypes::TRIGGER_HANDLE& h);

/// Destroys it and leaves the handle invalid. \return 0, or -1 with the reason in the last error: `EBUSY`
/// while threads wait for it (it stays usable then).
KO_EXPORT int destroy(KoOSTypes::TRIGGER_HANDLE& h);

/// Sets the trigger unless it is set. \return whether it is.
KO_EXPORT bool signal(KoOSTypes::TRIGGER_HANDLE& h);

/// Consumes the signal if there is one. \return 1 when it did, 0 when the trigger is not set, -1 on failure.
KO_EXPORT int tryWait(KoOSTypes::TRIGGER_HANDLE& h);

/// Waits without limit for a signal and consumes it; interruptions are absorbed. \return whether it did.
KO_EXPORT bool wait(KoOSTypes::TRIGGER_HANDLE& h);

/// Waits at most so many milliseconds (-1 and below: without limit) for a signal and consumes it. \return
/// whether it did; false when the time ran out. Any other outcome, an interruption by a signal handler
/// included, is reported as an assertion and gives false.
KO_EXPORT bool wait(KoOSTypes::TRIGGER_HANDLE& h, int timeoutMs);

} // namespace KoTriggerAccess

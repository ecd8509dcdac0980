#pragma once

#include "pf/base/KoExport.h"
#include "pf/platform/KoPlatformSync.h"

/// Creation of and waiting on a bare platform condition variable on the monotonic clock. CKoWaitCondition is
/// the class that owns one; signal with `KoPlatform::pthread_cond_signal`. Any thread may call.
namespace KoConditionVariableAccess
{

/// Creates the condition variable. \return false, with the reason logged and in `errno`, when that failed.
KO_EXPORT bool create(_sync& cond);

/// Gives the caller's mutex back, waits to be woken, and takes the mutex again. Wake-ups may be nobody's:
/// test what is waited for. \param timeoutMs -1 waits without limit; others wait at most so many milliseconds
/// on the monotonic clock; below -1 fails at once with `EINVAL`, the mutex held. \return true after a wake-up
/// (`errno` is 0) and when a time-out other than 0 ran out (`errno` is `ETIMEDOUT`); false when a time-out of
/// 0 ran out, and on any other failure, with the reason in `errno`. The mutex is the caller's afterwards.
KO_EXPORT bool wait(_sync& cond, _sync& mutex, int timeoutMs);

} // namespace KoConditionVariableAccess

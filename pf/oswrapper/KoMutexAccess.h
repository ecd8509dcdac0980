#pragma once

#include "pf/base/KoExport.h"
#include "pf/platform/KoPlatformSync.h"

/// Creation, locking with a time-out, and destruction of a bare platform mutex, with uniform failure logging.
/// CKoMutex is the class that owns one; unlock with `KoPlatform::pthread_mutex_unlock`. Any thread may call;
/// `errno` is preserved.
namespace KoMutexAccess
{

/// Creates the mutex; failing steps are logged, and a mutex that could not be created is reported as an
/// assertion. \param unlocked false makes it the calling thread's at once. \param shared makes it usable
/// across processes when it lies in shared memory. \param recursive lets the owner lock it again.
KO_EXPORT void create(_sync& m, bool unlocked, bool shared, bool recursive);

/// Takes the mutex.
/// \param timeoutMs -1 waits without limit, 0 tries once, any other positive value waits at most so many
/// milliseconds on the monotonic clock; below -1 fails at once. \return true when the mutex is the caller's.
/// A thread that owns a mutex that is not recursive gets false at once.
KO_EXPORT bool lock(_sync& m, int timeoutMs);

/// Destroys the mutex. One that is locked stays as it is; that is logged and reported as an assertion.
KO_EXPORT void destroy(_sync& m);

} // namespace KoMutexAccess

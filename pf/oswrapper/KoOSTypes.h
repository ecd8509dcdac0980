#pragma once

#include "pf/base/KoExport.h"
#include "pf/platform/KoPlatformSync.h"

/// The handle types of the synchronisation wrappers, with their invalid values, and the modes of a
/// signal-mask change. All invalid values are all zero.
namespace KoOSTypes
{

/// A counting semaphore built from a mutex and a condition variable; may lie in memory that processes share.
struct SEMHANDLE
{
    int valid;            ///< 1 after creation, 0 before it and after destruction
    _sync lock;           ///< guards the three counters
    _sync condition;      ///< waited on while the count is 0
    unsigned int count;   ///< current value, at most `maximum`
    unsigned int maximum; ///< posts beyond it are dropped
    unsigned int waiters; ///< threads inside the condition wait
};

/// A semaphore of the platform, created and used by KoTriggerAccess.
using TRIGGER_HANDLE = _sync;

/// A condition variable of the platform.
using CONDVAR_HANDLE = _sync;

KO_EXPORT extern const SEMHANDLE sInvalidSemHandle;
KO_EXPORT extern const TRIGGER_HANDLE sInvalidTriggerHandle;
KO_EXPORT extern const CONDVAR_HANDLE sInvalidCondVarHandle;

/// What to do with the given signals; the numbers are the platform's.
enum SignalMaskMode
{
    BLOCK_SIGNALS = 0,   ///< add them to the mask
    UNBLOCK_SIGNALS = 1, ///< remove them from the mask
    SET_SIGNALS = 2      ///< make them the mask
};

} // namespace KoOSTypes

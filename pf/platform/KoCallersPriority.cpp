#include "pf/platform/KoCallersPriority.h"

#include "pf/platform/KoLayerLock.h"
#include "pf/platform/KoThreadRecord.h"

namespace
{

/// Of threads beyond those that the table has room for: what a thread has that nobody gave a priority.
constexpr int USUAL_PRIORITY = 10;

} // namespace

namespace KoPlatform
{

int callersPriority() noexcept
{
    ThreadRecord* record = callersRecord();
    if (record == nullptr)
    {
        return USUAL_PRIORITY;
    }
    // Without the lock: most messages are sent by threads whose priority is known.
    const int known = __atomic_load_n(&record->priority, __ATOMIC_RELAXED);
    if (known != 0)
    {
        return known;
    }
    const LayerLock lock(sThreadTableLock);
    return priorityOf(*record);
}

} // namespace KoPlatform

#pragma once

#include "pf/base/KoExport.h"

/// Clocks of the processor time that a thread or a process has used. Their ids are read with ClockTime
/// (KoPlatformClock.h), in nanoseconds, as long as the thread or process is there. Any thread may call any
/// function.
namespace KoPlatform
{

/// The clock of a thread. One that was just created is waited for until it begins.
/// \param pid the calling process, or 0 for it; another is refused.
/// \param tid a thread's number, 0 for the calling one.
/// \return the clock's id, or -1 with `errno`: another process (`EINVAL`); no such thread, or it has
/// ended (`ESRCH`).
KO_EXPORT int ClockId(int pid, int tid);

/// The clock of a process.
/// \param pid a process's id, 0 for the calling one.
/// \return 0, or an error number: no such process (`ESRCH`), or none whose clock may be read (`EPERM`).
KO_EXPORT int clock_getcpuclockid(int pid, int* clockId);

} // namespace KoPlatform

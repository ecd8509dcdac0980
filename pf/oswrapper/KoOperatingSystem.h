#pragma once

#include "pf/base/KoExport.h"
#include "pf/oswrapper/KoOSTypes.h"

#include <cstdarg>

template <class T>
class TKoVector;

/// The operating system's services other than locks, channels and timers: last error, clocks, deadlines,
/// sleeping, child processes, signal masks, clipped formatting.
///
/// Public time-outs are signed milliseconds; -1 waits without limit. Monotonic time is nanoseconds since
/// system start, never 0. A deadline is an absolute monotonic time; all bits set means none, 0 that it could
/// not be computed. Any thread may call any function. Failures are told by the result, with the reason in the
/// last error; interruptions by signals are never seen.
namespace KoOperatingSystem
{

/// The calling thread's last error number (`errno`).
KO_EXPORT int getLastError();
/// Stores into the calling thread's last error number.
KO_EXPORT void setLastError(int error);

/// The process id.
KO_EXPORT int getCurrentPID();
/// The calling thread's number within the process; 1 for the main thread.
KO_EXPORT int getCurrentTID();

/// Does nothing: there is no way to wait for a debugger here.
KO_EXPORT void waitAttachDebugger();

/// Sleeps that many milliseconds, never less, measured against one deadline however many signals come.
KO_EXPORT void sleepMs(unsigned int ms);

/// Wall-clock milliseconds since 1970, the low 32 bits (wraps every 49.7 days).
KO_EXPORT unsigned int getRealTimeMs();

/// Nanoseconds since system start.
KO_EXPORT unsigned long long getSysPageTime();

/// Nanoseconds of a clock: 2 is the monotonic clock, 0 the wall clock, others as the host numbers them.
/// \return never 0 for a clock that can be read; 0 on failure.
KO_EXPORT unsigned long long getClockValue(int clockId);

/// Monotonic nanoseconds. Preserves `errno`. A clock that cannot be read is reported as an assertion and
/// gives 0. \param out receives the value too; may be null.
KO_EXPORT unsigned long long getMonotonicTime(unsigned long long* out);

/// The monotonic time at which the library was loaded (or asked first, if that was earlier). Never changes.
/// \param out receives the value too; may be null.
KO_EXPORT unsigned long long getMonotonicBias(unsigned long long* out);

/// Nanoseconds from `earlier` until now. A time in the future is reported as an assertion and gives 0.
KO_EXPORT unsigned long long timeDiffMonotonic(unsigned long long earlier);

/// The deadline that many milliseconds from now; all bits set (none) for a negative count, 0 if the clock
/// cannot be read.
KO_EXPORT unsigned long long calculateKernelTimeout(int ms);

/// Arms a limit for the calling thread's next kernel call that blocks in one of the states (see
/// KoPlatformTimeout.h). \return whether it is armed; if not, the reason is in the last error.
KO_EXPORT bool setKernelTimeout(unsigned long long deadline, int states);
/// Cancels an armed limit.
KO_EXPORT bool resetKernelTimeout();

/// Formats into a buffer of `size` bytes; text that does not fit is cut, the terminating zero always fits.
/// \return the characters stored. 0 without touching anything for size 0; a null buffer with a size is
/// reported as an assertion and gives 0. A text that cannot be formatted gives 0 and the empty text.
KO_EXPORT int vsnprintf(char* buffer, int size, const char* format, va_list args) KO_PRINTF(3, 0);

/// Starts "./" + program as a child process and does not wait for it.
/// \param arguments words separated by blanks, at most 14 (further text is dropped); null or empty for none.
/// A run of blanks at the end yields one empty word. \return the child's process id, to be given to
/// joinProcess or waitForProcesses; -1 when it could not be started. Arguments that do not fit into the free
/// stack are reported as an assertion.
KO_EXPORT int spawnProcess(const char* program, const char* arguments);

/// Waits for a child to end and reaps it.
/// \return its exit code as a signed 8-bit value, or the number of the signal that ended it; -1 when there is
/// no such child.
KO_EXPORT int joinProcess(int pid);

/// Reaps children, those of others included, and logs each, until all of the given ones have ended or no
/// child is left; `pids` is empty then. \return 0 when the list was empty already (nothing is waited for),
/// otherwise -1.
KO_EXPORT int waitForProcesses(TKoVector<int>& pids);

/// Changes the calling thread's signal mask.
/// \param signals `count` signal numbers.
/// \param previousSignals receives the members of the old mask in ascending order, room for 64; may be null.
/// \return the number of members written, 0 without `previousSignals`; -1 on failure, the mask unchanged.
KO_EXPORT int setSignalMask(const int* signals, unsigned int count, int* previousSignals,
                            KoOSTypes::SignalMaskMode mode);

} // namespace KoOperatingSystem

/// Arms (or, with `flags` 0, cancels) the calling thread's kernel timeout on the monotonic clock: the one
/// place that does so. \param time nanoseconds; \param flags blocking states and the flag for absolute times
/// (KoPlatformTimeout.h). \return whether that worked; if not, the reason is in the last error.
KO_EXPORT bool setKernelTimer(unsigned long long time, int flags);

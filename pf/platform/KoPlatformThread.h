#pragma once

#include "pf/base/KoExport.h"

#include <sys/single_threaded.h>

/// Threads, under the kernel's call names, and the identities of the calling one: the kernel's id, which
/// owner words of locks carry, and a small number that is unique within the process. Both are cached per
/// thread, so that asking costs one load; a forked child drops the cached values and starts over with its one
/// thread.
///
/// Results are -1 with the reason in `errno` on failure, unless a function says otherwise. Any thread may
/// call any function.
namespace KoPlatform
{

/// What is cached per thread; 0 means not known yet. Read it through the functions below.
struct SThreadIdentity
{
    unsigned int kernelId; ///< the kernel's thread id
    int threadId;          ///< the number within the process
};

extern __thread SThreadIdentity sThreadIdentity
    __attribute__((visibility("default"), tls_model("initial-exec")));

/// Slow halves of the two functions below: ask the kernel or the table, and fill the cache. They preserve
/// `errno`.
KO_EXPORT unsigned int loadKernelThreadId();
KO_EXPORT int loadThreadId();

/// The kernel's id of the calling thread. Never 0. Any thread; enters the kernel once per thread.
inline unsigned int kernelThreadSelf()
{
    const unsigned int id = sThreadIdentity.kernelId;
    return id != 0U ? id : loadKernelThreadId();
}

/// Whether the process certainly has one thread only, so that private words need no atomic exchange. One
/// load.
inline bool isSingleThreaded()
{
    return __libc_single_threaded != 0;
}

/// The calling thread's number within the process: 1 for the main thread, for every other the lowest number
/// that was free when it was started by ThreadCreate or first asked. The number is given back when the thread
/// ends, that of a joinable one when it is joined, and may then be used again. Any thread, at any time after
/// the program was started, also before the library's constructors ran.
inline int threadSelf()
{
    const int id = sThreadIdentity.threadId;
    return id != 0 ? id : loadThreadId();
}

/// Scheduling parameters of a thread.
struct SSchedParam
{
    int sched_priority; ///< 1 (lowest) to 99
};

/// How a thread is to be started. All zero: joinable, with a stack of the host's choice and the creator's
/// priority.
struct SThreadAttributes
{
    unsigned int flags; ///< of ThreadFlags
    int stackSize;      ///< bytes; 0 for the host's choice; less than STACK_SIZE_MIN is raised to that
    SSchedParam param;  ///< for THREAD_EXPLICIT_SCHED
};

enum ThreadFlags : unsigned int
{
    THREAD_DETACHED = 0x1U,      ///< nobody joins it; otherwise it has to be joined once
    THREAD_EXPLICIT_SCHED = 0x2U ///< it gets the priority of `param` before its routine runs
};

/// What every thread's stack holds at least: enough for reporting an assertion with its backtrace, also in
/// builds with sanitizers, whose frames are larger.
constexpr int STACK_SIZE_MIN = 256 * 1024;

/// Starts a thread that runs `routine(argument)` and then ends with the result as its exit value.
/// \param pid the calling process, or 0 for it.
/// \param attributes null for all zero. A priority out of range is ignored.
/// \return the thread's number. `EINVAL`: another process, no routine, a negative stack size; `EAGAIN`,
/// `ENOMEM`: the host has no room for another thread, and nothing remains of the attempt.
KO_EXPORT int ThreadCreate(int pid, void* (*routine)(void*), void* argument,
                           const SThreadAttributes* attributes);

/// Waits until a thread of ThreadCreate has ended and lets its number go. Takes an armed timeout for the join
/// state. \param status receives the exit value; may be null; untouched on failure.
/// \return 0 or an error number, `errno` untouched: `ESRCH` no such thread; `EINVAL` detached, or not started
/// by ThreadCreate; `EDEADLK` the calling thread; `EBUSY` another thread joins it already; `ETIMEDOUT`: it
/// can be joined again. Interruptions by signals are never seen.
KO_EXPORT int ThreadJoin_r(int tid, void** status);

/// Ends a thread with this exit value: the calling one (its number, or 0) at once, any other when it waits in
/// a call of this layer, or when it next does. Waits for locks end within 100 ms. No frame of its body is
/// unwound, no destructor there runs; destructors of thread-local objects do. Locks that it owns are taken
/// over as those of a dead owner. Threads that ThreadCreate did not start are ended by the kernel: without
/// the destructors of their thread-local objects, and a stack that the host gives back when the thread is
/// joined is lost when it is detached. Returns without waiting for the thread's end. \param priority not
/// offered, must be -1. \return 0; `ESRCH` no such thread, or its body is over; `EINVAL`.
KO_EXPORT int ThreadDestroy(int tid, int priority, void* status);

/// Reads a thread's scheduling parameters: the priority that it was given or inherited.
/// \param pid the calling process, or 0 for it. \param tid a thread's number, 0 for the calling one.
/// \return the host's number of its policy; -1: `ESRCH` no such thread, `EINVAL` another process.
KO_EXPORT int SchedGet(int pid, int tid, SSchedParam* param);

/// Gives a thread a priority. Under a real-time policy the host gets the priority itself; under any other the
/// nearest nice value, priority 10 being 0. That the host refuses it is ignored: the priority is recorded.
/// \param policy SCHED_POLICY_UNCHANGED, any other is `EINVAL`, as is a priority outside 1 to 99.
/// \return 0; else as SchedGet.
KO_EXPORT int SchedSet(int pid, int tid, int policy, const SSchedParam* param);

constexpr int SCHED_POLICY_UNCHANGED = 0;

/// The calling thread's scheduling parameters. \param pid the calling process, or 0 for it.
/// \return 0; `EINVAL` for another process.
KO_EXPORT int sched_getparam(int pid, SSchedParam* param);

/// Names a thread for the host's tools, which show the first 15 bytes. \param name up to 99 bytes.
/// \return 0 or an error number: `ESRCH` no such thread, `EINVAL` no name, `E2BIG` too long.
KO_EXPORT int pthread_setname_np(int tid, const char* name);

/// Whether the process was forked off one that used the functions above.
bool isForkedChild();

/// Sets what a forked child calls, in its one thread, once the numbers start over; null for nothing. One for
/// all.
void setForkChildHook(void (*hook)());

} // namespace KoPlatform

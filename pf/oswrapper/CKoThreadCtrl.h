#pragma once

#include "pf/base/KoExport.h"

/// Starts, joins, ends and schedules the threads of the process, which are known by small numbers from 1.
///
///     const int tid = CKoThreadCtrl::startThread(worker, false, CKoThreadCtrl::PRIORITY_NORMAL,
///                                                CKoThreadCtrl::DEFAULTSTACKSIZE);
///     CKoThreadCtrl::join(tid, -1);
///
/// Static members only; any thread may call them. Nothing is logged: failures are told by the results, and
/// interruptions by signals are never seen.
class CKoThreadCtrl
{
public:
    /// Scheduling priorities; a higher one runs first.
    KO_EXPORT static const int PRIORITY_LOWEST = 1;
    KO_EXPORT static const int PRIORITY_BELOW_NORMAL = 6;
    KO_EXPORT static const int PRIORITY_NORMAL = 10;
    KO_EXPORT static const int PRIORITY_ABOVE_NORMAL = 30;
    KO_EXPORT static const int PRIORITY_HIGHEST = 63; ///< the highest of an ordinary process
    KO_EXPORT static const int DEFAULTPRIORITY = 10;
    /// Keeps the priority of the starting thread.
    KO_EXPORT static const int INHERITPRIORITY = -1;
    /// Bytes. Less than the host needs is raised (STACK_SIZE_MIN of KoPlatformThread.h).
    KO_EXPORT static const int DEFAULTSTACKSIZE = 32768;

    /// What a thread runs. Not owned by the thread: it has to live until the thread has ended.
    class KO_EXPORT IRunnable
    {
    public:
        virtual ~IRunnable();

        /// The thread's whole body. An exception that leaves it ends the process.
        virtual void run() = 0;
    };

    /// Starts a thread that runs `runnable` and ends with exit status 0.
    /// \param detached whether nobody will join it; a joinable thread has to be joined once.
    /// \param priority or INHERITPRIORITY; one out of range is ignored. \param stackSize bytes; 0 lets the
    /// host choose. \return the thread's number; 0 when it could not be started, and nothing is left behind.
    KO_EXPORT static int startThread(IRunnable& runnable, bool detached, int priority, int stackSize);

    /// Waits until a thread has ended and lets its number go.
    /// \param timeoutMs no limit when it is not positive: 0 does not mean to try.
    /// \return the exit status; -2 when the time has passed (the thread can be joined again); -1 when there
    /// is no such thread, it is detached, the caller's own, or joined by another one.
    KO_EXPORT static int join(int tid, int timeoutMs);

    /// Ends a thread with exit status 0 when it waits in a call of the library, or when it next does: a
    /// request that is not waited for. Nothing of its runnable is cleaned up: no destructor of an object on
    /// its stack runs, locks that it holds go to the next as those of a dead owner. See ThreadDestroy in
    /// KoPlatformThread.h. \return 0, or -1 when there is no such thread.
    KO_EXPORT static int terminate(int tid);
    /// Ends the calling thread likewise, at once.
    [[noreturn]] KO_EXPORT static void terminate();

    /// The priority that a thread was given or inherited, or -1 when there is no such thread.
    KO_EXPORT static int getPriority(int tid);
    /// Changes a thread's priority. What the host does not permit, or a priority out of range, is ignored.
    /// \return the previous one, or -1 when there is no such thread.
    KO_EXPORT static int setPriority(int tid, int priority);

    /// Names a thread for debuggers and tools, which may show less of it. \return whether the host took it.
    KO_EXPORT static bool setThreadName(int tid, const char* name);

    /// The calling thread's number.
    KO_EXPORT static int getCurrentThreadId();
};

#pragma once

#include "pf/base/KoExport.h"

#include <csignal>
#include <cstddef>

/// What the library asks of the process it lives in: its arguments, the free stack of the calling thread,
/// starting a program, and the signal mask.
namespace KoPlatform
{

/// Number of the process's arguments, the program's name included. 0 when they cannot be read.
/// The arguments are read once, by the first caller, without the heap; any thread, at any time after the
/// program was started, also before any constructor ran. Preserves `errno`.
KO_EXPORT int argumentCount();

/// The process's arguments, closed with a null entry; a private copy that lives as long as the process.
/// Never null. Same rules as argumentCount.
KO_EXPORT char** argumentVector();

/// From now on the process counts as one without arguments, for whoever asks for their number: they turned
/// out to be damaged. Texts handed out before stay. Any thread may call.
KO_EXPORT void dropArguments();

/// Bytes of stack that the calling thread has left below the caller's frame; 0 when they cannot be found out.
KO_EXPORT std::size_t stackAvailable();

/// Modes of spawnvp, with the kernel's numbers.
enum SpawnMode
{
    SPAWN_WAIT = 0,   ///< not offered
    SPAWN_NO_WAIT = 1 ///< the caller goes on as soon as the program has started
};

/// Starts a program as a child process with the caller's environment and signal mask.
/// Waits until the program has replaced the child's image, so that a program that cannot be started is told
/// here. \param mode SPAWN_NO_WAIT. \param path of the program; never searched for. \param arguments the
/// argument vector, closed with a null entry. \return the child's process id, to be reaped by the caller; -1
/// with `errno` when the program cannot be started (no child is left then), and with `EINVAL` for any other
/// mode.
KO_EXPORT int spawnvp(int mode, const char* path, char* const* arguments);

/// The option for waiting for children that ended: the kernel's call asks for nothing else by default.
enum WaitOption
{
    WAIT_EXITED = 0
};

/// Changes the signal mask of a thread.
/// \param pid 0, the calling process; \param tid 0, the calling thread; others are refused with `EINVAL`.
/// \param how 0 adds the set, 1 removes it, 2 makes it the mask.
/// \param set null leaves the mask as it is; \param oldSet receives the mask from before; may be null.
/// \return 0, or -1 with `errno`.
KO_EXPORT int SignalProcmask(int pid, int tid, int how, const sigset_t* set, sigset_t* oldSet);

/// The same, but returns the error number and leaves `errno` alone.
KO_EXPORT int SignalProcmask_r(int pid, int tid, int how, const sigset_t* set, sigset_t* oldSet);

} // namespace KoPlatform

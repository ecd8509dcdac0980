#pragma once

#include "pf/base/KoExport.h"

#include <sys/single_threaded.h>

/// Identities of the calling thread: the kernel's id, which owner words of locks carry, and a small number
/// that is unique within the process. Both are cached per thread, so that asking costs one load; a forked
/// child drops the cached values and starts over with its one thread.
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
/// that was free when it first asked. The number is given back when the thread ends and may then be used
/// again. Any thread, at any time after the program was started, also before the library's constructors ran.
inline int threadSelf()
{
    const int id = sThreadIdentity.threadId;
    return id != 0 ? id : loadThreadId();
}

/// Whether the process was forked off one that used the functions above.
bool isForkedChild();

} // namespace KoPlatform

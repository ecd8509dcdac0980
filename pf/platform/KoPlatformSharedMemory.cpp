#include "pf/platform/KoPlatformSharedMemory.h"

#include "pf/oswrapper/KoErrnoGuard.h"
#include "pf/platform/KoFailure.h"
#include "pf/platform/KoFileLimit.h"
#include "pf/platform/KoPlatformClock.h"
#include "pf/platform/KoPlatformRetry.h"
#include "pf/platform/KoSharedMemoryDraft.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

using KoPlatform::failWith;
using KoPlatform::repeatInterrupted;

/// Memory is set aside in steps, because a signal undoes the step that it interrupts. A step takes
/// microseconds: less than the time between two signals also where they come often and the machine is slow.
constexpr off_t RESERVE_STEP = off_t(64) << 10U;
static_assert(sizeof(off_t) == 8, "sizes up to 4 GiB");

/// How long a mark waits for somebody who has claimed the object, which takes microseconds unless that
/// process is stopped.
constexpr unsigned long long CLAIM_PATIENCE_NS = 1000000000ULL;

/// Sets memory aside without changing the size. A file system that cannot do so is taken as it is.
bool reserve(int descriptor, off_t size)
{
    for (off_t offset = 0; offset < size; offset += RESERVE_STEP)
    {
        const off_t step = std::min(RESERVE_STEP, size - offset);
        if (repeatInterrupted([=] { return ::fallocate(descriptor, FALLOC_FL_KEEP_SIZE, offset, step); }) !=
            0)
        {
            return errno == EOPNOTSUPP;
        }
    }
    return true;
}

int truncate(int descriptor, off_t size)
{
    return repeatInterrupted([=] { return ::ftruncate(descriptor, size); });
}

/// Takes the lock of the whole object without waiting. It belongs to the open file, which lives as long as
/// the last descriptor and the last mapping of it.
int lock(int descriptor, int kind)
{
    return repeatInterrupted([=] { return ::flock(descriptor, kind | LOCK_NB); });
}

/// Whether the name still leads to the open object.
bool isNamed(const KoPlatform::SharedMemoryPath& path, int descriptor)
{
    struct stat named;
    struct stat opened;
    return ::lstat(path.c_str(), &named) == 0 && ::fstat(descriptor, &opened) == 0 &&
           named.st_dev == opened.st_dev && named.st_ino == opened.st_ino;
}

/// Claims the open object; on failure closes it.
int claim(const KoPlatform::SharedMemoryPath& path, int descriptor)
{
    int error = 0;
    if (lock(descriptor, LOCK_EX) != 0)
    {
        error = errno == EWOULDBLOCK ? EBUSY : errno;
    }
    else if (!isNamed(path, descriptor))
    {
        error = ENOENT;
    }
    if (error == 0)
    {
        return descriptor;
    }
    ::close(descriptor);
    return failWith(error);
}

} // namespace

namespace KoPlatform
{

int shm_open(const char* name)
{
    SharedMemoryPath path;
    return path.set(name) ? openSharedMemory(path.c_str(), 0, 0) : -1;
}

int shm_unlink(const char* name)
{
    SharedMemoryPath path;
    return path.set(name) ? ::unlink(path.c_str()) : -1;
}

int shm_resize(int descriptor, unsigned int size)
{
    struct stat status;
    if (::fstat(descriptor, &status) != 0)
    {
        return -1;
    }
    const off_t wanted = static_cast<off_t>(size);
    if (wanted > status.st_size && !isWithinFileLimit(wanted))
    {
        return failWith(EFBIG);
    }
    if (!reserve(descriptor, wanted))
    {
        const KoErrnoGuard guard;
        // Gives back what the steps before had set aside.
        truncate(descriptor, status.st_size);
        return -1;
    }
    return truncate(descriptor, wanted);
}

int shm_size(int descriptor, unsigned long long& size)
{
    struct stat status;
    if (::fstat(descriptor, &status) != 0)
    {
        return -1;
    }
    size = S_ISREG(status.st_mode) ? static_cast<unsigned long long>(status.st_size) : ~0ULL;
    return 0;
}

SharedMemoryResult shm_make(const char* name, mode_t mode, unsigned int size, const unsigned int* firstWord,
                            int& descriptor)
{
    descriptor = -1;
    SharedMemoryPath path;
    SharedMemoryDraft draft;
    struct stat status;
    if (!path.set(name))
    {
        return SharedMemoryResult::REFUSED;
    }
    if (::lstat(path.c_str(), &status) == 0)
    {
        errno = EEXIST;
        return SharedMemoryResult::EXISTS;
    }
    if (!draft.create(mode))
    {
        return SharedMemoryResult::REFUSED;
    }
    if (shm_resize(draft.descriptor(), size) != 0 || !draft.begin(firstWord))
    {
        return SharedMemoryResult::UNSIZED;
    }
    if (!draft.publish(path))
    {
        return errno == EEXIST ? SharedMemoryResult::EXISTS : SharedMemoryResult::REFUSED;
    }
    descriptor = draft.take();
    return SharedMemoryResult::MADE;
}

int shm_mark(int descriptor)
{
    const unsigned long long deadline = monotonicNow() + CLAIM_PATIENCE_NS;
    while (lock(descriptor, LOCK_SH) != 0)
    {
        if (errno != EWOULDBLOCK)
        {
            return -1;
        }
        if (monotonicNow() >= deadline)
        {
            return failWith(EBUSY);
        }
        delay(1U);
    }
    return 0;
}

int shm_claim(const char* name)
{
    SharedMemoryPath path;
    if (!path.set(name))
    {
        return -1;
    }
    const int descriptor = openSharedMemory(path.c_str(), 0, 0);
    return descriptor != -1 ? claim(path, descriptor) : -1;
}

} // namespace KoPlatform

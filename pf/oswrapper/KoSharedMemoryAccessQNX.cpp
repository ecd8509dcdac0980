#include "pf/oswrapper/KoSharedMemoryAccess.h"

#include "pf/platform/KoFailure.h"
#include "pf/platform/KoPlatformClose.h"
#include "pf/platform/KoPlatformSharedMemory.h"

#include <sys/mman.h>
#include <unistd.h>

static_assert(sizeof(KoSharedMemoryAccess::SKoErrnoSafe) == sizeof(int), "one saved error number");

namespace
{

using namespace KoSharedMemoryAccess;

constexpr unsigned int LOW_BYTE = 0xFFU;
constexpr mode_t PERMISSIONS = 0777;

/// An object can come and go between two looks at it; who hits that many times in a row is out of luck.
constexpr int TRIES = 1000;

int make(const char* name, unsigned int size)
{
    int descriptor = -1;
    KoPlatform::shm_make(name, PERMISSIONS, size, nullptr, descriptor);
    return descriptor;
}

/// Opens an object that exists, and sets its size if wanted.
int openExisting(const char* name, unsigned int size, bool setsSize)
{
    const int descriptor = KoPlatform::shm_open(name);
    if (descriptor == -1 || !setsSize || KoPlatform::shm_resize(descriptor, size) == 0)
    {
        return descriptor;
    }
    const SKoErrnoSafe guard;
    KoSharedMemoryAccess::close(descriptor);
    return -1;
}

/// Opens before it creates: an object of another user can be opened where it cannot be created over.
int openOrMake(const char* name, unsigned int size, bool setsSize)
{
    for (int tries = 0; tries < TRIES; ++tries)
    {
        int descriptor = openExisting(name, size, setsSize);
        if (descriptor != -1 || errno != ENOENT)
        {
            return descriptor;
        }
        descriptor = make(name, setsSize ? size : 0U);
        if (descriptor != -1 || errno != EEXIST)
        {
            return descriptor;
        }
    }
    return -1;
}

/// The protection of the low byte; -1 when there is none.
int protectionOf(unsigned int flags)
{
    switch (flags & LOW_BYTE)
    {
    case MAP_READ_ONLY:
        return PROT_READ;
    case MAP_WRITE_ONLY:
        return PROT_WRITE;
    case MAP_READ_WRITE:
        return PROT_READ | PROT_WRITE;
    default:
        return -1;
    }
}

/// Whether every page up to `end` has at least its beginning in the object; false with `errno`.
bool isWithin(int descriptor, unsigned long long end)
{
    unsigned long long size = 0;
    if (KoPlatform::shm_size(descriptor, size) != 0)
    {
        return false;
    }
    const unsigned long long page = static_cast<unsigned long long>(::sysconf(_SC_PAGESIZE));
    if (end <= size || (end - 1U) / page * page < size)
    {
        return true;
    }
    errno = ENXIO;
    return false;
}

void* failToMap(int error)
{
    errno = error;
    return nullptr;
}

} // namespace

namespace KoSharedMemoryAccess
{

int open(const char* name, unsigned int size, unsigned int mode)
{
    const bool setsSize = (mode & (SET_SIZE | EXCLUSIVE)) != 0U;
    switch (mode & LOW_BYTE)
    {
    case OPEN_EXISTING:
    case EXCLUSIVE:
        return openExisting(name, size, setsSize);
    case CREATE_IF_MISSING:
        return openOrMake(name, size, setsSize);
    case CREATE_EXCLUSIVE:
        return make(name, size);
    default:
        return KoPlatform::failWith(EINVAL);
    }
}

/// The flags for new pages need nothing here: pages of a host begin as zeros, and their memory is set aside
/// when an object gets its size.
void* map(int descriptor, unsigned int size, unsigned int offset, unsigned int flags)
{
    const int protection = protectionOf(flags);
    if (descriptor == -1 || size == 0U || protection == -1)
    {
        return failToMap(EINVAL);
    }
    if (!isWithin(descriptor, static_cast<unsigned long long>(offset) + size))
    {
        return nullptr;
    }
    void* const address =
        ::mmap(nullptr, size, protection, MAP_SHARED, descriptor, static_cast<off_t>(offset));
    return address != MAP_FAILED ? address : nullptr;
}

bool unmap(void* address, unsigned int size)
{
    return ::munmap(address, size) == 0;
}

bool close(int descriptor)
{
    return KoPlatform::close(descriptor) == 0;
}

/// An error that says that the name exists is none of a removal.
bool unlink(const char* name)
{
    return KoPlatform::shm_unlink(name) == 0 || errno == EEXIST;
}

} // namespace KoSharedMemoryAccess

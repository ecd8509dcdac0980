#include "pf/platform/KoPlatformMapping.h"
#include "pf/util/CKoMemoryMappedFile.h"
#include "pf/util/TKoErrnoSafeFunction.h"

#include <cerrno>

#include <sys/mman.h>
#include <sys/types.h>

namespace
{

static_assert(sizeof(off_t) == sizeof(unsigned long long), "offsets of large files");

/// What mmap returns on failure.
struct SIsMapFailed
{
    bool operator()(const void* result) const noexcept { return result == MAP_FAILED; }
};

} // namespace

bool CKoMemoryMappedFile::map(unsigned long long offset, unsigned int size, bool lazy)
{
    unmapOrReport("unmapping memory mapping failed - mapping anyway");

    const TKoErrnoSafeFunction<decltype(::mmap), SIsMapFailed> map(::mmap);
    const int laziness = lazy ? KoPlatform::MAP_LAZY : 0;
    void* const address =
        isOpen() ? map(nullptr, size, PROT_READ, MAP_SHARED | KoPlatform::MAP_NOSYNCFILE | laziness,
                       getDescriptor(), static_cast<off_t>(offset))
                 : map(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | laziness, -1, 0);
    if (address == MAP_FAILED)
    {
        errno = errno == ENOTSUP ? ENOSYS : errno;
        return false;
    }
    m_address = address;
    m_size = size;
    return true;
}

bool CKoMemoryMappedFile::unmap()
{
    if (m_address == nullptr)
    {
        return true;
    }
    if (TKoErrnoSafeFunction(::munmap)(m_address, m_size) != 0)
    {
        return false;
    }
    m_address = nullptr;
    m_size = 0U;
    return true;
}

#include "pf/util/CKoMemoryMappedFile.h"

#include "pf/oswrapper/KoErrnoGuard.h"
#include "pf/oswrapper/KoError.h"

#include <cerrno>
#include <fcntl.h>

static_assert(sizeof(CKoMemoryMappedFile) == 3 * sizeof(void*), "a descriptor, an address and a size");

CKoMemoryMappedFile::CKoMemoryMappedFile() noexcept
    : m_address(nullptr)
    , m_size(0U)
{
}

CKoMemoryMappedFile::CKoMemoryMappedFile(const CKoPath& path)
    : CKoMemoryMappedFile()
{
    open(path);
}

CKoMemoryMappedFile::~CKoMemoryMappedFile()
{
    const KoErrnoGuard guard;
    unmapOrReport("unmapping memory mapping failed - closing anyway");
}

bool CKoMemoryMappedFile::open(const CKoPath& path)
{
    return CKoFileHandle::open(path, O_RDONLY);
}

bool CKoMemoryMappedFile::close()
{
    unmapOrReport("unmapping memory mapping failed - closing anyway");
    return CKoFileHandle::close();
}

void CKoMemoryMappedFile::unmapOrReport(const char* report)
{
    if (!unmap())
    {
        KoError::reportOSError(0, KoSyslog::Error, errno, report);
    }
}

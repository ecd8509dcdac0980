#include "pf/oswrapper/CKoSharedMemory.h"

#include "pf/oswrapper/CKoAsserter.h"
#include "pf/oswrapper/KoErrnoGuard.h"
#include "pf/oswrapper/KoNameCopy.h"
#include "pf/oswrapper/KoSharedMemoryAccess.h"
#include "pf/oswrapper/KoSyslog.h"
#include "pf/platform/KoPlatformSharedMemory.h"

#include <cerrno>
#include <cstring>

static_assert(sizeof(CKoSharedMemory) == 2 * sizeof(void*) + 8, "address, name, size, descriptor");

namespace
{

using KoPlatform::SharedMemoryResult;

constexpr const char* SOURCE = "CKoSharedMemory";
constexpr mode_t PERMISSIONS = 0777;

/// An object can come and go between two looks at it; who hits that many times in a row is out of luck.
constexpr int TRIES = 1000;

/// How an object was come by; `errno` tells more where it was not.
enum class Origin
{
    FOUND,
    MADE,
    UNSIZED, ///< new, but there was no memory for it
    REFUSED
};

/// Opens, or makes what does not exist: of two who make it at the same moment the later one opens.
Origin openOrMake(const char* name, unsigned int size, int& descriptor)
{
    for (int tries = 0; tries < TRIES; ++tries)
    {
        descriptor = KoPlatform::shm_open(name);
        if (descriptor != -1)
        {
            return Origin::FOUND;
        }
        if (errno != ENOENT)
        {
            return Origin::REFUSED;
        }
        switch (KoPlatform::shm_make(name, PERMISSIONS, size, nullptr, descriptor))
        {
        case SharedMemoryResult::MADE:
            return Origin::MADE;
        case SharedMemoryResult::UNSIZED:
            return Origin::UNSIZED;
        case SharedMemoryResult::REFUSED:
            return Origin::REFUSED;
        case SharedMemoryResult::EXISTS:
            break;
        }
    }
    return Origin::REFUSED;
}

/// The two forms of the log lines: with the text of the error, and with its number.
void logNoHandle(const char* name)
{
    KoSyslog::logMsg(0, KoSyslog::Error, "Unable to create file mapping handle named %s: %s", name,
                     std::strerror(errno));
}

void logNoHandleNumber(const char* name)
{
    KoSyslog::logMsg(0, KoSyslog::Error, "Unable to create file mapping handle named %s: errno=%d", name,
                     errno);
}

} // namespace

CKoSharedMemory::CKoSharedMemory(const char* name, unsigned int size)
    : m_address(nullptr)
    , m_name(KoPrivate::copyName(name))
    , m_size(size)
    , m_descriptor(-1)
{
}

CKoSharedMemory::~CKoSharedMemory()
{
    unmap();
    KoMemory::release(m_name);
}

bool CKoSharedMemory::map(bool recreate, bool readOnly, bool /*zeroNew*/)
{
    if (!isReadyToMap())
    {
        return false;
    }
    if (recreate)
    {
        discardExisting();
    }
    const Origin origin = openOrMake(m_name, m_size, m_descriptor);
    if (origin == Origin::UNSIZED)
    {
        const KoErrnoGuard guard;
        doCheapAssert(__LINE__, SOURCE);
    }
    if (origin == Origin::UNSIZED || origin == Origin::REFUSED)
    {
        logNoHandle(m_name);
        return origin == Origin::UNSIZED;
    }
    if (!mapDescriptor(readOnly))
    {
        KoSyslog::logMsg(0, KoSyslog::Error, "Unable to map file %s to memory: %s", m_name,
                         std::strerror(errno));
    }
    closeDescriptor();
    return origin == Origin::MADE;
}

bool CKoSharedMemory::map2(bool readOnly, bool /*initialise*/, bool /*lazy*/)
{
    if (!isReadyToMap())
    {
        return false;
    }
    const Origin origin = openOrMake(m_name, m_size, m_descriptor);
    if (origin == Origin::UNSIZED)
    {
        doCheapAssert(__LINE__, SOURCE);
        return true;
    }
    if (origin == Origin::REFUSED)
    {
        logNoHandleNumber(m_name);
        return false;
    }
    if (!mapDescriptor(readOnly))
    {
        KoSyslog::logMsg(0, KoSyslog::Error, "Unable to map file %s to memory: errno=%d", m_name, errno);
    }
    closeDescriptor();
    return origin == Origin::MADE;
}

void CKoSharedMemory::unmap()
{
    if (m_address == nullptr)
    {
        return;
    }
    if (!KoSharedMemoryAccess::unmap(m_address, m_size))
    {
        const KoErrnoGuard guard;
        doCheapAssert(__LINE__, SOURCE);
        KoSyslog::logMsg(0, KoSyslog::Error, "Unable to remove file mapping (%s) from address space: %s",
                         m_name, std::strerror(guard.saved()));
    }
    m_address = nullptr;
}

void CKoSharedMemory::unlink()
{
    if (m_name == nullptr)
    {
        doCheapAssert(__LINE__, SOURCE);
        return;
    }
    if (KoPlatform::shm_unlink(m_name) != 0 && errno != ENOENT)
    {
        doCheapAssert(__LINE__, SOURCE);
    }
}

bool CKoSharedMemory::isReadyToMap() const
{
    if (m_address != nullptr)
    {
        return false;
    }
    if (m_name == nullptr)
    {
        doCheapAssert(__LINE__, SOURCE);
        return false;
    }
    return true;
}

bool CKoSharedMemory::mapDescriptor(bool readOnly)
{
    m_address = KoSharedMemoryAccess::map(m_descriptor, m_size, 0U,
                                          readOnly ? KoSharedMemoryAccess::MAP_READ_ONLY
                                                   : KoSharedMemoryAccess::MAP_READ_WRITE);
    return m_address != nullptr;
}

/// Makes and maps an object that begins with a word and is marked. \return false when somebody has the name,
/// or with a log line.
bool CKoSharedMemory::mapNew(unsigned int firstWord)
{
    if (!isReadyToMap())
    {
        return false;
    }
    const SharedMemoryResult result =
        KoPlatform::shm_make(m_name, PERMISSIONS, m_size, &firstWord, m_descriptor);
    if (result == SharedMemoryResult::UNSIZED)
    {
        const KoErrnoGuard guard;
        doCheapAssert(__LINE__, SOURCE);
    }
    if (result == SharedMemoryResult::UNSIZED || result == SharedMemoryResult::REFUSED)
    {
        logNoHandle(m_name);
    }
    if (result != SharedMemoryResult::MADE)
    {
        return false;
    }
    if (!mapDescriptor(false))
    {
        KoSyslog::logMsg(0, KoSyslog::Error, "Unable to map file %s to memory: %s", m_name,
                         std::strerror(errno));
        // Nobody counts what it says.
        unlink();
    }
    closeDescriptor();
    return m_address != nullptr;
}

/// Maps and marks an object that exists and has the whole size. \return false when there is none, or with a
/// log line.
bool CKoSharedMemory::mapExisting()
{
    if (!isReadyToMap())
    {
        return false;
    }
    m_descriptor = KoPlatform::shm_open(m_name);
    if (m_descriptor == -1)
    {
        if (errno != ENOENT)
        {
            logNoHandle(m_name);
        }
        return false;
    }
    if (!isWhole() || KoPlatform::shm_mark(m_descriptor) != 0 || !mapDescriptor(false))
    {
        KoSyslog::logMsg(0, KoSyslog::Error, "Unable to map file %s to memory: %s", m_name,
                         std::strerror(errno));
    }
    closeDescriptor();
    return m_address != nullptr;
}

/// Whether the open object has the size to be mapped; false with `errno`.
bool CKoSharedMemory::isWhole() const
{
    unsigned long long size = 0;
    if (KoPlatform::shm_size(m_descriptor, size) != 0)
    {
        return false;
    }
    errno = ENXIO;
    return size >= m_size;
}

/// Only an object that can be opened is discarded; another is left to fail when it is opened.
void CKoSharedMemory::discardExisting()
{
    m_descriptor = KoPlatform::shm_open(m_name);
    if (m_descriptor != -1)
    {
        closeDescriptor();
        unlink();
    }
}

void CKoSharedMemory::closeDescriptor()
{
    const KoErrnoGuard guard;
    KoSharedMemoryAccess::close(m_descriptor);
    m_descriptor = -1;
}

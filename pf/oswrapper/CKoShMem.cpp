#include "pf/oswrapper/CKoShMem.h"

#include "pf/oswrapper/CKoAsserter.h"
#include "pf/oswrapper/KoNameCopy.h"
#include "pf/oswrapper/KoSharedMemoryAccess.h"

#include <cerrno>

static_assert(sizeof(CKoShMem) == (sizeof(void*) == 4 ? 16 : 32), "name, size, address, descriptor");

namespace
{

constexpr const char* SOURCE = "CKoShMem";

/// The object may come and go between creating and opening.
constexpr int TRIES = 1000;

} // namespace

CKoShMem::CKoShMem(const char* name, unsigned int size)
    : m_name(KoPrivate::copyName(name))
    , m_size(size)
    , m_address(nullptr)
    , m_descriptor(-1)
{
    if (m_name == nullptr || size == 0U)
    {
        doCheapAssert(__LINE__, SOURCE);
    }
}

CKoShMem::~CKoShMem()
{
    unmap();
    close();
    KoMemory::release(m_name);
}

/// Opens without creating: what has vanished since the first look is created, whole, by another turn.
int CKoShMem::create(bool resize)
{
    using namespace KoSharedMemoryAccess;
    close();
    for (int tries = 0; tries < TRIES; ++tries)
    {
        m_descriptor = open(m_name, m_size, CREATE_EXCLUSIVE);
        if (m_descriptor != -1)
        {
            return CREATED;
        }
        if (errno != EEXIST)
        {
            return FAILED;
        }
        m_descriptor = open(m_name, m_size, resize ? OPEN_EXISTING | SET_SIZE : OPEN_EXISTING);
        if (m_descriptor != -1)
        {
            return OPENED;
        }
        if (errno != ENOENT)
        {
            return FAILED;
        }
    }
    return FAILED;
}

bool CKoShMem::attach()
{
    close();
    m_descriptor = KoSharedMemoryAccess::open(m_name, m_size, KoSharedMemoryAccess::OPEN_EXISTING);
    return m_descriptor != -1;
}

bool CKoShMem::map(unsigned int flags)
{
    unmap();
    m_address = KoSharedMemoryAccess::map(m_descriptor, m_size, 0U, flags);
    if (m_address == nullptr)
    {
        return false;
    }
    close();
    return true;
}

void CKoShMem::unmap()
{
    if (m_address != nullptr)
    {
        KoSharedMemoryAccess::unmap(m_address, m_size);
        m_address = nullptr;
    }
}

bool CKoShMem::unlink()
{
    return KoSharedMemoryAccess::unlink(m_name);
}

void CKoShMem::close()
{
    if (m_descriptor != -1)
    {
        KoSharedMemoryAccess::close(m_descriptor);
        m_descriptor = -1;
    }
}

#include "pf/oswrapper/CKoReferencedSharedMemory.h"

#include "pf/oswrapper/CKoAsserter.h"
#include "pf/oswrapper/CKoSharedMemory.h"
#include "pf/oswrapper/KoErrnoGuard.h"
#include "pf/oswrapper/KoSharedMemoryAccess.h"
#include "pf/oswrapper/KoSyslog.h"
#include "pf/platform/KoPlatformSharedMemory.h"
#include "pf/stream/KoStreamOperators.h"

#include <cstring>
#include <limits>

static_assert(sizeof(CKoReferencedSharedMemory) == sizeof(CKoThreadSafeRefCounter) + 3 * sizeof(void*),
              "memory, counter, data");
static_assert(__atomic_always_lock_free(sizeof(unsigned int), nullptr), "a lock would be one process's own");

namespace
{

constexpr const char* SOURCE = "CKoReferencedSharedMemory";

/// The count in front of the data.
constexpr unsigned int COUNT_SIZE = sizeof(unsigned int);

/// A name with a leading slash.
constexpr unsigned int MAX_NAME_LENGTH = KoPlatform::SHARED_MEMORY_NAME_MAX + 1;

/// Whether the count can go up. From 0 there is no way back, because who got there removes the name; the most
/// would become 0 while the object is in use.
bool isCountable(unsigned int count)
{
    return count != 0U && count != std::numeric_limits<unsigned int>::max();
}

/// Takes a reference to an object that somebody else still has. Relaxed as every counting up; what the object
/// holds is ordered by its users.
bool takeShared(unsigned int& counter)
{
    unsigned int count = __atomic_load_n(&counter, __ATOMIC_RELAXED);
    while (isCountable(count) && !__atomic_compare_exchange_n(&counter, &count, count + 1U, true,
                                                              __ATOMIC_RELAXED, __ATOMIC_RELAXED))
    {
    }
    return isCountable(count);
}

const char* textOf(const char* name)
{
    return name != nullptr ? name : "???";
}

/// Reads a record, whose name may be empty. \return false when its name cannot be, or it is not all there.
bool readRecord(const IKoIStream& stream, char (&name)[MAX_NAME_LENGTH + 1], unsigned int& size)
{
    unsigned int length = 0;
    stream >> length;
    if (length > MAX_NAME_LENGTH || stream.read(name, length) != length)
    {
        return false;
    }
    name[length] = '\0';
    return KoPrivate::readValue(stream, &size, sizeof(size)) == sizeof(size) && std::strlen(name) == length;
}

/// \return whether every byte was taken.
bool writeRecord(IKoOStream& stream, const char* name, unsigned int size)
{
    const unsigned int length = static_cast<unsigned int>(std::strlen(name));
    return KoPrivate::writeValue(stream, &length, sizeof(length)) == sizeof(length) &&
           stream.write(name, length) == length &&
           KoPrivate::writeValue(stream, &size, sizeof(size)) == sizeof(size);
}

/// Removes an object that the caller has claimed. Its count becomes 0, so that who has it open already and
/// waits to mark it will not take it for alive. An object that the caller may not remove stays as it is.
bool removeClaimed(const char* name, int descriptor)
{
    void* const address =
        KoSharedMemoryAccess::map(descriptor, COUNT_SIZE, 0U, KoSharedMemoryAccess::MAP_READ_WRITE);
    if (address == nullptr)
    {
        return false;
    }
    const bool removed = KoSharedMemoryAccess::unlink(name);
    if (removed)
    {
        // Relaxed: the lock of the claim, which every opener takes after it, orders this.
        __atomic_store_n(static_cast<unsigned int*>(address), 0U, __ATOMIC_RELAXED);
    }
    const KoErrnoGuard guard;
    KoSharedMemoryAccess::unmap(address, COUNT_SIZE);
    return removed;
}

} // namespace

CKoReferencedSharedMemory::CKoReferencedSharedMemory(const char* name, unsigned int size, bool create)
    : m_memory(new CKoSharedMemory(name, size + COUNT_SIZE))
    , m_counter(nullptr)
    , m_data(nullptr)
{
    if (size <= MAX_SIZE && obtain(create))
    {
        return;
    }
    doCheapAssert(__LINE__, SOURCE);
    KoSyslog::logMsg(0, KoSyslog::Error,
                     create ? "Could not create shared memory %s"
                            : "Could not open referenced shared memory %s",
                     textOf(name));
}

CKoReferencedSharedMemory::~CKoReferencedSharedMemory()
{
    if (m_counter != nullptr)
    {
        dropShared();
    }
    delete m_memory;
}

TKoRefCountPointer<CKoReferencedSharedMemory> CKoReferencedSharedMemory::create(const char* name,
                                                                                unsigned int size)
{
    TKoRefCountPointer<CKoReferencedSharedMemory> created(new CKoReferencedSharedMemory(name, size, true));
    if (created->getDataPtr() == nullptr)
    {
        doCheapAssert(__LINE__, SOURCE);
        return {};
    }
    return created;
}

bool CKoReferencedSharedMemory::removeAbandoned(const char* name)
{
    const int descriptor = KoPlatform::shm_claim(name);
    if (descriptor == -1)
    {
        return false;
    }
    const bool removed = removeClaimed(name, descriptor);
    const KoErrnoGuard guard;
    KoSharedMemoryAccess::close(descriptor);
    return removed;
}

unsigned int CKoReferencedSharedMemory::getSize() const
{
    return (m_counter != nullptr ? m_memory->getSize() : 0U) - COUNT_SIZE;
}

unsigned int CKoReferencedSharedMemory::getSharedMemoryRefCount() const
{
    return m_counter != nullptr ? KoAtomic::load(*m_counter) : 0U;
}

void CKoReferencedSharedMemory::lastReferenceRemoved()
{
    delete this;
}

/// The count begins as 1 when the object is made. An object without the count of anybody is not opened.
bool CKoReferencedSharedMemory::obtain(bool create)
{
    if (!(create ? m_memory->mapNew(1U) : m_memory->mapExisting()))
    {
        return false;
    }
    auto* const counter = static_cast<unsigned int*>(m_memory->getAddress());
    if (!create && !takeShared(*counter))
    {
        m_memory->unmap();
        return false;
    }
    m_counter = counter;
    m_data = counter + 1;
    return true;
}

/// Who comes to 0 is alone: nobody can open the object any longer, and nobody can make one of its name. The
/// name goes first: the mapping keeps a supervisor from removing it, and so from letting somebody else have
/// it, whose object would then lose it here.
void CKoReferencedSharedMemory::dropShared()
{
    if (!KoAtomic::testDecrement(*m_counter))
    {
        m_memory->unlink();
        m_memory->unmap();
    }
    m_counter = nullptr;
    m_data = nullptr;
}

IKoOStream& operator<<(IKoOStream& stream, const TKoRefCountPointer<CKoReferencedSharedMemory>& reference)
{
    if (!reference || reference->m_counter == nullptr || !takeShared(*reference->m_counter))
    {
        doCheapAssert(__LINE__, SOURCE);
        writeRecord(stream, "", 0U);
        return stream;
    }
    if (!writeRecord(stream, reference->m_memory->getName(), reference->getSize()))
    {
        // Cannot be the last: the caller has one.
        KoAtomic::testDecrement(*reference->m_counter);
    }
    return stream;
}

const IKoIStream& operator>>(const IKoIStream& stream,
                             TKoRefCountPointer<CKoReferencedSharedMemory>& reference)
{
    char name[MAX_NAME_LENGTH + 1];
    unsigned int size = 0;
    if (!readRecord(stream, name, size) || name[0] == '\0')
    {
        doCheapAssert(__LINE__, SOURCE);
        reference = {};
        return stream;
    }
    reference =
        TKoRefCountPointer<CKoReferencedSharedMemory>(new CKoReferencedSharedMemory(name, size, false));
    if (reference->m_counter != nullptr)
    {
        // Cannot be the last: the new object counts one.
        KoAtomic::testDecrement(*reference->m_counter);
    }
    return stream;
}

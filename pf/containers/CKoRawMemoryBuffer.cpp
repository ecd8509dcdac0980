#include "pf/containers/CKoRawMemoryBuffer.h"

#include "pf/oswrapper/CKoAsserter.h"
#include "pf/oswrapper/KoMemory.h"

#include <algorithm>
#include <climits>
#include <new>

namespace
{

constexpr unsigned int MIN_CAPACITY = 8;

void* allocateByOperatorNew(unsigned int size)
{
    return ::operator new(size);
}

} // namespace

static_assert(sizeof(CKoRawMemoryBuffer) == sizeof(void*), "a buffer is one pointer");

CKoRawMemoryBuffer::CKoRawMemoryBuffer(unsigned int capacity)
    : CKoRawMemoryBuffer(capacity, nullptr)
{
}

CKoRawMemoryBuffer::CKoRawMemoryBuffer(unsigned int capacity, void* (*allocate)(unsigned int))
    : m_block(nullptr)
{
    static_assert(sizeof(SHeader) == 2 * sizeof(unsigned int), "two words in front of the bytes");
    capacity = adjustCapacity(capacity);
    if (capacity > UINT_MAX - sizeof(SHeader))
    {
        doCheapAssert(__LINE__, "CKoRawMemoryBuffer");
        return;
    }

    const bool isCustom = allocate != nullptr;
    const unsigned int size = capacity + static_cast<unsigned int>(sizeof(SHeader));
    void* const memory = isCustom ? allocate(size) : allocateByOperatorNew(size);
    if (memory != nullptr)
    {
        m_block = ::new (memory) SHeader{capacity, isCustom ? 1U : 0U};
    }
}

CKoRawMemoryBuffer::~CKoRawMemoryBuffer()
{
    release();
}

void* CKoRawMemoryBuffer::getBuffer() const
{
    return m_block != nullptr ? m_block + 1 : nullptr;
}

unsigned int CKoRawMemoryBuffer::getCapacity() const
{
    return m_block != nullptr ? m_block->capacity : 0;
}

void CKoRawMemoryBuffer::release(void (*deallocate)(void*))
{
    SHeader* const block = m_block;
    m_block = nullptr;
    if (block == nullptr)
    {
        return;
    }
    if (deallocate != nullptr)
    {
        deallocate(block);
    }
    else if (block->isCustom != 0)
    {
        KoMemory::release(block);
    }
    else
    {
        ::operator delete(block);
    }
}

unsigned int CKoRawMemoryBuffer::adjustCapacity(unsigned int capacity)
{
    return std::max(capacity, MIN_CAPACITY);
}

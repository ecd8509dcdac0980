#include "pf/containers/KoPrivateVectorBase.h"

#include "pf/containers/KoVectorAssertions.h"

#include <climits>
#include <utility>

namespace
{

constexpr int MIN_CAPACITY = 4;

} // namespace

static_assert(sizeof(KoPrivate::CKoVectorBase) == 2 * sizeof(int), "two words");

KoPrivate::CKoVectorBase::CKoVectorBase(int capacity)
    : m_size(0)
    , m_capacity(capacity > 0 ? capacity : MIN_CAPACITY)
{
}

bool KoPrivate::CKoVectorBase::checkGet(int index, unsigned int line) const
{
    return KoVectorAssertions::checkGet(index, m_size, line);
}

bool KoPrivate::CKoVectorBase::checkResize(int newSize, unsigned int line) const
{
    return KoVectorAssertions::checkResize(newSize, line);
}

bool KoPrivate::CKoVectorBase::checkErase(int first, int last, unsigned int line) const
{
    if (first < 0 || last >= m_size)
    {
        KoVectorAssertions::doAssert(KoContainerAssertions::IndexOutOfRange, line);
        return false;
    }
    return KoVectorAssertions::checkErase(first, last, m_size, line);
}

bool KoPrivate::CKoVectorBase::checkInsert(int index, const void* value, unsigned int line) const
{
    return KoVectorAssertions::checkInsert(index, value, m_size, line);
}

int KoPrivate::CKoVectorBase::calcNewCapacity(int required) const
{
    if (required <= m_capacity)
    {
        return m_capacity;
    }

    int capacity = m_capacity < MIN_CAPACITY ? MIN_CAPACITY : m_capacity;
    while (capacity < required)
    {
        capacity = capacity > INT_MAX / 2 ? INT_MAX : capacity * 2;
    }
    return capacity;
}

void KoPrivate::swap(CKoVectorBase& a, CKoVectorBase& b)
{
    std::swap(a.m_size, b.m_size);
    std::swap(a.m_capacity, b.m_capacity);
}

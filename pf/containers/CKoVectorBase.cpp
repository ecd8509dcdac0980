#include "pf/containers/CKoVectorBase.h"

#include "pf/containers/KoVectorAssertions.h"
#include "pf/containers/KoVectorSlots.h"
#include "pf/oswrapper/KoAtomic.h"
#include "pf/oswrapper/KoMemory.h"

#include <algorithm>
#include <climits>
#include <new>

namespace
{

using KoPrivate::slotAt;

constexpr int MIN_CAPACITY = 4;
constexpr int MAX_BITS = 31; ///< of a positive int

/// Header and slots have to fit into the 32 bits of an allocation.
template <class Block>
bool fitsIntoBlock(int capacity, int elemSize)
{
    constexpr unsigned int MAX_SLOT_BYTES = UINT_MAX - sizeof(Block);
    return elemSize > 0 && (capacity < 1 || static_cast<unsigned int>(capacity) <=
                                                MAX_SLOT_BYTES / static_cast<unsigned int>(elemSize));
}

template <class Block>
unsigned int blockSize(int capacity, int elemSize)
{
    return static_cast<unsigned int>(sizeof(Block)) +
           static_cast<unsigned int>(capacity) * static_cast<unsigned int>(elemSize);
}

void reportReserve(unsigned int line)
{
    KoContainerAssertions::reportAssertion(KoContainerAssertions::InvalidParameter,
                                           "CKoVectorBase.internal_reserve()", line);
}

/// The conversion of a negative change wraps, and so does the addition: together they subtract.
void bookChange(unsigned int& counter, int change)
{
    KoAtomic::add(counter, static_cast<unsigned int>(change));
}

} // namespace

static_assert(sizeof(CKoVectorBase) == sizeof(void*), "a vector is one pointer");

CKoVectorBase::CKoVectorBase(int capacity, CapacityFunction capacityFunction, int elemSize)
    : m_data(nullptr)
{
    if (capacity < 1 && capacityFunction != nullptr)
    {
        capacity = MIN_CAPACITY;
    }
    if (capacity < 1)
    {
        return;
    }
    internal_reserve(capacity, elemSize, true, nullptr);
    if (m_data != nullptr)
    {
        m_data->capacityFunction = capacityFunction;
    }
}

CKoVectorBase::CKoVectorBase(const SVectorData* other, int elemSize)
    : CKoVectorBase(other != nullptr ? other->size : 0, other != nullptr ? other->capacityFunction : nullptr,
                    elemSize)
{
    if (m_data == nullptr)
    {
        return;
    }
    m_data->size = other->size;
    internal_bookElements(m_data, other->size);
}

int CKoVectorBase::calculateActualCapacity(int requested, int)
{
    if (requested <= MIN_CAPACITY)
    {
        return MIN_CAPACITY;
    }
    // As many doublings as requested - 1 has bits lead to the first power of two that is enough.
    const int bits = __builtin_clz(1U) + 1 - __builtin_clz(static_cast<unsigned int>(requested) - 1U);
    return bits < MAX_BITS ? 1 << bits : INT_MAX;
}

CKoVectorBase::SVectorData* CKoVectorBase::internal_reserve(int requested, int elemSize, bool exact,
                                                            RelocateFunction relocateOrCopy)
{
    if (requested <= capacity() && !exact)
    {
        return nullptr;
    }

    const int newCapacity = exact ? exactCapacity(requested) : grownCapacity(requested, elemSize);
    if (!fitsIntoBlock<SVectorData>(newCapacity, elemSize))
    {
        reportReserve(__LINE__);
        return nullptr;
    }

    SVectorData* const old = m_data;
    replaceBlock(newCapacity, elemSize);
    if (old == nullptr || m_data == nullptr || relocateOrCopy == nullptr)
    {
        return old;
    }
    if (!relocateOrCopy(slotAt(m_data, 0, elemSize), slotAt(old, 0, elemSize), old->size))
    {
        return old;
    }
    KoMemory::release(old);
    return nullptr;
}

bool CKoVectorBase::internal_makeRoom(int more, int elemSize, RelocateFunction relocate)
{
    const int oldSize = size();
    if (more > INT_MAX - oldSize)
    {
        reportReserve(__LINE__);
        return false;
    }
    const int requested = oldSize + more;
    if (relocate == nullptr && m_data != nullptr)
    {
        growBitwise(requested, elemSize);
    }
    else
    { // leaves nothing to release: the capacity it gives is above 0, and relocating ends the old block
        internal_reserve(requested, elemSize, false, relocate);
    }
    return capacity() >= requested;
}

void CKoVectorBase::internal_erase(int first, int last, int elemSize, AssignFunction assign,
                                   DestroyFunction destroy)
{
    const int oldSize = size();
    if (!KoVectorAssertions::checkErase(first, last, oldSize, __LINE__) || m_data == nullptr)
    {
        return;
    }

    const int count = last - first + 1;
    const int newSize = oldSize - count;
    internal_bookElements(m_data, -count);
    if (newSize > first)
    {
        assign(slotAt(m_data, first, elemSize), slotAt(m_data, last + 1, elemSize), newSize - first);
    }
    destroy(slotAt(m_data, newSize, elemSize), count);
    m_data->size = newSize;
}

void CKoVectorBase::internal_resize(int newSize, int elemSize, const void* value,
                                    CopyConstructFunction copyConstruct, DestroyFunction destroy)
{
    if (!KoVectorAssertions::checkResize(newSize, __LINE__))
    {
        return;
    }

    // The elements are copied here and not by the reserve, because `value` may lie in the old block.
    SVectorData* const old = internal_reserve(newSize, elemSize, false, nullptr);
    if (m_data == nullptr || m_data->capacity < newSize)
    {
        return;
    }

    const int oldSize = m_data->size;
    const bool isBitwise =
        old != nullptr && copyConstruct(slotAt(m_data, 0, elemSize), slotAt(old, 0, elemSize), oldSize);
    m_data->size = newSize;
    internal_bookElements(m_data, newSize - oldSize);
    for (int i = oldSize; i < newSize; ++i)
    {
        copyConstruct(slotAt(m_data, i, elemSize), value, 1);
    }
    if (newSize < oldSize)
    {
        destroy(slotAt(m_data, newSize, elemSize), oldSize - newSize);
    }
    releaseOld(old, isBitwise, destroy);
}

void CKoVectorBase::internal_push_back(int elemSize, const void* value, CopyConstructFunction copyConstruct,
                                       DestroyFunction destroy)
{
    const int oldSize = size();
    SVectorData* old = nullptr;
    bool isBitwise = false;
    if (oldSize == capacity())
    {
        if (oldSize == INT_MAX)
        {
            return reportReserve(__LINE__);
        }
        // As in internal_resize: the old block stays until `value` is copied.
        old = internal_reserve(oldSize + 1, elemSize, false, nullptr);
        if (m_data == nullptr || m_data->capacity == oldSize)
        {
            return;
        }
        isBitwise =
            old != nullptr && copyConstruct(slotAt(m_data, 0, elemSize), slotAt(old, 0, elemSize), oldSize);
    }
    internal_bookElements(m_data, 1);
    ++m_data->size;
    copyConstruct(slotAt(m_data, oldSize, elemSize), value, 1);
    releaseOld(old, isBitwise, destroy);
}

bool CKoVectorBase::internal_pop_back()
{
    if (isEmpty())
    {
        return false;
    }
    --m_data->size;
    internal_bookElements(m_data, -1);
    return true;
}

void* CKoVectorBase::internal_get(int index, int elemSize)
{
    return KoVectorAssertions::checkGet(index, size(), __LINE__) ? slotAt(m_data, index, elemSize) : nullptr;
}

const void* CKoVectorBase::internal_get(int index, int elemSize) const
{
    const SVectorData* const block = m_data;
    return KoVectorAssertions::checkGet(index, size(), __LINE__) ? slotAt(block, index, elemSize) : nullptr;
}

bool CKoVectorBase::internal_replace(int pos, int count, const void* src)
{
    if (count == 0)
    {
        return false;
    }
    // Without elements no position is valid, so the block is there when all holds.
    if (count > 0 && pos >= 0 && pos < size() && count <= size() - pos && src != nullptr)
    {
        return true;
    }
    KoContainerAssertions::reportAssertion(KoContainerAssertions::InvalidParameter, "TKoVector.replace()",
                                           __LINE__);
    return false;
}

int CKoVectorBase::internal_find(EqualFunction equal, int elemSize, const void* value) const
{
    const int count = size();
    for (int i = 0; i < count; ++i)
    {
        if (equal(slotAt(m_data, i, elemSize), value))
        {
            return i;
        }
    }
    return -1;
}

int CKoVectorBase::internal_rfind(EqualFunction equal, int elemSize, const void* value) const
{
    int i = size() - 1;
    while (i >= 0 && !equal(slotAt(m_data, i, elemSize), value))
    {
        --i;
    }
    return i;
}

bool CKoVectorBase::internal_compare(const CKoVectorBase& other, EqualRunsFunction equalRuns) const
{
    if (this == &other)
    {
        return true;
    }
    if (size() != other.size())
    {
        return false;
    }
    return isEmpty() || equalRuns(m_data + 1, other.m_data + 1, size());
}

void CKoVectorBase::internal_destruct(SVectorData* block, DestroyFunction destroy)
{
    if (block == nullptr)
    {
        return;
    }
    if (block->ramWatch != nullptr)
    {
        bookChange(block->ramWatch->elementCount, -block->size);
        bookChange(block->ramWatch->capacityCount, -block->capacity);
        bookChange(block->ramWatch->instanceCount, -1);
    }
    destroy(block + 1, block->size);
    KoMemory::release(block);
}

void CKoVectorBase::internal_bookElements(const SVectorData* block, int change)
{
    if (block->ramWatch != nullptr)
    {
        bookChange(block->ramWatch->elementCount, change);
    }
}

void CKoVectorBase::releaseOld(SVectorData* old, bool isBitwise, DestroyFunction destroy)
{
    if (isBitwise)
    {
        KoMemory::release(old);
    }
    else
    {
        internal_destruct(old, destroy);
    }
}

/// The capacity that the growth policy gives. Where the block of a generous policy would be too large, the
/// request itself may still do.
int CKoVectorBase::grownCapacity(int requested, int elemSize) const
{
    const CapacityFunction policy = m_data != nullptr && m_data->capacityFunction != nullptr
                                        ? m_data->capacityFunction
                                        : &calculateActualCapacity;
    const int newCapacity = policy(requested, capacity());
    if (newCapacity < requested)
    {
        reportReserve(__LINE__);
        return requested;
    }
    return fitsIntoBlock<SVectorData>(newCapacity, elemSize) ? newCapacity : requested;
}

/// What is there keeps its place, and a vector with a growth policy always has a block.
int CKoVectorBase::exactCapacity(int requested) const
{
    if (m_data == nullptr)
    {
        return requested;
    }
    const int minimum = m_data->capacityFunction != nullptr ? MIN_CAPACITY : 0;
    return std::max({requested, minimum, m_data->size});
}

/// Grows the block where it stands when the heap allows it.
void CKoVectorBase::growBitwise(int requested, int elemSize)
{
    const int oldCapacity = m_data->capacity;
    if (requested <= oldCapacity)
    {
        return;
    }
    const int newCapacity = grownCapacity(requested, elemSize);
    if (!fitsIntoBlock<SVectorData>(newCapacity, elemSize))
    {
        return reportReserve(__LINE__);
    }

    void* const block = KoMemory::reallocChecked(m_data, blockSize<SVectorData>(newCapacity, elemSize));
    m_data = static_cast<SVectorData*>(block);
    m_data->capacity = newCapacity;
    if (m_data->ramWatch != nullptr)
    {
        bookChange(m_data->ramWatch->capacityCount, newCapacity - oldCapacity);
    }
}

/// Puts a block with raw slots in the place of the old one, or none for a capacity below 1. The record moves
/// to the new block, so that the old one, which the caller still holds, is booked out already.
void CKoVectorBase::replaceBlock(int newCapacity, int elemSize)
{
    SVectorData* const old = m_data;
    CKoRamwatcher::sElement* record = nullptr;
    if (old != nullptr)
    {
        record = old->ramWatch;
        old->ramWatch = nullptr;
    }
    else if (newCapacity > 0 && CKoRamwatcher::isEnabled())
    {
        record = CKoRamwatcher::getElement(static_cast<unsigned int>(elemSize));
    }
    if (record != nullptr)
    {
        bookChange(record->capacityCount, std::max(newCapacity, 0) - (old != nullptr ? old->capacity : 0));
    }

    if (newCapacity < 1)
    {
        if (record != nullptr)
        {
            bookChange(record->instanceCount, -1);
        }
        m_data = nullptr;
        return;
    }
    void* const block = KoMemory::allocChecked(blockSize<SVectorData>(newCapacity, elemSize));
    m_data = ::new (block) SVectorData{old != nullptr ? old->size : 0, newCapacity, record,
                                       old != nullptr ? old->capacityFunction : nullptr};
}

#include "pf/containers/CKoVectorBase.h"

#include "pf/containers/KoContainerAssertions.h"
#include "pf/containers/KoVectorSlots.h"
#include "pf/oswrapper/KoMemory.h"

#include <algorithm>
#include <climits>
#include <functional>

using KoPrivate::slotAt;

/// What an insertion works with.
struct CKoVectorBase::SInsertion
{
    int pos;
    int count;
    int oldSize;
    int elemSize;
    const char* src;
    AssignFunction assign;
    CopyConstructFunction copyConstruct;
    RelocateFunction relocate;
};

void CKoVectorBase::internal_insert(int pos, int count, const void* src, int elemSize, AssignFunction assign,
                                    CopyConstructFunction copyConstruct, RelocateFunction relocate)
{
    if (count == 0)
    {
        return;
    }

    const int oldSize = size();
    if (count < 0 || pos < 0 || pos > oldSize || src == nullptr || count > INT_MAX - oldSize)
    {
        KoContainerAssertions::reportAssertion(KoContainerAssertions::InvalidParameter, "TKoVector.insert()",
                                               __LINE__);
        return;
    }

    SVectorData* const old = internal_reserve(oldSize + count, elemSize, false, nullptr);
    if (capacity() < oldSize + count)
    {
        return;
    }

    const SInsertion insertion = {pos,    count,         oldSize, elemSize, static_cast<const char*>(src),
                                  assign, copyConstruct, relocate};
    if (old == nullptr)
    {
        insertInPlace(insertion);
    }
    else
    {
        insertIntoNewBlock(insertion, old);
    }
    internal_bookElements(m_data, count);
    m_data->size += count;
}

bool CKoVectorBase::isWithin(const void* address, int elemSize) const
{
    const std::less<const void*> before;
    const void* const first = slotAt(m_data, 0, elemSize);
    const void* const end = slotAt(m_data, m_data->size, elemSize);
    return !before(address, first) && before(address, end);
}

/// Opens a gap by shifting the elements behind it, then fills it. Source elements of this vector that stood
/// behind the gap's begin are `count` slots further on by then, and none of them stands in the gap.
void CKoVectorBase::insertInPlace(const SInsertion& insertion)
{
    const auto [pos, count, oldSize, elemSize, src, assign, copyConstruct, relocate] = insertion;
    const auto slot = [this, size = elemSize](int index) { return slotAt(m_data, index, size); };

    const int end = pos + count;
    if (end < oldSize)
    {
        copyConstruct(slot(oldSize), slot(oldSize - count), count);
        assign(slot(end), slot(pos), oldSize - end);
    }
    else if (pos < oldSize)
    {
        copyConstruct(slot(end), slot(pos), oldSize - pos);
    }

    int unmoved = count;
    if (isWithin(src, elemSize))
    {
        unmoved = std::clamp(static_cast<int>((slot(pos) - src) / elemSize), 0, count);
    }
    fillGap(insertion, pos, src, unmoved);
    fillGap(insertion, pos + unmoved, src + (slot(unmoved + count) - slot(0)), count - unmoved);
}

/// Copies n elements to the slots from `index` on: assigned where old elements are, constructed behind them.
void CKoVectorBase::fillGap(const SInsertion& insertion, int index, const char* src, int n)
{
    const int elemSize = insertion.elemSize;
    const int assigned = std::clamp(insertion.oldSize - index, 0, n);
    if (n > assigned)
    {
        insertion.copyConstruct(slotAt(m_data, index + assigned, elemSize),
                                src + (slotAt(m_data, assigned, elemSize) - slotAt(m_data, 0, elemSize)),
                                n - assigned);
    }
    if (assigned > 0)
    {
        insertion.assign(slotAt(m_data, index, elemSize), src, assigned);
    }
}

/// The new elements come first, because they may be copies of elements that then move away.
void CKoVectorBase::insertIntoNewBlock(const SInsertion& insertion, SVectorData* old)
{
    const auto [pos, count, oldSize, elemSize, src, assign, copyConstruct, relocate] = insertion;
    copyConstruct(slotAt(m_data, pos, elemSize), src, count);
    if (pos > 0)
    {
        relocate(slotAt(m_data, 0, elemSize), slotAt(old, 0, elemSize), pos);
    }
    if (pos < oldSize)
    {
        relocate(slotAt(m_data, pos + count, elemSize), slotAt(old, pos, elemSize), oldSize - pos);
    }
    KoMemory::release(old);
}

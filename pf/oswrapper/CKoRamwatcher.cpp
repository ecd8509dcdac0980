#include "pf/oswrapper/CKoRamwatcher.h"

#include "pf/oswrapper/CKoAsserter.h"
#include "pf/oswrapper/CKoCriticalSection.h"
#include "pf/oswrapper/KoAtomic.h"
#include "pf/oswrapper/KoOperatingSystem.h"
#include "pf/oswrapper/TKoAutoLock.h"

#include <algorithm>
#include <cstdlib>

namespace
{

constexpr unsigned int THREAD_ID_FACTOR = 100000;

} // namespace

static_assert(sizeof(CKoRamwatcher::sElement) * CKoRamwatcher::MAX_ELEMENTS == 8192,
              "size of the record table");

std::atomic<bool> CKoRamwatcher::mIsEnabled{false};
std::atomic<bool> CKoRamwatcher::mIsInitialized{false};
std::atomic<unsigned int> CKoRamwatcher::mIndex{0};
CKoRamwatcher::sElement* CKoRamwatcher::elements = nullptr;
unsigned int* CKoRamwatcher::threadIds = nullptr;
CKoRamwatcher::sElement CKoRamwatcher::dummyElement = {0, 0, 0, 0};

bool CKoRamwatcher::evalIsEnabled()
{
    const bool enabled = std::getenv("ENABLE_RAMWATCH") != nullptr;
    if (enabled)
    {
        static CKoCriticalSection criticalSection;
        const TKoAutoLock<CKoCriticalSection> lock(criticalSection);
        // Zeroed: no thread has the id 0, so a slot that was handed out but is not filled yet matches nobody.
        if (elements == nullptr)
        {
            elements = new sElement[MAX_ELEMENTS]();
        }
        if (threadIds == nullptr)
        {
            threadIds = new unsigned int[MAX_ELEMENTS]();
        }
    }
    mIsEnabled.store(enabled, std::memory_order_relaxed);
    // Release: pairs with the load in isEnabled.
    mIsInitialized.store(true, std::memory_order_release);
    return enabled;
}

CKoRamwatcher::sElement* CKoRamwatcher::getElement(unsigned int elementSize)
{
    if (elements == nullptr || threadIds == nullptr)
    {
        return &dummyElement;
    }
    const unsigned int self = static_cast<unsigned int>(KoOperatingSystem::getCurrentTID());
    // Relaxed: a thread looks for slots that it filled itself; what others fill meanwhile never matches.
    const unsigned int used = std::min(mIndex.load(std::memory_order_relaxed), MAX_ELEMENTS);
    for (unsigned int i = 0; i < used; ++i)
    {
        if (KoAtomic::load(threadIds[i]) == self && KoAtomic::load(elements[i].elementSize) == elementSize)
        {
            KoAtomic::add(elements[i].instanceCount, 1);
            return &elements[i];
        }
    }
    const unsigned int index = getNewIndex();
    if (index >= MAX_ELEMENTS)
    {
        return &dummyElement;
    }
    // The slot is zero but for the key; counting up instead of assigning keeps readers of other threads
    // well-defined.
    KoAtomic::add(elements[index].elementSize, elementSize);
    KoAtomic::add(threadIds[index], self);
    KoAtomic::add(elements[index].instanceCount, 1);
    return &elements[index];
}

unsigned int CKoRamwatcher::getNewIndex()
{
    // Relaxed: each caller gets a number of its own, and nothing is read through it by others.
    return mIndex.fetch_add(1, std::memory_order_relaxed);
}

void CKoRamwatcher::dumpWatches(sElement* out, unsigned int& count)
{
    if (out == nullptr)
    {
        doCheapAssert(__LINE__, "CKoRamwatcher");
        return;
    }
    const unsigned int used = std::min(mIndex.load(std::memory_order_relaxed), MAX_ELEMENTS);
    count = elements != nullptr && threadIds != nullptr ? std::min(count, used) : 0;
    for (unsigned int i = 0; i < count; ++i)
    {
        const unsigned int owner = KoAtomic::load(threadIds[i]);
        out[i].instanceCount = owner * THREAD_ID_FACTOR + KoAtomic::load(elements[i].instanceCount);
        out[i].elementCount = KoAtomic::load(elements[i].elementCount);
        out[i].capacityCount = KoAtomic::load(elements[i].capacityCount);
        out[i].elementSize = KoAtomic::load(elements[i].elementSize);
    }
}

void CKoRamwatcher::releaseElements()
{
    if (!isEnabled())
    {
        return;
    }
    delete[] elements;
    elements = nullptr;
    delete[] threadIds;
    threadIds = nullptr;
}

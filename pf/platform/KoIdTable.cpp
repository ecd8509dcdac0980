#include "pf/platform/KoIdTable.h"

#include "pf/oswrapper/KoMemory.h"

#include <algorithm>
#include <cerrno>

namespace
{

constexpr int FIRST_SLOTS = 16;

} // namespace

namespace KoPlatform
{

void IdTableBase::startOver() noexcept
{
    m_inherited = m_slots;
    clear();
}

void IdTableBase::clear() noexcept
{
    m_slots = nullptr;
    m_slotCount = 0;
    m_used = 0;
    m_hint = 1;
}

int IdTableBase::addObject(void* object, int lowest) noexcept
{
    const int id = lowestFree(std::max(lowest, m_hint));
    if (id > MAX_IDS)
    {
        errno = EAGAIN;
        return -1;
    }
    while (id > m_slotCount)
    {
        if (!grow())
        {
            return -1;
        }
    }
    m_slots[id - 1] = object;
    ++m_used;
    if (id == m_hint)
    {
        ++m_hint;
    }
    return id;
}

void* IdTableBase::findObject(int id) const noexcept
{
    return id >= 1 && id <= m_slotCount ? m_slots[id - 1] : nullptr;
}

void* IdTableBase::removeObject(int id) noexcept
{
    void* object = findObject(id);
    if (object == nullptr)
    {
        return nullptr;
    }
    m_slots[id - 1] = nullptr;
    m_hint = std::min(m_hint, id);
    if (--m_used == 0)
    {
        KoMemory::release(m_slots);
        clear();
    }
    return object;
}

bool IdTableBase::grow() noexcept
{
    const int count = std::max(FIRST_SLOTS, m_slotCount * 2);
    const unsigned int bytes = static_cast<unsigned int>(count) * static_cast<unsigned int>(sizeof(void*));
    void** slots = static_cast<void**>(KoMemory::alloc(bytes));
    if (slots == nullptr)
    {
        errno = ENOMEM;
        return false;
    }
    std::copy(m_slots, m_slots + m_slotCount, slots);
    std::fill(slots + m_slotCount, slots + count, nullptr);
    KoMemory::release(m_slots);
    m_slots = slots;
    m_slotCount = count;
    return true;
}

int IdTableBase::lowestFree(int lowest) const noexcept
{
    int id = lowest;
    while (id <= m_slotCount && m_slots[id - 1] != nullptr)
    {
        ++id;
    }
    return id;
}

} // namespace KoPlatform

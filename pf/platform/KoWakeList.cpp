#include "pf/platform/KoWakeList.h"

#include "pf/platform/KoChannelBell.h"
#include "pf/platform/KoFutex.h"

namespace KoPlatform
{

void WakeList::add(unsigned int& word) noexcept
{
    if (m_wordCount == CAPACITY)
    {
        futexWake(&word, 1, false);
        return;
    }
    m_words[m_wordCount++] = &word;
}

void WakeList::add(ChannelBell& bell) noexcept
{
    if (m_bell == nullptr)
    {
        m_bell = &bell;
        bell.retain();
    }
}

void WakeList::run() noexcept
{
    for (int i = 0; i < m_wordCount; ++i)
    {
        futexWake(m_words[i], 1, false);
    }
    if (m_bell != nullptr)
    {
        m_bell->ring();
        m_bell->release();
    }
}

} // namespace KoPlatform

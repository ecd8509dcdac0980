#include "Latest.h"

void Latest::add(const CKoByteStream& message)
{
    const unsigned int needed = sizeof(unsigned int) + message.length();
    if (needed > CAPACITY)
    {
        return;
    }
    while (m_ring.getFreeSize() < needed)
    {
        CKoByteStream oldest;
        m_ring >> oldest;
    }
    m_ring << message;
}

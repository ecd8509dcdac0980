#include "pf/stream/CKoBufferReader.h"

#include "pf/oswrapper/CKoAsserter.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

bool (CKoBufferReader::*const CKoBufferReader::ms_seektable[4])(int offset) = {
    &CKoBufferReader::seek_set,
    &CKoBufferReader::seek_cur,
    &CKoBufferReader::seek_end,
    &CKoBufferReader::seek_none,
};

CKoBufferReader::CKoBufferReader(const void* data, unsigned int size)
    : m_begin(static_cast<const unsigned char*>(data))
    , m_size(data == nullptr ? 0 : size)
    , m_current(m_begin)
{
    if (m_size == 0)
    {
        doCheapAssert(__LINE__, "CKoBufferReader");
    }
}

unsigned int CKoBufferReader::tell() const
{
    return static_cast<unsigned int>(m_current - m_begin);
}

bool CKoBufferReader::seek(int offset, SeekDirection direction)
{
    const unsigned int index = static_cast<unsigned int>(direction);
    return (this->*ms_seektable[std::min<unsigned int>(index, SEEK_DIRECTION_NONE)])(offset);
}

int CKoBufferReader::read(void* dst, unsigned int count, int)
{
    if (count == 0)
    {
        return 0;
    }
    if (dst == nullptr)
    {
        errno = EINVAL;
        return -1;
    }
    const unsigned int copied = std::min({count, m_size - tell(), static_cast<unsigned int>(INT_MAX)});
    if (copied > 0)
    {
        std::memcpy(dst, m_current, copied);
        m_current += copied;
    }
    return static_cast<int>(copied);
}

bool CKoBufferReader::seek_set(int offset)
{
    return moveTo(offset);
}

bool CKoBufferReader::seek_cur(int offset)
{
    return moveTo(static_cast<long long>(tell()) + offset);
}

bool CKoBufferReader::seek_end(int offset)
{
    return moveTo(static_cast<long long>(m_size) + offset);
}

bool CKoBufferReader::seek_none(int)
{
    errno = EINVAL;
    return false;
}

bool CKoBufferReader::moveTo(long long position)
{
    if (position < 0 || position > static_cast<long long>(m_size))
    {
        errno = EINVAL;
        return false;
    }
    m_current = m_begin + position;
    return true;
}

#include "pf/containers/CKoCircularByteBuffer.h"

#include "pf/oswrapper/KoSyslog.h"

// Positions are offsets into the storage here, wide enough for any sum.

/// Brings the new size, given as the position of the new end, into the storage.
/// \return whether the content can end there.
bool CKoCircularByteBuffer::findSize(long long& target) const
{
    const long long end = offsetOf(m_logicEnd);
    if (m_logicBegin < m_logicEnd)
    {
        return target <= end;
    }
    const long long span = storageSize();
    if (target <= span)
    {
        return true;
    }
    target -= span;
    return target <= end;
}

bool CKoCircularByteBuffer::setSize(unsigned int count)
{
    if (isInvalid())
    {
        KoSyslog::logMsg(0, KoSyslog::Error, "[CKoCircularByteBuffer::setSize:%d] invalid buffer", __LINE__);
        return false;
    }
    long long target = static_cast<long long>(offsetOf(m_logicBegin)) + count;
    if (count > capacity() || !findSize(target))
    {
        m_flags = WRITE_ERROR;
        return false;
    }
    m_logicEnd = m_physBegin + target;
    return true;
}

/// Brings the wanted begin into the storage. \return whether the content can begin there.
bool CKoCircularByteBuffer::findBegin(long long& target, bool isForward) const
{
    const long long span = storageSize();
    const long long end = offsetOf(m_logicEnd);
    const bool isInOneRun = m_logicBegin < m_logicEnd;
    if (isForward && !isInOneRun)
    {
        if (m_logicBegin == m_logicEnd)
        {
            return target == end; // nothing to discard
        }
        if (target <= span)
        {
            return true;
        }
        target -= span;
    }
    if (isForward)
    {
        return target <= end;
    }
    if (isInOneRun)
    {
        if (target >= 0)
        {
            return true;
        }
        target += span;
    }
    return target > end;
}

bool CKoCircularByteBuffer::moveRelativeBegin(int delta)
{
    if (isInvalid())
    {
        KoSyslog::logMsg(0, KoSyslog::Error, "[CKoCircularByteBuffer::moveRelativeBegin:%d] invalid buffer",
                         __LINE__);
        return false;
    }
    if (hasFlag(READ_ERROR))
    {
        return false;
    }
    long long target = static_cast<long long>(offsetOf(m_logicBegin)) + delta;
    if (!findBegin(target, delta >= 0))
    {
        m_flags |= READ_ERROR;
        return false;
    }
    m_logicBegin = m_physBegin + target;
    return true;
}

/// Brings the wanted end into the storage. \return whether the content can end there.
bool CKoCircularByteBuffer::findEnd(long long& target, bool isForward) const
{
    const long long span = storageSize();
    const long long begin = offsetOf(m_logicBegin);
    const bool isWrapped = m_logicBegin > m_logicEnd;
    if (isForward)
    {
        if (!isWrapped)
        {
            if (target < span)
            {
                return true;
            }
            target -= span;
        }
        return target < begin - 1;
    }
    if (isWrapped)
    {
        if (target >= 0)
        {
            return true;
        }
        target += span;
    }
    return target >= begin;
}

bool CKoCircularByteBuffer::moveRelativeEnd(int delta)
{
    if (isInvalid())
    {
        KoSyslog::logMsg(0, KoSyslog::Error, "[CKoCircularByteBuffer::moveRelativeEnd:%d] invalid buffer",
                         __LINE__);
        return false;
    }
    if (hasFlag(WRITE_ERROR))
    {
        return false;
    }
    long long target = static_cast<long long>(offsetOf(m_logicEnd)) + delta;
    if (!findEnd(target, delta >= 0))
    {
        m_flags |= WRITE_ERROR;
        return false;
    }
    m_logicEnd = m_physBegin + target;
    return true;
}

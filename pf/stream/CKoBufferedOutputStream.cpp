#include "pf/stream/CKoBufferedOutputStream.h"

#include "pf/oswrapper/CKoAsserter.h"

CKoBufferedOutputStream::CKoBufferedOutputStream(IKoOStream& target, unsigned int capacity, bool buffered)
    : m_target(target)
    , m_buffer(capacity)
    , m_threshold(buffered ? capacity : 0)
{
    if (buffered && capacity == 0)
    {
        doCheapAssert(__LINE__, "CKoBufferedOutputStream");
    }
}

CKoBufferedOutputStream::~CKoBufferedOutputStream()
{
    passOnAndFlush();
}

void CKoBufferedOutputStream::flush()
{
    passOnAndFlush();
}

bool CKoBufferedOutputStream::waitToWrite(int timeoutMs)
{
    return m_target.waitToWrite(timeoutMs);
}

unsigned int CKoBufferedOutputStream::doWrite(const void* src, unsigned int count)
{
    if (m_threshold == 0)
    {
        return m_buffer.write(src, count);
    }
    if (count >= m_threshold)
    {
        flush();
        return m_target.write(src, count);
    }
    const unsigned int written = m_buffer.write(src, count);
    if (m_buffer.length() >= m_threshold)
    {
        passOn();
    }
    return written;
}

void CKoBufferedOutputStream::passOn()
{
    if (m_buffer.length() > 0)
    {
        m_target.write(m_buffer.getData(), m_buffer.length());
        m_buffer = CKoByteStream();
    }
}

void CKoBufferedOutputStream::passOnAndFlush()
{
    passOn();
    m_target.flush();
}

#include "pf/stream/CKoBufferedOStream.h"

CKoBufferedOStream::CKoBufferedOStream(IKoOStream& target, const unsigned int& capacity)
    : m_target(target)
    , m_buffer(capacity)
{
}

CKoBufferedOStream::~CKoBufferedOStream()
{
    passOn();
}

void CKoBufferedOStream::flush()
{
    passOn();
}

bool CKoBufferedOStream::waitToWrite(int timeoutMs)
{
    return m_target.waitToWrite(timeoutMs);
}

unsigned int CKoBufferedOStream::doWrite(const void* src, unsigned int count)
{
    return m_buffer.write(src, count);
}

void CKoBufferedOStream::passOn()
{
    m_target << m_buffer;
    m_target.flush();
    m_buffer = CKoByteStream();
}

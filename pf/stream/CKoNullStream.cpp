#include "pf/stream/CKoNullStream.h"

#include "pf/oswrapper/KoLoadOrder.h"

CKoNullStream CKoNullStream::INSTANCE KO_INIT_ORDER(KoLoadOrder::NULL_STREAM);

CKoNullStream::~CKoNullStream() = default;

bool CKoNullStream::waitToRead(int)
{
    return false;
}

void CKoNullStream::ready()
{
}

void CKoNullStream::readSkip(unsigned int) const
{
}

unsigned int CKoNullStream::doRead(void*, unsigned int) const
{
    return 0;
}

void CKoNullStream::flush()
{
}

bool CKoNullStream::waitToWrite(int)
{
    return false;
}

void CKoNullStream::writeSkip(unsigned int)
{
}

unsigned int CKoNullStream::doWrite(const void*, unsigned int)
{
    return 0;
}

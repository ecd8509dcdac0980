#include "pf/containers/CKoBuffer.h"

#include "pf/oswrapper/CKoAsserter.h"
#include "pf/stream/CKoByteStream.h"
#include "pf/stream/IKoIStream.h"
#include "pf/stream/IKoOStream.h"

#include <algorithm>
#include <climits>
#include <cstring>

namespace
{

constexpr char FILE_TEXT[] = "CKoBuffer";

} // namespace

static_assert(sizeof(CKoBuffer) == sizeof(CKoRCMemoryBuffer), "no member of its own");

CKoBuffer::CKoBuffer(const CKoByteStream& stream)
    : CKoRCMemoryBuffer(stream.getMemoryBuffer())
{
    resize(stream.length(), isShared());
}

CKoBuffer& CKoBuffer::operator=(const CKoByteStream& stream)
{
    *this = CKoBuffer(stream);
    return *this;
}

void CKoBuffer::resize(unsigned int size, bool force)
{
    if (size == getSize() && !force)
    {
        return;
    }
    if (!isValidSize(size))
    {
        return doCheapAssert(__LINE__, FILE_TEXT);
    }

    SData* const block = createBlock(size);
    const unsigned int kept = std::min(size, getSize());
    if (kept > 0)
    {
        std::memcpy(block->data, m_data->data, kept);
    }
    replaceBlock(block);
}

void CKoBuffer::reserve(unsigned int size, bool force)
{
    if (size > getSize() || force)
    {
        resize(std::max(size, getSize()), force);
    }
}

void CKoBuffer::truncate(unsigned int size)
{
    if (isShared())
    {
        doCheapAssert(__LINE__, FILE_TEXT);
    }
    if (size >= getSize())
    {
        return resize(size, false);
    }
    if (size == 0)
    {
        return removeRef();
    }
    m_data->size = size;
}

unsigned int CKoBuffer::copyFrom(void* dst, unsigned int count, unsigned int offset) const
{
    if (offset >= getSize() || dst == nullptr)
    {
        return 0;
    }
    count = std::min(count, getSize() - offset);
    std::memcpy(dst, m_data->data + offset, count);
    return count;
}

unsigned int CKoBuffer::copyTo(const void* src, unsigned int count, unsigned int offset)
{
    if (src == nullptr)
    {
        return 0;
    }
    if (count > UINT_MAX - offset || !isValidSize(offset + count))
    {
        doCheapAssert(__LINE__, FILE_TEXT);
        return 0;
    }

    const bool shared = isShared();
    CKoBuffer old;
    if (shared || offset + count > getSize())
    {
        old = *this; // `src` may lie in the block that is replaced
    }
    reserve(offset + count, shared);
    if (count > 0)
    {
        std::memmove(m_data->data + offset, src, count);
    }
    return count;
}

void CKoBuffer::toNubStream(IKoOStream& stream, const CKoBuffer& buffer)
{
    stream.align(4);
    stream << buffer;
}

void CKoBuffer::fromNubStream(const IKoIStream& stream, CKoBuffer& buffer)
{
    stream.align(4);
    stream >> buffer;
}

IKoOStream& operator<<(IKoOStream& stream, const CKoBuffer& buffer)
{
    return stream << static_cast<const CKoRCMemoryBuffer&>(buffer);
}

const IKoIStream& operator>>(const IKoIStream& stream, CKoBuffer& buffer)
{
    return stream >> static_cast<CKoRCMemoryBuffer&>(buffer);
}

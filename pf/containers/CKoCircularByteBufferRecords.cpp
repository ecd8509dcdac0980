#include "pf/containers/CKoCircularByteBuffer.h"

#include "pf/oswrapper/CKoAsserter.h"
#include "pf/oswrapper/KoSyslog.h"
#include "pf/stream/KoStreamOperators.h"

#include <algorithm>
#include <cstring>

namespace
{

constexpr char FILE_TEXT[] = "CKoCircularByteBuffer";
constexpr unsigned int LENGTH_SIZE = sizeof(unsigned int);

/// Size of a buffer that was invalid when it was written.
constexpr unsigned int INVALID_SIZE = 0xFFFFFFFFU;

/// What is dropped of a content that is too long, in one read.
constexpr unsigned int DROPPED_PIECE = 1024;

/// Reads and drops `count` bytes, up to the first short read.
void drop(const IKoIStream& stream, unsigned int count)
{
    unsigned char dropped[DROPPED_PIECE];
    while (count > 0)
    {
        const unsigned int piece = std::min(count, DROPPED_PIECE);
        if (stream.read(dropped, piece) < piece)
        {
            return;
        }
        count -= piece;
    }
}

} // namespace

// --- Looking at the content -------------------------------------------------------------------------------

/// Where `count` bytes of the content at `offset`, which must be there, lie.
CKoCircularByteBuffer::SPieces CKoCircularByteBuffer::pieces(unsigned int offset, unsigned int count) const
{
    const unsigned int run = heldRun();
    if (offset >= run)
    {
        return {m_physBegin + (offset - run), count, m_physBegin, 0};
    }
    const unsigned int firstSize = std::min(count, run - offset);
    return {m_logicBegin + offset, firstSize, m_physBegin, count - firstSize};
}

/// Copies without reading.
void CKoCircularByteBuffer::peek(unsigned int offset, void* dst, unsigned int count) const
{
    const SPieces found = pieces(offset, count);
    std::memcpy(dst, found.first, found.firstSize);
    std::memcpy(static_cast<unsigned char*>(dst) + found.firstSize, found.second, found.secondSize);
}

bool CKoCircularByteBuffer::matches(unsigned int offset, const void* bytes, unsigned int count) const
{
    const SPieces found = pieces(offset, count);
    const auto* const rest = static_cast<const unsigned char*>(bytes) + found.firstSize;
    return std::memcmp(bytes, found.first, found.firstSize) == 0 &&
           std::memcmp(rest, found.second, found.secondSize) == 0;
}

bool CKoCircularByteBuffer::operator==(const CKoCircularByteBuffer& other) const
{
    if (this == &other)
    {
        return true;
    }
    if (isInvalid())
    {
        KoSyslog::logMsg(0, KoSyslog::Error, "[CKoCircularByteBuffer::operator ==:%d] invalid buffer",
                         __LINE__);
        return other.isInvalid();
    }
    if (other.isInvalid() || held() != other.held())
    {
        return false;
    }
    const SPieces own = pieces(0, held());
    return other.matches(0, own.first, own.firstSize) &&
           other.matches(own.firstSize, own.second, own.secondSize);
}

// --- String records ---------------------------------------------------------------------------------------

unsigned int CKoCircularByteBuffer::serializeString(const CKoString& string)
{
    const unsigned int room = std::max(getFreeSize(), LENGTH_SIZE) - LENGTH_SIZE;
    IKoOStream& stream = *this;
    stream << string.byteLength();
    const unsigned int count = std::min(room, string.byteLength());
    return count > 0 ? stream.write(string.c_str(), count) : 0U;
}

/// Compares lengths before texts, so that the length of something else costs nothing.
bool CKoCircularByteBuffer::beginsWith(const CKoString& string) const
{
    const unsigned int available = size();
    if (available < LENGTH_SIZE || available - LENGTH_SIZE < string.byteLength())
    {
        return false;
    }
    unsigned char length[LENGTH_SIZE];
    peek(0, length, LENGTH_SIZE);
    const unsigned int recordLength = length[0] | static_cast<unsigned int>(length[1]) << 8U |
                                      static_cast<unsigned int>(length[2]) << 16U |
                                      static_cast<unsigned int>(length[3]) << 24U;
    return recordLength == string.byteLength() && matches(LENGTH_SIZE, string.c_str(), recordLength);
}

bool CKoCircularByteBuffer::goNextString(const CKoString& string)
{
    while (size() >= string.length())
    {
        if (beginsWith(string))
        {
            return true;
        }
        if (!moveRelativeBegin(1))
        {
            return false;
        }
    }
    return false;
}

CKoString CKoCircularByteBuffer::toString(const unsigned char* from, const unsigned char* to) const
{
    if (isInvalid() || from == to)
    {
        return EMPTY_STRING;
    }
    if (!isInStorage(from) || !isInStorage(to))
    {
        doCheapAssert(__LINE__, FILE_TEXT);
        return EMPTY_STRING;
    }
    if (from < to)
    {
        return CKoString(reinterpret_cast<const char*>(from), static_cast<unsigned int>(to - from));
    }
    // In one piece first: a character may lie around the end of the storage.
    const auto firstSize = static_cast<unsigned int>(m_physEnd - from);
    const auto secondSize = static_cast<unsigned int>(to - m_physBegin);
    CKoRCMemoryBuffer joined(firstSize + secondSize);
    if (joined.getSize() == 0)
    {
        return EMPTY_STRING;
    }
    std::memcpy(joined.getBuffer(), from, firstSize);
    std::memcpy(joined.getBuffer() + firstSize, m_physBegin, secondSize);
    return CKoString(reinterpret_cast<const char*>(joined.getBuffer()), joined.getSize());
}

// --- The buffer as a value in a stream --------------------------------------------------------------------

void CKoCircularByteBuffer::writeTo(IKoOStream& stream) const
{
    if (isInvalid())
    {
        stream << INVALID_SIZE;
        return;
    }
    // Taken before anything is written: the stream may be this buffer.
    const SPieces content = pieces(0, held());
    stream << content.firstSize + content.secondSize;
    if (content.firstSize > 0 && stream.write(content.first, content.firstSize) < content.firstSize)
    {
        return;
    }
    if (content.secondSize > 0)
    {
        stream.write(content.second, content.secondSize);
    }
}

/// The size in the stream is a claim: no more is kept than the buffer can hold, and no more is asked for
/// after the stream came short.
void CKoCircularByteBuffer::readFrom(const IKoIStream& stream)
{
    reset();
    unsigned int count = 0;
    stream >> count;
    if (count == INVALID_SIZE)
    {
        m_flags = INVALID;
        return;
    }
    const unsigned int kept = std::min(count, capacity());
    const unsigned int arrived = kept > 0 ? std::min(kept, stream.read(m_physBegin, kept)) : 0U;
    m_logicEnd = m_physBegin + arrived;
    if (arrived == kept && count > kept)
    {
        m_flags |= WRITE_ERROR;
        drop(stream, count - kept);
    }
}

IKoOStream& operator<<(IKoOStream& stream, const CKoCircularByteBuffer& buffer)
{
    buffer.writeTo(stream);
    return stream;
}

const IKoIStream& operator>>(const IKoIStream& stream, CKoCircularByteBuffer& buffer)
{
    buffer.readFrom(stream);
    return stream;
}

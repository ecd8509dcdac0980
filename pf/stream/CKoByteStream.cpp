#include "pf/stream/CKoByteStream.h"

#include "pf/base/CKoString.h"
#include "pf/base/KoShortCopy.h"
#include "pf/containers/CKoBuffer.h"
#include "pf/oswrapper/CKoAsserter.h"

#include <algorithm>
#include <climits>
#include <functional>

namespace
{

constexpr char FILE_TEXT[] = "CKoByteStream";
constexpr unsigned int FIRST_CAPACITY = 32;

/// What is allocated on the word of a stream alone, before a byte has come.
constexpr unsigned int FIRST_PIECE_SIZE = 64 * 1024;

/// The capacity for bytes that do not fit: doubled from the first one, as far as there are blocks.
unsigned int grownCapacity(unsigned int need)
{
    unsigned long long capacity = FIRST_CAPACITY;
    while (capacity < need)
    {
        capacity *= 2;
    }
    return static_cast<unsigned int>(std::min<unsigned long long>(capacity, CKoRCMemoryBuffer::MAX_SIZE));
}

/// Copies at least one byte.
inline void copyBytes(void* dst, const void* src, unsigned int count)
{
    if (count <= KoPrivate::SHORT_COPY)
    {
        KoPrivate::copyShort(static_cast<char*>(dst), static_cast<const char*>(src), count);
    }
    else
    {
        std::memcpy(dst, src, count);
    }
}

/// The bytes of a string's length come first.
constexpr unsigned int PREFIX_SIZE = 4;

inline void storePrefix(unsigned char* at, unsigned int length)
{
    for (unsigned int i = 0; i < PREFIX_SIZE; ++i)
    {
        at[i] = static_cast<unsigned char>(length >> 8U * i);
    }
}

inline unsigned int loadPrefix(const unsigned char* at)
{
    return static_cast<unsigned int>(at[0]) | static_cast<unsigned int>(at[1]) << 8U |
           static_cast<unsigned int>(at[2]) << 16U | static_cast<unsigned int>(at[3]) << 24U;
}

} // namespace

CKoByteStream::CKoByteStream(unsigned int capacity)
{
    reserve(capacity);
}

CKoByteStream::CKoByteStream(const CKoRCMemoryBuffer& buffer, unsigned int length)
    : m_buffer(buffer)
    , m_length(std::min(length, buffer.getSize()))
{
    if (length > m_length)
    {
        doCheapAssert(__LINE__, FILE_TEXT);
    }
}

CKoByteStream::CKoByteStream(const CKoBuffer& buffer)
    : m_buffer(buffer)
    , m_length(buffer.getSize())
{
}

CKoByteStream::CKoByteStream(const CKoByteStream& other)
    : IKoIOStream(other)
    , m_buffer(other.m_buffer)
    , m_length(other.m_length)
{
}

CKoByteStream::~CKoByteStream() = default;

CKoByteStream& CKoByteStream::operator=(const CKoByteStream& other)
{
    const unsigned int length = other.m_length;
    if (length != 0)
    {
        m_buffer = other.m_buffer;
    }
    empty();
    m_length = length;
    return *this;
}

CKoByteStream& CKoByteStream::operator=(const CKoBuffer& buffer)
{
    m_buffer = buffer;
    empty();
    m_length = buffer.getSize();
    return *this;
}

unsigned int CKoByteStream::doWrite(const void* src, unsigned int count)
{
    if (src == nullptr || !hasRoom(count))
    {
        return append(src, count);
    }
    copyBytes(m_buffer.getUnsharedBuffer() + m_length, src, count);
    m_length += count;
    return count;
}

unsigned int CKoByteStream::doRead(void* dst, unsigned int count) const
{
    if (m_error || dst == nullptr || !hasRest(count))
    {
        return readRest(dst, count);
    }
    copyBytes(dst, getData() + m_position, count);
    m_position += count;
    return count;
}

void CKoByteStream::readSkip(unsigned int count) const
{
    if (m_error)
    {
        return;
    }
    const unsigned int skipped = std::min(count, m_length - m_position);
    m_position += skipped;
    m_error = skipped < count;
}

bool CKoByteStream::waitToRead(int)
{
    return m_position < m_length;
}

bool CKoByteStream::waitToWrite(int)
{
    return true;
}

void CKoByteStream::flush()
{
}

void CKoByteStream::ready()
{
}

void CKoByteStream::reserve(unsigned int capacity, bool force)
{
    if (capacity <= m_buffer.getSize() && !force)
    {
        return;
    }
    if (capacity > CKoRCMemoryBuffer::MAX_SIZE)
    {
        return doCheapAssert(__LINE__, FILE_TEXT);
    }
    const unsigned int kept = std::min(capacity, m_buffer.getSize());
    m_buffer.makePrivate(capacity);
    if (kept < capacity)
    {
        // What toNubStream writes behind the content is nobody's old data.
        std::memset(m_buffer.getUnsharedBuffer() + kept, 0, capacity - kept);
    }
    m_length = std::min(m_length, capacity);
    m_position = std::min(m_position, m_length);
}

unsigned int CKoByteStream::readFromIStream(const IKoIStream& in, unsigned int count)
{
    return appendFrom(in, count, false);
}

CKoString CKoByteStream::toString() const
{
    if (m_position > m_length) // no call leaves it there; without this, rest would be any number
    {
        doCheapAssert(__LINE__, FILE_TEXT);
        return CKoString();
    }
    const unsigned int rest = m_length - m_position;
    if (rest == 0)
    {
        return CKoString();
    }
    const char* const text = reinterpret_cast<const char*>(getData()) + m_position;
    const void* const zero = std::memchr(text, '\0', rest);
    const unsigned int size =
        zero == nullptr ? rest : static_cast<unsigned int>(static_cast<const char*>(zero) - text);
    CKoString result(text, size);
    const bool isWhole = result.byteLength() == size;
    m_position += result.byteLength() + (isWhole && zero != nullptr ? 1U : 0U);
    return result;
}

void CKoByteStream::dump(CKoString& out) const
{
    constexpr char DIGITS[] = "0123456789ABCDEF";
    constexpr unsigned int LINE = 64;
    const unsigned char* const data = getData();
    CKoString text;
    const unsigned int size = static_cast<unsigned int>(std::min(3ULL * m_length, 0ULL + UINT_MAX));
    text.reserve(size);
    if (text.capacity() < size)
    {
        return; // no string can be so long, and the string has said so
    }
    for (unsigned int i = 0; i < m_length;)
    {
        char line[3 * LINE];
        const unsigned int end = std::min(m_length - i, LINE) + i;
        char* at = line;
        for (; i < end; ++i)
        {
            *at++ = DIGITS[data[i] >> 4U];
            *at++ = DIGITS[data[i] & 0xFU];
            *at++ = ' ';
        }
        text.internalAppend(line, static_cast<unsigned int>(at - line));
    }
    out.append(text);
}

bool CKoByteStream::operator==(const CKoByteStream& other) const
{
    if (m_length != other.m_length)
    {
        return false;
    }
    return m_length == 0 || getData() == other.getData() ||
           std::memcmp(getData(), other.getData(), m_length) == 0;
}

void CKoByteStream::toNubStream(IKoOStream& out, const CKoByteStream& stream)
{
    out.align(4);
    out << stream.m_buffer;
}

void CKoByteStream::fromNubStream(const IKoIStream& in, CKoByteStream& stream)
{
    in.align(4);
    // Into a block of its own, which gets the size that is read; the old bytes are not behind the new ones.
    CKoByteStream result;
    in >> result;
    if (result.m_error)
    {
        result.reserve(result.m_length, true);
    }
    stream.m_buffer = result.m_buffer;
    stream.empty();
    stream.m_length = result.m_length;
    stream.m_error = result.m_error;
}

/// What doWrite leaves: nothing to write, nothing to write from, no room.
unsigned int CKoByteStream::append(const void* src, unsigned int count)
{
    if (count == 0)
    {
        return 0;
    }
    // A content that no block can hold would leave the stream without a buffer.
    if (src == nullptr || count > CKoRCMemoryBuffer::MAX_SIZE - m_length)
    {
        doCheapAssert(__LINE__, FILE_TEXT);
        return 0;
    }
    // `src` may lie in the block that is replaced.
    const unsigned char* const data = getData();
    const bool isOwn = !std::less<>()(src, static_cast<const void*>(data)) &&
                       std::less<>()(src, static_cast<const void*>(data + m_length));
    const std::ptrdiff_t offset = isOwn ? static_cast<const unsigned char*>(src) - data : 0;
    const unsigned int need = m_length + count;
    reserve(need <= m_buffer.getSize() ? need : grownCapacity(need), m_buffer.isShared());
    std::memcpy(m_buffer.getUnsharedBuffer() + m_length, isOwn ? getData() + offset : src, count);
    m_length = need;
    return count;
}

/// What doRead leaves: nothing to read, nowhere to put it, too few bytes.
unsigned int CKoByteStream::readRest(void* dst, unsigned int count) const
{
    if (m_error || count == 0)
    {
        return 0;
    }
    if (dst == nullptr)
    {
        doCheapAssert(__LINE__, FILE_TEXT);
        return 0;
    }
    const unsigned int rest = m_length - m_position;
    if (rest > 0)
    {
        std::memcpy(dst, getData() + m_position, rest);
    }
    std::memset(static_cast<unsigned char*>(dst) + rest, 0, count - rest);
    m_position = m_length;
    m_error = true;
    return rest;
}

/// Bytes that can be appended in place.
unsigned int CKoByteStream::room() const
{
    return m_buffer.isShared() || m_buffer.getSize() < m_length ? 0U : m_buffer.getSize() - m_length;
}

/// Reads in pieces, each as large as all that came before, so that no more than a small multiple of the bytes
/// that came (and the first piece) is ever allocated. \param isExact whether the block is to have no room
/// behind the last piece. \return the bytes that came.
unsigned int CKoByteStream::appendFrom(const IKoIStream& in, unsigned int count, bool isExact)
{
    count = std::min(count, CKoRCMemoryBuffer::MAX_SIZE - m_length);
    unsigned int arrived = 0;
    while (arrived < count)
    {
        const unsigned int piece = std::min(count - arrived, std::max({room(), arrived, FIRST_PIECE_SIZE}));
        if (piece > room())
        {
            const unsigned int need = m_length + piece;
            const bool fits = isExact || need <= m_buffer.getSize();
            reserve(fits ? need : grownCapacity(need), m_buffer.isShared());
        }
        const unsigned int got = std::min(piece, in.read(m_buffer.getUnsharedBuffer() + m_length, piece));
        m_length += got;
        arrived += got;
        if (got < piece)
        {
            break;
        }
    }
    return arrived;
}

/// Reads a whole string whose bytes lie here, without a buffer between. \return false when it has none, or
/// not all of them do: then nothing has happened.
bool CKoByteStream::readWhole(CKoString& string) const
{
    const unsigned int rest = m_length - m_position;
    if (m_error || rest < PREFIX_SIZE)
    {
        return false;
    }
    const unsigned char* const data = getData() + m_position;
    const unsigned int length = loadPrefix(data);
    if (length == 0 || length > rest - PREFIX_SIZE)
    {
        return false;
    }
    // The text gets a block of exactly its size; one that is at hand is taken.
    if (string.capacity() == length)
    {
        string.clear();
    }
    else
    {
        string = CKoString(length);
    }
    string.charConstruct(reinterpret_cast<const char*>(data) + PREFIX_SIZE, length, 0);
    m_position += PREFIX_SIZE + length;
    return true;
}

void CKoByteStream::empty()
{
    m_length = 0;
    m_position = 0;
    m_error = false;
}

void CKoByteStream::restoreFrom(const IKoIStream& in)
{
    unsigned int claimed = 0;
    const bool isKnown = KoPrivate::readValue(in, &claimed, sizeof(claimed)) == sizeof(claimed);
    claimed = isKnown ? claimed : 0;
    empty();
    reserve(std::min(claimed, FIRST_PIECE_SIZE), m_buffer.isShared());
    m_error = appendFrom(in, claimed, true) < claimed || !isKnown;
}

IKoOStream& operator<<(IKoOStream& out, const CKoByteStream& stream)
{
    const unsigned int length = stream.length();
    out << length;
    if (length > 0)
    {
        out.write(stream.getData(), length);
    }
    return out;
}

const IKoIStream& operator>>(const IKoIStream& in, CKoByteStream& stream)
{
    if (&in == static_cast<const IKoIStream*>(&stream))
    {
        const CKoByteStream source(stream);
        stream.restoreFrom(source);
    }
    else
    {
        stream.restoreFrom(in);
    }
    return in;
}

CKoByteStream& operator<<(CKoByteStream& out, const CKoString& string)
{
    const unsigned int length = string.byteLength();
    if (length == 0 || !out.hasRoom(0ULL + PREFIX_SIZE + length))
    {
        static_cast<IKoOStream&>(out) << string;
        return out;
    }
    unsigned char* const at = out.m_buffer.getUnsharedBuffer() + out.m_length;
    storePrefix(at, length);
    copyBytes(at + PREFIX_SIZE, string.c_str(), length);
    out.m_length += PREFIX_SIZE + length;
    return out;
}

const CKoByteStream& operator>>(const CKoByteStream& in, CKoString& string)
{
    if (!in.readWhole(string))
    {
        static_cast<const IKoIStream&>(in) >> string;
    }
    return in;
}

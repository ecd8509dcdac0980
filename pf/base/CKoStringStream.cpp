#include "pf/base/CKoString.h"
#include "pf/stream/IKoIStream.h"
#include "pf/stream/IKoOStream.h"
#include "pf/stream/KoStreamOperators.h"

#include <algorithm>

namespace
{

/// A length that a stream claims is believed up to here; beyond it memory is taken as bytes arrive.
constexpr unsigned int FIRST_PIECE = 64U * 1024U;

unsigned int readLength(const IKoIStream& stream)
{
    unsigned int length = 0;
    stream >> length;
    return length;
}

} // namespace

IKoOStream& operator<<(IKoOStream& stream, const CKoString& string)
{
    stream << string.byteLength();
    if (!string.isEmpty())
    {
        stream.write(string.c_str(), string.byteLength());
    }
    return stream;
}

const IKoIStream& operator>>(const IKoIStream& stream, CKoString& string)
{
    string.assignFrom(stream, readLength(stream), 0U);
    return stream;
}

void CKoString::toNubStream(IKoOStream& stream, const CKoString& string)
{
    stream.align(4U);
    stream << string.byteLength();
    stream.write(string.c_str(), string.byteLength() + 1U);
}

void CKoString::fromNubStream(const IKoIStream& stream, CKoString& string)
{
    stream.align(4U);
    string.assignFrom(stream, readLength(stream), 1U);
}

/// Reads `length` bytes of text and `terminators` (0 or 1) bytes behind them, which fit where the terminating
/// zero goes.
void CKoString::assignFrom(const IKoIStream& stream, unsigned int length, unsigned int terminators)
{
    if (length == 0U)
    {
        if (terminators != 0U)
        {
            char terminator;
            stream.read(&terminator, terminators);
        }
        truncate(0U);
        return;
    }
    if (!isValidCapacity(length))
    {
        reportCapacity(__LINE__, "CKoString::ctor", length);
        return;
    }
    CKoString text(std::min(length, FIRST_PIECE));
    const unsigned int arrived = text.fillFrom(stream, length, terminators);
    // The bytes are in place; from here on they count only as far as they are valid.
    text.m_data->byteLength = 0U;
    text.m_data->charCount = 0U;
    text.charConstruct(text.c_str(), std::min(arrived, length), 0U);
    *this = text;
}

/// Reads into the block, which grows as long as bytes arrive and ends with a capacity of `length`.
/// \return bytes that arrived.
unsigned int CKoString::fillFrom(const IKoIStream& stream, unsigned int length, unsigned int terminators)
{
    unsigned int arrived = 0;
    for (;;)
    {
        const bool isLastPiece = m_data->capacity == length;
        const unsigned int asked = m_data->capacity - arrived + (isLastPiece ? terminators : 0U);
        const unsigned int got = stream.read(m_data->text() + arrived, asked);
        arrived += std::min(got, asked);
        if (isLastPiece || got < asked)
        {
            return arrived;
        }
        // What has arrived counts as text, so that it is kept when the block grows.
        setLength(arrived, arrived);
        reserve(length - arrived < arrived ? length : 2U * arrived);
    }
}

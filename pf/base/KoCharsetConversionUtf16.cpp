#include "pf/base/KoCharsetConversion.h"

#include "pf/base/CKoStringFiller.h"
#include "pf/base/KoByteVector.h"
#include "pf/base/KoUtf8.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace
{

using KoPrivate::CKoStringFiller;
using KoPrivate::isContinuation;

constexpr unsigned int FIRST_HIGH_SURROGATE = 0xD800U;
constexpr unsigned int FIRST_LOW_SURROGATE = 0xDC00U;
constexpr unsigned int FIRST_IN_PAIRS = 0x10000U;

bool isHighSurrogate(unsigned int unit)
{
    return (unit & 0xFC00U) == FIRST_HIGH_SURROGATE;
}

bool isLowSurrogate(unsigned int unit)
{
    return (unit & 0xFC00U) == FIRST_LOW_SURROGATE;
}

unsigned int byteAt(const char* bytes, unsigned int index)
{
    return static_cast<unsigned char>(bytes[index]);
}

// --- To UTF-16 --------------------------------------------------------------------------------------------

/// A way from a text to units.
struct SToUnits
{
    const char* in;
    const char* end;
    unsigned short* out;
    unsigned short* limit;

    std::size_t bytesLeft() const { return static_cast<std::size_t>(end - in); }
    std::size_t room() const { return static_cast<std::size_t>(limit - out); }
};

void widenAscii(SToUnits& way)
{
#if KO_HAS_BYTE_VECTOR
    using HalfVector = unsigned char __attribute__((vector_size(8)));
    using UnitVector = unsigned short __attribute__((vector_size(16)));
    constexpr unsigned int VECTOR_SIZE = KoPrivate::VECTOR_SIZE;
    while (way.bytesLeft() >= VECTOR_SIZE && way.room() >= VECTOR_SIZE &&
           !KoPrivate::hasTopBit(KoPrivate::loadVector(way.in)))
    {
        HalfVector halves[2];
        std::memcpy(halves, way.in, sizeof(halves));
        const UnitVector units[2] = {__builtin_convertvector(halves[0], UnitVector),
                                     __builtin_convertvector(halves[1], UnitVector)};
        std::memcpy(way.out, units, sizeof(units));
        way.in += VECTOR_SIZE;
        way.out += VECTOR_SIZE;
    }
#endif
    while (way.in != way.end && way.out != way.limit && byteAt(way.in, 0U) < 0x80U)
    {
        *way.out++ = static_cast<unsigned char>(*way.in++);
    }
}

/// Sequences of two bytes. The zero behind the text ends every row of continuation bytes.
void decodeTwoBytes(SToUnits& way)
{
    while (byteAt(way.in, 0U) >= 0xC2U && byteAt(way.in, 0U) <= 0xDFU && isContinuation(way.in[1]) &&
           way.out != way.limit)
    {
        *way.out++ = static_cast<unsigned short>((byteAt(way.in, 0U) << 6U) + byteAt(way.in, 1U) - 0x3080U);
        way.in += 2;
    }
}

/// Sequences of three bytes, none of them overlong or for a surrogate.
void decodeThreeBytes(SToUnits& way)
{
    while ((byteAt(way.in, 0U) & 0xF0U) == 0xE0U && isContinuation(way.in[1]) && isContinuation(way.in[2]) &&
           way.out != way.limit)
    {
        const unsigned int unit =
            (byteAt(way.in, 0U) << 12U) + (byteAt(way.in, 1U) << 6U) + byteAt(way.in, 2U) - 0xE2080U;
        if (unit < 0x800U || (unit & 0xF800U) == FIRST_HIGH_SURROGATE)
        {
            return;
        }
        *way.out++ = static_cast<unsigned short>(unit);
        way.in += 3;
    }
}

/// Sequences of four bytes, which become pairs; none of them overlong or beyond 10FFFF.
void decodeFourBytes(SToUnits& way)
{
    while ((byteAt(way.in, 0U) & 0xF8U) == 0xF0U && isContinuation(way.in[1]) && isContinuation(way.in[2]) &&
           isContinuation(way.in[3]) && way.room() >= 2U)
    {
        const unsigned int codePoint = (byteAt(way.in, 0U) << 18U) + (byteAt(way.in, 1U) << 12U) +
                                       (byteAt(way.in, 2U) << 6U) + byteAt(way.in, 3U) - 0x3C82080U;
        if (codePoint < FIRST_IN_PAIRS || codePoint > 0x10FFFFU)
        {
            return;
        }
        const unsigned int above = codePoint - FIRST_IN_PAIRS;
        *way.out++ = static_cast<unsigned short>(FIRST_HIGH_SURROGATE + (above >> 10U));
        *way.out++ = static_cast<unsigned short>(FIRST_LOW_SURROGATE + (above & 0x3FFU));
        way.in += 4;
    }
}

// --- From UTF-16 ------------------------------------------------------------------------------------------

/// Units of ASCII that are taken at once.
constexpr unsigned int ASCII_PIECE = 16U;

/// What a row of units becomes.
struct SExtent
{
    unsigned long long bytes;
    unsigned int characters;
};

#if KO_HAS_BYTE_VECTOR

using UnitVector = unsigned short __attribute__((vector_size(16)));

constexpr unsigned int UNITS = sizeof(UnitVector) / sizeof(unsigned short);

UnitVector loadUnits(const unsigned short* units)
{
    UnitVector vector;
    std::memcpy(&vector, units, sizeof(vector));
    return vector;
}

UnitVector spreadUnit(unsigned int unit)
{
    return UnitVector{} + static_cast<unsigned short>(unit);
}

unsigned int sumUnits(UnitVector vector)
{
    unsigned int sum = 0;
    for (unsigned int i = 0; i != UNITS; ++i)
    {
        sum += vector[i];
    }
    return sum;
}

/// True for sixteen units of ASCII, none of them zero.
bool areAscii(const unsigned short* units)
{
    const UnitVector both[2] = {loadUnits(units), loadUnits(units + UNITS)};
    const UnitVector one = spreadUnit(1U);
    const UnitVector odd = (both[0] | both[1] | (both[0] - one) | (both[1] - one)) & spreadUnit(0xFF80U);
    return !KoPrivate::isAnySet(reinterpret_cast<KoPrivate::ByteMask>(odd != UnitVector{}));
}

/// Sixteen units of ASCII, none of them zero, to as many bytes. \return false for others.
bool narrowAscii(char* target, const unsigned short* units)
{
    using WideVector = unsigned short __attribute__((vector_size(32)));
    if (!areAscii(units))
    {
        return false;
    }
    WideVector wide;
    std::memcpy(&wide, units, sizeof(wide));
    const auto narrow = __builtin_convertvector(wide, KoPrivate::ByteVector);
    std::memcpy(target, &narrow, sizeof(narrow));
    return true;
}

/// Adds what whole vectors of units become, each of which has one unit more behind it. \return the units.
unsigned int measureVectors(const unsigned short* units, unsigned int count, SExtent& extent)
{
    constexpr unsigned int MOST = 8192U * UNITS; // counts of up to three for each vector fit a unit
    const unsigned int whole = count == 0U ? 0U : std::min((count - 1U) / UNITS * UNITS, MOST);
    UnitVector characters{};
    UnitVector bytes{};
    UnitVector pairs{};
    for (unsigned int at = 0; at != whole; at += UNITS)
    {
        const UnitVector unit = loadUnits(units + at);
        const auto isThere = reinterpret_cast<UnitVector>(unit != UnitVector{});
        const auto isTwo = reinterpret_cast<UnitVector>(unit >= spreadUnit(0x80U));
        const auto isThree = reinterpret_cast<UnitVector>(unit >= spreadUnit(0x800U));
        const auto isHigh =
            reinterpret_cast<UnitVector>((unit & spreadUnit(0xFC00U)) == spreadUnit(FIRST_HIGH_SURROGATE));
        const auto isLowNext = reinterpret_cast<UnitVector>(
            (loadUnits(units + at + 1U) & spreadUnit(0xFC00U)) == spreadUnit(FIRST_LOW_SURROGATE));
        characters -= isThere;
        bytes -= isThere + isTwo + isThree;
        pairs -= isHigh & isLowNext;
    }
    const unsigned int pairCount = sumUnits(pairs);
    extent.bytes += sumUnits(bytes) - 2U * pairCount;
    extent.characters += sumUnits(characters) - pairCount;
    return whole;
}

#else

bool areAscii(const unsigned short*)
{
    return false;
}

bool narrowAscii(char*, const unsigned short*)
{
    return false;
}

unsigned int measureVectors(const unsigned short*, unsigned int, SExtent&)
{
    return 0U;
}

#endif

/// A pair is any high surrogate with a low one behind it. It has one character and four bytes, where its
/// units would have three each.
SExtent measure(const unsigned short* units, unsigned int count)
{
    unsigned int at = 0;
    while (count - at >= ASCII_PIECE && areAscii(units + at))
    {
        at += ASCII_PIECE;
    }
    SExtent extent = {at, at};
    while (at != count)
    {
        const unsigned int whole = measureVectors(units + at, count - at, extent);
        at += whole;
        if (whole == 0U)
        {
            const unsigned int unit = units[at];
            const bool isPair = isHighSurrogate(unit) && at + 1U != count && isLowSurrogate(units[at + 1U]);
            extent.characters += unit == 0U || isPair ? 0U : 1U;
            extent.bytes += isPair ? 1U : unit == 0U ? 0U : KoPrivate::encodedLength(unit);
            ++at;
        }
    }
    return extent;
}

/// \return the bytes written.
unsigned int encodeUnits(char* target, const unsigned short* units, unsigned int count)
{
    char* out = target;
    unsigned int next = 0; // where pieces of ASCII are looked for again
    for (unsigned int at = 0; at != count;)
    {
        if (at >= next && count - at >= ASCII_PIECE)
        {
            next = at + ASCII_PIECE;
            if (narrowAscii(out, units + at))
            {
                out += ASCII_PIECE;
                at += ASCII_PIECE;
                continue;
            }
        }
        const unsigned int unit = units[at++];
        if (unit < 0x80U)
        {
            *out = static_cast<char>(unit);
            out += unit != 0U ? 1 : 0;
        }
        else if (isHighSurrogate(unit) && at != count && isLowSurrogate(units[at]))
        {
            const unsigned int low = units[at++];
            const unsigned int codePoint = FIRST_IN_PAIRS + ((unit & 0x3FFU) << 10U) + (low & 0x3FFU);
            out += KoPrivate::encodeUtf8(out, codePoint);
        }
        else if (unit < 0x800U)
        {
            out[0] = static_cast<char>(0xC0U | unit >> 6U);
            out[1] = static_cast<char>(0x80U | (unit & 0x3FU));
            out += 2;
        }
        else
        {
            out[0] = static_cast<char>(0xE0U | unit >> 12U);
            out[1] = static_cast<char>(0x80U | (unit >> 6U & 0x3FU));
            out[2] = static_cast<char>(0x80U | (unit & 0x3FU));
            out += 3;
        }
    }
    return static_cast<unsigned int>(out - target);
}

} // namespace

bool convertUTF8ToUTF16(const CKoString& text, unsigned short* buffer, unsigned int& count)
{
    if (buffer == nullptr)
    {
        return false;
    }
    // The zero behind the text is converted as well, and stops every look ahead.
    const char* const end = text.c_str() + text.byteLength() + 1U;
    // No sequence becomes more units than it has bytes.
    const unsigned int room = std::min(count, text.byteLength() + 1U);
    SToUnits way = {text.c_str(), end, buffer, buffer + room};
    const char* before = nullptr;
    while (way.in != way.end && way.in != before)
    {
        before = way.in;
        widenAscii(way);
        if (way.in != way.end)
        {
            decodeTwoBytes(way);
            decodeThreeBytes(way);
            decodeFourBytes(way);
        }
    }
    if (way.in != way.end)
    {
        return false;
    }
    count = static_cast<unsigned int>(way.out - buffer);
    return true;
}

bool convertUTF16ToUTF8(const unsigned short* units, CKoString& target, unsigned int count)
{
    if (units == nullptr)
    {
        return false;
    }
    const bool isCutOff = count != 0U && isHighSurrogate(units[count - 1U]);
    const unsigned int whole = isCutOff ? count - 1U : count;
    const SExtent extent = measure(units, whole);
    if (extent.bytes == 0U)
    {
        return !isCutOff;
    }
    const unsigned int before = target.byteLength();
    const unsigned int characters = target.length() + extent.characters;
    if (!CKoStringFiller::makePrivate(target, before + extent.bytes))
    {
        return false;
    }
    const unsigned int written = encodeUnits(CKoStringFiller::text(target) + before, units, whole);
    CKoStringFiller::setLength(target, before + written, characters);
    return !isCutOff;
}

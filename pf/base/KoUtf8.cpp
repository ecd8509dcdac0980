#include "pf/base/KoUtf8.h"

#include "pf/base/KoByteVector.h"
#include "pf/oswrapper/KoSyslog.h"

#include <algorithm>
#include <cstddef>

namespace KoPrivate
{

namespace
{

/// Bytes that are judged together. A multiple of the vector and small enough for byte-wide counters.
constexpr unsigned int CHUNK = 64U;

/// Bytes that are checked and copied while they are still in the first-level cache.
constexpr unsigned int COPY_PIECE = 16U * 1024U;

/// A scan in progress: everything before `position` consists of whole sequences.
struct SScan
{
    const char* first;
    const char* position;
    const char* end;
    unsigned int charCount;

    unsigned int remaining() const { return static_cast<unsigned int>(end - position); }

    void passAscii(unsigned int bytes)
    {
        position += bytes;
        charCount += bytes;
    }
};

bool passSequence(SScan& scan)
{
    const unsigned int length = sequenceLength(*scan.position);
    if (length == 0U || length > scan.remaining())
    {
        return false;
    }
    for (unsigned int i = 1; i < length; ++i)
    {
        if ((static_cast<unsigned char>(scan.position[i]) & 0x80U) == 0U)
        {
            return false;
        }
    }
    scan.position += length;
    ++scan.charCount;
    return true;
}

void passAsciiWords(SScan& scan)
{
    while (scan.remaining() >= sizeof(std::uint64_t) && (loadWord(scan.position) & TOP_BITS) == 0U)
    {
        scan.passAscii(sizeof(std::uint64_t));
    }
}

/// Goes on sequence by sequence to `target` or beyond.
bool passSequences(SScan& scan, const char* target)
{
    while (scan.position < target)
    {
        if (!passSequence(scan))
        {
            return false;
        }
    }
    return true;
}

#if KO_HAS_BYTE_VECTOR

/// Bytes before a position that tell whether a sequence of up to four bytes reaches into it.
constexpr unsigned int LOOK_BACK = 3U;

ByteMask isAtLeast(ByteVector bytes, unsigned char limit)
{
    return reinterpret_cast<ByteMask>(bytes >= spread(limit));
}

ByteMask isContinuation(ByteVector bytes)
{
    // Taken as signed, 80 to BF are the bytes below C0.
    return reinterpret_cast<ByteMask>(reinterpret_cast<ByteMask>(bytes) <
                                      reinterpret_cast<ByteMask>(spread(0xC0U)));
}

/// The number of bytes that are set in a sum of up to 127 masks.
int countSet(ByteMask sum)
{
    std::int8_t counts[VECTOR_SIZE];
    std::memcpy(counts, &sum, sizeof(counts));
    int total = 0;
    for (const std::int8_t count : counts)
    {
        total -= count;
    }
    return total;
}

void passAsciiChunks(SScan& scan)
{
    while (scan.remaining() >= CHUNK)
    {
        ByteVector any = loadVector(scan.position);
        for (unsigned int at = VECTOR_SIZE; at < CHUNK; at += VECTOR_SIZE)
        {
            any |= loadVector(scan.position + at);
        }
        if (hasTopBit(any))
        {
            return;
        }
        scan.passAscii(CHUNK);
    }
}

struct SChunk
{
    bool isRegular;          ///< bytes of the form 10xxxxxx stand exactly where the leads before ask for them
    bool isAscii;            ///< no byte has its top bit
    unsigned int characters; ///< bytes that are not 10xxxxxx
};

SChunk judgeChunk(const char* bytes)
{
    ByteMask wrong{};
    ByteMask continuations{};
    ByteVector any{};
    for (unsigned int at = 0; at < CHUNK; at += VECTOR_SIZE)
    {
        const char* const here = bytes + at;
        const ByteVector current = loadVector(here);
        const ByteMask isNext = isContinuation(current);
        const ByteMask isAsked = isAtLeast(loadVector(here - 1), 0xC0U) |
                                 isAtLeast(loadVector(here - 2), 0xE0U) |
                                 isAtLeast(loadVector(here - 3), 0xF0U);
        wrong |= (isNext ^ isAsked) | isAtLeast(current, 0xF8U);
        continuations += isNext;
        any |= current;
    }
    const int characters = static_cast<int>(CHUNK) - countSet(continuations);
    return {!isAnySet(wrong), !hasTopBit(any), static_cast<unsigned int>(characters)};
}

/// Steps back over a sequence that the chunks judged so far contain only in part.
void leaveIncomplete(SScan& scan)
{
    for (unsigned int back = 1; back <= LOOK_BACK; ++back)
    {
        if (sequenceLength(*(scan.position - back)) > back)
        {
            scan.position -= back;
            --scan.charCount;
            return;
        }
    }
}

/// Passes chunks of well-formed text up to one that is odd in any way, or up to one of ASCII only.
void passRegularChunks(SScan& scan)
{
    bool isWhole = true;
    while (scan.remaining() >= CHUNK)
    {
        const SChunk chunk = judgeChunk(scan.position);
        if (!chunk.isRegular)
        {
            break;
        }
        scan.position += CHUNK;
        scan.charCount += chunk.characters;
        isWhole = chunk.isAscii;
        if (chunk.isAscii)
        {
            break;
        }
    }
    if (!isWhole)
    {
        leaveIncomplete(scan);
    }
}

/// True when no byte before the position could be mistaken for the lead of a sequence that reaches beyond it.
bool isSettled(const SScan& scan)
{
    if (scan.position - scan.first < static_cast<std::ptrdiff_t>(LOOK_BACK))
    {
        return false;
    }
    const char* const here = scan.position;
    return sequenceLength(here[-1]) <= 1U && sequenceLength(here[-2]) <= 2U && sequenceLength(here[-3]) <= 3U;
}

/// Passes what can be judged by chunks. \return false at a malformed sequence.
bool passChunks(SScan& scan)
{
    passAsciiChunks(scan);
    while (scan.remaining() >= CHUNK)
    {
        const char* const before = scan.position;
        const bool isTrusted = isSettled(scan);
        if (isTrusted)
        {
            passRegularChunks(scan);
        }
        if (scan.position == before && !passSequences(scan, before + (isTrusted ? CHUNK : 1U)))
        {
            return false;
        }
        passAsciiChunks(scan);
    }
    return true;
}

#else

bool passChunks(SScan& scan)
{
    while (scan.remaining() >= CHUNK)
    {
        passAsciiWords(scan);
        if (scan.remaining() >= CHUNK && !passSequences(scan, scan.position + sizeof(std::uint64_t)))
        {
            return false;
        }
    }
    return true;
}

#endif

void logMalformed()
{
    KoSyslog::logMsg(0, KoSyslog::Error, "The character sequence contains a wrong coded UTF-8 sequence !");
}

} // namespace

// clang-format off
const unsigned char UTF8LookUpTable[256] = {
    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, // 00
    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, // 20
    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, // 40
    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, // 60
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, // 80
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, // A0
    2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, // C0
    3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 4, 4, 4, 4, 4, 4, 4, 4, 5, 5, 5, 5, 6, 6, 0, 0, // E0
};
// clang-format on

SUtf8Span scanUtf8(const char* bytes, unsigned int count)
{
    SScan scan = {bytes, bytes, bytes + count, 0U};
    if (passChunks(scan))
    {
        passAsciiWords(scan);
        while (scan.position != scan.end && passSequence(scan))
        {
            passAsciiWords(scan);
        }
    }
    return {static_cast<unsigned int>(scan.position - bytes), scan.charCount};
}

SUtf8Span validateUtf8(const char* bytes, unsigned int count)
{
    const SUtf8Span valid = scanUtf8(bytes, count);
    if (valid.byteLength != count)
    {
        logMalformed();
    }
    return valid;
}

SUtf8Span copyValidUtf8(char* target, const char* bytes, unsigned int count)
{
    SUtf8Span done = {0U, 0U};
    SUtf8Span piece = {1U, 0U};
    // A piece may cut its last sequence apart; the next one starts with that sequence. Only a malformed one
    // leaves a piece without any.
    while (done.byteLength != count && piece.byteLength != 0U)
    {
        piece = scanUtf8(bytes + done.byteLength, std::min(count - done.byteLength, COPY_PIECE));
        if (target != bytes)
        {
            std::memcpy(target + done.byteLength, bytes + done.byteLength, piece.byteLength);
        }
        done.byteLength += piece.byteLength;
        done.charCount += piece.charCount;
    }
    if (done.byteLength != count)
    {
        logMalformed();
    }
    return done;
}

unsigned int countSequences(const char* bytes, unsigned int count)
{
    unsigned int sequences = 0;
    for (unsigned int at = 0; at < count; ++sequences)
    {
        at += std::min(count - at, std::max<unsigned int>(sequenceLength(bytes[at]), 1U));
    }
    return sequences;
}

unsigned int countSteps(const char* first, const char* last)
{
    unsigned int steps = 0;
#if KO_HAS_BYTE_VECTOR
    for (; last - first >= static_cast<std::ptrdiff_t>(CHUNK); first += CHUNK)
    {
        ByteMask continuations{};
        for (unsigned int at = 0; at < CHUNK; at += VECTOR_SIZE)
        {
            continuations += isContinuation(loadVector(first + at));
        }
        steps += CHUNK - static_cast<unsigned int>(countSet(continuations));
    }
#endif
    for (; first != last; ++first)
    {
        steps += isContinuation(*first) ? 0U : 1U;
    }
    return steps;
}

unsigned int stepForward(const char*& position, unsigned int steps)
{
    unsigned int passed = 0;
    while (passed != steps && *position != '\0')
    {
        ++passed;
        do
        {
            ++position;
        } while (isContinuation(*position));
    }
    return passed;
}

unsigned int encodedLength(unsigned int codePoint)
{
    if (codePoint < 0x800U)
    {
        return codePoint < 0x80U ? 1U : 2U;
    }
    if (codePoint < 0x200000U)
    {
        return codePoint < 0x10000U ? 3U : 4U;
    }
    return codePoint < 0x4000000U ? 5U : 6U;
}

unsigned int encodeUtf8(char* target, unsigned int codePoint)
{
    const unsigned int length = encodedLength(codePoint);
    if (length == 1U)
    {
        *target = static_cast<char>(codePoint);
        return length;
    }
    for (unsigned int i = length - 1U; i != 0U; --i)
    {
        target[i] = static_cast<char>(0x80U | (codePoint & 0x3FU));
        codePoint >>= 6U;
    }
    // A lead has as many top bits set as its sequence has bytes.
    target[0] = static_cast<char>((0xFF00U >> length & 0xFFU) | codePoint);
    return length;
}

} // namespace KoPrivate

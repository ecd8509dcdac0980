#include "pf/base/KoUtf8.h"

#include "pf/base/KoByteVector.h"
#include "pf/base/KoShortCopy.h"
#include "pf/oswrapper/KoSyslog.h"

#include <algorithm>
#include <cstddef>
#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace KoPrivate
{

namespace
{

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

#if KO_HAS_BYTE_VECTOR

/// Bytes before a position that tell whether a sequence of up to four bytes reaches into it.
constexpr unsigned int LOOK_BACK = 3U;

ByteMask isAtLeast(ByteVector bytes, unsigned char limit)
{
    return reinterpret_cast<ByteMask>(bytes >= spread(limit));
}

ByteVector larger(ByteVector a, ByteVector b)
{
    return a > b ? a : b;
}

/// Passes pieces of ASCII only.
template <unsigned int VECTORS>
void passAsciiPieces(SScan& scan)
{
    constexpr unsigned int PIECE = VECTORS * VECTOR_SIZE;
    while (scan.remaining() >= PIECE)
    {
        ByteVector any = loadVector(scan.position);
        for (unsigned int at = VECTOR_SIZE; at < PIECE; at += VECTOR_SIZE)
        {
            any |= loadVector(scan.position + at);
        }
        if (hasTopBit(any))
        {
            return;
        }
        scan.passAscii(PIECE);
    }
}

void passAscii(SScan& scan)
{
    passAsciiPieces<8>(scan);
    passAsciiPieces<1>(scan);
    const unsigned int rest = scan.remaining();
    const bool isRestInVector =
        rest != 0U && scan.end - scan.first >= static_cast<std::ptrdiff_t>(VECTOR_SIZE);
    if (isRestInVector && rest < VECTOR_SIZE && !hasTopBit(loadVector(scan.end - VECTOR_SIZE)))
    {
        scan.passAscii(rest);
    }
}

struct SJudgement
{
    bool isRegular;          ///< bytes of the form 10xxxxxx stand exactly where the leads before ask for them
    bool isAscii;            ///< no byte has its top bit
    unsigned int characters; ///< bytes that are not 10xxxxxx
};

/// Where a byte of the form 10xxxxxx is asked for by the bytes one, two and three places before it.
ByteMask areAsked(ByteVector before1, ByteVector before2, ByteVector before3)
{
    return isAtLeast(before1, 0xC0U) | isAtLeast(before2, 0xE0U) | isAtLeast(before3, 0xF0U);
}

template <unsigned int VECTORS>
SJudgement judge(const char* bytes)
{
    ByteMask wrong{};
    ByteMask continuations{};
    ByteVector largest{};
    for (unsigned int at = 0; at < VECTORS * VECTOR_SIZE; at += VECTOR_SIZE)
    {
        const char* const here = bytes + at;
        const ByteVector current = loadVector(here);
        const ByteMask isNext = areContinuations(current);
        wrong |= isNext ^ areAsked(loadVector(here - 1), loadVector(here - 2), loadVector(here - 3));
        continuations -= isNext;
        largest = larger(largest, current);
    }
    const bool isRegular = !isAnySet(wrong | isAtLeast(largest, 0xF8U));
    const unsigned int nexts = sumSmall(reinterpret_cast<ByteVector>(continuations));
    return {isRegular, !hasTopBit(largest), VECTORS * VECTOR_SIZE - nexts};
}

/// As judge for a vector that zero bytes come before.
SJudgement judgeAfterZeros(ByteVector current)
{
    const ByteVector zeros{};
    // clang-format off
    const ByteVector before1 = __builtin_shufflevector(zeros, current, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30);
    const ByteVector before2 = __builtin_shufflevector(zeros, current, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29);
    const ByteVector before3 = __builtin_shufflevector(zeros, current, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28);
    // clang-format on
    const ByteMask isNext = areContinuations(current);
    const ByteMask wrong = isNext ^ areAsked(before1, before2, before3);
    const bool isRegular = !isAnySet(wrong | isAtLeast(current, 0xF8U));
    return {isRegular, !hasTopBit(current), VECTOR_SIZE - sumSmall(reinterpret_cast<ByteVector>(-isNext))};
}

/// Passes pieces of well-formed text up to one that is odd in any way, or up to one of ASCII only.
/// \return false after one of ASCII only.
template <unsigned int VECTORS>
bool passRegularPieces(SScan& scan)
{
    constexpr unsigned int PIECE = VECTORS * VECTOR_SIZE;
    while (scan.remaining() >= PIECE)
    {
        const SJudgement piece = judge<VECTORS>(scan.position);
        if (!piece.isRegular)
        {
            return true;
        }
        scan.position += PIECE;
        scan.charCount += piece.characters;
        if (piece.isAscii)
        {
            return false;
        }
    }
    return true;
}

/// Steps back over a sequence of which only a part has been passed.
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

void passRegular(SScan& scan)
{
    if (passRegularPieces<4>(scan))
    {
        passRegularPieces<1>(scan);
    }
    leaveIncomplete(scan);
}

/// True when no byte before the position would be taken by judge for a lead whose sequence reaches beyond it.
/// Continuation bytes may be anything up to FF, which leads nothing and yet would be.
bool isSettled(const SScan& scan)
{
    if (scan.position - scan.first < static_cast<std::ptrdiff_t>(LOOK_BACK))
    {
        return false;
    }
    const auto* const here = reinterpret_cast<const unsigned char*>(scan.position);
    return here[-1] < 0xC0U && here[-2] < 0xE0U && here[-3] < 0xF0U;
}

/// Judges the bytes ahead, at most sixteen, between zero bytes: nothing before the position, which is where a
/// sequence ends, and nothing behind the end.
void passBetweenZeros(SScan& scan)
{
    const unsigned int bytes = std::min(scan.remaining(), VECTOR_SIZE);
    ByteVector ahead{};
    if (bytes == VECTOR_SIZE)
    {
        ahead = loadVector(scan.position);
    }
    else
    {
        std::memcpy(&ahead, scan.position, bytes);
    }
    const SJudgement piece = judgeAfterZeros(ahead);
    if (piece.isRegular)
    {
        scan.position += bytes;
        scan.charCount += piece.characters - (VECTOR_SIZE - bytes);
        if (bytes == VECTOR_SIZE)
        {
            leaveIncomplete(scan);
        }
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

/// Passes everything that is well-formed. Stops at a malformed sequence.
void passAll(SScan& scan)
{
    passAscii(scan);
    while (scan.remaining() != 0U)
    {
        const char* const before = scan.position;
        if (scan.remaining() >= VECTOR_SIZE && isSettled(scan))
        {
            passRegular(scan);
        }
        else
        {
            passBetweenZeros(scan);
        }
        if (scan.position == before && !passSequences(scan, before + std::min(scan.remaining(), VECTOR_SIZE)))
        {
            return;
        }
        passAscii(scan);
    }
}

#else

void passAll(SScan& scan)
{
    do
    {
        while (scan.remaining() >= sizeof(std::uint64_t) && (loadWord(scan.position) & TOP_BITS) == 0U)
        {
            scan.passAscii(sizeof(std::uint64_t));
        }
    } while (scan.remaining() != 0U && passSequence(scan));
}

#endif

#if KO_HAS_BYTE_VECTOR

/// Copies 16 to 64 bytes by vectors, the last of which overlaps. \return whether all are ASCII.
bool copyVectors(char* target, const char* bytes, unsigned int count)
{
    const unsigned int last = count - VECTOR_SIZE;
    const ByteVector end = loadVector(bytes + last);
    ByteVector any = end;
    for (unsigned int at = 0; at < last; at += VECTOR_SIZE)
    {
        const ByteVector here = loadVector(bytes + at);
        std::memcpy(target + at, &here, sizeof(here));
        any |= here;
    }
    std::memcpy(target + last, &end, sizeof(end));
    return !hasTopBit(any);
}

/// Copies pieces of ASCII only. \return the bytes of them.
unsigned int copyAsciiPieces(char* target, const char* bytes, unsigned int count)
{
    constexpr unsigned int PIECE = 4U * VECTOR_SIZE;
    unsigned int at = 0;
    for (; count - at >= PIECE; at += PIECE)
    {
        ByteVector piece[4];
        std::memcpy(piece, bytes + at, PIECE);
        if (hasTopBit(piece[0] | piece[1] | piece[2] | piece[3]))
        {
            break;
        }
        std::memcpy(target + at, piece, PIECE);
    }
    return at;
}

#if defined(__x86_64__)

/// Below this a wider register gains nothing.
constexpr unsigned int WIDE_WORTHWHILE = 256U;

/// As copyAsciiPieces with registers beyond the baseline, which the caller has asked the processor for.
__attribute__((target("avx2"))) unsigned int copyAsciiWide(char* target, const char* bytes,
                                                           unsigned int count)
{
    constexpr unsigned int PIECE = 4U * sizeof(__m256i);
    unsigned int at = 0;
    for (; count - at >= PIECE; at += PIECE)
    {
        const auto* const from = reinterpret_cast<const __m256i*>(bytes + at);
        const __m256i a = _mm256_loadu_si256(from);
        const __m256i b = _mm256_loadu_si256(from + 1);
        const __m256i c = _mm256_loadu_si256(from + 2);
        const __m256i d = _mm256_loadu_si256(from + 3);
        if (_mm256_movemask_epi8(_mm256_or_si256(_mm256_or_si256(a, b), _mm256_or_si256(c, d))) != 0)
        {
            break;
        }
        auto* const to = reinterpret_cast<__m256i*>(target + at);
        _mm256_storeu_si256(to, a);
        _mm256_storeu_si256(to + 1, b);
        _mm256_storeu_si256(to + 2, c);
        _mm256_storeu_si256(to + 3, d);
    }
    return at;
}

#endif

/// Copies what the text begins with, as far as it is ASCII in whole pieces: checked and copied in one pass.
/// \return the bytes copied.
unsigned int copyLongAscii(char* target, const char* bytes, unsigned int count)
{
#if defined(__x86_64__)
    if (count >= WIDE_WORTHWHILE && __builtin_cpu_supports("avx2") != 0)
    {
        return copyAsciiWide(target, bytes, count);
    }
#endif
    return copyAsciiPieces(target, bytes, count);
}

#else

unsigned int copyLongAscii(char*, const char*, unsigned int)
{
    return 0U;
}

#endif

/// Copies the commonest of all texts, a few bytes of ASCII, without the bookkeeping of a scan. \return false
/// for other texts, of which the target may hold a part then.
bool copyShortAscii(char* target, const char* bytes, unsigned int count)
{
    if (count <= SHORT_COPY)
    {
        return (copyShort(target, bytes, count) & TOP_BITS) == 0U;
    }
#if KO_HAS_BYTE_VECTOR
    return count <= 4U * VECTOR_SIZE && copyVectors(target, bytes, count);
#else
    return false;
#endif
}

void logMalformed()
{
    KoSyslog::logMsg(0, KoSyslog::Error, "The character sequence contains a wrong coded UTF-8 sequence !");
}

/// The longest prefix of the bytes that consists of whole sequences.
SUtf8Span scanUtf8(const char* bytes, unsigned int count)
{
    SScan scan = {bytes, bytes, bytes + count, 0U};
    passAll(scan);
    return {static_cast<unsigned int>(scan.position - bytes), scan.charCount};
}

SUtf8Span copyScanned(char* target, const char* bytes, unsigned int count)
{
    const unsigned int ascii = copyLongAscii(target, bytes, count);
    SUtf8Span done = {ascii, ascii};
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

} // namespace

SUtf8Span copyValidUtf8(char* target, const char* bytes, unsigned int count)
{
    if (copyShortAscii(target, bytes, count))
    {
        return {count, count};
    }
    return copyScanned(target, bytes, count);
}

} // namespace KoPrivate

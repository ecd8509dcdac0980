#pragma once

/// \file
/// Sixteen bytes at a time for scans of text: the compiler's own vectors, used only where the target's
/// baseline has registers for them. `KO_HAS_BYTE_VECTOR` tells; without it callers go word by word.

#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#if defined(__SSE2__) || defined(__ARM_NEON)
#define KO_HAS_BYTE_VECTOR 1
#else
#define KO_HAS_BYTE_VECTOR 0
#endif

namespace KoPrivate
{

constexpr std::uint64_t TOP_BITS = 0x8080808080808080U;

/// Eight bytes from any address, in the order of the machine.
inline std::uint64_t loadWord(const char* bytes)
{
    std::uint64_t word;
    std::memcpy(&word, bytes, sizeof(word));
    return word;
}

#if KO_HAS_BYTE_VECTOR

constexpr unsigned int VECTOR_SIZE = 16U;

using ByteVector = unsigned char __attribute__((vector_size(16)));
using WordVector = std::uint64_t __attribute__((vector_size(16)));

/// What a comparison gives: every byte 0xFF or 0.
using ByteMask = signed char __attribute__((vector_size(16)));

inline ByteVector loadVector(const char* bytes)
{
    ByteVector vector;
    std::memcpy(&vector, bytes, sizeof(vector));
    return vector;
}

/// A vector of sixteen equal bytes.
inline ByteVector spread(unsigned char byte)
{
    return ByteVector{} + byte;
}

/// The bytes of the form 10xxxxxx: taken as signed, they are the ones below C0.
inline ByteMask areContinuations(ByteVector bytes)
{
    const ByteMask limit = reinterpret_cast<ByteMask>(spread(0xC0U));
    return reinterpret_cast<ByteMask>(reinterpret_cast<ByteMask>(bytes) < limit);
}

/// One bit for each byte of a vector that has its top bit set, the first byte lowest.
inline unsigned int topBits(ByteVector vector)
{
#if defined(__SSE2__)
    return static_cast<unsigned int>(_mm_movemask_epi8(reinterpret_cast<__m128i>(vector)));
#else
    unsigned int bits = 0;
    for (unsigned int i = 0; i < VECTOR_SIZE; ++i)
    {
        bits |= static_cast<unsigned int>(vector[i] >> 7U) << i;
    }
    return bits;
#endif
}

/// The sum of sixteen bytes that are at most 31 each.
inline unsigned int sumSmall(ByteVector vector)
{
    const WordVector words = reinterpret_cast<WordVector>(vector);
    constexpr std::uint64_t ONES = 0x0101010101010101U;
    return static_cast<unsigned int>((words[0] * ONES >> 56U) + (words[1] * ONES >> 56U));
}

inline bool hasTopBit(ByteVector vector)
{
#if defined(__SSE2__)
    return topBits(vector) != 0U;
#else
    const WordVector words = reinterpret_cast<WordVector>(vector);
    return ((words[0] | words[1]) & TOP_BITS) != 0U;
#endif
}

inline bool isAnySet(ByteMask mask)
{
    return hasTopBit(reinterpret_cast<ByteVector>(mask));
}

#endif

} // namespace KoPrivate

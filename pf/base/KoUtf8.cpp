#include "pf/base/KoUtf8.h"

#include "pf/base/KoByteVector.h"

#include <algorithm>
#include <cstddef>

namespace KoPrivate
{

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
    constexpr unsigned int PIECE = 4U * VECTOR_SIZE;
    for (; last - first >= static_cast<std::ptrdiff_t>(PIECE); first += PIECE)
    {
        ByteMask continuations{};
        for (unsigned int at = 0; at < PIECE; at += VECTOR_SIZE)
        {
            continuations -= areContinuations(loadVector(first + at));
        }
        steps += PIECE - sumSmall(reinterpret_cast<ByteVector>(continuations));
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

#pragma once

/// Copies of a few bytes without a call: most pieces that texts are made of are shorter than one.

#include "pf/base/KoByteVector.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace KoPrivate
{

constexpr std::size_t SHORT_COPY = 16U;

/// Copies what fits two words, the second of which may overlap the first. All is read before anything is
/// written. \return all bytes, or-ed into one another in no particular place.
template <typename Word>
inline std::uint64_t copyTwoWords(char* target, const char* source, std::size_t count)
{
    Word first;
    Word second;
    const std::size_t at = count - sizeof(Word);
    std::memcpy(&first, source, sizeof(Word));
    std::memcpy(&second, source + at, sizeof(Word));
    std::memcpy(target, &first, sizeof(Word));
    std::memcpy(target + at, &second, sizeof(Word));
    return static_cast<std::uint64_t>(first | second);
}

/// Copies 1 to 16 bytes, see copyTwoWords.
inline std::uint64_t copyShort(char* target, const char* source, std::size_t count)
{
    if (count >= sizeof(std::uint64_t))
    {
        return copyTwoWords<std::uint64_t>(target, source, count);
    }
    if (count >= sizeof(std::uint32_t))
    {
        return copyTwoWords<std::uint32_t>(target, source, count);
    }
    std::uint64_t all = 0;
    for (std::size_t i = 0; i != count; ++i)
    {
        all |= static_cast<unsigned char>(source[i]);
        target[i] = source[i];
    }
    return all;
}

} // namespace KoPrivate

#pragma once

/// CRC of many bytes by tables: sixteen bytes in one step, each through a table of its own that knows how far
/// the byte is from the end of the step.

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

namespace KoPrivate
{

constexpr std::size_t CRC_STEP = 16U; ///< bytes in one step

using CrcSlice = std::array<std::uint32_t, 256>;
using CrcSlices = std::array<CrcSlice, CRC_STEP>;

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "words are read with the first byte lowest");

/// \param bytewise what one byte does to the register. \return slice n: what a byte does that is followed by
/// n others. The register is in the order of the message: its lowest byte meets the next byte.
constexpr CrcSlices makeCrcSlices(const CrcSlice& bytewise)
{
    CrcSlices slices = {};
    slices[0] = bytewise;
    for (std::size_t n = 1; n < CRC_STEP; ++n)
    {
        for (std::size_t byte = 0; byte < bytewise.size(); ++byte)
        {
            const std::uint32_t nearer = slices[n - 1U][byte];
            slices[n][byte] = (nearer >> 8U) ^ bytewise[nearer & 0xFFU];
        }
    }
    return slices;
}

/// What eight bytes do that are followed by `FOLLOWING` others.
template <std::size_t FOLLOWING, std::size_t... I>
std::uint32_t addWord(const CrcSlices& slices, std::uint64_t word, std::index_sequence<I...>)
{
    return (slices[FOLLOWING + 7U - I][static_cast<std::uint8_t>(word >> (8U * I))] ^ ...);
}

inline std::uint64_t readWord(const unsigned char* data)
{
    std::uint64_t word = 0U;
    std::memcpy(&word, data, sizeof(word));
    return word;
}

/// The register after sixteen bytes.
inline std::uint32_t addStep(const CrcSlices& slices, std::uint32_t reg, const unsigned char* data)
{
    constexpr auto BYTES = std::make_index_sequence<8>();
    return addWord<8>(slices, readWord(data) ^ reg, BYTES) ^ addWord<0>(slices, readWord(data + 8), BYTES);
}

/// The register after any number of bytes.
inline std::uint32_t addSliced(const CrcSlices& slices, std::uint32_t reg, const unsigned char* data,
                               std::size_t count)
{
    for (; count >= CRC_STEP; count -= CRC_STEP, data += CRC_STEP)
    {
        reg = addStep(slices, reg, data);
    }
    for (; count > 0U; --count, ++data)
    {
        reg = (reg >> 8U) ^ slices[0][(reg ^ *data) & 0xFFU];
    }
    return reg;
}

} // namespace KoPrivate

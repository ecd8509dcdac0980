#pragma once

/// CRC of many bytes by multiplication without carries, where the processor has it: blocks are folded onto
/// later ones, because what matters of a block is its remainder only. The last block left is reduced by
/// multiplication as well or, with its bytes swapped, goes through the tables.

#include "pf/util/KoCrcSlices.h"

namespace KoPrivate
{

/// What the two words of a block are multiplied with to move it a distance on: powers of x, modulo the
/// polynomial.
struct SCrcFolder
{
    std::uint64_t low;
    std::uint64_t high;
};

/// One for each distance that the folding needs.
struct SCrcFolders
{
    SCrcFolder by0; ///< bytes; the words onto the last word
    SCrcFolder by4;
    SCrcFolder by16;
    SCrcFolder by32;
    SCrcFolder by64;
    SCrcFolder by256;
    std::uint64_t polynomial; ///< with its highest power in the lowest bit; of unswapped blocks only
    std::uint64_t reciprocal; ///< x to the 64th by it, likewise
    bool isSwapped;           ///< the first byte of a block is its highest
};

/// How bytes of one type are added in bulk.
struct SCrcMethod
{
    const CrcSlices* slices;
    SCrcFolders folders;
};

/// x to the power, with the highest power in the highest bit.
constexpr std::uint64_t powerLeft(std::uint32_t polynomial, unsigned int exponent)
{
    std::uint32_t power = 1U;
    for (unsigned int i = 0; i < exponent; ++i)
    {
        power = (power << 1U) ^ ((power >> 31U) != 0U ? polynomial : 0U);
    }
    return power;
}

/// x to the power, with the highest power in the lowest bit of the upper half of the word.
constexpr std::uint64_t powerRight(std::uint32_t polynomial, unsigned int exponent)
{
    std::uint32_t power = 0x80000000U;
    for (unsigned int i = 0; i < exponent; ++i)
    {
        power = (power >> 1U) ^ ((power & 1U) != 0U ? polynomial : 0U);
    }
    return static_cast<std::uint64_t>(power) << 32U;
}

/// x to the 64th divided by the polynomial, with the highest power in the lowest bit.
constexpr std::uint64_t reciprocalRight(std::uint32_t polynomial)
{
    std::uint64_t quotient = 1U;
    std::uint32_t rest = polynomial;
    for (unsigned int i = 1; i <= 32U; ++i)
    {
        quotient |= std::uint64_t{rest & 1U} << i;
        rest = (rest >> 1U) ^ ((rest & 1U) != 0U ? polynomial : 0U);
    }
    return quotient;
}

constexpr SCrcFolder makeFolderLeft(std::uint32_t polynomial, unsigned int bytes)
{
    return {powerLeft(polynomial, 8U * bytes), powerLeft(polynomial, 8U * bytes + 64U)};
}

/// Products of reflected words come out one place too low.
constexpr SCrcFolder makeFolderRight(std::uint32_t polynomial, unsigned int bytes)
{
    return {powerRight(polynomial, 8U * bytes + 63U), powerRight(polynomial, 8U * bytes - 1U)};
}

/// Folders of a register that is shifted left. \param polynomial of 32 bits; a narrower one in the upper
/// ones.
constexpr SCrcFolders makeCrcFoldersLeft(std::uint32_t polynomial)
{
    return {makeFolderLeft(polynomial, 0U),
            makeFolderLeft(polynomial, 4U),
            makeFolderLeft(polynomial, 16U),
            makeFolderLeft(polynomial, 32U),
            makeFolderLeft(polynomial, 64U),
            makeFolderLeft(polynomial, 256U),
            0U,
            0U,
            true};
}

/// Folders of a register that is shifted right. \param polynomial as it is XORed to the register.
constexpr SCrcFolders makeCrcFoldersRight(std::uint32_t polynomial)
{
    return {{powerRight(polynomial, 63U), 0U},
            makeFolderRight(polynomial, 4U),
            makeFolderRight(polynomial, 16U),
            makeFolderRight(polynomial, 32U),
            makeFolderRight(polynomial, 64U),
            makeFolderRight(polynomial, 256U),
            (std::uint64_t{polynomial} << 1U) | 1U,
            reciprocalRight(polynomial),
            false};
}

/// So many bytes at least can be folded.
constexpr std::size_t CRC_FOLDABLE = 64U;

/// The register after CRC_FOLDABLE bytes or more, as addSliced has it and, where the processor cannot fold,
/// by addSliced.
std::uint32_t addFolded(const SCrcMethod& method, std::uint32_t reg, const unsigned char* data,
                        std::size_t count);

} // namespace KoPrivate

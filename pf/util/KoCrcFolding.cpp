#include "pf/util/KoCrcFolding.h"

#ifdef __x86_64__

#include <immintrin.h>

#define KO_CRC_TARGET __attribute__((target("pclmul,ssse3")))
#define KO_CRC_TARGET_WIDE __attribute__((target("pclmul,ssse3,avx512f,avx512bw,vpclmulqdq")))

namespace
{

using KoPrivate::SCrcFolder;
using KoPrivate::SCrcFolders;

constexpr std::size_t BLOCK = 16U;
constexpr std::size_t ROW = 4U * BLOCK; ///< what is folded side by side
static_assert(ROW == KoPrivate::CRC_FOLDABLE, "the first row is read at once");
constexpr std::size_t WIDE_ROW = 4U * ROW;    ///< the same with wide registers
constexpr std::size_t WIDE_WORTHWHILE = 512U; ///< bytes from which on wide registers pay

alignas(16) constexpr unsigned char REVERSE[BLOCK] = {15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0};

/// Blocks of four adjacent rows, folded onto later ones.
struct SFolding
{
    __m128i blocks[4];
};

template <bool SWAPPED>
KO_CRC_TARGET inline __m128i inOrder(__m128i block)
{
    if constexpr (SWAPPED)
    {
        return _mm_shuffle_epi8(
            block, _mm_load_si128(static_cast<const __m128i*>(static_cast<const void*>(REVERSE))));
    }
    return block;
}

template <bool SWAPPED>
KO_CRC_TARGET inline __m128i read(const unsigned char* data)
{
    return inOrder<SWAPPED>(_mm_loadu_si128(static_cast<const __m128i*>(static_cast<const void*>(data))));
}

KO_CRC_TARGET inline __m128i multipliers(const SCrcFolder& folder)
{
    return _mm_set_epi64x(static_cast<long long>(folder.high), static_cast<long long>(folder.low));
}

/// Moves a block on, onto `next`.
KO_CRC_TARGET inline __m128i fold(__m128i block, __m128i folder, __m128i next)
{
    const __m128i low = _mm_clmulepi64_si128(block, folder, 0x00);
    const __m128i high = _mm_clmulepi64_si128(block, folder, 0x11);
    return _mm_xor_si128(_mm_xor_si128(low, high), next);
}

/// The first row, with the register on its first bytes.
template <bool SWAPPED>
KO_CRC_TARGET inline void begin(SFolding& folding, std::uint32_t reg, const unsigned char* data)
{
    const __m128i onFirst = inOrder<SWAPPED>(_mm_cvtsi32_si128(static_cast<int>(reg)));
    folding.blocks[0] = _mm_xor_si128(read<SWAPPED>(data), onFirst);
    for (std::size_t i = 1; i < 4U; ++i)
    {
        folding.blocks[i] = read<SWAPPED>(data + i * BLOCK);
    }
}

/// Folds row by row, and the last row into one block. \return the bytes that are not part of it yet.
template <bool SWAPPED>
KO_CRC_TARGET inline std::size_t foldRows(SFolding& folding, const SCrcFolders& folders,
                                          const unsigned char* data, std::size_t count)
{
    const __m128i by64 = multipliers(folders.by64);
    for (; count >= ROW; count -= ROW, data += ROW)
    {
        for (std::size_t i = 0; i < 4U; ++i)
        {
            folding.blocks[i] = fold(folding.blocks[i], by64, read<SWAPPED>(data + i * BLOCK));
        }
    }
    const __m128i by16 = multipliers(folders.by16);
    const __m128i first = fold(folding.blocks[0], by16, folding.blocks[1]);
    const __m128i second = fold(folding.blocks[2], by16, folding.blocks[3]);
    __m128i block = fold(first, multipliers(folders.by32), second);
    for (; count >= BLOCK; count -= BLOCK, data += BLOCK)
    {
        block = fold(block, by16, read<SWAPPED>(data));
    }
    folding.blocks[0] = inOrder<SWAPPED>(block);
    return count;
}

/// The form with a mask, because g++ warns of the other one's undefined lanes.
KO_CRC_TARGET_WIDE inline __m512i everyLane(__m128i block)
{
    return _mm512_maskz_broadcast_i32x4(0xFFFFU, block);
}

/// The register after a block whose bytes are in order, by multiplication all the way: the quotient by the
/// polynomial comes from the reciprocal, and its product leaves the remainder.
KO_CRC_TARGET inline std::uint32_t reduce(const SCrcFolders& folders, __m128i block)
{
    const __m128i firstWord = _mm_set_epi64x(0, -1);
    const __m128i lowHalf = _mm_set_epi64x(0, 0xFFFFFFFF);
    const __m128i lastWord = _mm_slli_si128(_mm_srli_si128(block, 8), 4);
    __m128i rest = _mm_xor_si128(_mm_clmulepi64_si128(block, multipliers(folders.by4), 0x00), lastWord);
    rest = _mm_xor_si128(_mm_clmulepi64_si128(rest, multipliers(folders.by0), 0x00),
                         _mm_andnot_si128(firstWord, rest));
    rest = _mm_srli_si128(rest, 8);
    const __m128i divisor = _mm_set_epi64x(static_cast<long long>(folders.polynomial),
                                           static_cast<long long>(folders.reciprocal));
    const __m128i quotient = _mm_clmulepi64_si128(_mm_and_si128(rest, lowHalf), divisor, 0x00);
    const __m128i product = _mm_clmulepi64_si128(_mm_and_si128(quotient, lowHalf), divisor, 0x10);
    return static_cast<std::uint32_t>(_mm_cvtsi128_si32(_mm_srli_si128(_mm_xor_si128(rest, product), 4)));
}

/// The register after the last block, which swapped blocks reach through the tables.
template <bool SWAPPED>
KO_CRC_TARGET inline std::uint32_t finish(const KoPrivate::SCrcMethod& method, __m128i block)
{
    if constexpr (SWAPPED)
    {
        unsigned char bytes[BLOCK];
        std::memcpy(bytes, &block, BLOCK);
        return KoPrivate::addStep(*method.slices, 0U, bytes);
    }
    return reduce(method.folders, block);
}

template <bool SWAPPED>
KO_CRC_TARGET_WIDE inline __m512i readWide(const unsigned char* data)
{
    const __m512i row = _mm512_loadu_si512(data);
    if constexpr (SWAPPED)
    {
        const __m128i reverse =
            _mm_load_si128(static_cast<const __m128i*>(static_cast<const void*>(REVERSE)));
        return _mm512_shuffle_epi8(row, everyLane(reverse));
    }
    return row;
}

KO_CRC_TARGET_WIDE inline __m512i foldWide(__m512i row, __m512i folder, __m512i next)
{
    constexpr int XOR_OF_THREE = 0x96;
    const __m512i low = _mm512_clmulepi64_epi128(row, folder, 0x00);
    const __m512i high = _mm512_clmulepi64_epi128(row, folder, 0x11);
    return _mm512_ternarylogic_epi64(low, high, next, XOR_OF_THREE);
}

/// Goes on from the first row with four rows at a time, and leaves one row. \return the bytes that are not
/// part of it yet.
template <bool SWAPPED>
KO_CRC_TARGET_WIDE __attribute__((noinline)) std::size_t
foldWideRows(SFolding& folding, const SCrcFolders& folders, const unsigned char* data, std::size_t count)
{
    __m512i rows[4] = {_mm512_loadu_si512(&folding)};
    for (std::size_t i = 1; i < 4U; ++i)
    {
        rows[i] = readWide<SWAPPED>(data + (i - 1U) * ROW);
    }
    data += WIDE_ROW - ROW;
    count -= WIDE_ROW - ROW;
    const __m512i by256 = everyLane(multipliers(folders.by256));
    for (; count >= WIDE_ROW; count -= WIDE_ROW, data += WIDE_ROW)
    {
        for (std::size_t i = 0; i < 4U; ++i)
        {
            rows[i] = foldWide(rows[i], by256, readWide<SWAPPED>(data + i * ROW));
        }
    }
    const __m512i by64 = everyLane(multipliers(folders.by64));
    for (std::size_t i = 1; i < 4U; ++i)
    {
        rows[i] = foldWide(rows[i - 1U], by64, rows[i]);
    }
    _mm512_storeu_si512(&folding, rows[3]);
    return count;
}

/// Folds what is left of a message after its first rows, and adds its last bytes.
template <bool SWAPPED>
KO_CRC_TARGET inline std::uint32_t addRest(const KoPrivate::SCrcMethod& method, SFolding& folding,
                                           const unsigned char* end, std::size_t left)
{
    left = foldRows<SWAPPED>(folding, method.folders, end - left, left);
    const std::uint32_t added = finish<SWAPPED>(method, folding.blocks[0]);
    return left == 0U ? added : KoPrivate::addSliced(*method.slices, added, end - left, left);
}

template <bool SWAPPED>
KO_CRC_TARGET std::uint32_t addNarrow(const KoPrivate::SCrcMethod& method, std::uint32_t reg,
                                      const unsigned char* data, std::size_t count)
{
    SFolding folding;
    begin<SWAPPED>(folding, reg, data);
    return addRest<SWAPPED>(method, folding, data + count, count - ROW);
}

template <bool SWAPPED>
KO_CRC_TARGET std::uint32_t addWide(const KoPrivate::SCrcMethod& method, std::uint32_t reg,
                                    const unsigned char* data, std::size_t count)
{
    SFolding folding;
    begin<SWAPPED>(folding, reg, data);
    const std::size_t left = foldWideRows<SWAPPED>(folding, method.folders, data + ROW, count - ROW);
    return addRest<SWAPPED>(method, folding, data + count, left);
}

bool isWide(std::size_t count)
{
    return count >= WIDE_WORTHWHILE && __builtin_cpu_supports("vpclmulqdq") != 0 &&
           __builtin_cpu_supports("avx512bw") != 0;
}

} // namespace

namespace KoPrivate
{

std::uint32_t addFolded(const SCrcMethod& method, std::uint32_t reg, const unsigned char* data,
                        std::size_t count)
{
    if (__builtin_cpu_supports("pclmul") == 0 || __builtin_cpu_supports("ssse3") == 0)
    {
        return addSliced(*method.slices, reg, data, count);
    }
    if (isWide(count))
    {
        return method.folders.isSwapped ? addWide<true>(method, reg, data, count)
                                        : addWide<false>(method, reg, data, count);
    }
    return method.folders.isSwapped ? addNarrow<true>(method, reg, data, count)
                                    : addNarrow<false>(method, reg, data, count);
}

} // namespace KoPrivate

#else

namespace KoPrivate
{

std::uint32_t addFolded(const SCrcMethod& method, std::uint32_t reg, const unsigned char* data,
                        std::size_t count)
{
    return addSliced(*method.slices, reg, data, count);
}

} // namespace KoPrivate

#endif

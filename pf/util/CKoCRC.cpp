#include "pf/util/CKoCRC.h"

#include "pf/oswrapper/CKoAsserter.h"
#include "pf/util/KoCrcFolding.h"
#include "pf/util/KoCrcSlices.h"

#include <type_traits>

namespace
{

constexpr unsigned int POLYNOMIAL_CCITT = 0x1021U;
constexpr unsigned int POLYNOMIAL_32_REFLECTED = 0xEDB88320U;
constexpr unsigned int BITS_IN_BYTE = 8U;
constexpr unsigned int BYTE_MASK = 0xFFU;

constexpr unsigned int shiftedLeft(unsigned int byte)
{
    constexpr unsigned int TOP_BIT = 1U << 15U;
    unsigned int entry = byte << BITS_IN_BYTE;
    for (unsigned int i = 0; i < BITS_IN_BYTE; ++i)
    {
        entry = (entry << 1U) ^ ((entry & TOP_BIT) != 0U ? POLYNOMIAL_CCITT : 0U);
    }
    return entry;
}

constexpr unsigned int shiftedRight(unsigned int byte, unsigned int polynomial)
{
    unsigned int entry = byte;
    for (unsigned int i = 0; i < BITS_IN_BYTE; ++i)
    {
        entry = (entry >> 1U) ^ ((entry & 1U) != 0U ? polynomial : 0U);
    }
    return entry;
}

constexpr std::array<unsigned int, CKoCRC::TYPE_COUNT * CKoCRC::TABLE_SIZE> makeTable()
{
    std::array<unsigned int, CKoCRC::TYPE_COUNT* CKoCRC::TABLE_SIZE> table = {};
    for (unsigned int i = 0; i < CKoCRC::TABLE_SIZE; ++i)
    {
        table[CKoCRC::eCRC16CCITT * CKoCRC::TABLE_SIZE + i] = shiftedLeft(i);
        table[CKoCRC::eCRC32 * CKoCRC::TABLE_SIZE + i] = shiftedRight(i, POLYNOMIAL_32_REFLECTED);
        table[CKoCRC::eCRC16Reflected * CKoCRC::TABLE_SIZE + i] = shiftedRight(i, POLYNOMIAL_CCITT);
        table[CKoCRC::eCRC16XModem * CKoCRC::TABLE_SIZE + i] = shiftedLeft(i);
    }
    return table;
}

/// A 16-bit register with its bytes in the order of the message, or back.
constexpr unsigned int swapped(unsigned int value)
{
    return ((value >> BITS_IN_BYTE) & BYTE_MASK) | ((value & BYTE_MASK) << BITS_IN_BYTE);
}

/// What one byte does to a register that is kept in the order of the message.
constexpr KoPrivate::CrcSlice bytewise(const unsigned int* table, bool isShiftedRight)
{
    KoPrivate::CrcSlice slice = {};
    for (unsigned int i = 0; i < CKoCRC::TABLE_SIZE; ++i)
    {
        slice[i] = isShiftedRight ? table[i] : swapped(table[i]);
    }
    return slice;
}

constexpr auto TABLE = makeTable();

constexpr KoPrivate::CrcSlices SLICES_CCITT =
    KoPrivate::makeCrcSlices(bytewise(&TABLE[CKoCRC::eCRC16CCITT * CKoCRC::TABLE_SIZE], false));
constexpr KoPrivate::CrcSlices SLICES_32 =
    KoPrivate::makeCrcSlices(bytewise(&TABLE[CKoCRC::eCRC32 * CKoCRC::TABLE_SIZE], true));
constexpr KoPrivate::CrcSlices SLICES_REFLECTED =
    KoPrivate::makeCrcSlices(bytewise(&TABLE[CKoCRC::eCRC16Reflected * CKoCRC::TABLE_SIZE], true));

constexpr KoPrivate::SCrcMethod METHOD_CCITT = {&SLICES_CCITT,
                                                KoPrivate::makeCrcFoldersLeft(POLYNOMIAL_CCITT << 16U)};

/// How bytes are added in bulk, by type.
constexpr KoPrivate::SCrcMethod METHODS[CKoCRC::TYPE_COUNT] = {
    METHOD_CCITT,
    {&SLICES_32, KoPrivate::makeCrcFoldersRight(POLYNOMIAL_32_REFLECTED)},
    {&SLICES_REFLECTED, KoPrivate::makeCrcFoldersRight(POLYNOMIAL_CCITT)},
    METHOD_CCITT};

constexpr unsigned int maskOf(unsigned int width)
{
    return ~0U >> (32U - width);
}

} // namespace

static_assert(sizeof(CKoCRC) == 8 && std::is_trivially_copyable_v<CKoCRC>, "type and value");
static_assert(TABLE[1] == 0x11021U && TABLE[256 + 128] == 0xEDB88320U && TABLE[512 + 1] == 0x17CEU,
              "the tables as clients know them");

const std::array<unsigned int, CKoCRC::TYPE_COUNT> CKoCRC::mWidth = {16U, 32U, 16U, 16U};
const std::array<bool, CKoCRC::TYPE_COUNT> CKoCRC::mReverseOrder = {false, true, true, false};
const std::array<unsigned int, CKoCRC::TYPE_COUNT> CKoCRC::mInitialValue = {0xFFFFU, 0U, 0xFFFFU, 0U};
const std::array<unsigned int, CKoCRC::TYPE_COUNT> CKoCRC::mXorOutValue = {0U, 0xFFFFFFFFU, 0U, 0U};
const std::array<unsigned int, CKoCRC::TYPE_COUNT* CKoCRC::TABLE_SIZE> CKoCRC::mCRCTab = TABLE;

void CKoCRC::clearCRC()
{
    m_value = mInitialValue[m_type];
}

void CKoCRC::addByte(unsigned char byte)
{
    const unsigned int width = mWidth[m_type];
    const unsigned int* const table = &mCRCTab[m_type * TABLE_SIZE];
    unsigned int reg = m_value ^ mXorOutValue[m_type];
    if (mReverseOrder[m_type])
    {
        reg = (reg >> BITS_IN_BYTE) ^ table[(reg ^ byte) & BYTE_MASK];
    }
    else
    {
        reg = (reg << BITS_IN_BYTE) ^ table[((reg >> (width - BITS_IN_BYTE)) ^ byte) & BYTE_MASK];
    }
    m_value = (reg ^ mXorOutValue[m_type]) & maskOf(width);
}

void CKoCRC::addBytes(const unsigned char* data, unsigned int count)
{
    if (data == nullptr)
    {
        doCheapAssert(__LINE__, "CKoCRC");
        return;
    }
    const bool isShiftedRight = mReverseOrder[m_type];
    const KoPrivate::SCrcMethod& method = METHODS[m_type];
    const unsigned int reg = m_value ^ mXorOutValue[m_type];
    const unsigned int inOrder = isShiftedRight ? reg : swapped(reg);
    const unsigned int added = count >= KoPrivate::CRC_FOLDABLE
                                   ? KoPrivate::addFolded(method, inOrder, data, count)
                                   : KoPrivate::addSliced(*method.slices, inOrder, data, count);
    m_value = (isShiftedRight ? added : swapped(added)) ^ mXorOutValue[m_type];
}

unsigned int CKoCRC::getWidth() const
{
    return mWidth[m_type];
}

unsigned int CKoCRC::getInitialValue() const
{
    return mInitialValue[m_type];
}

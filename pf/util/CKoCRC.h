#pragma once

/// \file
/// A cyclic redundancy check that is fed piece by piece: which of four fixed variants is said on
/// construction.
///
///     CKoCRC crc(CKoCRC::eCRC32);
///     crc.addBytes(data, count);
///     store(crc.getCRC());

#include "pf/base/KoExport.h"

#include <array>
#include <cstddef>

/// The type and the value of the bytes so far, copied with the object. The value is always the finished one:
/// it may be read at any time, and further bytes continue from it. One object is used by one thread at a
/// time; nothing is allocated. Long pieces cost a fraction of what the same bytes cost one by one.
class KO_EXPORT CKoCRC
{
public:
    enum eType : unsigned int
    {
        eCRC16CCITT,     ///< polynomial 1021 shifted left, starts with FFFF: CRC-16/CCITT-FALSE
        eCRC32,          ///< polynomial 04C11DB7 reflected: CRC-32 as zlib and Ethernet have it
        eCRC16Reflected, ///< 1021 as it stands, shifted right (not the usual 8408), starts with FFFF
        eCRC16XModem     ///< polynomial 1021 shifted left, starts with 0: CRC-16/XMODEM
    };

    static constexpr std::size_t TYPE_COUNT = 4U;
    static constexpr std::size_t TABLE_SIZE = 256U; ///< entries of one type

    /// The parameters by type. Values of narrow types are in the low bits.
    static const std::array<unsigned int, TYPE_COUNT> mWidth; ///< in bits
    static const std::array<bool, TYPE_COUNT> mReverseOrder;  ///< whether the register is shifted right
    static const std::array<unsigned int, TYPE_COUNT> mInitialValue; ///< of an empty message, finished
    static const std::array<unsigned int, TYPE_COUNT> mXorOutValue;  ///< between register and value

    /// What one byte does to the register, TABLE_SIZE entries for each type in turn. Entries of types that
    /// are shifted left may have bits above their width.
    static const std::array<unsigned int, TYPE_COUNT * TABLE_SIZE> mCRCTab;

    /// eCRC16CCITT of nothing.
    CKoCRC()
        : CKoCRC(eCRC16CCITT)
    {
    }

    /// The CRC of nothing. \param type one of the enumerators.
    explicit CKoCRC(eType type)
        : m_type(type)
        , m_value(mInitialValue[type])
    {
    }

    CKoCRC(const CKoCRC& other) = default;
    CKoCRC& operator=(const CKoCRC& other) = default;

    /// Starts again with nothing; the type stays.
    void clearCRC();

    /// Adds one byte.
    void addByte(unsigned char byte);

    /// Adds bytes in order. A null pointer is reported as an assertion, even with no bytes, and adds nothing.
    void addBytes(const unsigned char* data, unsigned int count);

    /// The type's width in bits.
    unsigned int getWidth() const;

    /// The value of an empty message.
    unsigned int getInitialValue() const;

    /// The CRC of the bytes so far.
    unsigned int getCRC() const { return m_value; }

private:
    eType m_type;
    unsigned int m_value;
};

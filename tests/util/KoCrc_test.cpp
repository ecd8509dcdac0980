#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "pf/util/CKoCRC.h"
#include "tests/support/AssertionCounter.h"

namespace
{

constexpr unsigned char CHECK_TEXT[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};

constexpr CKoCRC::eType TYPES[] = {CKoCRC::eCRC16CCITT, CKoCRC::eCRC32, CKoCRC::eCRC16Reflected,
                                   CKoCRC::eCRC16XModem};

/// Bit by bit, from the polynomial alone. `reg` is the register, before any final XOR.
unsigned int addBit(unsigned int reg, bool bit, CKoCRC::eType type)
{
    if (type == CKoCRC::eCRC16CCITT || type == CKoCRC::eCRC16XModem)
    {
        return ((reg << 1U) & 0xFFFFU) ^ (((reg >> 15U) != 0U) != bit ? 0x1021U : 0U);
    }
    return (reg >> 1U) ^ (((reg & 1U) != 0U) != bit ? (type == CKoCRC::eCRC32 ? 0xEDB88320U : 0x1021U) : 0U);
}

unsigned int bitwise(unsigned int value, const std::vector<unsigned char>& bytes, CKoCRC::eType type)
{
    const bool isLeft = type == CKoCRC::eCRC16CCITT || type == CKoCRC::eCRC16XModem;
    const unsigned int xorOut = type == CKoCRC::eCRC32 ? ~0U : 0U;
    unsigned int reg = value ^ xorOut;
    for (const unsigned char byte : bytes)
    {
        for (unsigned int i = 0; i < 8U; ++i)
        {
            reg = addBit(reg, ((byte >> (isLeft ? 7U - i : i)) & 1U) != 0U, type);
        }
    }
    return reg ^ xorOut;
}

TEST(CKoCRC, hasTheCheckValueOfEachType)
{
    const unsigned int initialValues[] = {0xFFFFU, 0U, 0xFFFFU, 0U};
    const unsigned int checkValues[] = {0x29B1U, 0xCBF43926U, 0x1DBAU, 0x31C3U};
    for (const CKoCRC::eType type : TYPES)
    {
        CKoCRC crc(type);
        EXPECT_EQ(crc.getCRC(), initialValues[type]);
        EXPECT_EQ(crc.getInitialValue(), initialValues[type]);
        EXPECT_EQ(crc.getWidth(), type == CKoCRC::eCRC32 ? 32U : 16U);
        crc.addBytes(CHECK_TEXT, 4U);
        CKoCRC copy;
        EXPECT_EQ(copy.getCRC(), 0xFFFFU);
        copy = crc;
        crc.addBytes(CHECK_TEXT + 4, 5U);
        EXPECT_EQ(crc.getCRC(), checkValues[type]);
        for (unsigned int i = 4; i < 9U; ++i)
        {
            copy.addByte(CHECK_TEXT[i]);
        }
        EXPECT_EQ(copy.getCRC(), checkValues[type]);
        {
            const KoTest::AssertionCounter assertions(1);
            copy.addBytes(nullptr, 3U);
        }
        EXPECT_EQ(copy.getCRC(), checkValues[type]);
        copy.clearCRC();
        EXPECT_EQ(copy.getCRC(), initialValues[type]);
    }
}

TEST(CKoCRC, exportsItsTablesToTheEntry)
{
    for (unsigned int i = 0; i < CKoCRC::mCRCTab.size(); ++i)
    {
        const CKoCRC::eType type = TYPES[i / 256U];
        const bool isLeft = !CKoCRC::mReverseOrder[type];
        unsigned int entry = isLeft ? (i & 255U) << 8U : i & 255U;
        for (int bit = 0; bit < 8; ++bit)
        {
            const bool isOut = ((isLeft ? entry >> 15U : entry) & 1U) != 0U;
            entry = (isLeft ? entry << 1U : entry >> 1U) ^
                    (isOut ? (type == CKoCRC::eCRC32 ? 0xEDB88320U : 0x1021U) : 0U);
        }
        ASSERT_EQ(CKoCRC::mCRCTab[i], entry) << i;
    }
    EXPECT_EQ(CKoCRC::mXorOutValue[CKoCRC::eCRC32], ~0U);
}

TEST(CKoCRC, agreesWithCountingBitsForEveryLengthAndSplit)
{
    std::mt19937 random(7U);
    std::vector<unsigned char> bytes(4200U);
    for (unsigned char& each : bytes)
    {
        each = static_cast<unsigned char>(random());
    }
    for (const CKoCRC::eType type : TYPES)
    {
        for (unsigned int length = 0; length < 4096U; length += length < 320U ? 1U : 61U)
        {
            const unsigned int offset = length % 19U;
            CKoCRC crc(type);
            crc.addByte(bytes[4199]);
            const unsigned int before = crc.getCRC();
            crc.addBytes(&bytes[offset], length);
            const std::vector<unsigned char> piece(&bytes[offset], &bytes[offset] + length);
            ASSERT_EQ(crc.getCRC(), bitwise(before, piece, type)) << type << " " << length;
        }
    }
}

} // namespace

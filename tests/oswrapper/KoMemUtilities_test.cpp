#include "pf/oswrapper/KoMemUtilities.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace
{

/// Fills `count` elements from `first` on in a guarded array and compares with a plain loop.
template <class Element>
void expectLikeLoop(void (*fill)(Element*, unsigned int, Element), Element value)
{
    for (unsigned int first = 0; first < 9; ++first)
    {
        for (unsigned int count = 0; count < 40; ++count)
        {
            alignas(16) Element actual[64] = {};
            std::vector<Element> expected(64);
            fill(actual + first, count, value);
            std::fill_n(expected.data() + first, count, value);
            EXPECT_EQ(std::vector<Element>(actual, actual + 64), expected) << first << " " << count;
        }
    }
    fill(nullptr, 5, value);
}

TEST(KoMemUtilities, FillsExactlyTheElementsAtEveryAlignmentAndCount)
{
    expectLikeLoop<unsigned long long>(KoMemUtilities::memFillUInt64, 0x0123456789ABCDEFULL);
    expectLikeLoop<unsigned int>(KoMemUtilities::memFillUInt32, 0x89ABCDEFU);
    expectLikeLoop<unsigned short>(KoMemUtilities::memFillUInt16, 0xBEEF);
    expectLikeLoop<unsigned char>(KoMemUtilities::memFillUInt8, 0xE1);
}

TEST(KoMemUtilities, FillsNibblesAndLeavesTheirNeighbours)
{
    for (unsigned int start = 0; start < 2; ++start)
    {
        for (unsigned int count = 0; count < 40; ++count)
        {
            std::vector<unsigned char> bytes(24, 0x12);
            KoMemUtilities::memFillNibble(bytes.data(), count, 0xFC, start);
            for (unsigned int i = 0; i < 48; ++i)
            {
                const int cell = i % 2 == 0 ? bytes[i / 2] >> 4 : bytes[i / 2] & 0xF;
                const int untouched = i % 2 == 0 ? 1 : 2;
                EXPECT_EQ(cell, i < start || i >= start + count ? untouched : 0xC) << count << " " << i;
            }
        }
    }
    KoMemUtilities::memFillNibble(nullptr, 2, 0xA, 1);
}

TEST(KoMemUtilities, CastsOnlyAlignedPointers)
{
    alignas(4) char bytes[8];
    for (unsigned int offset = 0; offset < 4; ++offset)
    {
        void* pointer = bytes + offset;
        const void* constPointer = pointer;
        void* const ifWord = offset == 0 ? pointer : nullptr;
        void* const ifHalf = offset % 2 == 0 ? pointer : nullptr;
        EXPECT_EQ(KoMemUtilities::castToUInt32Ptr(pointer), ifWord);
        EXPECT_EQ(KoMemUtilities::castToUInt32Ptr(constPointer), ifWord);
        EXPECT_EQ(KoMemUtilities::castToUInt16Ptr(pointer), ifHalf);
        EXPECT_EQ(KoMemUtilities::castToUInt16Ptr(constPointer), ifHalf);
    }
}

} // namespace

#include "pf/containers/KoContainerAssertions.h"

#include <climits>

#include <gtest/gtest.h>

#include "pf/containers/KoConstRefCountedVectorAssertions.h"
#include "pf/containers/KoListAssertions.h"
#include "pf/containers/KoPrivateVectorBase.h"
#include "pf/containers/KoPtrVectorAssertions.h"
#include "pf/containers/KoQueueAssertions.h"
#include "pf/containers/KoVectorAssertions.h"
#include "tests/support/AssertionCounter.h"

namespace
{

using namespace KoContainerAssertions;

struct TwoWords : KoPrivate::CKoVectorBase
{
    explicit TwoWords(int capacity, int size = 0)
        : CKoVectorBase(capacity)
    {
        m_size = size;
    }
};

TEST(KoContainerAssertions, everyReportNamesItsContainerAndItsMessage)
{
    const TwoWords words(4, 3);
    const int value = 0;
    const KoTest::ReportCase cases[] = {
        {"f 1: Index our of range", [] { reportAssertion(IndexOutOfRange, "f", 1); }},
        {"f 2: Invalid parameter", [] { reportAssertion(InvalidParameter, "f", 2); }},
        {"f 3: Invalid iterator position", [] { reportAssertion(InvalidIteratorPosition, "f", 3); }},
        {"<unknown file> 0: Invalid internal state", [] { reportAssertion(InvalidInternalState); }},
        {"TKoVector 4: Index our of range", [] { KoVectorAssertions::doAssert(IndexOutOfRange, 4); }},
        {"TKoPtrVector 5: Invalid parameter", [] { KoPtrVectorAssertions::doAssert(InvalidParameter, 5); }},
        {"TKoQueue 6: Invalid parameter", [] { KoQueueAssertions::doAssert(InvalidParameter, 6); }},
        {"TKoConstRefCountedVector 7: Invalid internal state",
         [] { KoConstRefCountedVectorAssertions::doAssert(InvalidInternalState, 7); }},
        {"TKoList 8: Invalid iterator position",
         [] { KoListAssertions::doAssert(InvalidIteratorPosition, 8); }},
        {"TKoVector 16: Invalid parameter", [&] { EXPECT_FALSE(words.checkGet(3, 16)); }},
        {"TKoVector 17: Invalid parameter", [&] { EXPECT_FALSE(words.checkResize(-1, 17)); }},
        {"TKoVector 18: Index our of range", [&] { EXPECT_FALSE(words.checkErase(0, 3, 18)); }},
        {"TKoVector 19: Invalid parameter", [&] { EXPECT_FALSE(words.checkErase(2, 1, 19)); }},
        {"TKoVector 20: Index our of range", [&] { EXPECT_FALSE(words.checkInsert(-1, &value, 20)); }},
        {"TKoVector 21: Invalid parameter", [&] { EXPECT_FALSE(words.checkInsert(0, nullptr, 21)); }},
    };
    EXPECT_TRUE(words.checkGet(0, 1) && words.checkGet(2, 1) && words.checkResize(0, 1));
    EXPECT_TRUE(words.checkErase(0, 2, 1) && words.checkErase(2, 2, 1) && words.checkInsert(3, &value, 1));
    KoTest::expectReports(cases, [&] { EXPECT_EQ(3, words.size()); });
}

TEST(KoPrivateVectorBase, capacitiesDoubleFromTheCapacityThatIsThere)
{
    const int expected[][3] = {{0, 3, 4},
                               {1, 1, 1},
                               {2, 3, 4},
                               {2, 5, 8},
                               {5, 5, 5},
                               {5, 6, 10},
                               {6, 25, 48},
                               {4, -1, 4},
                               {4, INT_MAX, INT_MAX},
                               {INT_MAX / 2 + 1, INT_MAX, INT_MAX}};
    for (const auto& [capacity, required, result] : expected)
        EXPECT_EQ(result, TwoWords(capacity).calcNewCapacity(required)) << capacity << " " << required;

    TwoWords a(7, 2);
    TwoWords b(9, 5);
    swap(a, b);
    EXPECT_TRUE(a.size() == 5 && a.capacity() == 9 && b.size() == 2 && b.capacity() == 7);
}

} // namespace

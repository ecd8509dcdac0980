#include "pf/containers/KoContainerAssertions.h"

#include <climits>
#include <functional>

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

/// A two-word vector of three elements.
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
    const struct
    {
        KoTest::ReportedAssertion expected;
        std::function<void()> call;
    } cases[] = {
        {{"Index our of range", "f", 1}, [] { reportAssertion(IndexOutOfRange, "f", 1); }},
        {{"Invalid parameter", "f", 2}, [] { reportAssertion(InvalidParameter, "f", 2); }},
        {{"Invalid iterator position", "f", 3}, [] { reportAssertion(InvalidIteratorPosition, "f", 3); }},
        {{"Invalid internal state", "<unknown file>", 0}, [] { reportAssertion(InvalidInternalState); }},
        {{"Index our of range", "TKoVector", 4}, [] { KoVectorAssertions::doAssert(IndexOutOfRange, 4); }},
        {{"Invalid parameter", "TKoPtrVector", 5},
         [] { KoPtrVectorAssertions::doAssert(InvalidParameter, 5); }},
        {{"Invalid parameter", "TKoQueue", 6}, [] { KoQueueAssertions::doAssert(InvalidParameter, 6); }},
        {{"Invalid internal state", "TKoConstRefCountedVector", 7},
         [] { KoConstRefCountedVectorAssertions::doAssert(InvalidInternalState, 7); }},
        {{"Invalid iterator position", "TKoList", 8},
         [] { KoListAssertions::doAssert(InvalidIteratorPosition, 8); }},
        {{"Invalid parameter", "TKoVector", 16}, [&] { EXPECT_FALSE(words.checkGet(3, 16)); }},
        {{"Invalid parameter", "TKoVector", 17}, [&] { EXPECT_FALSE(words.checkResize(-1, 17)); }},
        {{"Index our of range", "TKoVector", 18}, [&] { EXPECT_FALSE(words.checkErase(0, 3, 18)); }},
        {{"Invalid parameter", "TKoVector", 19}, [&] { EXPECT_FALSE(words.checkErase(2, 1, 19)); }},
        {{"Index our of range", "TKoVector", 20}, [&] { EXPECT_FALSE(words.checkInsert(-1, &value, 20)); }},
        {{"Invalid parameter", "TKoVector", 21}, [&] { EXPECT_FALSE(words.checkInsert(0, nullptr, 21)); }},
    };
    EXPECT_TRUE(words.checkGet(0, 1) && words.checkGet(2, 1) && words.checkResize(0, 1));
    EXPECT_TRUE(words.checkErase(0, 2, 1) && words.checkErase(2, 2, 1) && words.checkInsert(3, &value, 1));
    for (const auto& [expected, call] : cases)
    {
        KoTest::AssertionReports reports;
        call();
        ASSERT_EQ(1U, reports.assertions().size()) << expected.line;
        EXPECT_TRUE(expected == reports.assertions().front()) << expected.line;
    }
}

TEST(KoPrivateVectorBase, capacitiesDoubleFromTheCapacityThatIsThere)
{
    const int expected[][3] = {
        {0, 3, 4},
        {0, 5, 8},
        {1, 1, 1},
        {2, 3, 4},
        {2, 5, 8},
        {3, 9, 16},
        {5, 5, 5},
        {5, 6, 10},
        {6, 25, 48},
        {4, -1, 4},
        {4, INT_MAX, INT_MAX},
        {INT_MAX / 2 + 1, INT_MAX, INT_MAX},
    };
    for (const auto& [capacity, required, result] : expected)
        EXPECT_EQ(result, TwoWords(capacity).calcNewCapacity(required)) << capacity << " " << required;

    TwoWords a(7, 2);
    TwoWords b(9, 5);
    swap(a, b);
    EXPECT_TRUE(a.size() == 5 && a.capacity() == 9 && b.size() == 2 && b.capacity() == 7);
}

} // namespace

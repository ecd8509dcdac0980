#include "pf/containers/TKoConstRefCountedVector.h"

#include "tests/containers/LifetimeElement.h"
#include "tests/support/AssertionCounter.h"

#include <gtest/gtest.h>

namespace
{

using Element = KoTest::LifetimeElement<false>;
using Table = TKoConstRefCountedVector<Element>;

TKoSmallVector<Element> countTo(int last)
{
    TKoSmallVector<Element> numbers;
    for (int i = 1; i <= last; ++i)
    {
        numbers.push_back(Element(i));
    }
    return numbers;
}

TEST(TKoConstRefCountedVector, copiesShareTheElementsUntilTheLastOneGoes)
{
    const int aliveBefore = Element::alive;
    {
        Table first(countTo(3));
        Table second(first);
        const Element* const element = first.get(1);
        EXPECT_EQ(second.get(1), element);
        EXPECT_EQ(Element::alive, aliveBefore + 3);
        first = Table();
        EXPECT_EQ(element->value(), 2);
        const Table& same = second;
        second = same;
        const Table third(std::move(second));
        EXPECT_EQ(third.size(), 3);
        EXPECT_EQ(third.find(*element), 1);
        EXPECT_EQ(third.rfind(Element(4)), -1);
        EXPECT_TRUE(third == Table(countTo(3)) && third != Table(countTo(2)) && third != Table());
    }
    EXPECT_EQ(Element::alive, aliveBefore);
    EXPECT_EQ(Element::faults, 0);
    EXPECT_TRUE(Table(countTo(0)) == Table());
}

TEST(TKoConstRefCountedVector, reportsIndexesOutOfRange)
{
    const Table table(countTo(1));
    const Table empty;
    const char* const outside = "TKoConstRefCountedVector: Index our of range";
    const KoTest::ReportCase cases[] = {
        {outside, [&] { EXPECT_EQ(table.get(-1), nullptr); }},
        {outside, [&] { EXPECT_EQ(table.get(1), nullptr); }},
        {outside, [&] { EXPECT_EQ(empty.get(0), nullptr); }},
    };
    KoTest::expectReports(cases, [&] { EXPECT_EQ(table.size(), 1); });
}

} // namespace

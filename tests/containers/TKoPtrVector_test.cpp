#include "pf/containers/TKoPtrVector.h"

#include "tests/containers/LifetimeElement.h"
#include "tests/support/AssertionCounter.h"

#include <algorithm>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

namespace
{

using Pointers = std::vector<const char*>;

Pointers contentsOf(const TKoPtrVector<const char>& vector)
{
    return Pointers(vector.begin(), vector.end());
}

TEST(TKoPtrVector, keepsPointersInOrder)
{
    static const char objects[4] = {};
    const char* const a = objects;
    const char* const b = objects + 1;
    const char* const c = objects + 2;
    TKoPtrVector<const char> vector;
    EXPECT_EQ(vector.pop_back(), nullptr);
    vector.push_back(b);
    vector.insert(0, a);
    vector.insert(2, nullptr);
    vector.push_back(a);
    EXPECT_EQ(contentsOf(vector), (Pointers{a, b, nullptr, a}));
    EXPECT_EQ(vector.find(a), 0);
    EXPECT_EQ(vector.rfind(a), 3);
    EXPECT_EQ(vector.find(nullptr), 2);
    EXPECT_EQ(vector.find(c), -1);

    const TKoPtrVector<const char> copy(vector);
    EXPECT_EQ(vector.replace(2, c), nullptr);
    EXPECT_EQ(vector.erase(0), a);
    EXPECT_EQ(vector.pop_back(), a);
    EXPECT_EQ(contentsOf(vector), (Pointers{b, c}));
    EXPECT_EQ(contentsOf(copy), (Pointers{a, b, nullptr, a}));
    EXPECT_TRUE(vector != copy);
    vector = copy;
    EXPECT_TRUE(vector == copy);
}

TEST(TKoPtrVector, deletesItsObjectsOnDemandOnly)
{
    using Element = KoTest::LifetimeElement<false>;
    const int aliveBefore = Element::alive;
    TKoPtrVector<Element> vector;
    const auto kept = std::make_unique<Element>(1);
    vector.push_back(kept.get());
    vector.clear();
    EXPECT_EQ(Element::alive, aliveBefore + 1);
    vector.push_back(new Element(2));
    vector.push_back(nullptr);
    vector.push_back(new Element(3));
    vector.deleteAll();
    EXPECT_TRUE(vector.isEmpty());
    EXPECT_EQ(Element::alive, aliveBefore + 1);
    EXPECT_EQ(Element::faults, 0);
}

TEST(TKoPtrVector, reportsIndexesOutOfRange)
{
    int number = 0;
    TKoPtrVector<int> vector;
    vector.push_back(&number);
    const char* const outside = "TKoPtrVector: Index our of range";
    const KoTest::ReportCase cases[] = {
        {outside, [&] { EXPECT_EQ(vector.get(-1), nullptr); }},
        {outside, [&] { EXPECT_EQ(vector.get(1), nullptr); }},
        {outside, [&] { vector.insert(-1, &number); }},
        {outside, [&] { vector.insert(2, &number); }},
        {outside, [&] { EXPECT_EQ(vector.replace(1, nullptr), nullptr); }},
        {outside, [&] { EXPECT_EQ(vector.erase(1), nullptr); }},
    };
    KoTest::expectReports(cases, [&] { EXPECT_TRUE(vector.size() == 1 && vector.get(0) == &number); });
}

} // namespace

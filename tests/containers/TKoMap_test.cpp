#include "pf/containers/TKoMap.h"

#include <map>
#include <random>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "tests/support/AssertionCounter.h"

namespace
{

template <class T>
std::vector<T> contentOf(const std::vector<T>& vector)
{
    return vector;
}

TEST(TKoVector, readsInsertsAndRemovesByIndex)
{
    TKoVector<int> vector = {1, 2, 3};
    vector.insert(0, 0);
    vector.insert(4, vector.back());
    vector.insert(2, *vector.get(3));
    EXPECT_EQ((std::vector<int>{0, 1, 3, 2, 3, 3}), contentOf(vector));
    vector.remove(*vector.get(2));
    vector.remove(9);
    EXPECT_EQ((std::vector<int>{0, 1, 2, 3, 3}), contentOf(vector));
    *vector.get(4) = 7;
    EXPECT_EQ(7, *std::as_const(vector).get(4));
}

TEST(TKoVector, indexesOutOfRangeAreReportedAndChangeNothing)
{
    TKoVector<int> vector = {1, 2};
    KoTest::AssertionReports reports;
    EXPECT_EQ(nullptr, vector.get(2));
    EXPECT_EQ(nullptr, std::as_const(vector).get(-1));
    vector.insert(3, 5);
    vector.insert(-1, 5);
    EXPECT_EQ((std::vector<std::string>{"TKoVector: Invalid parameter", "TKoVector: Invalid parameter",
                                        "TKoVector: Index our of range", "TKoVector: Index our of range"}),
              reports.summaries());
    EXPECT_EQ((std::vector<int>{1, 2}), contentOf(vector));
}

TEST(KoAlgorithm, boundsEncloseTheRunOfEquivalentElements)
{
    const int values[] = {1, 3, 3, 3, 8};
    const int expected[][3] = {{0, 0, 0}, {1, 0, 1}, {2, 1, 1}, {3, 1, 4}, {5, 4, 4}, {8, 4, 5}, {9, 5, 5}};
    for (const auto& [value, lower, upper] : expected)
    {
        EXPECT_EQ(lower, KoAlgorithm::lowerBound(values, 5, value, TKoBefore<int>())) << value;
        EXPECT_EQ(upper, KoAlgorithm::upperBound(values, 5, value, TKoBefore<int>())) << value;
    }
    EXPECT_EQ(0, KoAlgorithm::lowerBound(values, 0, 1, TKoBefore<int>()));
    EXPECT_EQ(values + 4, KoAlgorithm::find_if(values, values + 5, [](int value) { return value > 3; }));
    EXPECT_EQ(values + 5, KoAlgorithm::find_if(values, values + 5, [](int value) { return value > 8; }));
}

TEST(TKoSortedVector, duplicatesGoInFrontOfTheirEquals)
{
    using Entry = std::pair<int, char>;
    struct ByNumber
    {
        bool operator()(const Entry& a, const Entry& b) const { return a.first < b.first; }
    };
    TKoSortedVector<Entry, ByNumber> vector(true);
    for (const Entry& entry : {Entry(2, 'a'), Entry(1, 'b'), Entry(2, 'c'), Entry(3, 'd'), Entry(2, 'e')})
        EXPECT_TRUE(vector.insert(entry));
    std::string order;
    for (const Entry& entry : vector)
        order += entry.second;
    EXPECT_EQ("becad", order);
    EXPECT_EQ(1, vector.find(Entry(2, 'x')));
    EXPECT_EQ(4, vector.lower_bound(Entry(3, 'x')));
    EXPECT_EQ(5, vector.lower_bound(Entry(4, 'x')));
    EXPECT_EQ(-1, vector.find(Entry(4, 'x')));
}

TEST(TKoMap, holdsTextsInDescendingByteOrder)
{
    TKoMap<CKoString, int> map;
    EXPECT_EQ(-1, map.find("b"));
    for (const char* key : {"a", "c", "b", "", "ab", "\xC3\xA4", "Z"})
        EXPECT_TRUE(map.insert(key, 1));
    EXPECT_FALSE(map.insert("b", 2));
    std::string order;
    for (const auto& entry : map)
        order += entry.first.c_str() + std::string(" ");
    EXPECT_EQ("\xC3\xA4 c b ab a Z  ", order);
    EXPECT_EQ(1, map.get(map.find("b"))->second);
    EXPECT_EQ(-1, map.find("aa"));
    EXPECT_EQ(-1, map.find("\xC3\xA5"));
}

/// Keys of all lengths with much in common, so that words match, end inside and go on.
std::string makeKey(std::mt19937& random)
{
    const std::string key(random() % 26U, 'a');
    return key + (random() % 4U == 0 ? "\xC3\xA4" : "") + std::to_string(random() % 30U);
}

TEST(TKoMap, agreesWithAStandardMap)
{
    std::mt19937 random(4711);
    TKoMap<CKoString, unsigned int> map;
    std::map<std::string, unsigned int, std::greater<std::string>> model;
    for (unsigned int i = 0; i < 2000; ++i)
    {
        const std::string key = makeKey(random);
        EXPECT_EQ(model.emplace(key, i).second, map.insert(key.c_str(), i)) << key;
    }
    ASSERT_EQ(model.size(), map.size());
    int index = 0;
    for (const auto& [key, value] : model)
    {
        EXPECT_EQ(index, map.find(key.c_str())) << key;
        EXPECT_EQ(value, map.get(index++)->second);
    }
    for (unsigned int i = 0; i < 2000; ++i)
    {
        const std::string key = makeKey(random);
        EXPECT_EQ(model.count(key) != 0, map.find(key.c_str()) >= 0) << key;
    }
}

/// Texts can come to hold a zero byte by conversion; the order then ends there.
TEST(TKoSortedVector, ordersTextsUpToTheirFirstZeroByte)
{
    TKoSortedVector<CKoString> vector;
    const unsigned int units[] = {'a', 'b', 0, 'c'};
    CKoString text;
    text.fromUCS4Sequence(units, 4);
    EXPECT_TRUE(vector.insert("abb"));
    EXPECT_TRUE(vector.insert("a"));
    EXPECT_TRUE(vector.insert("ab"));
    ASSERT_EQ(4U, text.byteLength());
    EXPECT_EQ(1, vector.find(text));
    vector.remove("ab");
    EXPECT_TRUE(vector.insert(text));
    EXPECT_EQ(1, vector.find("ab"));
}

/// A value that needs a pair of its own, found by a key that is no text.
TEST(TKoMap, mapsNumbersToPairs)
{
    using Value = TKoPair<CKoString, const int*>;
    const int target = 3;
    TKoMap<int, Value, TKoBefore<int>> map;
    EXPECT_TRUE(map.insert(7, Value("seven", &target)));
    EXPECT_TRUE(map.insert(-2, Value()));
    EXPECT_EQ(1, map.find(7));
    EXPECT_EQ(&target, map.get(1)->second.second);
    EXPECT_EQ(nullptr, map.get(0)->second.second);
}

} // namespace

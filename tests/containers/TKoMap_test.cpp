#include "pf/containers/TKoMap.h"

#include <map>
#include <random>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "tests/support/AssertionCounter.h"

namespace
{

TEST(TKoVector, readsInsertsAndRemovesByIndex)
{
    TKoVector<int> vector = {1, 2, 3};
    vector.insert(0, 0);
    vector.insert(4, vector.back());
    vector.insert(2, *vector.get(3));
    EXPECT_TRUE(vector == (std::vector<int>{0, 1, 3, 2, 3, 3}));
    vector.remove(*vector.get(2));
    vector.remove(9);
    *vector.get(4) = 7;
    EXPECT_TRUE(vector == (std::vector<int>{0, 1, 2, 3, 7}));

    const std::vector<int> before(vector);
    const KoTest::ReportCase cases[] = {
        {"TKoVector: Invalid parameter", [&] { EXPECT_EQ(nullptr, vector.get(5)); }},
        {"TKoVector: Invalid parameter", [&] { EXPECT_EQ(nullptr, std::as_const(vector).get(-1)); }},
        {"TKoVector: Index our of range", [&] { vector.insert(6, 5); }},
        {"TKoVector: Index our of range", [&] { vector.insert(-1, 5); }},
    };
    KoTest::expectReports(cases, [&] { EXPECT_TRUE(vector == before); });
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
    EXPECT_TRUE(vector.find(Entry(2, 'x')) == 1 && vector.find(Entry(4, 'x')) == -1);
    EXPECT_TRUE(vector.lower_bound(Entry(3, 'x')) == 4 && vector.lower_bound(Entry(4, 'x')) == 5);
}

TEST(TKoMap, holdsTextsInDescendingByteOrderAndNumbersInAscending)
{
    TKoMap<CKoString, int> map;
    for (const char* key : {"a", "c", "b", "", "ab", "\xC3\xA4", "Z"})
        EXPECT_TRUE(map.find(key) == -1 && map.insert(key, 1) && !map.insert(key, 2));
    std::string order;
    for (const auto& entry : map)
        order += entry.first.c_str() + std::to_string(entry.second) + " ";
    EXPECT_EQ("\xC3\xA4\x31 c1 b1 ab1 a1 Z1 1 ", order);

    TKoMap<int, TKoPair<CKoString, const char*>> pairs;
    EXPECT_TRUE(pairs.insert(7, {"seven", "7"}) && pairs.insert(-2, {}));
    EXPECT_EQ(1, pairs.find(7));
    EXPECT_TRUE(pairs.get(0)->second.second == nullptr && pairs.get(1)->second.first == "seven");
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
    for (unsigned int i = 0; i < 4000; ++i)
    {
        const std::string key = makeKey(random);
        const std::string missing = makeKey(random);
        EXPECT_EQ(model.emplace(key, i).second, map.insert(key.c_str(), i)) << key;
        EXPECT_EQ(model.count(missing) != 0, map.find(missing.c_str()) >= 0) << missing;
    }
    ASSERT_EQ(model.size(), map.size());
    int index = 0;
    for (const auto& [key, value] : model)
    {
        EXPECT_EQ(index, map.find(key.c_str())) << key;
        EXPECT_EQ(value, map.get(index++)->second);
    }
}

/// Texts can come to hold a zero byte by conversion; the order then ends there.
TEST(TKoSortedVector, ordersTextsUpToTheirFirstZeroByte)
{
    TKoSortedVector<CKoString> vector;
    const unsigned int units[] = {'a', 'b', 0, 'c'};
    CKoString text;
    text.fromUCS4Sequence(units, 4);
    EXPECT_TRUE(vector.insert("abb") && vector.insert("a") && vector.insert("ab"));
    ASSERT_EQ(4U, text.byteLength());
    EXPECT_EQ(1, vector.find(text));
    vector.remove("ab");
    EXPECT_TRUE(vector.insert(text));
    EXPECT_EQ(1, vector.find("ab"));
}

} // namespace

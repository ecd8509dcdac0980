#include "pf/containers/TKoHashMap.h"

#include "pf/base/CKoString.h"
#include "tests/support/AssertionCounter.h"

#include <map>
#include <random>
#include <string>

#include <gtest/gtest.h>

namespace
{

/// Values are numbers; each map owns one per entry. Notes whose operations copied, and what.
class Core : public CKoHashMapImpl
{
public:
    explicit Core(unsigned int size)
        : CKoHashMapImpl(size)
    {
    }
    Core(const Core&) = default;
    Core& operator=(const Core&) = default;
    ~Core() override { clearEntries(); }

    unsigned int& number(unsigned int key) { return *static_cast<unsigned int*>(*access(key)); }
    std::string order() const
    {
        std::string result;
        for (CKoHashMapItem* item = firstItem(); item != nullptr; item = nextItem(item))
            result += std::to_string(*getKey(item)) + " ";
        return result;
    }

    static inline int owned = 0;
    int copies = 0;
    using CKoHashMapImpl::rehash;

private:
    void copyValue(void** value) override
    {
        ++copies, ++owned;
        *value = new unsigned int(*static_cast<unsigned int*>(*value));
    }
    void destroyValue(void** value) override { --owned, delete static_cast<unsigned int*>(*value); }
    void initValue(void** value) override { ++owned, *value = new unsigned int(0); }
};

TEST(CKoHashMapImpl, hasAPowerOfTwoOfBucketsAndHalfAsManyEntriesBehindThem)
{
    const unsigned int cases[][2] = {{0, 2}, {2, 2}, {3, 4}, {128, 128}, {129, 256}};
    for (const auto& [size, buckets] : cases)
    {
        Core map(size);
        for (unsigned int i = 0; i < buckets / 2U; ++i) // all in bucket 0
        {
            map.number(i * buckets) = i;
            ASSERT_TRUE(map.size() == i + 1U && map.capacity() == buckets + buckets / 2U);
        }
        map.number(1) = 1; // needs no overflow entry
        EXPECT_EQ(map.capacity(), buckets + buckets / 2U);
        map.number(buckets * 1024U) = 1;
        EXPECT_EQ(map.capacity(), 3U * buckets);
        map.clear();
        EXPECT_TRUE(map.capacity() == buckets + buckets / 2U && map.size() == 0U && !map.lookup(0));
        EXPECT_TRUE(map.firstItem() == nullptr && Core::owned == 0);
        map.number(7);
    }
    EXPECT_EQ(Core::owned, 0);
}

TEST(CKoHashMapImpl, keepsTheKeysOfBucket0InTheOverflowArea)
{
    Core map(4);
    for (const unsigned int key : {0U, 4U, 3U, 1U})
        map.number(key) = key;
    EXPECT_EQ(map.order(), "1 3 0 4 ");
    map.number(8) = 8; // no room any more: 4 gets a bucket of its own
    EXPECT_EQ(map.order() + std::to_string(map.capacity()), "1 3 4 0 8 12");
    EXPECT_TRUE(map.size() == 5U && map.lookup(0) && map.lookup(8) && !map.lookup(16) && !map.lookup(5));
    map.rehash();
    map.rehash(); // the address that the former table gave away is no longer carried over
    EXPECT_EQ(map.number(0) + map.number(4) + map.number(8) + map.capacity(), 60U);
}

TEST(CKoHashMapImpl, copiesWithTheOperationsOfWhoIsThere)
{
    Core map(4);
    for (const unsigned int key : {0U, 4U, 3U, 8U})
        map.number(key) = key;
    unsigned int* const zero = &map.number(0);
    Core copy(map);
    EXPECT_TRUE(map.copies == 4 && &map.number(0) == zero && &copy.number(0) != zero);
    EXPECT_EQ(copy.order() + std::to_string(copy.capacity()), map.order() + "12");
    copy.copies = 0;
    copy.clear();
    EXPECT_EQ(copy.capacity(), 192U);
    copy = map;
    copy = *&copy;
    EXPECT_TRUE(map.copies == 4 && copy.copies == 4 && copy.number(8) == 8U && copy.capacity() == 12U);
    EXPECT_EQ(Core::owned, 8);
}

/// A growth between the access of `first` and the writing through its address.
template <class Act>
void writeAfterGrowth(unsigned int first, Act act)
{
    TKoHashMap<unsigned int> map(4);
    for (const unsigned int key : {0U, 4U, 3U})
        map[key] = key;
    unsigned int& value = map[first];
    const int capacity = map.capacity();
    map[8] = 8;
    ASSERT_GT(map.capacity(), capacity);
    value = 100U;
    EXPECT_EQ(*map.find(first), 100U);
    act(map);
}

TEST(CKoHashMapImpl, carriesWhatIsWrittenToTheFormerTableOver)
{
    using Map = TKoHashMap<unsigned int>;
    for (const unsigned int first : {0U, 3U, 4U}) // an overflow entry, a bucket, one that gets a bucket
    {
        const auto expect = [&](const Map& map, unsigned int value)
        { EXPECT_EQ(*map.find(first), value) << first; };
        writeAfterGrowth(first, [&](Map& map) { expect(((void)map[3], map), 100U); });
        writeAfterGrowth(first, [&](Map& map) { expect(((void)map[first], map), 100U); });
        writeAfterGrowth(first, [&](Map& map) { expect(Map(map), 100U); });
        writeAfterGrowth(first, [&](Map& map) { *map.find(first) = 7U, map[3], expect(map, 7U); });
        writeAfterGrowth(first, [&](Map& map) { map.clear(), (void)map[3], expect((map[first], map), 0U); });
        writeAfterGrowth(first, [&](Map& map) { map = Map(2), map[1], expect((map[first], map), 0U); });
        writeAfterGrowth(first,
                         [&](Map& map) { EXPECT_TRUE(map.insert(77, *map.find(first)) && map[77] == 100U); });
    }
    Map map(2); // grows twice in a row; the last access before each growth is the one that grew it
    map[0], map[1U << 16U] = 1U;
    unsigned int& value = map[2U << 16U];
    map[3U << 16U] = 3U;
    value = 2U;
    EXPECT_EQ(map[1U << 16U] * 100U + map[2U << 16U] * 10U + map[3U << 16U], 123U);
}

/// Keys that are dense, or fall into one bucket.
unsigned int keyOf(unsigned int random)
{
    return random % 3U == 0U ? random % 4000U : random % 500U << 20U;
}

template <class V>
void compareWithModel(V (*valueOf)(int))
{
    const unsigned int seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 engine(seed);
    TKoHashMap<V> map(2), other;
    std::map<unsigned int, V> model;
    for (int step = 0; step < 40000; ++step)
    {
        const auto random = static_cast<unsigned int>(engine());
        const V value = valueOf(step);
        if (random % 1000U == 0U)
            other = map, map.clear(), map = other;
        else if (random % 2U == 0U)
            ASSERT_EQ(map.insert(keyOf(random), value), model.emplace(keyOf(random), value).second);
        else
            map[keyOf(random)] = value, model.insert_or_assign(keyOf(random), value);
        const auto wanted = model.find(keyOf(random * 77U));
        const V* const found = map.find(keyOf(random * 77U));
        ASSERT_TRUE((found != nullptr) == (wanted != model.end()) &&
                    (found == nullptr || wanted->second == *found));
        ASSERT_TRUE(step % 512 != 0 || map.size() == static_cast<int>(model.size())) << step;
    }
    const TKoHashMap<V> copy(map);
    for (const auto& [key, value] : copy)
        ASSERT_TRUE(model.at(key) == value && model.erase(key) == 1U);
    EXPECT_TRUE(model.empty() && !copy.isEmpty());
}

TEST(TKoHashMap, afterAnyOperationsItIsTheStandardMap)
{
    compareWithModel<int>([](int step) { return step; });
    compareWithModel<CKoString>([](int step) { return CKoString(std::to_string(step).c_str()); });
}

TEST(TKoHashMap, reportsAStepBeyondTheEnd)
{
    TKoHashMap<int> map;
    const KoTest::ReportCase step{"TKoHashMap: Invalid iterator position", [&] { ++map.begin(); }};
    step.expectReport();
}

} // namespace

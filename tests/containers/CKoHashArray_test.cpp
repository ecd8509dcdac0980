#include "pf/containers/TKoHashArray.h"
#include "pf/containers/TKoHashMap.h"

#include "tests/containers/LifetimeElement.h"
#include "tests/support/AssertionCounter.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FaultInjection.h"

#include <random>
#include <string>
#include <unordered_map>

#include <gtest/gtest.h>

namespace
{

/// Keys are numbers in the slot; the bucket is chosen by them as they are. Counts keys, and thousands of
/// values, that are owned.
class Core : public CKoHashArrayImpl
{
public:
    explicit Core(unsigned int size, int mode = IDENTICAL_KEYS)
        : CKoHashArrayImpl(size)
        , m_mode(mode)
    {
    }
    Core(const Core&) = default;
    Core& operator=(const Core&) = default;
    ~Core() override { destroy(); }

    static void* slot(std::uintptr_t content) { return reinterpret_cast<void*>(content); }
    static unsigned int number(void* content)
    {
        return static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(content));
    }
    unsigned int add(unsigned int key) { return number(*getKey(fastInsert(slot(key), slot(key * 10U)))); }
    bool isBucketEmpty(unsigned int key) const { return tableEntryFor(slot(key))->next == nullptr; }
    std::string order() const
    {
        std::string result;
        for (CKoHashArrayItem* item = firstItem(); item != nullptr; item = nextItem(item))
            result += std::to_string(number(*getKey(item))) + " ";
        return result;
    }

    static inline int owned = 0;
    mutable int comparisons = 0;

private:
    unsigned int hash(void* key) const override { return number(key); }
    int keyMode() const override { return m_mode; }
    bool equalKeys(void* a, void* b) const override { return ++comparisons, number(a) == number(b); }
    void destroyKey(void**) override { --owned; }
    void destroyValue(void**) override { owned -= 1000; }
    void copyKey(void**) override { ++owned; }
    void copyValue(void**) override { owned += 1000; }

    int m_mode;
};

TEST(CKoHashArrayImpl, hasAPowerOfTwoOfBucketsAndGrowsAtTwoItemsPerBucket)
{
    const unsigned int cases[][2] = {{0, 1}, {1, 1}, {2, 2}, {3, 4}, {1000, 1024}};
    for (const auto& [size, buckets] : cases)
    {
        Core table(size);
        for (unsigned int key = 0; key < 2U * buckets; table.add(key++))
            ASSERT_EQ(table.capacity(), 2U * buckets) << size;
        EXPECT_EQ(table.capacity(), 4U * buckets) << size;
        table.clear();
        EXPECT_TRUE(table.order().empty() && table.size() == 0U && table.capacity() == 4U &&
                    Core::owned == 0);
    }
}

TEST(CKoHashArrayImpl, shrinksOnlyAbove1024Buckets)
{
    Core table(2048);
    for (unsigned int key = 0; key < 1500U; ++key)
        table.add(key);
    for (unsigned int key = 0; key < 1500U; ++key)
    {
        ASSERT_EQ(table.capacity(), key <= 475U ? 4096U : 2048U) << key;
        ASSERT_TRUE(table.remove(Core::slot(key)) && !table.remove(Core::slot(key)));
    }
}

TEST(CKoHashArrayImpl, keepsTheOrderOfItsChains)
{
    for (const int mode : {3, 0})
    {
        Core table(4, mode);
        for (const unsigned int key : {6U, 1U, 9U, 5U, 13U})
            EXPECT_EQ(table.add(key), key);
        EXPECT_EQ(table.order(), "1 13 5 9 6 "); // the latest node first
        EXPECT_EQ(Core(table).order(), "1 9 5 13 6 ");
        Core assigned(1);
        assigned.add(3);
        assigned = table;
        assigned = *&assigned;
        EXPECT_EQ(assigned.order() + std::to_string(assigned.capacity()), "1 9 5 13 6 8");
        EXPECT_TRUE(table.remove(Core::slot(1)) && table.remove(Core::slot(5)));
        EXPECT_EQ(table.order(), "13 9 6 "); // the second has moved into the table
        EXPECT_TRUE(table.remove(Core::slot(6)) && table.isBucketEmpty(6) && !table.isBucketEmpty(1));
        for (const unsigned int key : {9U, 3U, 9U, 17U, 21U, 25U}) // equal keys are two items
            table.add(key);
        EXPECT_EQ(table.order() + std::to_string(table.capacity()), "17 25 9 9 9 3 13 21 16");
        EXPECT_EQ(table.comparisons > 0, mode == 0);
    }
    EXPECT_TRUE(Core::owned == 0);
}

/// Any operations on a table, and on its model.
template <class K, class V, class Hash>
void compareWithModel(unsigned int keyCount)
{
    const unsigned int seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 engine(seed);
    std::unordered_map<int, int> model;
    TKoHashArray<K, V, Hash> table, other;
    for (int step = 0; step < 20000; ++step)
    {
        const auto number = static_cast<int>(engine() % keyCount);
        const unsigned int action = engine() % 64U;
        const bool isGrowing = step / 4000 % 2 == 0;
        const K key(std::to_string(number).c_str());
        if (action == 0U)
            other = table, table.clear(), table = other;
        else if (action % 3U == 0U || (action % 3U == 1U && !isGrowing))
            ASSERT_EQ(table.erase(key), model.erase(number) == 1U);
        else if (V* const value = table.find(key); value != nullptr)
            *value = V(step), model[number] = step;
        else
            ASSERT_TRUE(model.emplace(number, step).second && table.insert(key, V(step)) &&
                        !table.insert(key, V(0)));
        ASSERT_TRUE(table.contains(key) == (model.count(number) == 1U) &&
                    table.size() == static_cast<int>(model.size()));
    }
    const TKoHashArray<K, V, Hash> copy(table);
    for (const auto& [key, value] : copy)
        ASSERT_TRUE(model.at(std::stoi(key.c_str())) == value.value() &&
                    model.erase(std::stoi(key.c_str())) == 1U);
    ASSERT_TRUE(model.empty());
}

/// A poor hash: long chains.
struct LengthHash
{
    unsigned int operator()(const std::string& text) const { return static_cast<unsigned int>(text.size()); }
};

TEST(TKoHashArray, afterAnyOperationsItIsTheStandardMap)
{
    compareWithModel<CKoString, KoTest::LifetimeElement<false>, TKoHash<CKoString>>(4000);
    compareWithModel<std::string, KoTest::LifetimeElement<true>, LengthHash>(100);
    EXPECT_TRUE(KoTest::Lifetimes::alive == 0 && KoTest::Lifetimes::faults == 0);
}

TEST(TKoHashArray, takesKeysAndValuesThatLieInIt)
{
    TKoHashArray<CKoString, CKoString> table(1);
    table["a"] = "b";
    for (int i = 0; i < 40; ++i)
    {
        table.insert(std::to_string(i).c_str(), *table.find("a"));
        table[*table.find("a")] = "c";
    }
    EXPECT_EQ(*table.find("39"), CKoString("b"));
    EXPECT_EQ(table.size(), 42);
    for (; !table.isEmpty();)
        EXPECT_TRUE(table.erase(table.begin()->key));
}

TEST(TKoHashArray, reportsPlacesThatAreNoneAndChangesNothing)
{
    TKoHashArray<int, int> table, other;
    table.insert(1, 2);
    other.insert(1, 2);
    using Iterator = TKoHashArray<int, int>::const_iterator;
    const char* const text = "TKoHashArray: Invalid iterator position";
    const KoTest::ReportCase cases[] = {
        {text, [&] { table.erase(table.end()); }},
        {text, [&] { table.erase(Iterator()); }},
        {text, [&] { table.erase(other.begin()); }},
        {text, [&] { EXPECT_TRUE(++table.end() == table.end()); }},
    };
    KoTest::expectReports(cases, [&] { EXPECT_TRUE(table.size() == 1 && other.size() == 1); });
    EXPECT_TRUE(Iterator(table.begin())++ == table.begin());
}

/// Each allocation fails once, in a process of its own.
template <class Table>
void exhaustMemory()
{
    std::uint32_t n = 0;
    const auto body = [&]
    {
        const KoTest::FailingAllocation failing(n);
        Table table(1);
        table[0], table[2], table[4];
        return table = Table(table), failing.hasFailed() ? 2 : 3;
    };
    int status = 1;
    while (status == 1)
    {
        ++n;
        status = KoTest::ChildProcess::run(body).exitStatus;
    }
    EXPECT_EQ(status, 3);
    EXPECT_GT(n, 13U); // at least three values and a table, copied and assigned, and a growth
}

TEST(HashTables, endTheProcessWhenMemoryIsExhaustedAtAnyPoint)
{
    KO_SKIP_WITHOUT_FAULT_INJECTION();
    exhaustMemory<TKoHashArray<int, std::string>>();
    exhaustMemory<TKoHashMap<std::string>>();
}

} // namespace

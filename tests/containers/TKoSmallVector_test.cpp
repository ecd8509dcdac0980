#include "pf/containers/TKoSmallVector.h"

#include <algorithm>
#include <climits>
#include <functional>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "pf/base/CKoString.h"
#include "tests/containers/LifetimeElement.h"
#include "tests/support/AssertionCounter.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FaultInjection.h"

namespace
{

using KoTest::LifetimeElement;

template <class T>
T make(int value)
{
    if constexpr (std::is_same_v<T, CKoString>)
        return CKoString(std::to_string(value).c_str());
    else
        return T(value);
}

/// A vector and the standard vector that it has to agree with after every step.
template <class T>
struct Script
{
    std::mt19937 random;
    TKoSmallVector<T> vector;
    std::vector<T> model;

    int pick(int first, int last) { return std::uniform_int_distribution<int>(first, last)(random); }
    int size() const { return static_cast<int>(model.size()); }

    /// Elements from elsewhere or of the vector itself, every second time a single one at the end.
    void insert()
    {
        const bool append = pick(0, 1) == 0;
        const bool own = size() > 0 && pick(0, 1) == 0;
        const int first = own ? pick(0, size() - 1) : 0;
        const int count = append ? 1 : own ? pick(1, size() - first) : pick(0, 3);
        const T others[] = {make<T>(pick(0, 99)), make<T>(pick(0, 99)), make<T>(pick(0, 99))};
        const T* const src = own ? vector.begin() + first : others;
        const std::vector<T> values(src, src + count);
        const int index = append ? size() : pick(0, size());
        if (append)
            vector.push_back(*src);
        else
            vector.insert(index, count, src);
        model.insert(model.begin() + index, values.begin(), values.end());
    }

    void erase()
    {
        if (size() == 0)
            return;
        const int first = pick(0, size() - 1);
        const int last = pick(first, std::min(size() - 1, first + size() / 8));
        vector.erase(first, last);
        model.erase(model.begin() + first, model.begin() + last + 1);
    }

    void resize()
    {
        const int newSize = pick(std::max(0, size() - 4), size() + 5);
        const T value = size() > 0 ? model.front() : make<T>(7);
        vector.resize(newSize, size() > 0 ? *vector.begin() : value);
        model.resize(static_cast<std::size_t>(newSize), value);
    }

    void replace()
    {
        if (size() < 2)
            return;
        const int from = pick(0, size() - 1);
        const int to = pick(0, size() - 1);
        const int count = pick(1, size() - std::max(from, to));
        const std::vector<T> values(model.begin() + from, model.begin() + from + count);
        vector.replace(to, count, vector.begin() + from);
        std::copy(values.begin(), values.end(), model.begin() + to);
    }

    void reserve() { vector.reserve(pick(0, 400)); }
    void reserveExactly() { vector.reserveExactly(pick(0, 40)); }

    void copy()
    {
        TKoSmallVector<T> other(vector);
        other.push_back(make<T>(1));
        EXPECT_TRUE(other != vector && other.pop_back() && other == vector);
        vector = pick(0, 1) == 0 ? other : std::move(other);
    }

    void step()
    {
        constexpr void (Script::*OPERATIONS[])() = {
            &Script::insert, &Script::erase,  &Script::copy,   &Script::replace,       &Script::reserve,
            &Script::resize, &Script::insert, &Script::insert, &Script::reserveExactly};
        (this->*OPERATIONS[pick(0, 8)])();
    }

    void validate()
    {
        ASSERT_EQ(size(), vector.size());
        ASSERT_LE(vector.size(), vector.capacity());
        ASSERT_TRUE(std::equal(model.begin(), model.end(), vector.begin(), vector.end()));
        const T value = make<T>(pick(0, 99));
        const auto first = std::find(model.begin(), model.end(), value);
        const auto last = std::find(model.rbegin(), model.rend(), value);
        ASSERT_EQ(first == model.end() ? -1 : first - model.begin(), vector.find(value));
        ASSERT_EQ(model.rend() - last - 1, vector.rfind(value));
        const int alive = KoTest::Lifetimes::alive;
        ASSERT_TRUE(alive == 0 || alive == 2 * size() + 1) << alive;
    }
};

template <class T>
class TKoSmallVectorScript : public testing::Test
{
};
using ElementTypes = testing::Types<int, CKoString, LifetimeElement<false>, LifetimeElement<true>>;
TYPED_TEST_SUITE(TKoSmallVectorScript, ElementTypes, );

TYPED_TEST(TKoSmallVectorScript, agreesWithTheStandardVector)
{
    for (unsigned int seed = 0; seed < 60; ++seed)
    {
        SCOPED_TRACE(seed);
        Script<TypeParam> script;
        script.random.seed(seed);
        for (int i = 0; i < 120 && !this->HasFatalFailure(); ++i)
        {
            script.step();
            script.validate();
            while (script.size() > 300)
                script.erase();
        }
    }
    EXPECT_TRUE(KoTest::Lifetimes::alive == 0 && KoTest::Lifetimes::faults == 0);
}

TEST(TKoSmallVector, emptyVectorsOwnNothing)
{
    KO_SKIP_WITHOUT_FAULT_INJECTION();
    const KoTest::AllocationCounter allocations;
    TKoSmallVector<CKoString> vector;
    TKoSmallVector<CKoString> copy(vector);
    copy = vector;
    copy.resize(0), copy.clear(), copy.reserve(0);
    EXPECT_TRUE(copy == vector && !copy.pop_back() && copy.find("") == -1 && copy.begin() == nullptr);
    EXPECT_EQ(0U, allocations.count());
}

TEST(TKoSmallVector, capacitiesFollowTheGrowthPolicy)
{
    TKoSmallVector<int> grown(0, [](int requested, int) { return requested + 7; });
    EXPECT_EQ(4, TKoSmallVector<int>(grown).capacity()) << "a vector with a policy always has a block";
    grown.resize(5, 1);
    EXPECT_EQ(12, grown.capacity());
    TKoSmallVector<int> copy(grown);
    EXPECT_EQ(5, copy.capacity());
    copy.push_back(2);
    EXPECT_EQ(13, copy.capacity()) << "the policy is copied with the elements";
    copy.clear();
    copy.reserveExactly(0);
    EXPECT_EQ(4, copy.capacity());

    TKoSmallVector<CKoString> exact(10);
    exact.resize(3, "abc");
    EXPECT_EQ(10, exact.capacity());
    exact.reserveExactly(1);
    EXPECT_EQ(3, exact.capacity()) << "elements are never dropped";
    exact.clear();
    exact.reserveExactly(0);
    EXPECT_EQ(nullptr, exact.begin());
}

struct Wide
{
    char bytes[1 << 20];
};

TEST(TKoSmallVector, brokenPreconditionsAreReportedAndChangeNothing)
{
    TKoSmallVector<int> vector;
    vector.resize(3, 7);
    const TKoSmallVector<int> before(vector);
    TKoSmallVector<Wide> wide;
    TKoSmallVector<int> stingy(4, [](int requested, int) { return requested - 1; });
    stingy.resize(4, 1);
    const int one = 1;
    int huge = INT_MAX;

    const KoTest::ReportCase cases[] = {
        {"TKoVector.insert(): Invalid parameter", [&] { vector.insert(0, -1, &one); }},
        {"TKoVector.insert(): Invalid parameter", [&] { vector.insert(4, one); }},
        {"TKoVector.insert(): Invalid parameter", [&] { vector.insert(-1, one); }},
        {"TKoVector.insert(): Invalid parameter", [&] { vector.insert(0, 1, nullptr); }},
        {"TKoVector.insert(): Invalid parameter", [&] { vector.insert(0, INT_MAX, &one); }},
        {"TKoVector: Invalid parameter", [&] { vector.erase(2, 1); }},
        {"TKoVector: Index out of range", [&] { vector.erase(0, 3); }},
        {"TKoVector: Invalid parameter", [&] { vector.resize(-1); }},
        {"TKoVector: Invalid parameter", [&] { EXPECT_EQ(nullptr, vector.get(3)); }},
        {"TKoVector.replace(): Invalid parameter", [&] { vector.replace(0, -1, &one); }},
        {"TKoVector.replace(): Invalid parameter", [&] { vector.replace(2, 2, &one); }},
        {"TKoVector.replace(): Invalid parameter", [&] { vector.replace(1, huge, &one); }},
        {"TKoVector.replace(): Invalid parameter", [&] { vector.replace(0, 1, nullptr); }},
        {"CKoVectorBase.internal_reserve(): Invalid parameter", [&] { vector.reserve(INT_MAX); }},
        {"CKoVectorBase.internal_reserve(): Invalid parameter", [&] { vector.resize(INT_MAX, one); }},
        {"CKoVectorBase.internal_reserve(): Invalid parameter", [&] { wide.reserve(4096); }},
        {"CKoVectorBase.internal_reserve(): Invalid parameter", [&] { wide.reserveExactly(4096); }},
        {"CKoVectorBase.internal_reserve(): Invalid parameter", [&] { stingy.push_back(2); }},
    };
    const auto isUnchanged = [&] { return vector == before && vector.capacity() == 4 && wide.isEmpty(); };
    KoTest::expectReports(cases, [&] { EXPECT_TRUE(isUnchanged()); });
    vector.insert(1, 0, &one);
    vector.replace(0, 0, nullptr);
    EXPECT_EQ(before, vector) << "nothing to do is no fault";
    EXPECT_TRUE(stingy.size() == 5 && stingy.capacity() == 5) << "the policy is overruled";
}

struct Watched
{
    int values[13];
};

/// What the one record of elements of this size holds: instances, elements, slots.
std::vector<unsigned int> booked()
{
    CKoRamwatcher::sElement records[CKoRamwatcher::MAX_ELEMENTS] = {};
    unsigned int count = CKoRamwatcher::MAX_ELEMENTS;
    CKoRamwatcher::dumpWatches(records, count);
    const auto* record = records;
    while (record < records + count && record->elementSize != sizeof(Watched))
        ++record;
    return {record->instanceCount % 100000U, record->elementCount, record->capacityCount};
}

int changeWatchedVectors()
{
    setenv("ENABLE_RAMWATCH", "1", 1);
    CKoRamwatcher::evalIsEnabled();
    std::optional<TKoSmallVector<Watched>> vector;
    std::optional<TKoSmallVector<Watched>> copy;
    const struct
    {
        std::function<void()> change;
        std::vector<unsigned int> expected;
    } steps[] = {
        {[&] { vector.emplace(3); }, {1, 0, 3}},
        {[&] { vector->resize(3), vector->push_back(Watched()); }, {1, 4, 4}},
        {[&] { vector->insert(2, 3, vector->begin()); }, {1, 7, 8}},
        {[&] { vector->insert(0, Watched()), vector->erase(1, 5), vector->pop_back(); }, {1, 2, 8}},
        {[&] { vector->resize(20); }, {1, 20, 32}},
        {[&] { vector->resize(6), copy = vector; }, {2, 12, 38}},
        {[&] { copy.reset(); }, {1, 6, 32}},
        {[&] { vector->reserveExactly(0); }, {1, 6, 6}},
        {[&] { vector->clear(), vector->reserveExactly(0); }, {0, 0, 0}},
        {[&] { vector->push_back(Watched()); }, {1, 1, 4}},
        {[&] { vector.reset(); }, {0, 0, 0}},
    };
    for (const auto& [change, expected] : steps)
    {
        change();
        EXPECT_EQ(expected, booked());
    }
    return 0;
}

TEST(TKoSmallVector, theRamWatchBooksEveryChange)
{
    const auto result = KoTest::ChildProcess::run(&changeWatchedVectors);
    EXPECT_EQ(0, result.exitStatus) << result.describe();
}

} // namespace

#include "pf/containers/CKoVectorBase.h"

#include <climits>
#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "pf/containers/KoConstRefCountedVectorAssertions.h"
#include "pf/containers/KoContainerAssertions.h"
#include "pf/containers/KoElementFunctions.h"
#include "pf/containers/KoListAssertions.h"
#include "pf/containers/KoPrivateVectorBase.h"
#include "pf/containers/KoPtrVectorAssertions.h"
#include "pf/containers/KoQueueAssertions.h"
#include "pf/containers/KoVectorAssertions.h"
#include "tests/containers/LifetimeElement.h"
#include "tests/support/AssertionCounter.h"

namespace
{

using namespace KoContainerAssertions;
using Element = KoTest::LifetimeElement<false>;

std::string sCalls;

/// Calls an element function and writes down its letter and the number of elements.
template <char LETTER, auto FUNCTION, class... Arguments>
auto noted(Arguments... arguments)
{
    const int n = std::get<sizeof...(arguments) - 1>(std::tie(arguments...));
    sCalls += LETTER + std::to_string(n) + " ";
    return FUNCTION(arguments...);
}

/// The core in the hands of a client, holding 0, 1, 2, 3.
class Core : public CKoVectorBase
{
public:
    Core()
        : CKoVectorBase(0, nullptr, ELEMENT_SIZE)
    {
        for (int i = 0; i < 4; ++i)
            pushBack(Element(i));
        sCalls.clear();
    }
    ~Core() { internal_destruct(m_data, DESTROY); }

    void pushBack(const Element& value) { internal_push_back(ELEMENT_SIZE, &value, COPY, DESTROY); }
    void resize(int size, const Element& value)
    {
        internal_resize(size, ELEMENT_SIZE, &value, COPY, DESTROY);
    }
    void insert(int pos, int count, const Element* src)
    {
        internal_insert(pos, count, src, ELEMENT_SIZE, ASSIGN, COPY, MOVE);
    }
    bool makeRoom(int more) { return internal_makeRoom(more, ELEMENT_SIZE, MOVE); }
    Element* at(int index) { return static_cast<Element*>(internal_get(index, ELEMENT_SIZE)); }

    std::string values()
    {
        std::string text;
        for (int i = 0; i < size(); ++i)
            text += std::to_string(at(i)->value());
        return text;
    }

    /// Appends as if so many elements were there.
    void pushBackWhenFull(const Element& value)
    {
        const SVectorData kept = *m_data;
        m_data->size = m_data->capacity = INT_MAX;
        pushBack(value);
        m_data->size = kept.size;
        m_data->capacity = kept.capacity;
    }

private:
    using Functions = KoPrivate::TKoElementFunctions<Element>;
    static constexpr int ELEMENT_SIZE = static_cast<int>(sizeof(Element));

    static constexpr CopyConstructFunction COPY = &noted<'c', &Functions::copyConstruct>;
    static constexpr RelocateFunction MOVE = &noted<'m', &Functions::relocate>;
    static constexpr AssignFunction ASSIGN = &noted<'a', &Functions::assign>;
    static constexpr DestroyFunction DESTROY = &noted<'d', &Functions::destroy>;
};

TEST(CKoVectorBase, handlesEachElementOnceAndCopiesItsOwnBeforeTheyGo)
{
    const Element values[] = {Element(7), Element(8), Element(9)};
    const struct
    {
        std::function<void(Core&)> change;
        const char* expected;
        const char* calls;
    } cases[] = {
        {[](Core& core) { core.pushBack(*core.at(1)); }, "01231", "c4 c1 d4 "},
        {[](Core& core) { core.resize(6, *core.at(2)); }, "012322", "c4 c1 c1 d4 "},
        {[](Core& core) { core.resize(1, *core.at(0)); }, "0", "d3 "},
        {[](Core& core) { core.insert(1, 3, core.at(0)); }, "0012123", "c3 m1 m3 "},
        {[](Core& core) { core.makeRoom(4); }, "0123", "m4 "},
        {[&](Core& core) { core.makeRoom(4), core.insert(0, 1, values); }, "70123", "m4 c1 a3 a1 "},
        {[&](Core& core) { core.makeRoom(4), core.insert(2, 3, values); }, "0178923", "m4 c2 c1 a2 "},
    };
    for (const auto& [change, expected, calls] : cases)
    {
        Core core;
        change(core);
        EXPECT_EQ(calls, sCalls);
        EXPECT_EQ(expected, core.values());
        EXPECT_EQ(core.size() + 3, KoTest::Lifetimes::alive) << expected;
    }
    EXPECT_EQ(0, KoTest::Lifetimes::faults);
}

TEST(CKoVectorBase, whatCannotBeCountedIsRefused)
{
    Core core;
    KoTest::AssertionReports reports;
    EXPECT_FALSE(core.makeRoom(INT_MAX - 3));
    core.pushBackWhenFull(Element(5));
    EXPECT_EQ(std::vector<std::string>(2, "CKoVectorBase.internal_reserve(): Invalid parameter"),
              reports.summaries());
    EXPECT_EQ("0123", core.values());
    EXPECT_EQ("", sCalls);

    const int expected[][2] = {
        {-1, 4}, {4, 4}, {5, 8}, {100, 128}, {128, 128}, {1 << 30, 1 << 30}, {(1 << 30) + 1, INT_MAX}};
    for (const auto& [requested, capacity] : expected)
        EXPECT_EQ(capacity, CKoVectorBase::calculateActualCapacity(requested, 1000)) << requested;
}

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

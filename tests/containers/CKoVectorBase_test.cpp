#include "pf/containers/CKoVectorBase.h"

#include <climits>
#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "pf/containers/KoElementFunctions.h"
#include "tests/containers/LifetimeElement.h"
#include "tests/support/AssertionCounter.h"

namespace
{

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

} // namespace

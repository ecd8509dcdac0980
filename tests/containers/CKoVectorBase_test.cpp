#include "pf/containers/CKoVectorBase.h"

#include <climits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "pf/containers/KoElementFunctions.h"
#include "tests/containers/LifetimeElement.h"
#include "tests/support/AssertionCounter.h"

namespace
{

using Element = KoTest::LifetimeElement<false>;

/// The core in the hands of a client: calls it with functions that write down what they are asked for.
class Core : public CKoVectorBase
{
public:
    static inline std::string calls;

    explicit Core(int capacity = 0)
        : CKoVectorBase(capacity, nullptr, ELEMENT_SIZE)
    {
    }
    ~Core() { internal_destruct(m_data, &destroy); }

    void pushBack(const Element& value)
    {
        internal_push_back(ELEMENT_SIZE, &value, &copyConstruct, &destroy);
    }
    void resize(int newSize, const Element& value)
    {
        internal_resize(newSize, ELEMENT_SIZE, &value, &copyConstruct, &destroy);
    }
    void insert(int pos, int count, const Element* src)
    {
        internal_insert(pos, count, src, ELEMENT_SIZE, &assign, &copyConstruct, &relocate);
    }
    bool makeRoom(int more) { return internal_makeRoom(more, ELEMENT_SIZE, &relocate); }
    Element* at(int index) { return static_cast<Element*>(internal_get(index, ELEMENT_SIZE)); }

    std::string values()
    {
        std::string text;
        for (int i = 0; i < size(); ++i)
            text += std::to_string(at(i)->value());
        return text;
    }

    /// As if so many elements were there.
    template <class Call>
    void pretendFull(Call call)
    {
        const SVectorData kept = *m_data;
        m_data->size = m_data->capacity = INT_MAX;
        call();
        m_data->size = kept.size;
        m_data->capacity = kept.capacity;
    }

private:
    using Functions = KoPrivate::TKoElementFunctions<Element>;
    static constexpr int ELEMENT_SIZE = static_cast<int>(sizeof(Element));

    static void note(const char* what, int n) { calls += what + std::to_string(n) + " "; }
    static bool copyConstruct(void* dst, const void* src, int n)
    {
        note("copy", n);
        return Functions::copyConstruct(dst, src, n);
    }
    static bool relocate(void* dst, const void* src, int n)
    {
        note("move", n);
        return Functions::relocate(dst, src, n);
    }
    static void assign(void* dst, const void* src, int n)
    {
        note("assign", n);
        Functions::assign(dst, src, n);
    }
    static void destroy(void* elements, int n)
    {
        note("destroy", n);
        Functions::destroy(elements, n);
    }
};

class CKoVectorBaseTest : public testing::Test
{
protected:
    CKoVectorBaseTest()
    {
        for (int i = 0; i < 4; ++i)
            core.pushBack(Element(i));
        Core::calls.clear();
    }
    ~CKoVectorBaseTest() override { EXPECT_EQ(0, Element::faults); }

    Core core;
};

TEST_F(CKoVectorBaseTest, aFullVectorAppendsItsOwnElementBeforeTheOldOnesGo)
{
    core.pushBack(*core.at(1));
    EXPECT_EQ("01231", core.values());
    EXPECT_EQ("copy4 copy1 destroy4 ", Core::calls);
    EXPECT_EQ(5, Element::alive);
}

TEST_F(CKoVectorBaseTest, resizingCopiesTheValueOneByOneAndDestroysAtTheEnd)
{
    core.resize(6, *core.at(2));
    EXPECT_EQ("012322", core.values());
    core.resize(1, *core.at(0));
    EXPECT_EQ("0", core.values());
    EXPECT_EQ("copy4 copy1 copy1 destroy4 destroy5 ", Core::calls);
    EXPECT_EQ(1, Element::alive);
}

TEST_F(CKoVectorBaseTest, insertingInPlaceShiftsByCopyAndAssignment)
{
    ASSERT_TRUE(core.makeRoom(4));
    Core::calls.clear();
    const Element values[] = {Element(7), Element(8), Element(9)};
    core.insert(0, 1, values);
    EXPECT_EQ("70123", core.values());
    EXPECT_EQ("copy1 assign3 assign1 ", Core::calls);
    Core::calls.clear();
    core.insert(3, 3, values);
    EXPECT_EQ("70178923", core.values());
    EXPECT_EQ("copy2 copy1 assign2 ", Core::calls);
}

TEST_F(CKoVectorBaseTest, insertingWithGrowthMovesEachElementOnce)
{
    core.insert(1, 3, core.at(0));
    EXPECT_EQ("0012123", core.values());
    EXPECT_EQ("copy3 move1 move3 ", Core::calls);
    EXPECT_EQ(7, Element::alive);
}

TEST_F(CKoVectorBaseTest, whatCannotBeCountedIsRefused)
{
    const Element value(5);
    KoTest::AssertionReports reports;
    EXPECT_FALSE(core.makeRoom(INT_MAX - 3));
    core.pretendFull([&] { core.pushBack(value); });
    EXPECT_EQ(std::vector<std::string>(2, "CKoVectorBase.internal_reserve(): Invalid parameter"),
              reports.summaries());
    EXPECT_EQ("0123", core.values());
    EXPECT_EQ("", Core::calls);
}

TEST(CKoVectorBase, theDefaultPolicyDoublesUpToTheLargestInt)
{
    const int expected[][2] = {
        {-1, 4}, {0, 4}, {5, 8}, {1 << 30, 1 << 30}, {(1 << 30) + 1, INT_MAX}, {INT_MAX, INT_MAX}};
    for (const auto& [requested, capacity] : expected)
        EXPECT_EQ(capacity, CKoVectorBase::calculateActualCapacity(requested, 1000)) << requested;
}

} // namespace

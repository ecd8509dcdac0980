#include "pf/containers/TKoQueue.h"

#include "tests/containers/LifetimeElement.h"
#include "tests/support/AssertionCounter.h"

#include <algorithm>
#include <deque>
#include <random>

#include <gtest/gtest.h>

namespace
{

using Element = KoTest::LifetimeElement<false>;
using Queue = TKoQueue<Element>;

bool equals(const Queue& queue, const std::deque<int>& model)
{
    return queue.size() == static_cast<int>(model.size()) && queue.isEmpty() == model.empty() &&
           std::equal(queue.begin(), queue.end(), model.begin(), model.end(),
                      [](const Element& element, int value) { return element.value() == value; });
}

TEST(TKoQueue, behavesLikeTheModelWhateverItsEndAndItsBeginning)
{
    constexpr unsigned int SEED = 20250704;
    std::mt19937 engine(SEED);
    const int aliveBefore = Element::alive;
    for (const int capacity : {0, 1, 3, 64})
    {
        Queue queue(capacity);
        std::deque<int> model;
        for (int step = 0; step < 3000; ++step)
        {
            // Long phases of growing and of shrinking take the beginning around the block.
            const bool grows = engine() % 100U < (step / 200 % 2 == 0 ? 60U : 40U);
            if (grows)
            {
                queue.push(Element(step));
                model.push_back(step);
            }
            else if (!model.empty())
            {
                Element taken(0);
                ASSERT_TRUE(queue.pop(taken));
                ASSERT_EQ(taken.value(), model.front()) << "seed " << SEED << " step " << step;
                model.pop_front();
            }
            if (!model.empty() && step % 7 == 0)
            {
                queue.push(*queue.front()); // an element of its own, growing or not
                model.push_back(model.front());
                ASSERT_EQ(queue.back()->value(), model.back());
            }
            ASSERT_TRUE(equals(queue, model)) << "seed " << SEED << " step " << step;
        }
        const Queue copy(queue);
        Queue moved(std::move(queue));
        EXPECT_TRUE(equals(copy, model) && equals(moved, model));
        moved = Queue();
        EXPECT_FALSE(moved.pop());
        EXPECT_TRUE(equals(copy, model));
    }
    EXPECT_EQ(Element::alive, aliveBefore);
    EXPECT_EQ(Element::faults, 0);
}

TEST(TKoQueue, reportsPlacesWithoutElements)
{
    struct Page
    {
        char bytes[65536];
    };
    TKoQueue<int> queue;
    TKoQueue<Page> pages(65536); // 4 GiB
    const char* const outside = "TKoQueue: Index our of range";
    const KoTest::ReportCase cases[] = {
        {outside, [&] { EXPECT_EQ(queue.front(), nullptr); }},
        {outside, [&] { EXPECT_EQ(queue.back(), nullptr); }},
        {outside, [&] { EXPECT_EQ(queue.get(-1), nullptr); }},
        {outside, [&] { EXPECT_EQ(queue.get(0), nullptr); }},
        {"TKoQueue: Invalid parameter", [&] { pages.push(Page()); }},
    };
    KoTest::expectReports(cases, [&] { EXPECT_TRUE(queue.isEmpty() && pages.isEmpty()); });
}

} // namespace

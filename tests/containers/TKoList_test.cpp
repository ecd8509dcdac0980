#include "pf/containers/TKoList.h"

#include "pf/containers/KoAlgorithm.h"
#include "pf/containers/KoSlist.h"
#include "pf/containers/TKoIntrusiveList.h"
#include "pf/containers/TKoIntrusiveSlist.h"
#include "tests/support/AssertionCounter.h"
#include "tests/support/ChildProcess.h"

#include <list>
#include <random>

#include <gtest/gtest.h>

namespace
{

struct Item : KoIntrusive::SKoListBaseHook, KoIntrusive::SKoSlistBaseHook
{
    virtual ~Item() = default; // the hooks are not at the start of the object
    int number = 0;
};
using Ring = TKoIntrusiveList<Item, KoIntrusive::TKoListBaseHookAccessor<Item>>;
using Chain = TKoIntrusiveSlist<Item, KoIntrusive::TKoSlistBaseHookAccessor<Item>>;
using Node = KoPrivate::CKoSlistNodeBase;

} // namespace

template <>
struct KoIntrusive::TKoListUser<Item>
{
    static constexpr const char* FILE_TEXT = "ItemUser";
};

namespace
{

unsigned int roll(std::size_t sides)
{
    static std::mt19937 sEngine(20250611);
    return static_cast<unsigned int>(sEngine() % sides);
}

int valueOf(int element)
{
    return element;
}
const Item* valueOf(const Item& element)
{
    return &element;
}

/// Compares in both directions.
template <class Elements, class Model>
bool isSame(const Elements& elements, const Model& model)
{
    Model forwards;
    for (const auto& element : elements)
        forwards.push_back(valueOf(element));
    Model backwards;
    for (auto place = elements.end(); place != elements.begin();)
        backwards.push_front(valueOf(*--place));
    return forwards == model && backwards == model;
}

/// One step on a list, and on the other of the two. The same for both kinds of lists.
template <class List>
void change(int step, unsigned int action, int index, List& list, List& other)
{
    const auto place = std::next(list.begin(), index);
    if (action <= 3U)
        EXPECT_EQ(*list.insert(place, step), step);
    else if (action == 4U && place != list.end())
        list.erase(place);
    else if (action == 5U && other.begin() != other.end())
        list.splice(place, other, --other.end());
    else if (action == 6U && list.begin() != list.end())
        list.splice(place, list, list.begin());
    else if (action == 7U && step % 8 == 0)
        list.splice(place, other);
    else if (action == 8U)
        list.reverse();
    else if (action == 9U)
        list.swap(other);
    else if (action == 10U && list.size() > 2)
        list.pop_front(), list.pop_back(), list.push_front(step), list.push_back(-step);
}

TEST(TKoList, afterAnyOperationsItIsTheStandardList)
{
    TKoList<int> lists[2];
    std::list<int> models[2];
    for (int step = 0; step < 20000; ++step)
    {
        const unsigned int which = roll(2);
        const unsigned int action = models[which].size() > 30U ? 4U : roll(11);
        const auto index = static_cast<int>(roll(models[which].size() + 1));
        change(step, action, index, lists[which], lists[1 - which]);
        change(step, action, index, models[which], models[1 - which]);
        for (const unsigned int each : {0U, 1U})
            ASSERT_TRUE(isSame(lists[each], models[each]) &&
                        lists[each].size() == static_cast<int>(models[each].size()))
                << "step " << step << " action " << action;
    }
    EXPECT_TRUE(isSame(TKoList<int>(lists[0]), models[0]));
    lists[1] = std::move(lists[0]);
    EXPECT_TRUE(isSame(lists[1], models[0]));
}

TEST(KoSlist, afterAnyOperationsTheChainsAreTheStandardLists)
{
    Node nodes[12];
    Node heads[2];
    std::list<Node*> models[2];
    for (Node& node : nodes)
        models[0].push_front(KoPrivate::slistMakeLink(heads, &node));
    for (int step = 0; step < 5000; ++step)
    {
        // From one list to the other; a place is named by the node before it.
        const unsigned int which = roll(2);
        std::list<Node*>* const lists[] = {&models[which], &models[1U - which]};
        const auto at = [&](int list, unsigned int index)
        { return std::next(lists[list]->begin(), static_cast<int>(index)); };
        const auto before = [&](int list, unsigned int index)
        { return index == 0U ? &heads[lists[list] - models] : *at(list, index - 1U); };
        const unsigned int to = roll(lists[0]->size() + 1U);
        const bool isAll = roll(5) == 0U;
        const unsigned int first = isAll ? 0U : roll(lists[1]->size() + 1U);
        const auto size = static_cast<unsigned int>(lists[1]->size());
        const unsigned int last = isAll ? size : first + roll(size + 1U - first);
        if (isAll)
            KoPrivate::slistSpliceAfter(before(0, to), before(1, 0));
        else
            KoPrivate::slistSpliceAfter(before(0, to), before(1, first), before(1, last));
        lists[0]->splice(at(0, to), *lists[1], at(1, first), at(1, last));
        heads[which].m_next = KoPrivate::slistReverse(heads[which].m_next);
        lists[0]->reverse();
        for (const unsigned int list : {0U, 1U})
        {
            std::list<Node*> chain;
            for (Node* node = heads[list].m_next; node != nullptr; node = node->m_next)
                chain.push_back(node);
            ASSERT_EQ(chain, models[list]) << "step " << step;
            ASSERT_EQ(KoPrivate::slistSize(heads[list].m_next), chain.size());
            Node* const end = KoPrivate::slistPrevious(&heads[list], nullptr);
            ASSERT_EQ(end, chain.empty() ? &heads[list] : chain.back());
            ASSERT_EQ(KoPrivate::slistPrevious(&heads[1U - list], end), nullptr);
        }
    }
    KoPrivate::slistSpliceAfter(heads, heads);
    EXPECT_EQ(KoPrivate::slistSize(&heads[0]) + KoPrivate::slistSize(&heads[1]), 14U);
}

TEST(TKoIntrusiveList, afterAnyOperationsItIsConsistentInBothDirections)
{
    Item items[10];
    Ring rings[2];
    std::list<const Item*> models[2];
    for (int step = 0; step < 20000; ++step)
    {
        Item& item = items[roll(10)];
        const unsigned int which = roll(2);
        const auto index = static_cast<int>(roll(models[which].size() + 1));
        const auto place = std::next(rings[which].begin(), index);
        const auto modelPlace = std::next(models[which].begin(), index);
        if (roll(20) == 0U)
        {
            rings[which].splice(place, rings[1 - which].begin(), rings[1 - which].end());
            models[which].splice(modelPlace, models[1 - which]);
        }
        else if (item.isLinked())
        {
            rings[which].erase(Ring::iterator(&item));
            models[0].remove(&item), models[1].remove(&item);
            ASSERT_TRUE(!item.isLinked() && item.prev == nullptr);
        }
        else
        {
            EXPECT_EQ(rings[which].insert(place, item).get(), &item);
            models[which].insert(modelPlace, &item);
        }
        ASSERT_TRUE(isSame(rings[0], models[0]) && isSame(rings[1], models[1])) << "step " << step;
    }
}

TEST(TKoIntrusiveSlist, erasesAtAnyPlaceAndUnlinksWhatIsLeftAtItsEnd)
{
    Item items[4];
    {
        Chain chain;
        for (Item& item : items)
            chain.push_front(item);
        const auto find = [&](const Item& item)
        { return KoAlgorithm::find_if(chain.begin(), chain.end(), SKoPointerCmp(&item)); };
        EXPECT_TRUE(chain.erase(find(items[2])) == find(items[1]));
        EXPECT_TRUE(chain.erase(find(items[0])) == chain.end() && find(items[2]) == chain.end());
        EXPECT_EQ(chain.erase(find(items[3])).get(), &items[1]);
        EXPECT_EQ(chain.begin().get(), &items[1]);
        EXPECT_EQ(items[2].SKoSlistBaseHook::next, nullptr);
        for (const auto& stranger : {Chain::iterator(&items[2]), chain.end()})
        {
            const auto result = KoTest::ChildProcess::run([&] { return chain.erase(stranger), 0; });
            EXPECT_EQ(result.logTexts().at(0), "invalid iterator position");
            EXPECT_EQ(result.exitStatus, 1);
        }
    }
    EXPECT_EQ(items[1].SKoSlistBaseHook::next, nullptr);
}

TEST(AllLists, reportWhatCannotBeAndChangeNothing)
{
    TKoList<int> list{1, 2}, emptyList;
    CKoListNodeBase loose;
    CKoListBase base;
    Item item, other;
    Ring ring, emptyRing;
    Chain chain, emptyChain;
    ring.insert(ring.end(), item);
    chain.push_front(item);
    const char* const text = "TKoList: Invalid iterator position";
    const char* const user = "ItemUser: ???";
    const KoTest::ReportCase cases[] = {
        {text, [&] { EXPECT_EQ(emptyList.front(), nullptr); }},
        {text, [&] { EXPECT_EQ(emptyList.back(), nullptr); }},
        {text, [&] { emptyList.pop_front(); }},
        {text, [&] { emptyList.pop_back(); }},
        {text, [&] { EXPECT_TRUE(list.erase(list.end()) == list.end()); }},
        {text, [&] { list.insert({}, 1); }},
        {text, [&] { list.splice({}, emptyList); }},
        {text, [&] { list.splice(list.end(), emptyList, emptyList.begin()); }},
        {text, [&] { list.splice({}, list, list.begin()); }},
        {text, [&] { loose.hook(nullptr); }},
        {text, [&] { loose.unhook(); }},
        {text, [&] { base.transfer(nullptr, &base); }},
        {text, [&] { base.transfer(&base, nullptr); }},
        {"TKoList 7: Invalid iterator position", [&] { EXPECT_FALSE(base.checkNode(&base, 7)); }},
        {"TKoList 8: Invalid iterator position", [&] { EXPECT_FALSE(base.checkNode(nullptr, 8)); }},
        {user, [&] { EXPECT_EQ(emptyRing.front(), nullptr); }},
        {user, [&] { ring.insert({}, other); }},
        {user, [&] { emptyRing.insert(emptyRing.end(), item); }},
        {user, [&] { EXPECT_TRUE(ring.erase({}) == ring.end()); }},
        {user, [&] { ring.erase(ring.end()); }},
        {user, [&] { ring.erase(Ring::iterator(&other)); }},
        {user, [] { EXPECT_TRUE(++Ring::iterator() == Ring::iterator()); }},
        {user, [] { EXPECT_TRUE(--Ring::iterator() == Ring::iterator()); }},
        {user, [] { EXPECT_EQ((*Ring::iterator()).number, 0); }},
        {user, [&] { emptyChain.pop_front(); }},
        {user, [&] { chain.push_front(item); }},
        {user, [&] { EXPECT_TRUE(chain.erase({}) == chain.end()); }},
        {user, [] { EXPECT_TRUE(++Chain::iterator() == Chain::iterator()); }},
        {user, [] { EXPECT_EQ(Chain::iterator().get(), nullptr); }},
    };
    const std::list<int> numbers{1, 2};
    const std::list<const Item*> items{&item};
    KoTest::expectReports(cases,
                          [&]
                          {
                              EXPECT_TRUE(base.checkNode(&loose, 1) && isSame(list, numbers) &&
                                          isSame(ring, items) && emptyRing.isEmpty() &&
                                          ++chain.begin() == chain.end());
                          });
}

} // namespace

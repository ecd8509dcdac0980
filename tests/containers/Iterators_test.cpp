#include "pf/containers/TKoConstRefCountedVector.h"
#include "pf/containers/TKoHashArray.h"
#include "pf/containers/TKoHashMap.h"
#include "pf/containers/TKoIntrusiveList.h"
#include "pf/containers/TKoIntrusiveSlist.h"
#include "pf/containers/TKoList.h"
#include "pf/containers/TKoMap.h"
#include "pf/containers/TKoPtrVector.h"
#include "pf/containers/TKoQueue.h"

#include <algorithm>
#include <numeric>
#include <vector>

#include <gtest/gtest.h>

namespace
{

struct Job : KoIntrusive::SKoListBaseHook, KoIntrusive::SKoSlistBaseHook
{
    explicit Job(int theNumber)
        : number(theNumber)
    {
    }
    int number;
};
using Ring = TKoIntrusiveList<Job, KoIntrusive::TKoListBaseHookAccessor<Job>>;
using Chain = TKoIntrusiveSlist<Job, KoIntrusive::TKoSlistBaseHookAccessor<Job>>;

int numberOf(int value)
{
    return value;
}
int numberOf(const int* value)
{
    return *value;
}
int numberOf(const Job& job)
{
    return job.number;
}
template <class Entry>
auto numberOf(const Entry& entry) -> decltype(numberOf(entry.value))
{
    return numberOf(entry.value);
}
int numberOf(const TKoPair<int, int>& pair)
{
    return pair.second;
}

/// What generic code does with a container of the numbers 1, 2 and 3: it walks it whether or not it may
/// change it, compares both kinds of iterators, and asks for the category.
template <class Category, class Container>
void expectOneTwoThree(Container& container)
{
    using Iterator = typename Container::const_iterator;
    static_assert(std::is_same_v<typename std::iterator_traits<typename Container::iterator>::value_type,
                                 typename Container::value_type>);
    static_assert(std::is_base_of_v<Category, typename std::iterator_traits<Iterator>::iterator_category>);
    static_assert(std::is_convertible_v<typename Container::iterator, Iterator>);
    static_assert(std::is_default_constructible_v<Iterator>);

    const Container& readOnly = container;
    EXPECT_TRUE(readOnly.begin() == Iterator(container.begin()));
    EXPECT_EQ(std::distance(readOnly.begin(), readOnly.end()), 3);
    std::vector<int> numbers;
    std::transform(container.begin(), container.end(), std::back_inserter(numbers),
                   [](const auto& element) { return numberOf(element); });
    std::sort(numbers.begin(), numbers.end());
    EXPECT_EQ(numbers, (std::vector<int>{1, 2, 3}));
    const auto two = std::find_if(readOnly.begin(), readOnly.end(),
                                  [](const auto& element) { return numberOf(element) == 2; });
    EXPECT_TRUE(two != readOnly.end() && numberOf(*two) == 2);
    if constexpr (std::is_base_of_v<std::bidirectional_iterator_tag, Category>)
    {
        const auto rbegin = std::make_reverse_iterator(readOnly.end());
        std::vector<int> backwards;
        std::transform(rbegin, std::make_reverse_iterator(readOnly.begin()), std::back_inserter(backwards),
                       [](const auto& element) { return numberOf(element); });
        EXPECT_TRUE(std::equal(readOnly.begin(), readOnly.end(), backwards.rbegin(),
                               [](const auto& a, const auto& b) { return numberOf(a) == numberOf(b); }));
    }
}

TEST(Iterators, everyContainerIsARangeForAlgorithms)
{
    using Random = std::random_access_iterator_tag;
    using Bidirectional = std::bidirectional_iterator_tag;
    int numbers[] = {1, 2, 3};
    TKoSmallVector<int> vector;
    std::copy(std::begin(numbers), std::end(numbers), std::back_inserter(vector));
    expectOneTwoThree<Random>(vector);
    TKoConstRefCountedVector<int> table(vector);
    expectOneTwoThree<Random>(table);
    TKoList<int> list;
    std::copy(vector.begin(), vector.end(), std::front_inserter(list));
    expectOneTwoThree<Bidirectional>(list);
    TKoQueue<int> queue;
    std::copy(vector.begin(), vector.end(), std::back_inserter(queue));
    expectOneTwoThree<Bidirectional>(queue);

    TKoPtrVector<int> pointers;
    TKoMap<int, int> map;
    TKoHashArray<int, int> hashArray;
    TKoHashMap<int> hashMap;
    Ring ring;
    Chain chain;
    Job jobs[] = {Job(1), Job(2), Job(3)};
    for (int& number : numbers)
    {
        pointers.push_back(&number);
        map.insert(10 * number, number);
        hashArray.insert(10 * number, number);
        hashMap.insert(10U * static_cast<unsigned int>(number), number);
        ring.insert(ring.end(), jobs[number - 1]);
        chain.push_front(jobs[number - 1]);
    }
    expectOneTwoThree<Random>(pointers);
    expectOneTwoThree<Random>(map);
    expectOneTwoThree<std::input_iterator_tag>(hashArray);
    expectOneTwoThree<std::input_iterator_tag>(hashMap);
    expectOneTwoThree<Bidirectional>(ring);
    expectOneTwoThree<std::forward_iterator_tag>(chain);
}

} // namespace

#pragma once

#include <memory>

/// Searches over arrays and iterator ranges. The binary searches expect an array that is ordered under `cmp`
/// and cost about log2(count) comparisons; `Key` may differ from the element type when `cmp` can compare
/// both.
namespace KoAlgorithm
{

/// \return the index, 0 to count, of the first element that is not before `value`.
/// \param cmp called as cmp(element, value).
template <class T, class Key, class Cmp>
int lowerBound(const T* array, int count, const Key& value, Cmp cmp)
{
    int first = 0;
    while (count > 0)
    {
        const int half = count / 2;
        if (cmp(array[first + half], value))
        {
            first += half + 1;
            count -= half + 1;
        }
        else
        {
            count = half;
        }
    }
    return first;
}

/// \return the index, 0 to count, of the first element that `value` is before: the end of the run of
/// equivalent elements.
/// \param cmp called as cmp(value, element).
template <class T, class Key, class Cmp>
int upperBound(const T* array, int count, const Key& value, Cmp cmp)
{
    int first = 0;
    while (count > 0)
    {
        const int half = count / 2;
        if (cmp(value, array[first + half]))
        {
            count = half;
        }
        else
        {
            first += half + 1;
            count -= half + 1;
        }
    }
    return first;
}

/// \return the first iterator in [first, last) whose element satisfies `predicate`, or `last`.
template <class Iterator, class Predicate>
Iterator find_if(Iterator first, Iterator last, Predicate predicate)
{
    while (first != last && !predicate(*first))
    {
        ++first;
    }
    return first;
}

} // namespace KoAlgorithm

/// Predicate of KoAlgorithm::find_if that holds for one object only: the one at the given address.
struct SKoPointerCmp
{
    /// \param wanted may be stale: it is compared and never followed.
    explicit SKoPointerCmp(const void* wanted)
        : object(wanted)
    {
    }

    template <class T>
    bool operator()(const T& element) const
    {
        return static_cast<const void*>(std::addressof(element)) == object;
    }

    const void* object;
};

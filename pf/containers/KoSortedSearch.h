#pragma once

#include "pf/containers/KoAlgorithm.h"
#include "pf/containers/TKoBefore.h"
#include "pf/containers/TKoMapCmp.h"

#include <cstddef>
#include <memory>

namespace KoPrivate
{

/// Where a value belongs in a sorted array.
struct SSortedPosition
{
    int index;    ///< of the first element that is not before the value, 0 to count
    bool isFound; ///< whether the element there is equivalent to the value
};

/// Searches `count` texts in the order of TKoBefore<CKoString>, `stride` bytes from one to the next. Skips
/// what the key has in common with both ends of the range that is left, and compares eight bytes at a time.
KO_EXPORT SSortedPosition searchText(const CKoString* first, std::size_t stride, int count,
                                     const CKoString& key);

/// Searches an array in the order of `cmp`. The element at the lower bound is not before `key`, so it is
/// equivalent unless `key` is before it.
template <class T, class Key, class Cmp>
SSortedPosition search(const T* array, int count, const Key& key, Cmp cmp)
{
    const int index = KoAlgorithm::lowerBound(array, count, key, cmp);
    return {index, index < count && !cmp(key, array[index])};
}

template <class V>
using TTextMapCmp = TKoMapCmp<CKoString, V, TKoBefore<CKoString>>;

template <class V>
SSortedPosition search(const TKoPair<CKoString, V>* array, int count, const CKoString& key, TTextMapCmp<V>)
{
    return searchText(count > 0 ? std::addressof(array->first) : nullptr, sizeof(*array), count, key);
}

template <class V>
SSortedPosition search(const TKoPair<CKoString, V>* array, int count, const TKoPair<CKoString, V>& entry,
                       TTextMapCmp<V> cmp)
{
    return search(array, count, entry.first, cmp);
}

inline SSortedPosition search(const CKoString* array, int count, const CKoString& key, TKoBefore<CKoString>)
{
    return searchText(array, sizeof(CKoString), count, key);
}

} // namespace KoPrivate

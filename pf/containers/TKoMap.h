#pragma once

#include "pf/containers/TKoMapCmp.h"
#include "pf/containers/TKoSortedVector.h"

/// A map as a sorted vector of (key, value) pairs: compact, fast to search and to walk in key order.
/// Inserting moves the entries behind the new one; for large maps that change all the time a hash table
/// serves better.
///
///     TKoMap<CKoString, int> counts;
///     const int index = counts.find(word);
///     if (index >= 0) ++counts.get(index)->second;
///
/// Keys of type CKoString stand in descending byte order. One thread at a time.
template <class K, class V, class Cmp = TKoBefore<K>>
class TKoMap : public TKoSortedVector<TKoPair<K, V>, TKoMapCmp<K, V, Cmp>>
{
    using Base = TKoSortedVector<TKoPair<K, V>, TKoMapCmp<K, V, Cmp>>;

public:
    using Base::Base;
    using Base::find;
    using Base::insert;

    /// \return false, with nothing changed, when the key is there and duplicates are not allowed.
    bool insert(const K& key, const V& value) { return Base::insert(TKoPair<K, V>(key, value)); }

    /// \return the index of the entry, to be read with get; -1 when the key is not there.
    int find(const K& key) const { return this->findKey(key); }
};

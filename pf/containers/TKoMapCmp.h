#pragma once

#include "pf/containers/TKoPair.h"

/// Orders the entries of a map by their keys, so that an entry can also be compared with a bare key.
template <class K, class V, class Cmp>
struct TKoMapCmp
{
    using Entry = TKoPair<K, V>;

    bool operator()(const Entry& a, const Entry& b) const { return Cmp()(a.first, b.first); }
    bool operator()(const Entry& a, const K& key) const { return Cmp()(a.first, key); }
    bool operator()(const K& key, const Entry& b) const { return Cmp()(key, b.first); }
};

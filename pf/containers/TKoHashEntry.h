#pragma once

/// What an iterator of a hash table stands at: a key and its value, which lie in the table.
///
///     for (const auto& [word, count] : counts) print(word, count);
template <class K, class V>
struct TKoHashEntry
{
    const K& key;
    V& value;

    /// For the arrow of iterators, which make entries on the way.
    const TKoHashEntry* operator->() const { return this; }
};

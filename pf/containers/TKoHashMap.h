#pragma once

#include "pf/containers/CKoHashMapImpl.h"
#include "pf/containers/KoHashIterator.h"
#include "pf/containers/KoHashSlot.h"

#include <type_traits>

/// A hash table from 32-bit numbers to values of any type, for numbers that come and stay, such as ids: dense
/// numbers are found where they would be in a plain array. Single entries cannot be removed; TKoHashArray
/// can.
///
///     TKoHashMap<CKoString> names;
///     names[id] = "pump";
///     for (const auto& [id, name] : names) print(id, name);
///
/// The low bits of a number choose its bucket, so numbers should differ there. Plain values up to a pointer's
/// size lie in the table; other values have a block of their own and keep their address until clear,
/// assignment or destruction. The reference to a plain value that operator[] or insert made last survives one
/// growth: it holds until the second operator[] or insert after it; other addresses of plain values, and
/// iterators, hold until the next operator[] or insert. Copies are deep. Constructors, copies and destructors
/// of values neither throw nor use the map. One thread at a time, also for reading. A step beyond the end is
/// reported as "Invalid iterator position" at "TKoHashMap".
template <class V>
class TKoHashMap : private CKoHashMapImpl
{
    static constexpr bool IN_PLACE = KoPrivate::FITS_HASH_SLOT<V> && std::is_trivially_copyable_v<V>;
    using ValueSlot = KoPrivate::TKoHashSlot<V, IN_PLACE>;
    using Argument = std::conditional_t<IN_PLACE, V, const V&>;
    static constexpr unsigned int DEFAULT_SIZE = 16U;

public:
    using value_type = TKoHashEntry<unsigned int, V>;
    using iterator = KoPrivate::TKoHashIterator<TKoHashMap, CKoHashMapItem, unsigned int, V>;
    using const_iterator = KoPrivate::TKoHashIterator<TKoHashMap, CKoHashMapItem, unsigned int, const V>;

    /// Empty, with the smallest power of two of buckets that is not below `size`.
    explicit TKoHashMap(unsigned int size = DEFAULT_SIZE)
        : CKoHashMapImpl(size)
    {
    }
    TKoHashMap(const TKoHashMap& other) = default;
    TKoHashMap& operator=(const TKoHashMap& other) = default;
    ~TKoHashMap() override
    {
        if constexpr (!IN_PLACE)
        {
            clearEntries();
        }
    }

    /// The entries: dense numbers in ascending order, but those that share their low bits, and 0, at the end.
    iterator begin() { return iterator(this, firstItem()); }
    iterator end() { return iterator(this, nullptr); }
    const_iterator begin() const { return const_iterator(this, firstItem()); }
    const_iterator end() const { return const_iterator(this, nullptr); }

    /// The number of entries, counted: takes time in proportion to the table.
    int size() const { return static_cast<int>(CKoHashMapImpl::size()); }
    bool isEmpty() const { return firstItem() == nullptr; }

    /// The number of entries in the table: buckets and overflow area.
    int capacity() const { return static_cast<int>(CKoHashMapImpl::capacity()); }

    /// The value of a key; a missing key is inserted with V().
    V& operator[](unsigned int key) { return ValueSlot::get(accessWith(key, ValueSlot::create)); }

    /// \return the value of a key; null when the key is not there.
    V* find(unsigned int key)
    {
        CKoHashMapItem* const item = lookup(key);
        return item != nullptr ? &ValueSlot::get(getValue(item)) : nullptr;
    }
    const V* find(unsigned int key) const { return const_cast<TKoHashMap*>(this)->find(key); }
    bool contains(unsigned int key) const { return lookup(key) != nullptr; }

    /// The value may lie in this map. \return false, with nothing changed, when the key is there.
    bool insert(unsigned int key, Argument value)
    {
        if (contains(key))
        {
            return false;
        }
        (*this)[key] = value;
        return true;
    }

    /// Removes all entries and returns to the number of buckets of the construction, 128 for a copy.
    void clear() { CKoHashMapImpl::clear(); }

private:
    friend iterator;
    friend const_iterator;
    static constexpr const char* FILE_TEXT = "TKoHashMap";

    CKoHashMapItem* itemBehind(CKoHashMapItem* item, unsigned int& /*bucket*/) const
    {
        return nextItem(item);
    }
    value_type entryOf(CKoHashMapItem* item) const { return {*getKey(item), ValueSlot::get(getValue(item))}; }

    void copyValue(void** value) final { ValueSlot::own(value); }
    void destroyValue(void** value) final { ValueSlot::destroy(value); }
    void initValue(void** value) final { ValueSlot::create(value); }
};

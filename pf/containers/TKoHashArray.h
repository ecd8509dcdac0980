#pragma once

#include "pf/containers/CKoHashArrayImpl.h"
#include "pf/containers/KoHashIterator.h"
#include "pf/containers/KoHashSlot.h"
#include "pf/containers/TKoHash.h"

/// A hash table from keys of any type to values of any type. The better choice than TKoMap for many keys that
/// come and go; TKoHashMap is the one for numbers that only come.
///
///     TKoHashArray<CKoString, int> counts;
///     ++counts[word];
///     if (const int* count = counts.find("vanta")) print(*count);
///
/// Keys are unique, compared with == and hashed by `Hash`, a default-constructible function object. What fits
/// into a pointer and moves bitwise (TKoIsRelocatable) lies in the table; other keys and values have a block
/// of their own. Copies are deep. The order of the entries is that of the hashes and changes when the table
/// grows or shrinks. Addresses of values and iterators hold until the next insertion or removal. Hash, ==,
/// copies and destructors of keys and values neither throw nor use the table. One thread at a time, also for
/// reading. Broken preconditions are reported as "Invalid iterator position" at "TKoHashArray" and change
/// nothing.
template <class K, class V, class Hash = TKoHash<K>>
class TKoHashArray : private CKoHashArrayImpl
{
    using KeySlot = KoPrivate::TKoHashSlot<K, KoPrivate::FITS_HASH_SLOT<K>>;
    using ValueSlot = KoPrivate::TKoHashSlot<V, KoPrivate::FITS_HASH_SLOT<V>>;
    static constexpr unsigned int DEFAULT_SIZE = 16U;
    static constexpr bool IS_IDENTITY =
        (std::is_integral_v<K> || std::is_enum_v<K> || std::is_pointer_v<K>)&&KoPrivate::FITS_HASH_SLOT<K>;

public:
    using value_type = TKoHashEntry<K, V>;
    using iterator = KoPrivate::TKoHashIterator<TKoHashArray, CKoHashArrayItem, K, V>;
    using const_iterator = KoPrivate::TKoHashIterator<TKoHashArray, CKoHashArrayItem, K, const V>;

    /// Empty, with the smallest power of two of buckets that is not below `size`; one serves two entries
    /// well.
    explicit TKoHashArray(unsigned int size = DEFAULT_SIZE)
        : CKoHashArrayImpl(size)
    {
    }
    TKoHashArray(const TKoHashArray& other) = default;
    TKoHashArray& operator=(const TKoHashArray& other) = default;
    ~TKoHashArray() override { destroy(); }

    iterator begin() { return firstPlace<iterator>(); }
    iterator end() { return iterator(this, nullptr); }
    const_iterator begin() const { return firstPlace<const_iterator>(); }
    const_iterator end() const { return const_iterator(this, nullptr); }

    int size() const { return static_cast<int>(CKoHashArrayImpl::size()); }
    bool isEmpty() const { return CKoHashArrayImpl::size() == 0U; }

    /// The number of entries at which the table grows.
    int capacity() const { return static_cast<int>(CKoHashArrayImpl::capacity()); }

    /// \return the value of a key; null when the key is not there.
    V* find(const K& key)
    {
        CKoHashArrayItem* const item = findItem(Hash()(key), key);
        return item != nullptr ? &ValueSlot::get(&item->value) : nullptr;
    }
    const V* find(const K& key) const { return const_cast<TKoHashArray*>(this)->find(key); }
    bool contains(const K& key) const { return find(key) != nullptr; }

    /// Key and value may lie in this table. \return false, with nothing changed, when the key is there.
    bool insert(const K& key, const V& value)
    {
        const unsigned int hashOfKey = Hash()(key);
        if (findItem(hashOfKey, key) != nullptr)
        {
            return false;
        }
        insertHashed(hashOfKey, KeySlot::borrow(key), ValueSlot::borrow(value));
        return true;
    }

    /// The value of a key; a missing key is inserted with V().
    V& operator[](const K& key)
    {
        const unsigned int hashOfKey = Hash()(key);
        CKoHashArrayItem* item = findItem(hashOfKey, key);
        if (item == nullptr)
        {
            const V value = V();
            item = insertHashed(hashOfKey, KeySlot::borrow(key), ValueSlot::borrow(value));
        }
        return ValueSlot::get(&item->value);
    }

    /// Removes a key, which may lie in this table, with its value. \return whether it was there.
    bool erase(const K& key)
    {
        CKoHashArrayItem* const item = findItem(Hash()(key), key);
        if (item == nullptr)
        {
            return false;
        }
        removeItem(item);
        return true;
    }

    /// Removes the entry at `position`. Reported when that is the end or belongs to another table.
    void erase(const_iterator position)
    {
        if (position.m_table != this || position.m_item == nullptr)
        {
            KoContainerAssertions::reportAssertion(KoContainerAssertions::InvalidIteratorPosition, FILE_TEXT,
                                                   __LINE__);
            return;
        }
        removeItem(position.m_item);
    }

    /// Removes all entries and leaves two buckets.
    void clear() { CKoHashArrayImpl::clear(); }

private:
    friend iterator;
    friend const_iterator;
    static constexpr const char* FILE_TEXT = "TKoHashArray";

    template <class Iterator>
    Iterator firstPlace() const
    {
        Iterator first(this, itemOfBucket(0U));
        if (first.m_item == nullptr)
        {
            first.m_item = itemAfter(nullptr, first.m_bucket);
        }
        return first;
    }
    CKoHashArrayItem* itemBehind(CKoHashArrayItem* item, unsigned int& bucket) const
    {
        return itemAfter(item, bucket);
    }
    value_type entryOf(CKoHashArrayItem* item) const
    {
        return {KeySlot::get(&item->key), ValueSlot::get(&item->value)};
    }

    CKoHashArrayItem* findItem(unsigned int hashOfKey, const K& key) const
    {
        return findHashed(hashOfKey, [&](CKoHashArrayItem* item) { return KeySlot::get(&item->key) == key; });
    }

    unsigned int hash(void* key) const final { return Hash()(typename KeySlot::Borrowed(key).get()); }
    int keyMode() const final { return IS_IDENTITY ? IDENTICAL_KEYS : 0; }
    bool equalKeys(void* a, void* b) const final
    {
        return typename KeySlot::Borrowed(a).get() == typename KeySlot::Borrowed(b).get();
    }
    void destroyKey(void** key) final { KeySlot::destroy(key); }
    void destroyValue(void** value) final { ValueSlot::destroy(value); }
    void copyKey(void** key) final { KeySlot::own(key); }
    void copyValue(void** value) final { ValueSlot::own(value); }
};

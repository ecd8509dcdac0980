#pragma once

#include "pf/base/KoExport.h"
#include "pf/containers/CKoHashMapItem.h"

/// The untyped core of TKoHashMap: maps 32-bit numbers to values of a pointer's size. What values are made of
/// comes from the derived class.
///
/// One array holds everything: the buckets, chosen by the low bits of the key, and behind them an overflow
/// area of half as many entries for keys whose bucket is taken. Bucket 0 is reserved, its keys always lie in
/// the overflow area. When that is exhausted the table doubles. Single entries are never removed, and no
/// entry has a block of its own.
///
/// One thread at a time, also for the const operations, which keep notes in the object. Nothing is reported
/// here; what the allocation operators do when memory is exhausted is what happens. The operations on values
/// neither throw nor use the map that calls them. A derived class calls clearEntries in its destructor: the
/// operations on values are gone when the destructor here runs.
class KO_EXPORT CKoHashMapImpl
{
public:
    /// Frees the table, and the former one if it is still kept.
    virtual ~CKoHashMapImpl();

protected:
    /// Makes a value that an entry shares with the entry it was copied from one of its own. Called with the
    /// address of the source's value; what is there afterwards goes to the copy, the source keeps its value.
    /// Called on the source while a copy is constructed, on the target of an assignment.
    virtual void copyValue(void** value) = 0;
    /// Releases an entry's value.
    virtual void destroyValue(void** value) = 0;
    /// Gives a new entry its first value.
    virtual void initValue(void** value) = 0;

public:
    /// An empty table of the smallest power of two of buckets that is not below `size`, at least 2.
    explicit CKoHashMapImpl(unsigned int size);

    /// Copies of all entries in as many buckets; clear gives the copy 128 buckets.
    CKoHashMapImpl(const CKoHashMapImpl& other);

    /// Releases all entries and takes copies of those of `other` into as many buckets. Nothing for itself.
    CKoHashMapImpl& operator=(const CKoHashMapImpl& other);

    /// The address of a key's value; a missing entry is created. After a growth the address that the access
    /// before returned is still good, for writing as well, until the next access.
    void** access(unsigned int key)
    {
        return accessWith(key, [this](void** value) { initValue(value); });
    }

    /// \return the entry of a key; null when there is none.
    CKoHashMapItem* lookup(unsigned int key) const
    {
        CKoHashMapItem* const bucket = hash(key);
        if (bucket->key == key)
        {
            return bucket;
        }
        return bucket->mayChain(key) ? findBehind(bucket, key) : nullptr;
    }

    /// The entries: buckets in order, then the overflow area in the order in which it was filled.
    /// \return null at the end.
    CKoHashMapItem* firstItem() const { return nextItem(m_table); }
    CKoHashMapItem* nextItem(CKoHashMapItem* item) const;

    /// The place of an entry's key.
    unsigned int* getKey(CKoHashMapItem* item) const { return &item->key; }

    /// The place of an entry's value: the one that the last access gave away, as long as that is good.
    void** getValue(CKoHashMapItem* item) const
    {
        const bool isCarried =
            __builtin_expect(m_carriedEntry != nullptr, 0) && m_carriedEntry->key == item->key;
        return isCarried ? &m_carriedEntry->value : &item->value;
    }

    /// The number of entries.
    unsigned int size() const;

    /// The number of entries in the array: buckets and overflow area.
    unsigned int capacity() const { return m_bucketCount + m_bucketCount / 2U; }

    /// Releases all entries and returns to the number of buckets of the construction, 128 for a copy.
    void clear();

protected:
    /// The bucket of a key.
    CKoHashMapItem* hash(unsigned int key) const { return &m_table[key & m_mask]; }

    /// Adds an entry for a key that is not there. The overflow area must have room.
    void insert(unsigned int key, void* value);

    /// Makes this an empty table of `bucketCount` buckets, a power of two. The former table is forgotten.
    void initTable(unsigned int bucketCount);

    /// Doubles the table. The former one is kept until the next access.
    void rehash();

    /// Carries what was written through the address of the access before the growth into the table, and frees
    /// the former table.
    void deleteOldTable();

    /// Releases the values of all entries. The entries stay.
    void clearEntries();

    /// access for a key and its bucket.
    void** access(CKoHashMapItem* bucket, unsigned int key)
    {
        return accessIn(bucket, key, [this](void** value) { initValue(value); });
    }

    /// access with the first value given by `init` in place of initValue.
    template <class Init>
    void** accessWith(unsigned int key, Init init)
    {
        if (__builtin_expect(m_oldTable != nullptr, 0))
        {
            deleteOldTable();
        }
        return accessIn(hash(key), key, init);
    }

private:
    static constexpr unsigned int RESERVED_KEY = 1U; ///< in bucket 0; a key that never belongs there
    static constexpr unsigned int EMPTY_KEY = 0U; ///< in empty buckets; a key that only bucket 0 could hold

    template <class Init>
    void** accessIn(CKoHashMapItem* bucket, unsigned int key, Init init)
    {
        CKoHashMapItem* item = bucket;
        if (bucket->key != key)
        {
            item = bucket->mayChain(key) ? findBehind(bucket, key) : nullptr;
            if (item == nullptr)
            {
                item = bucket->key == EMPTY_KEY ? bucket : overflowEntryFor(bucket, key);
                item->key = key;
                init(&item->value);
            }
        }
        m_lastEntry = item;
        return &item->value;
    }

    /// The entry of a key in the chain behind its bucket; null when there is none.
    CKoHashMapItem* findBehind(const CKoHashMapItem* bucket, unsigned int key) const
    {
        m_end.key = key;
        CKoHashMapItem* item = bucket->next;
        while (item->key != key)
        {
            item = item->next;
        }
        return item != &m_end ? item : nullptr;
    }

    CKoHashMapItem* overflowEntryFor(CKoHashMapItem* bucket, unsigned int key);
    CKoHashMapItem* takeOverflowEntry(CKoHashMapItem* bucket, unsigned int key);
    void allocate(unsigned int bucketCount);
    void splitBuckets();
    void insertCopies(const CKoHashMapImpl& source, CKoHashMapImpl& copier);
    void dropOldTable();

    unsigned int m_initialSize;     ///< buckets that clear returns to
    mutable CKoHashMapItem m_end{}; ///< terminates every chain; its key is the one looked for
    CKoHashMapItem* m_table = nullptr;
    CKoHashMapItem* m_tableEnd = nullptr;
    CKoHashMapItem* m_nextFree = nullptr; ///< first entry of the overflow area that is not in use
    unsigned int m_bucketCount = 0;
    unsigned int m_mask = 0;
    CKoHashMapItem* m_oldTable = nullptr;     ///< replaced by the last growth, kept until the next access
    CKoHashMapItem* m_carriedEntry = nullptr; ///< the last access before the growth, in the old table
    CKoHashMapItem* m_lastEntry = nullptr;    ///< the latest access, in the table; null when there was none
};

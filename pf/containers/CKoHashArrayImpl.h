#pragma once

#include "pf/base/KoExport.h"
#include "pf/containers/CKoHashArrayItem.h"

/// The untyped core of TKoHashArray: maps keys of a pointer's size to values of a pointer's size. Hash,
/// equality and the copying and releasing of keys and values come from the derived class.
///
/// The first item of a bucket lies in the table, further ones in nodes of their own. The table doubles when
/// it holds two items per bucket and, above 1024 buckets, halves when the items fill half the buckets. Items
/// move when others come and go; hold keys, not items.
///
/// One thread at a time, also for the const operations, which keep notes in the object. Nothing is reported
/// here; what the allocation operators do when memory is exhausted is what happens. The operations of the
/// derived class neither throw nor use the table that calls them. A derived class calls destroy in its
/// destructor: the operations that release keys and values are gone when the destructor here runs.
class KO_EXPORT CKoHashArrayImpl
{
public:
    /// An empty table of the smallest power of two of buckets that is not below `size`, at least 1.
    explicit CKoHashArrayImpl(unsigned int size);

    /// A table of as many buckets with copies of the items, made, hashed and placed by the operations of
    /// `other`, because those of the object under construction are not there yet.
    CKoHashArrayImpl(const CKoHashArrayImpl& other);

    /// Releases all items and takes copies of those of `other` into as many buckets. Nothing for itself.
    CKoHashArrayImpl& operator=(const CKoHashArrayImpl& other);

    /// \return the item found first; null when there is none.
    CKoHashArrayItem* lookup(void* key) const;

    /// Adds an item with the table's own copies of key and value, and does not look for an equal key: then
    /// there are two. \return the item.
    CKoHashArrayItem* fastInsert(void* key, void* value);

    /// Removes the item that lookup finds. \return whether there was one.
    bool remove(void* key);

    /// Removes an item of this table. Any item address may be void afterwards.
    void removeItem(CKoHashArrayItem* item);

    /// Removes all items and leaves two buckets.
    void clear();

    /// The items in the order of the buckets; within a bucket the item in the table, then the nodes from the
    /// latest to the oldest. The bucket reached is kept in the object: one such iteration at a time.
    /// \return null at the end.
    CKoHashArrayItem* firstItem() const;
    CKoHashArrayItem* nextItem(CKoHashArrayItem* item) const;

    /// The places of an item's key and value.
    void** getKey(CKoHashArrayItem* item) const { return &item->key; }
    void** getValue(CKoHashArrayItem* item) const { return &item->value; }

    /// The number of items.
    unsigned int size() const { return m_count; }

    /// The number of items at which the table grows.
    unsigned int capacity() const { return m_growThreshold; }

protected:
    /// The result of keyMode that says that equal keys are identical.
    static constexpr int IDENTICAL_KEYS = 3;

    /// The hash of a key, of which the low bits choose the bucket.
    virtual unsigned int hash(void* key) const = 0;
    /// IDENTICAL_KEYS, or any other value when equalKeys decides.
    virtual int keyMode() const = 0;
    virtual bool equalKeys(void* a, void* b) const = 0;
    /// Releases an item's key or value.
    virtual void destroyKey(void** key) = 0;
    virtual void destroyValue(void** value) = 0;
    /// Turns the key or value that is about to be stored into the table's own copy, in place.
    virtual void copyKey(void** key) = 0;
    virtual void copyValue(void** value) = 0;

public:
    /// Frees nodes and table.
    virtual ~CKoHashArrayImpl();

protected:
    /// Makes this an empty table of `bucketCount` buckets, a power of two. The former table is forgotten.
    void init(unsigned int bucketCount);

    /// Places all items into a new table of `bucketCount` buckets, a power of two.
    void rehash(unsigned int bucketCount);

    /// Releases all items and the table. Only init or the destructor may follow.
    void destroy();

    /// The bucket of a key: its item in the table.
    CKoHashArrayItem* tableEntryFor(void* key) const { return &m_table[hash(key) & m_mask]; }

    /// Stores key and value as they are: in the bucket when it is empty, else in a new node directly behind
    /// the bucket's first item. The number of items stays. \return the item.
    CKoHashArrayItem* insertAtPosition(CKoHashArrayItem* bucket, void* key, void* value);

    /// fastInsert for a key whose hash is known.
    CKoHashArrayItem* insertHashed(unsigned int hashOfKey, void* key, void* value);

    /// The first item for which `isWanted` holds in the bucket of a hash; null when there is none.
    template <class Predicate>
    CKoHashArrayItem* findHashed(unsigned int hashOfKey, Predicate isWanted) const
    {
        CKoHashArrayItem* item = &m_table[hashOfKey & m_mask];
        if (item->next == nullptr)
        {
            return nullptr;
        }
        while (item != &m_end)
        {
            __builtin_prefetch(item->next); // on its way while the keys are compared
            if (isWanted(item))
            {
                return item;
            }
            item = item->next;
        }
        return nullptr;
    }

    /// The item behind `item`, which lies in the bucket of index `bucket`; that index moves on with it. Null
    /// is behind the bucket.
    CKoHashArrayItem* itemAfter(const CKoHashArrayItem* item, unsigned int& bucket) const;

    /// The item in the table of a bucket; null when the bucket is empty.
    CKoHashArrayItem* itemOfBucket(unsigned int bucket) const
    {
        return m_table[bucket].next != nullptr ? &m_table[bucket] : nullptr;
    }

private:
    template <class Visitor>
    void releaseTable(Visitor visit);
    void place(CKoHashArrayItem* bucket, const CKoHashArrayItem& item, CKoHashArrayItem*& spareNodes);
    void unlink(CKoHashArrayItem* bucket, CKoHashArrayItem* item);

    mutable CKoHashArrayItem m_end{}; ///< terminates every chain; its key ends searches by identity
    CKoHashArrayItem* m_table = nullptr;
    mutable unsigned int m_cursor = 0; ///< the bucket that the iteration has reached
    unsigned int m_bucketCount = 0;
    unsigned int m_mask = 0;
    unsigned int m_shrinkThreshold = 0;
    unsigned int m_growThreshold = 0;
    unsigned int m_count = 0;
};

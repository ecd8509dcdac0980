#include "pf/containers/CKoHashMapImpl.h"

#include "pf/containers/KoHashTable.h"

#include <cstring>
#include <memory>
#include <new>
#include <utility>

namespace
{

/// Buckets to which clear returns a copy.
constexpr unsigned int INITIAL_SIZE_OF_COPIES = 128U;

/// A value may be an object of the derived class, so it is copied as bytes.
void copySlot(void** to, void* const* from)
{
    std::memcpy(to, from, sizeof(*to));
}

} // namespace

CKoHashMapImpl::CKoHashMapImpl(unsigned int size)
    : m_initialSize(KoPrivate::tableSizeFor(size, 2U))
{
    initTable(m_initialSize);
}

CKoHashMapImpl::CKoHashMapImpl(const CKoHashMapImpl& other)
    : m_initialSize(INITIAL_SIZE_OF_COPIES)
{
    initTable(other.m_bucketCount);
    insertCopies(other, const_cast<CKoHashMapImpl&>(other));
}

CKoHashMapImpl& CKoHashMapImpl::operator=(const CKoHashMapImpl& other)
{
    if (this == &other)
    {
        return *this;
    }
    clearEntries();
    dropOldTable();
    KoPrivate::freeTable(m_table);
    initTable(other.m_bucketCount);
    insertCopies(other, *this);
    return *this;
}

CKoHashMapImpl::~CKoHashMapImpl()
{
    KoPrivate::freeTable(m_table);
    KoPrivate::freeTable(m_oldTable);
}

/// The entry for a key that is not there and whose bucket is taken. In a table that has grown it may be the
/// bucket after all.
CKoHashMapItem* CKoHashMapImpl::overflowEntryFor(CKoHashMapItem* bucket, unsigned int key)
{
    if (m_nextFree == m_tableEnd)
    {
        rehash();
        bucket = hash(key);
        if (bucket->key == EMPTY_KEY)
        {
            return bucket;
        }
    }
    return takeOverflowEntry(bucket, key);
}

/// The next entry of the overflow area, linked directly behind the bucket.
CKoHashMapItem* CKoHashMapImpl::takeOverflowEntry(CKoHashMapItem* bucket, unsigned int key)
{
    CKoHashMapItem* const entry = ::new (static_cast<void*>(m_nextFree)) CKoHashMapItem;
    ++m_nextFree;
    entry->set(key, bucket->next);
    bucket->chain(entry);
    return entry;
}

CKoHashMapItem* CKoHashMapImpl::nextItem(CKoHashMapItem* item) const
{
    const CKoHashMapItem* const firstOverflow = m_table + m_bucketCount;
    do
    {
        ++item;
    } while (item < firstOverflow && item->key == EMPTY_KEY);
    return item < m_nextFree ? item : nullptr;
}

unsigned int CKoHashMapImpl::size() const
{
    auto count = static_cast<unsigned int>(m_nextFree - m_table) - m_bucketCount;
    for (unsigned int bucket = 1U; bucket < m_bucketCount; ++bucket)
    {
        count += m_table[bucket].key != EMPTY_KEY ? 1U : 0U;
    }
    return count;
}

void CKoHashMapImpl::clear()
{
    clearEntries();
    // The former table stays until the next access: the address that the last one gave away may be held
    // still.
    KoPrivate::freeTable(m_table);
    initTable(m_initialSize);
}

void CKoHashMapImpl::insert(unsigned int key, void* value)
{
    CKoHashMapItem* item = hash(key);
    if (item->key == EMPTY_KEY)
    {
        item->key = key;
    }
    else
    {
        item = takeOverflowEntry(item, key);
    }
    copySlot(&item->value, &value);
}

void CKoHashMapImpl::initTable(unsigned int bucketCount)
{
    allocate(bucketCount);
    for (CKoHashMapItem* bucket = m_table; bucket != m_nextFree; ++bucket)
    {
        bucket->set(EMPTY_KEY, &m_end);
    }
    m_table->key = RESERVED_KEY;
    m_lastEntry = nullptr;
    m_carriedEntry = nullptr;
}

/// A table whose buckets are still to be set.
void CKoHashMapImpl::allocate(unsigned int bucketCount)
{
    const unsigned int entryCount = bucketCount + bucketCount / 2U;
    m_table = KoPrivate::allocateTable<CKoHashMapItem>(entryCount);
    m_tableEnd = m_table + entryCount;
    m_nextFree = m_table + bucketCount;
    m_bucketCount = bucketCount;
    m_mask = bucketCount - 1U;
    std::uninitialized_default_construct(m_table, m_nextFree);
}

void CKoHashMapImpl::rehash()
{
    if (m_oldTable != nullptr)
    {
        deleteOldTable();
    }
    const CKoHashMapItem* item = m_table + m_bucketCount;
    const CKoHashMapItem* const end = m_nextFree;
    CKoHashMapItem* const oldTable = m_table;
    allocate(2U * m_bucketCount);
    m_oldTable = oldTable;
    m_carriedEntry = std::exchange(m_lastEntry, nullptr);
    splitBuckets();
    for (; item != end; ++item)
    {
        void* value;
        copySlot(&value, &item->value);
        insert(item->key, value);
    }
}

/// Sets the buckets of a table that has doubled: each bucket of the old one goes to one of two, the other is
/// empty.
void CKoHashMapImpl::splitBuckets()
{
    const unsigned int oldCount = m_bucketCount / 2U;
    m_table[oldCount].set(EMPTY_KEY, &m_end);
    for (unsigned int i = 1U; i < oldCount; ++i)
    {
        const CKoHashMapItem& old = m_oldTable[i];
        m_table[i].set(EMPTY_KEY, &m_end);
        m_table[oldCount + i].set(EMPTY_KEY, &m_end);
        CKoHashMapItem* const bucket = hash(old.key); // for an empty one bucket 0, which is set at the end
        bucket->key = old.key;
        copySlot(&bucket->value, &old.value);
    }
    m_table->set(RESERVED_KEY, &m_end);
}

void CKoHashMapImpl::deleteOldTable()
{
    if (m_carriedEntry != nullptr)
    {
        copySlot(&lookup(m_carriedEntry->key)->value, &m_carriedEntry->value);
    }
    dropOldTable();
}

void CKoHashMapImpl::dropOldTable()
{
    m_carriedEntry = nullptr;
    KoPrivate::freeTable(std::exchange(m_oldTable, nullptr));
}

void CKoHashMapImpl::clearEntries()
{
    for (CKoHashMapItem* item = firstItem(); item != nullptr; item = nextItem(item))
    {
        destroyValue(getValue(item));
    }
}

/// Inserts a copy of each entry of `source`, of which `copier` makes the value.
void CKoHashMapImpl::insertCopies(const CKoHashMapImpl& source, CKoHashMapImpl& copier)
{
    for (CKoHashMapItem* item = source.firstItem(); item != nullptr; item = source.nextItem(item))
    {
        void** const slot = source.getValue(item);
        void* own;
        copySlot(&own, slot);
        copier.copyValue(slot);
        void* copy;
        copySlot(&copy, slot);
        copySlot(slot, &own);
        insert(item->key, copy);
    }
}

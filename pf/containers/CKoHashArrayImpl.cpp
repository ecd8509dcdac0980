#include "pf/containers/CKoHashArrayImpl.h"

#include "pf/containers/KoHashTable.h"

#include <cstring>
#include <memory>

namespace
{

/// Tables of more buckets than this shrink.
constexpr unsigned int LARGEST_FIXED_SIZE = 1024U;

/// What clear leaves.
constexpr unsigned int CLEARED_SIZE = 2U;

/// What is in a slot may be an object of the derived class, so it is read as bytes.
void* contentOf(void* const& slot)
{
    void* content;
    std::memcpy(&content, &slot, sizeof(content));
    return content;
}

void store(CKoHashArrayItem& item, void* key, void* value, CKoHashArrayItem* next)
{
    std::memcpy(&item.key, &key, sizeof(key));
    std::memcpy(&item.value, &value, sizeof(value));
    item.next = next;
}

CKoHashArrayItem* takeNode(CKoHashArrayItem*& spareNodes)
{
    CKoHashArrayItem* const node = spareNodes;
    if (node == nullptr)
    {
        return new CKoHashArrayItem;
    }
    spareNodes = node->next;
    return node;
}

} // namespace

CKoHashArrayImpl::CKoHashArrayImpl(unsigned int size)
{
    init(KoPrivate::tableSizeFor(size, 1U));
}

CKoHashArrayImpl::CKoHashArrayImpl(const CKoHashArrayImpl& other)
{
    init(other.m_bucketCount);
    auto& source = const_cast<CKoHashArrayImpl&>(other); // whose operations make copies and change no item
    for (const CKoHashArrayItem* item = other.firstItem(); item != nullptr;
         item = other.nextItem(const_cast<CKoHashArrayItem*>(item)))
    {
        void* key = contentOf(item->key);
        void* value = contentOf(item->value);
        CKoHashArrayItem* const bucket = &m_table[other.hash(key) & m_mask];
        source.copyKey(&key);
        source.copyValue(&value);
        insertAtPosition(bucket, contentOf(key), contentOf(value));
        ++m_count;
    }
}

CKoHashArrayImpl& CKoHashArrayImpl::operator=(const CKoHashArrayImpl& other)
{
    if (this == &other)
    {
        return *this;
    }
    destroy();
    init(other.m_bucketCount);
    for (CKoHashArrayItem* item = other.firstItem(); item != nullptr; item = other.nextItem(item))
    {
        fastInsert(contentOf(item->key), contentOf(item->value));
    }
    return *this;
}

CKoHashArrayImpl::~CKoHashArrayImpl()
{
    releaseTable([](CKoHashArrayItem&) {});
}

CKoHashArrayItem* CKoHashArrayImpl::lookup(void* key) const
{
    const unsigned int hashOfKey = hash(key);
    if (keyMode() != IDENTICAL_KEYS)
    {
        return findHashed(hashOfKey,
                          [&](CKoHashArrayItem* item) { return equalKeys(contentOf(item->key), key); });
    }
    CKoHashArrayItem* item = itemOfBucket(hashOfKey & m_mask);
    if (item == nullptr)
    {
        return nullptr;
    }
    m_end.key = key; // ends the search at the latest
    while (contentOf(item->key) != key)
    {
        item = item->next;
    }
    return item != &m_end ? item : nullptr;
}

CKoHashArrayItem* CKoHashArrayImpl::fastInsert(void* key, void* value)
{
    return insertHashed(hash(key), key, value);
}

CKoHashArrayItem* CKoHashArrayImpl::insertHashed(unsigned int hashOfKey, void* key, void* value)
{
    ++m_count;
    if (m_count == m_growThreshold)
    {
        rehash(m_count);
    }
    copyKey(&key);
    copyValue(&value);
    return insertAtPosition(&m_table[hashOfKey & m_mask], contentOf(key), contentOf(value));
}

CKoHashArrayItem* CKoHashArrayImpl::insertAtPosition(CKoHashArrayItem* bucket, void* key, void* value)
{
    if (bucket->next == nullptr)
    {
        store(*bucket, key, value, &m_end);
        return bucket;
    }
    auto* const node = new CKoHashArrayItem;
    store(*node, key, value, bucket->next);
    bucket->next = node;
    return node;
}

bool CKoHashArrayImpl::remove(void* key)
{
    CKoHashArrayItem* const item = lookup(key);
    if (item == nullptr)
    {
        return false;
    }
    removeItem(item);
    return true;
}

void CKoHashArrayImpl::removeItem(CKoHashArrayItem* item)
{
    CKoHashArrayItem* const bucket = tableEntryFor(contentOf(item->key)); // as long as there is a key
    destroyKey(&item->key);
    destroyValue(&item->value);
    unlink(bucket, item);
    --m_count;
    if (m_count != 0U && m_count == m_shrinkThreshold)
    {
        rehash(m_count);
    }
}

void CKoHashArrayImpl::unlink(CKoHashArrayItem* bucket, CKoHashArrayItem* item)
{
    if (item != bucket)
    {
        CKoHashArrayItem* before = bucket;
        while (before->next != item)
        {
            before = before->next;
        }
        before->next = item->next;
        delete item;
        return;
    }
    CKoHashArrayItem* const second = bucket->next;
    if (second == &m_end)
    {
        bucket->next = nullptr;
        return;
    }
    store(*bucket, contentOf(second->key), contentOf(second->value), second->next);
    delete second;
}

void CKoHashArrayImpl::clear()
{
    destroy();
    init(CLEARED_SIZE);
}

CKoHashArrayItem* CKoHashArrayImpl::firstItem() const
{
    m_cursor = 0U;
    return m_table->next != nullptr ? m_table : nextItem(m_table);
}

CKoHashArrayItem* CKoHashArrayImpl::nextItem(CKoHashArrayItem* item) const
{
    return itemAfter(item, m_cursor);
}

CKoHashArrayItem* CKoHashArrayImpl::itemAfter(const CKoHashArrayItem* item, unsigned int& bucket) const
{
    if (item != nullptr && item->next != nullptr && item->next != &m_end)
    {
        return item->next;
    }
    while (++bucket < m_bucketCount)
    {
        if (m_table[bucket].next != nullptr)
        {
            return &m_table[bucket];
        }
    }
    return nullptr;
}

void CKoHashArrayImpl::init(unsigned int bucketCount)
{
    m_table = KoPrivate::allocateTable<CKoHashArrayItem>(bucketCount);
    std::uninitialized_value_construct_n(m_table, bucketCount);
    m_bucketCount = bucketCount;
    m_mask = bucketCount - 1U;
    m_shrinkThreshold = bucketCount > LARGEST_FIXED_SIZE ? bucketCount / 2U : 0U;
    m_growThreshold = 2U * bucketCount;
    m_count = 0U;
}

void CKoHashArrayImpl::rehash(unsigned int bucketCount)
{
    CKoHashArrayItem* const oldTable = m_table;
    const CKoHashArrayItem* const oldEnd = oldTable + m_bucketCount;
    const unsigned int count = m_count;
    init(bucketCount);
    m_count = count;
    CKoHashArrayItem* spareNodes = nullptr;
    for (CKoHashArrayItem* first = oldTable; first != oldEnd; ++first)
    {
        if (first->next == nullptr)
        {
            continue;
        }
        CKoHashArrayItem* node = first->next;
        place(tableEntryFor(contentOf(first->key)), *first, spareNodes);
        while (node != &m_end)
        {
            const CKoHashArrayItem item = *node;
            node->next = spareNodes;
            spareNodes = node;
            node = item.next;
            place(tableEntryFor(contentOf(item.key)), item, spareNodes);
        }
    }
    while (spareNodes != nullptr)
    {
        delete takeNode(spareNodes);
    }
    KoPrivate::freeTable(oldTable);
}

/// insertAtPosition that takes its node from the spare ones as long as there are any.
void CKoHashArrayImpl::place(CKoHashArrayItem* bucket, const CKoHashArrayItem& item,
                             CKoHashArrayItem*& spareNodes)
{
    if (bucket->next == nullptr)
    {
        store(*bucket, contentOf(item.key), contentOf(item.value), &m_end);
        return;
    }
    CKoHashArrayItem* const node = takeNode(spareNodes);
    store(*node, contentOf(item.key), contentOf(item.value), bucket->next);
    bucket->next = node;
}

void CKoHashArrayImpl::destroy()
{
    releaseTable(
        [this](CKoHashArrayItem& item)
        {
            destroyKey(&item.key);
            destroyValue(&item.value);
        });
    m_table = nullptr;
    m_bucketCount = 0U;
    m_count = 0U;
}

/// Visits all items and frees nodes and table.
template <class Visitor>
void CKoHashArrayImpl::releaseTable(Visitor visit)
{
    for (unsigned int bucket = 0; bucket < m_bucketCount; ++bucket)
    {
        CKoHashArrayItem* node = m_table[bucket].next;
        if (node == nullptr)
        {
            continue;
        }
        visit(m_table[bucket]);
        while (node != &m_end)
        {
            CKoHashArrayItem* const item = node;
            node = item->next;
            visit(*item);
            delete item;
        }
    }
    KoPrivate::freeTable(m_table);
}

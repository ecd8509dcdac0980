#pragma once

#include <cstdint>

/// One entry of a hash map: a bucket or an entry of the overflow area.
struct CKoHashMapItem
{
    unsigned int key;
#if UINTPTR_MAX > UINT32_MAX
    unsigned int chained; ///< where padding would be: a bit for each key in the chain behind a bucket
#endif
    void* value;
    CKoHashMapItem* next; ///< the map's end marker behind the last entry of a chain

    /// Makes this an entry with nothing chained behind it yet but what `behind` starts.
    void set(unsigned int newKey, CKoHashMapItem* behind)
    {
        key = newKey;
#if UINTPTR_MAX > UINT32_MAX
        chained = 0U;
#endif
        value = nullptr;
        next = behind;
    }

    /// Links an entry directly behind this bucket.
    void chain(CKoHashMapItem* entry)
    {
        next = entry;
#if UINTPTR_MAX > UINT32_MAX
        chained |= bitOf(entry->key);
#endif
    }

    /// Whether a key can be in the chain behind this bucket: false spares the way along it.
    bool mayChain(unsigned int wanted) const
    {
#if UINTPTR_MAX > UINT32_MAX
        return (chained & bitOf(wanted)) != 0U;
#else
        (void)wanted;
        return true;
#endif
    }

private:
    /// One of 32 bits, chosen by the upper bits: the lower ones are the same in all keys of a bucket.
    static unsigned int bitOf(unsigned int key)
    {
        return 1U << (key * 0x9E3779B1U >> 27U);
    }
};

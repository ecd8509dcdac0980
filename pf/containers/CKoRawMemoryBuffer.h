#pragma once

#include "pf/base/KoExport.h"

/// A minimal owner of raw bytes: one pointer to a block that stores its capacity in front of the bytes. Use
/// CKoBuffer where bytes are shared, resized or compared.
///
/// Not copyable. The bytes are not initialised. One thread at a time.
class KO_EXPORT CKoRawMemoryBuffer
{
public:
    /// Allocates with the global operator new; a failure ends the process. A capacity that no block can have
    /// (the last few below 4 GiB) is reported and leaves no block.
    explicit CKoRawMemoryBuffer(unsigned int capacity);

    /// Allocates with `allocate`, which gets a number of bytes and returns a block aligned to 8 or null, when
    /// it is not null. Null from it leaves no block. A block that is not KoMemory's has to be given back by
    /// release with the matching function before the destructor runs.
    CKoRawMemoryBuffer(unsigned int capacity, void* (*allocate)(unsigned int));

    CKoRawMemoryBuffer(const CKoRawMemoryBuffer&) = delete;
    CKoRawMemoryBuffer& operator=(const CKoRawMemoryBuffer&) = delete;

    /// Releases the block as release() does.
    ~CKoRawMemoryBuffer();

    /// The bytes, aligned to 8; null without a block.
    void* getBuffer() const;

    /// Number of bytes; 0 without a block.
    unsigned int getCapacity() const;

    /// Releases the block, by `deallocate` when it is given, else by operator delete or, when `allocate` made
    /// it, KoMemory::release. Nothing happens without a block.
    void release(void (*deallocate)(void*) = nullptr);

    /// The capacity that a request gives: at least 8.
    static unsigned int adjustCapacity(unsigned int capacity);

private:
    struct alignas(8) SHeader
    {
        unsigned int capacity;
        unsigned int isCustom; ///< 1 when `allocate` made the block, 0 for operator new
    };

    SHeader* m_block;
};

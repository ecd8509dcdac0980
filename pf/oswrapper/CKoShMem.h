#pragma once

#include "pf/base/KoExport.h"

/// A named shared-memory object: create or attach, then map, in steps of their own.
///
///     CKoShMem memory("/measurements", 4096);
///     if (memory.create(false) != CKoShMem::FAILED && memory.map(KoSharedMemoryAccess::MAP_READ_WRITE))
///         use(memory.getAddress());
///
/// Owns a copy of the name, a descriptor between opening and mapping, and the mapping. Never removes the name
/// by itself. Not copyable; one thread at a time. The mapping may be used by any thread.
class KO_EXPORT CKoShMem
{
public:
    /// What create() did.
    enum CreateResult
    {
        CREATED = 0,
        OPENED = 1,
        FAILED = 2
    };

    /// Calls no platform function. A missing or empty name and a size of 0 are reported; without a name every
    /// opening fails.
    CKoShMem(const char* name, unsigned int size);

    /// Unmaps and closes. The name stays.
    ~CKoShMem();

    CKoShMem(const CKoShMem&) = delete;
    CKoShMem& operator=(const CKoShMem&) = delete;

    /// Creates the object with its size, or opens it when it exists. Of several who create at the same moment
    /// exactly one gets CREATED. \param resize gives an existing object the size of this one; otherwise it
    /// keeps its own. \return see CreateResult; the reason of FAILED is in `errno`.
    int create(bool resize);

    /// Opens the object. \return false with `errno` when it does not exist or cannot be opened.
    bool attach();

    /// Maps the whole size of the opened object, and closes the descriptor: one opening serves one mapping. A
    /// mapped object is unmapped first. \param flags see KoSharedMemoryAccess::MapFlags.
    /// \return false with `errno`, `EINVAL` when nothing is open; the descriptor is kept then.
    bool map(unsigned int flags);

    /// Unmaps if mapped.
    void unmap();

    /// KoSharedMemoryAccess::unlink of the name.
    bool unlink();

    /// Whether it is mapped.
    explicit operator bool() const { return m_address != nullptr; }

    /// Start of the mapping, null when unmapped.
    void* getAddress() const { return m_address; }

    /// The size given to the constructor.
    unsigned int getSize() const { return m_size; }

private:
    void close();

    char* m_name;
    unsigned int m_size;
    void* m_address;
    int m_descriptor;
};

#pragma once

/// \file
/// A range of a file, read as memory; without a file, fresh memory from the platform.
///
///     CKoMemoryMappedFile map(path);
///     if (map.map(0, headerSize, false)) { use(map.getAddress(), map.getSize()); }

#include "pf/util/CKoFileHandle.h"

/// Owns one file and at most one mapping of it, and lets both go at the end. Three words; not copyable.
///
/// The mapping of a file cannot be written to, and shows what others write into the file. A file that is cut
/// takes the pages behind its new end with it: touching them ends the process with `SIGBUS`, so files that
/// others may cut are better read. The mapping outlives close of another handle on the same file, not this
/// one's. One object is used by one thread at a time; the mapped memory may be read by any.
class KO_EXPORT CKoMemoryMappedFile : public CKoFileHandle
{
public:
    /// No file, no mapping.
    CKoMemoryMappedFile() noexcept;

    /// Opens a file for reading; ask isOpen whether that worked.
    explicit CKoMemoryMappedFile(const CKoPath& path);

    /// As close; a failure is logged. Preserves `errno`.
    ~CKoMemoryMappedFile();

    /// Closes the former file, then opens one for reading. A mapping of the former file stays until the next
    /// map, unmap or close.
    bool open(const CKoPath& path);

    /// Ends the former mapping, then maps `size` bytes from `offset` of the file. A former mapping that the
    /// platform does not end is logged and, once there is the new one, left where it is.
    ///
    /// Without an open file the memory is private, zero-filled and writable, and `offset` is not used.
    /// \param offset a multiple of the page size. \param size above 0; the pages behind the end of the file
    /// cannot be touched. \param lazy whether pages may be provided when they are first touched; a platform
    /// that always does so ignores it.
    /// \return false with `errno`, and then nothing new is mapped.
    bool map(unsigned long long offset, unsigned int size, bool lazy);

    /// Ends the mapping; true when there is none. When the platform refuses, the mapping stays.
    bool unmap();

    /// The first mapped byte, null when nothing is mapped.
    void* getAddress() { return m_address; }
    const void* getAddress() const { return m_address; }

    /// Bytes that are mapped.
    unsigned int getSize() const { return m_size; }

    /// Ends the mapping (a failure is logged) and closes the file. \return whether the file was closed.
    bool close();

private:
    void unmapOrReport(const char* report);

    void* m_address;
    unsigned int m_size;
};

#pragma once

#include "pf/base/KoExport.h"

/// A named shared-memory object that is opened or created, and mapped, in one call, with failures in the log.
/// CKoShMem does it in steps; CKoReferencedSharedMemory removes the name when nobody uses it any longer.
///
/// Owns a copy of the name and the mapping. Not copyable; one thread at a time. The mapping may be used by
/// any thread.
///
/// An object has its size, set aside, before anybody can find its name, and reads as zeros: of several
/// processes that create it at the same moment exactly one has created it, the others open it, and none can
/// touch a page that is not there. An object whose end lies pages before the size asked for is not mapped
/// (`ENXIO`).
class KO_EXPORT CKoSharedMemory
{
public:
    /// Calls no platform function. \param name may be null; every call is then reported.
    CKoSharedMemory(const char* name, unsigned int size);

    /// Unmaps. The name stays.
    ~CKoSharedMemory();

    CKoSharedMemory(const CKoSharedMemory&) = delete;
    CKoSharedMemory& operator=(const CKoSharedMemory&) = delete;

    /// Opens or creates the object and maps it.
    /// \param recreate discards an existing object first: who has it mapped keeps it without a name. One that
    /// the process may not remove is opened. \param readOnly maps for reading only. \param zeroNew asks for a
    /// new object of zeros, which every new object is.
    /// \return true when the object is new; getAddress() tells whether it is mapped, which a new object whose
    /// memory could not be had is not. False at once when something is mapped already.
    bool map(bool recreate, bool readOnly, bool zeroNew);

    /// The same, but never discards an existing object. \param initialise asks for pages that begin as
    /// zeros, \param lazy for memory on first touch; a host does the one always and the other never, since
    /// a new object's memory is set aside at once.
    bool map2(bool readOnly, bool initialise, bool lazy);

    /// Unmaps if mapped. A refusal is reported.
    void unmap();

    /// Removes the name. A refusal is reported, unless there is no such name.
    void unlink();

    /// The name; null without one.
    const char* getName() const { return m_name; }

    /// Start of the mapping, null when unmapped.
    void* getAddress() const { return m_address; }

    /// The size given to the constructor.
    unsigned int getSize() const { return m_size; }

private:
    friend class CKoReferencedSharedMemory;

    bool isReadyToMap() const;
    bool mapDescriptor(bool readOnly);
    bool mapNew(unsigned int firstWord);
    bool mapExisting();
    bool isWhole() const;
    void discardExisting();
    void closeDescriptor();

    void* m_address;
    char* m_name;
    unsigned int m_size;
    int m_descriptor;
};

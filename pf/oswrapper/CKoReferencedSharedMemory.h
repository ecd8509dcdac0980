#pragma once

#include "pf/oswrapper/CKoThreadSafeRefCounter.h"
#include "pf/oswrapper/TKoRefCountPointer.h"

class CKoSharedMemory;
class IKoIStream;
class IKoOStream;

/// A shared-memory object that counts its references over all processes, and whose name goes with the last of
/// them.
///
///     TKoRefCountPointer<CKoReferencedSharedMemory> values =
///         CKoReferencedSharedMemory::create("/values", sizeof(SValues));
///     stream << values;                                       // to another process, which reads it with >>
///
/// Each object of this class, in whatever process, is one reference; pointers to it share that one. A
/// reference that is written to a stream is counted until it is read.
///
/// The object in memory begins with the count, 4 bytes in the processor's order, followed by the data, which
/// begins as zeros. Nobody can find the name before both are in place. An object whose count has reached 0
/// is on its way out: it cannot be opened, even in the moment that its name is still there.
///
/// Construction that does not find what it was asked for is logged and reported; the object then has no
/// data. Not copyable. Any thread may use the data and the pointers. A forked child has its parent's objects
/// without having counted them: it must not let go of them.
///
/// **When a process is killed** the references that it counted stay counted, and so does one in a stream that
/// nobody will read: the count never gets to 0 and the name stays. A supervisor can tell that no live process
/// maps the object: every process that does holds a mark, which the system drops with the process's last
/// mapping of it, however the process ends. `KoPlatform::shm_claim` gives the object only when there is no
/// mark. removeAbandoned() asks and removes the name in one step in which nobody can open the object. It does
/// not know of references in transit: call it when no stream carries one any longer, for instance after
/// the last process of a family has dropped its own.
class KO_EXPORT CKoReferencedSharedMemory : public CKoThreadSafeRefCounter
{
public:
    /// The most bytes of data that an object can have.
    static constexpr unsigned int MAX_SIZE = 0xFFFFFFFBU;

    /// Creates an object that must not exist yet, with a count of 1, or opens one that exists and counts the
    /// reference. Opening leaves nothing behind when there is no such object; one that is smaller than asked
    /// for is not opened. \param size bytes of data, at most MAX_SIZE.
    CKoReferencedSharedMemory(const char* name, unsigned int size, bool create);

    /// Drops the reference; the last one removes the name.
    ~CKoReferencedSharedMemory() override;

    /// Creates an object. \return null when it exists or cannot be created, which is logged and reported.
    static TKoRefCountPointer<CKoReferencedSharedMemory> create(const char* name, unsigned int size);

    /// Removes the name of an object of this class that no live process maps, whatever its count says.
    /// \return true when it was removed; false with `errno`: `EBUSY` while a live process maps it, `ENOENT`,
    /// `EPERM` or `EACCES` for what the process may not remove.
    static bool removeAbandoned(const char* name);

    /// The data, shared by all who map it; null when construction failed.
    void* getDataPtr() const { return m_data; }

    /// Bytes of data; 0xFFFFFFFC when construction failed.
    unsigned int getSize() const;

    /// The count over all processes at this moment; 0 when construction failed.
    unsigned int getSharedMemoryRefCount() const;

    /// Deletes the object: no pointer of this process holds it any longer.
    void lastReferenceRemoved() override;

private:
    friend KO_EXPORT IKoOStream& operator<<(IKoOStream& stream,
                                            const TKoRefCountPointer<CKoReferencedSharedMemory>& reference);
    friend KO_EXPORT const IKoIStream& operator>>(const IKoIStream& stream,
                                                  TKoRefCountPointer<CKoReferencedSharedMemory>& reference);

    bool obtain(bool create);
    void dropShared();

    CKoSharedMemory* m_memory;
    unsigned int* m_counter;
    void* m_data;
};

/// Writes a reference: the length of the name in 32 bits, its bytes, and getSize() in 32 bits. The reference
/// counts from before the first byte on, so that no reader can be early; one that could not be written whole
/// is not counted. A reference that is null or failed, or whose count cannot go up, is reported, and written
/// as length 0 and size 0.
KO_EXPORT IKoOStream& operator<<(IKoOStream& stream,
                                 const TKoRefCountPointer<CKoReferencedSharedMemory>& reference);

/// Reads a reference and takes over what was counted for it. A stream that ends early, and a name that cannot
/// be, are reported and give null; of a name length that cannot be nothing further is read. An object that
/// does not exist, or is smaller than the stream says, gives one without data, as its constructor does.
KO_EXPORT const IKoIStream& operator>>(const IKoIStream& stream,
                                       TKoRefCountPointer<CKoReferencedSharedMemory>& reference);

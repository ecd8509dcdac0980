#pragma once

#include "pf/base/KoExport.h"
#include "pf/oswrapper/KoErrnoGuard.h"

/// Shared-memory objects that several processes open by name: opening, mapping, closing, removing.
/// CKoShMem is the class that owns one.
///
/// Sizes and offsets are bytes. Interruptions by signals are absorbed; a refusal is -1, null or false with
/// the reason in `errno`. No call allocates or waits for another process. Any thread may call.
namespace KoSharedMemoryAccess
{

/// Keeps `errno` over what may disturb it.
using SKoErrnoSafe = KoErrnoGuard;

/// What open() does, in the low byte.
enum OpenMode : unsigned int
{
    OPEN_EXISTING = 0,
    CREATE_IF_MISSING = 1,
    EXCLUSIVE = 2, ///< without CREATE_IF_MISSING: opens an existing object and sets its size
    CREATE_EXCLUSIVE = CREATE_IF_MISSING | EXCLUSIVE,
    SET_SIZE = 0x100 ///< to be added: sets the size of an object that exists, too
};

/// How map() maps, in the low byte.
enum MapFlags : unsigned int
{
    MAP_READ_ONLY = 0,
    MAP_WRITE_ONLY = 1,
    MAP_READ_WRITE = 2,
    MAP_ZEROED = 0x100, ///< to be added: new pages are zero, which they are on a host anyway
    MAP_LAZY = 0x200    ///< to be added: memory on first touch; a host sets it aside with the size
};

/// Opens or creates an object for reading and writing. A created one has the permission bits 0777 less the
/// process's mask.
///
/// An object that is created with a size has it before anybody can find the name, and its memory is set
/// aside: a full memory file system is an error here and not a signal later, and leaves no name behind. Of
/// two creators at the same moment one creates. Shrinking takes pages away under the hands of those who have
/// them mapped.
/// \param name the object's name, with or without a leading slash and no other; at most 255 characters.
/// \param size taken when the object is created exclusively or with SET_SIZE. \param mode see OpenMode.
/// \return the descriptor, which no started program inherits. `EINVAL` for a name or a mode that cannot be,
/// `EEXIST` for an exclusive creation of what exists, `ENOENT`, `ENOSPC`, `EFBIG` beyond the process's limit.
KO_EXPORT int open(const char* name, unsigned int size, unsigned int mode);

/// Maps part of an object, shared with all who map it.
/// \param offset a multiple of the page size. \param flags see MapFlags.
/// \return the start, or null: `EINVAL` for descriptor -1, size 0 or flags that cannot be, `ENXIO` when whole
/// pages lie beyond the object's end, which nobody could touch.
KO_EXPORT void* map(int descriptor, unsigned int size, unsigned int offset, unsigned int flags);

/// Takes a mapping out of the address space; it must have come from map(), whole.
KO_EXPORT bool unmap(void* address, unsigned int size);

/// Closes a descriptor; mappings stay. \return false when it was none.
KO_EXPORT bool close(int descriptor);

/// Removes a name; who has the object open or mapped keeps it. \return false with `ENOENT` for a name that
/// does not exist, `EINVAL` for none.
KO_EXPORT bool unlink(const char* name);

} // namespace KoSharedMemoryAccess

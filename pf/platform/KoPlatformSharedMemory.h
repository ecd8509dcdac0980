#pragma once

#include "pf/base/KoExport.h"

#include <sys/types.h>

/// Shared-memory objects of the platform. Failures are -1 with `errno`; interruptions are absorbed; nothing
/// allocates. Any thread may call.
///
/// Names are single names, with or without leading slashes, of at most SHARED_MEMORY_NAME_MAX characters; any
/// other, and a null one, is `EINVAL`.
namespace KoPlatform
{

constexpr unsigned int SHARED_MEMORY_NAME_MAX = 255;

/// Opens an object that exists for reading and writing; started programs do not inherit the descriptor.
KO_EXPORT int shm_open(const char* name);

/// Removes a name.
KO_EXPORT int shm_unlink(const char* name);

/// Sets the size of an object and sets its memory aside; growing that fails changes nothing. `ENOSPC` when
/// the memory file system is full, `EFBIG` beyond the process's limit of file sizes.
KO_EXPORT int shm_resize(int descriptor, unsigned int size);

/// The size of an object.
KO_EXPORT int shm_size(int descriptor, unsigned long long& size);

/// How making an object ended; `errno` tells more where it failed.
enum class SharedMemoryResult
{
    MADE,
    EXISTS,  ///< somebody has the name
    UNSIZED, ///< there is no memory for the object
    REFUSED  ///< any other reason
};

/// Makes a new object that has its size, and its first word, before it gets its name: whoever finds the name
/// finds an object that is complete. Whatever happens in between, and if the process is killed, that name is
/// not left behind. \param mode the permission bits, less the process's mask. \param firstWord what the
/// object begins with; null for zeros. \param descriptor set when MADE, -1 otherwise.
KO_EXPORT SharedMemoryResult shm_make(const char* name, mode_t mode, unsigned int size,
                                      const unsigned int* firstWord, int& descriptor);

/// Marks an object as used until its descriptor is closed and all that was mapped through it is unmapped, by
/// every process that inherited either. The system drops the mark of a process that is killed. Waits a moment
/// for somebody who has claimed the object; `EBUSY` after a second.
KO_EXPORT int shm_mark(int descriptor);

/// Opens an object that nobody has marked, for the caller alone: until the descriptor is closed nobody can
/// mark it. `EBUSY` while somebody has marked it, `ENOENT` also when the name goes meanwhile.
KO_EXPORT int shm_claim(const char* name);

} // namespace KoPlatform

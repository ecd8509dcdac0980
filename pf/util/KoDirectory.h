#pragma once

/// \file
/// Reading directories entry by entry, as if signals did not exist.
///
///     DIR* directory = vanta_qnx_safe_opendir("/tmp");
///     dirent64 entry;
///     dirent64* found = &entry;
///     while (vanta_qnx_safe_readdir64_r(directory, &entry, &found) == 0 && found != nullptr)
///     {
///         use(entry.d_name);
///     }
///     vanta_qnx_safe_closedir(directory);
///
/// One directory stream is read by one thread at a time. Nothing else is shared.
///
/// On a 32-bit target the program's own settings say how wide its `dirent` is (`_FILE_OFFSET_BITS`). Each is
/// served with the record that it knows; `dirent64` is the same for all.

#include "pf/base/KoExport.h"

#include <dirent.h>

extern "C"
{
#if __SIZEOF_LONG__ == 4 && !(defined(_FILE_OFFSET_BITS) && _FILE_OFFSET_BITS == 64)
    static_assert(sizeof(dirent) < sizeof(dirent64), "the narrow record");
    KO_EXPORT int vanta_qnx_safe_readdir_r(DIR* directory, dirent* entry,
                                           dirent** result) __asm__("vanta_qnx_safe_readdir32_r");
#else
    static_assert(sizeof(dirent) == sizeof(dirent64), "the wide record");
#endif

    /// Opens a directory; started programs do not inherit it. \return null with `errno` on failure (`EINVAL`
    /// for null). The caller closes it.
    KO_EXPORT DIR* vanta_qnx_safe_opendir(const char* path);

    /// Closes a directory. \return 0, or -1 with `errno` (`EINVAL` for null). The stream is gone in either
    /// case.
    KO_EXPORT int vanta_qnx_safe_closedir(DIR* directory);

    /// Reads the next entry, in no particular order; "." and ".." are among them.
    /// \param entry receives it.
    /// \param result receives `entry`, or null at the end of the directory and on failure.
    /// \return 0, also at the end, or an error number: `ENAMETOOLONG` for a name and `EOVERFLOW` for a file
    /// number that have no room in an entry (the next call goes on behind it), `EINVAL` for null.
    KO_EXPORT int vanta_qnx_safe_readdir_r(DIR* directory, dirent* entry, dirent** result);

    /// The same. When `entry` or `result` is null, it returns `errno` and does nothing else.
    KO_EXPORT int vanta_qnx_safe_readdir64_r(DIR* directory, dirent64* entry, dirent64** result);
}

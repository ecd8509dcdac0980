#pragma once

#include "pf/base/KoExport.h"
#include "pf/util/CKoFileStatus.h"
#include "pf/util/CKoPath.h"

class CKoFileHandle;

/// Work on whole files and directories.
///
/// True means done; after false the reason is in `errno`. Interruptions by signals are never seen, nothing is
/// logged. Any thread may call any function; who else works on the same files is up to the callers.
namespace KoFileOperations
{

/// Removes a file or an empty directory.
KO_EXPORT bool remove(const CKoPath& path);

/// Gives a file or directory another name, replacing a file that has it.
KO_EXPORT bool rename(const CKoPath& from, const CKoPath& to);

/// Creates the symbolic link `link` to `target`, which need not exist.
KO_EXPORT bool createSymlink(const CKoPath& target, const CKoPath& link);

/// Creates a directory. \param mode permission bits, less the process's file-creation mask.
KO_EXPORT bool makeDir(const CKoPath& path, int mode);

/// Sets the permission bits of a file or directory.
KO_EXPORT bool setPermissions(const CKoPath& path, int mode);

/// Changes the current directory of the process, for all of its threads.
KO_EXPORT bool changeDir(const CKoPath& path);

/// The current directory; the empty path on failure, also when it has more than 1023 bytes or is no UTF-8.
KO_EXPORT CKoPath getCurrentDir();

/// Fills `status`, following symbolic links.
KO_EXPORT bool getFileStatus(const CKoPath& path, CKoFileStatus& status);

/// Fills `status` for the file of this name, be it a symbolic link itself.
KO_EXPORT bool getSymlinkStatus(const CKoPath& path, CKoFileStatus& status);

/// Whether the process's real user may access a file.
/// \param mode the platform's bits (`R_OK`, `W_OK`, `X_OK`, or `F_OK` for its existence).
/// \param errorOccurred receives false when that could be told (granted, or `EACCES`) and true when it could
/// not; may be null.
KO_EXPORT bool isGranted(const CKoPath& path, unsigned int mode, bool* errorOccurred);

/// The name of the type of the file system that holds a file, in lower case, zero-terminated.
/// \param size of the buffer in bytes, 16 always suffice. `EINVAL` when the name and its terminator do not
/// fit.
KO_EXPORT bool getFileSystemType(const CKoPath& path, char* buffer, unsigned int size);

/// Creates a directory and those above it that are missing, all with the same `mode`.
///
/// A directory that exists already is a success directly below the root and for a relative path of one
/// component (`ENOTDIR` if it is something else), and `EEXIST` everywhere else.
KO_EXPORT bool makeDirRecursive(const CKoPath& path, int mode);

/// Removes a file, a symbolic link (never what it leads to) or a directory with all that is in it. Stops at
/// the first failure; what was removed before stays removed.
///
/// Directories are entered by descriptor, so nothing outside the tree is touched even when somebody exchanges
/// its directories for links meanwhile. Needs one descriptor for each level. A name of more than 1023 bytes
/// down from the start of the path is `ENAMETOOLONG`.
KO_EXPORT bool recursiveRemove(const CKoPath& path);

/// Creates a new file and opens it for reading and writing, under a name that nobody else gets.
/// \param pathTemplate its last component holds a "*", the last of which gives way to numbers: "log*.txt".
/// Without a directory the file is created in the current one. Receives the name.
/// \param file closed first. \return false with `EINVAL` when the template is invalid, has no "*", or gives a
/// name of more than 1023 bytes. After another failure `pathTemplate` holds the last name tried.
KO_EXPORT bool createUniqueFile(CKoPath& pathTemplate, CKoFileHandle& file);

} // namespace KoFileOperations

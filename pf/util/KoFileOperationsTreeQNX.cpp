#include "pf/util/KoFileOperations.h"

#include "pf/oswrapper/KoErrnoGuard.h"
#include "pf/util/KoDirectory.h"
#include "pf/util/TKoErrnoSafeFunction.h"

#include <cerrno>
#include <cstddef>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr std::size_t MAX_PATH_BYTES = 1023;

bool isDirectory(const CKoPath& path, bool& exists)
{
    CKoFileStatus status;
    exists = KoFileOperations::getFileStatus(path, status);
    return exists && S_ISDIR(status.st_mode);
}

/// A directory that nothing but the root or the current directory is above.
bool makeTopDir(const CKoPath& path, int mode)
{
    bool exists = false;
    if (isDirectory(path, exists))
    {
        return true;
    }
    if (exists)
    {
        errno = ENOTDIR;
        return false;
    }
    return KoFileOperations::makeDir(path, mode);
}

bool isSelfOrParent(const char* name)
{
    return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

bool removeName(int parent, const char* name, int flags)
{
    return TKoErrnoSafeFunction(::unlinkat)(parent, name, flags) == 0;
}

/// Opens a directory below another one, but never through a symbolic link.
DIR* openDirectory(int parent, const char* name)
{
    constexpr int FLAGS = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    const int descriptor = TKoErrnoSafeFunction(::openat)(parent, name, FLAGS);
    if (descriptor < 0)
    {
        return nullptr;
    }
    DIR* const directory = ::fdopendir(descriptor);
    if (directory == nullptr)
    {
        const KoErrnoGuard guard;
        ::close(descriptor);
    }
    return directory;
}

bool removeContent(DIR* directory, std::size_t pathLength);

/// Removes the directory of this name with its content. \param pathLength bytes of its whole path.
bool removeDirectory(int parent, const char* name, std::size_t pathLength)
{
    DIR* const directory = openDirectory(parent, name);
    if (directory == nullptr)
    {
        return false;
    }
    const bool isEmptied = removeContent(directory, pathLength);
    {
        const KoErrnoGuard guard;
        vanta_qnx_safe_closedir(directory);
    }
    return isEmptied && removeName(parent, name, AT_REMOVEDIR);
}

/// Removes what has this name, whatever it is.
bool removeEntry(int parent, const char* name, std::size_t pathLength)
{
    if (removeName(parent, name, 0))
    {
        return true;
    }
    const int error = errno;
    if (removeDirectory(parent, name, pathLength))
    {
        return true;
    }
    if (errno == ENOTDIR)
    {
        errno = error; // no directory: what counts is why the file could not be removed
    }
    return false;
}

bool removeChild(DIR* directory, const char* name, std::size_t pathLength)
{
    const std::size_t childLength = pathLength + 1 + std::strlen(name);
    if (childLength > MAX_PATH_BYTES)
    {
        errno = ENAMETOOLONG;
        return false;
    }
    return removeEntry(::dirfd(directory), name, childLength);
}

bool removeContent(DIR* directory, std::size_t pathLength)
{
    for (;;)
    {
        dirent64 entry;
        dirent64* found = nullptr;
        const int error = vanta_qnx_safe_readdir64_r(directory, &entry, &found);
        if (error != 0 || found == nullptr)
        {
            errno = error;
            return error == 0;
        }
        if (!isSelfOrParent(entry.d_name) && !removeChild(directory, entry.d_name, pathLength))
        {
            return false;
        }
    }
}

} // namespace

bool KoFileOperations::makeDirRecursive(const CKoPath& path, int mode)
{
    const CKoPath parent(path.getBranch());
    if (parent.isRoot() || parent.getString().isEmpty())
    {
        return makeTopDir(path, mode);
    }
    if (!makeDirRecursive(parent, mode) && errno != EEXIST)
    {
        return false;
    }
    return makeDir(path, mode);
}

bool KoFileOperations::recursiveRemove(const CKoPath& path)
{
    const CKoString text = path.getString();
    const CKoString name = CKoPath::canonify(text);
    const bool isForDirectory = !text.isEmpty() && text.c_str()[text.byteLength() - 1U] == CKoPath::SEPARATOR;
    // A separator at the end would lead through a link, so directories are entered by the name without it.
    return isForDirectory ? removeDirectory(AT_FDCWD, name.c_str(), name.byteLength())
                          : removeEntry(AT_FDCWD, name.c_str(), name.byteLength());
}

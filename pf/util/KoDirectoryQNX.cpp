#include "pf/util/KoDirectory.h"

#include "pf/platform/KoPlatformClose.h"
#include "pf/util/TKoErrnoSafeFunction.h"

#include <cerrno>
#include <cstddef>
#include <cstring>

namespace
{

int failWith(int error)
{
    errno = error;
    return error;
}

/// \return 0, or an error number when the name has no room.
template <class Entry>
int copyEntry(const Entry& from, Entry& to)
{
    const std::size_t nameSize = std::strlen(from.d_name) + 1;
    if (nameSize > sizeof(to.d_name))
    {
        return failWith(ENAMETOOLONG);
    }
    // Behind its name, what the platform hands out may end.
    std::memcpy(static_cast<void*>(&to), &from, offsetof(Entry, d_name) + nameSize);
    return 0;
}

/// The platform keeps one entry per directory stream; the caller gets a copy of it.
template <class Entry>
int readNext(Entry* (*readEntry)(DIR*), DIR* directory, Entry& entry, Entry*& result)
{
    result = nullptr;
    if (directory == nullptr)
    {
        return failWith(EINVAL);
    }
    const Entry* const found = TKoErrnoSafeFunction<Entry*(DIR*), CKoIsNullComp>(readEntry)(directory);
    if (found == nullptr)
    {
        return errno;
    }
    const int error = copyEntry(*found, entry);
    result = error == 0 ? &entry : nullptr;
    return error;
}

} // namespace

DIR* vanta_qnx_safe_opendir(const char* path)
{
    if (path == nullptr)
    {
        errno = EINVAL;
        return nullptr;
    }
    return TKoErrnoSafeFunction<DIR*(const char*), CKoIsNullComp>(::opendir)(path);
}

int vanta_qnx_safe_closedir(DIR* directory)
{
    errno = directory == nullptr ? EINVAL : 0;
    return directory == nullptr ? -1 : KoPlatform::closedir(directory);
}

int vanta_qnx_safe_readdir_r(DIR* directory, dirent* entry, dirent** result)
{
    if (entry == nullptr || result == nullptr)
    {
        return failWith(EINVAL);
    }
    return readNext(::readdir, directory, *entry, *result);
}

int vanta_qnx_safe_readdir64_r(DIR* directory, dirent64* entry, dirent64** result)
{
    if (entry == nullptr || result == nullptr)
    {
        return errno;
    }
    return readNext(::readdir64, directory, *entry, *result);
}

#include "pf/util/KoDirectory.h"

#include "pf/platform/KoNarrowEntry.h"
#include "pf/platform/KoPlatformClose.h"
#include "pf/util/TKoErrnoSafeFunction.h"

#include <cerrno>
#include <climits>
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

#if __SIZEOF_LONG__ == 4
/// The same for a narrow entry, and when the file's number has no room.
int copyEntry(const dirent64& from, KoPlatform::SNarrowEntry& to)
{
    const std::size_t nameSize = std::strlen(from.d_name) + 1;
    if (nameSize > sizeof(to.d_name) || from.d_ino > UINT_MAX)
    {
        return failWith(from.d_ino > UINT_MAX ? EOVERFLOW : ENAMETOOLONG);
    }
    to.d_ino = static_cast<unsigned int>(from.d_ino);
    to.d_off = static_cast<int>(from.d_off); // cut: it leads nowhere, telldir does
    to.d_reclen = sizeof(to);
    to.d_type = from.d_type;
    std::memcpy(to.d_name, from.d_name, nameSize);
    return 0;
}
#endif

/// The platform keeps one entry per directory stream; the caller gets a copy of it.
template <class Found, class Entry>
int readNext(Found* (*readEntry)(DIR*), DIR* directory, Entry& entry, Entry*& result)
{
    result = nullptr;
    if (directory == nullptr)
    {
        return failWith(EINVAL);
    }
    const Found* const found = TKoErrnoSafeFunction<Found*(DIR*), CKoIsNullComp>(readEntry)(directory);
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

#if __SIZEOF_LONG__ == 4
/// vanta_qnx_safe_readdir_r of programs whose file offsets have 32 bits; the header leads them here.
extern "C" KO_EXPORT int vanta_qnx_safe_readdir32_r(DIR* directory, KoPlatform::SNarrowEntry* entry,
                                                    KoPlatform::SNarrowEntry** result)
{
    if (entry == nullptr || result == nullptr)
    {
        return failWith(EINVAL);
    }
    return readNext(::readdir64, directory, *entry, *result);
}
#endif

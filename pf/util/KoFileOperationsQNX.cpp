#include "pf/util/KoFileOperations.h"

#include "pf/platform/KoPlatformFile.h"
#include "pf/util/TKoErrnoSafeFunction.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <sys/stat.h>
#include <unistd.h>

static_assert(sizeof(CKoFileStatus) == 120, "the same on every target");

namespace
{

constexpr std::size_t CURRENT_DIR_SIZE = 1024; ///< with its terminator

template <class TimePoint>
CKoFileStatus::STime timeOf(const TimePoint& time)
{
    return {time.tv_sec, static_cast<int>(time.tv_nsec)};
}

CKoFileStatus statusOf(const struct stat& record)
{
    CKoFileStatus status;
    status.st_dev = record.st_dev;
    status.st_ino = record.st_ino;
    status.st_mode = record.st_mode;
    status.st_nlink = record.st_nlink;
    status.st_uid = record.st_uid;
    status.st_gid = record.st_gid;
    status.st_rdev = record.st_rdev;
    status.st_size = record.st_size;
    status.st_blksize = record.st_blksize;
    status.st_blocks = record.st_blocks;
    status.st_atim = timeOf(record.st_atim);
    status.st_mtim = timeOf(record.st_mtim);
    status.st_ctim = timeOf(record.st_ctim);
    return status;
}

/// \param function `stat` or `lstat`.
template <class Function>
bool readStatus(Function* function, const CKoPath& path, CKoFileStatus& status)
{
    struct stat record = {};
    if (TKoErrnoSafeFunction(function)(path.getString().c_str(), &record) != 0)
    {
        return false;
    }
    status = statusOf(record);
    return true;
}

} // namespace

bool KoFileOperations::remove(const CKoPath& path)
{
    return TKoErrnoSafeFunction<int(const char*)>(std::remove)(path.getString().c_str()) == 0;
}

bool KoFileOperations::rename(const CKoPath& from, const CKoPath& to)
{
    return TKoErrnoSafeFunction(::rename)(from.getString().c_str(), to.getString().c_str()) == 0;
}

bool KoFileOperations::createSymlink(const CKoPath& target, const CKoPath& link)
{
    return TKoErrnoSafeFunction(::symlink)(target.getString().c_str(), link.getString().c_str()) == 0;
}

bool KoFileOperations::makeDir(const CKoPath& path, int mode)
{
    return TKoErrnoSafeFunction(::mkdir)(path.getString().c_str(), static_cast<mode_t>(mode)) == 0;
}

bool KoFileOperations::setPermissions(const CKoPath& path, int mode)
{
    return TKoErrnoSafeFunction(::chmod)(path.getString().c_str(), static_cast<mode_t>(mode)) == 0;
}

bool KoFileOperations::changeDir(const CKoPath& path)
{
    return TKoErrnoSafeFunction(::chdir)(path.getString().c_str()) == 0;
}

CKoPath KoFileOperations::getCurrentDir()
{
    char name[CURRENT_DIR_SIZE];
    if (TKoErrnoSafeFunction<char*(char*, std::size_t), CKoIsNullComp>(::getcwd)(name, sizeof(name)) ==
        nullptr)
    {
        return {};
    }
    const CKoString text(name);
    if (text.byteLength() != std::strlen(name))
    {
        errno = EILSEQ; // a text ends before bytes that are no UTF-8: that would be another directory
        return {};
    }
    return text;
}

bool KoFileOperations::getFileStatus(const CKoPath& path, CKoFileStatus& status)
{
    return readStatus(::stat, path, status);
}

bool KoFileOperations::getSymlinkStatus(const CKoPath& path, CKoFileStatus& status)
{
    return readStatus(::lstat, path, status);
}

bool KoFileOperations::isGranted(const CKoPath& path, unsigned int mode, bool* errorOccurred)
{
    const bool isAllowed =
        TKoErrnoSafeFunction(::access)(path.getString().c_str(), static_cast<int>(mode)) == 0;
    if (errorOccurred != nullptr)
    {
        *errorOccurred = !isAllowed && errno != EACCES;
    }
    return isAllowed;
}

bool KoFileOperations::getFileSystemType(const CKoPath& path, char* buffer, unsigned int size)
{
    if (buffer == nullptr || size == 0U)
    {
        errno = EINVAL;
        return false;
    }
    char type[KoPlatform::FILE_SYSTEM_TYPE_SIZE];
    if (KoPlatform::fileSystemType(path.getString().c_str(), type) != 0)
    {
        return false;
    }
    std::strncpy(buffer, type, size);
    if (buffer[size - 1U] != '\0')
    {
        errno = EINVAL;
        return false;
    }
    for (char* at = buffer; *at != '\0'; ++at)
    {
        *at = static_cast<char>(std::tolower(static_cast<unsigned char>(*at)));
    }
    return true;
}

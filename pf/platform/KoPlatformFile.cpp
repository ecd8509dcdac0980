#include "pf/platform/KoPlatformFile.h"

#include "pf/platform/KoPlatformRetry.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace
{

constexpr char SHARED_MEMORY_DIRECTORY[] = "/dev/shmem";
constexpr char HOST_SHARED_MEMORY_DIRECTORY[] = "/dev/shm";

/// The rest of a path behind the shared-memory directory, or null when it leads elsewhere.
const char* pathInSharedMemory(const char* path)
{
    constexpr std::size_t LENGTH = sizeof(SHARED_MEMORY_DIRECTORY) - 1;
    if (std::strncmp(path, SHARED_MEMORY_DIRECTORY, LENGTH) != 0)
    {
        return nullptr;
    }
    const char* rest = path + LENGTH;
    if (*rest != '/' && *rest != '\0')
    {
        return nullptr;
    }
    while (*rest == '/')
    {
        ++rest;
    }
    return *rest == '\0' ? "." : rest;
}

int openAt(int directory, const char* path, int flags, mode_t mode)
{
    return KoPlatform::repeatInterrupted([=] { return ::openat(directory, path, flags | O_CLOEXEC, mode); });
}

int openInHostSharedMemory(const char* name, int flags, mode_t mode)
{
    const int directory = openAt(AT_FDCWD, HOST_SHARED_MEMORY_DIRECTORY, O_PATH | O_DIRECTORY, 0);
    if (directory < 0)
    {
        return -1;
    }
    const int file = openAt(directory, name, flags, mode);
    const int error = errno;
    ::close(directory);
    errno = error;
    return file;
}

} // namespace

int KoPlatform::open(const char* path, int flags, mode_t mode)
{
    const char* sharedName = pathInSharedMemory(path);
    if (sharedName != nullptr && ::access(SHARED_MEMORY_DIRECTORY, F_OK) != 0)
    {
        return openInHostSharedMemory(sharedName, flags, mode);
    }
    return openAt(AT_FDCWD, path, flags, mode);
}

#include "pf/platform/KoPlatformFile.h"

#include "pf/oswrapper/KoErrnoGuard.h"
#include "pf/platform/KoPlatformRetry.h"
#include "pf/platform/KoPlatformTimeout.h"
#include "pf/platform/KoThreadWait.h"
#include "pf/platform/KoTimedTransfer.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace
{

using namespace KoPlatform;

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
    return repeatInterrupted([=] { return ::openat(directory, path, flags, mode); });
}

int openInHostSharedMemory(const char* name, int flags, mode_t mode)
{
    const int directory = openAt(AT_FDCWD, HOST_SHARED_MEMORY_DIRECTORY, O_PATH | O_DIRECTORY | O_CLOEXEC, 0);
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

/// At the start of a call that can block: ends a thread that is to end. \return the deadline of the call.
unsigned long long beginTransfer()
{
    if (isTerminationRequested())
    {
        endCallingThread();
    }
    return takeTimeout(TIMEOUT_SEND | TIMEOUT_REPLY, nullptr);
}

/// How many bytes the command's number says that it transfers; 0 where it does not say.
std::size_t bytesOf(unsigned int command)
{
    return _IOC_DIR(command) == _IOC_NONE ? 0U : _IOC_SIZE(command);
}

} // namespace

namespace KoPlatform
{

int open(const char* path, int flags, mode_t mode)
{
    takeTimeout(0U, nullptr);
    const char* sharedName = pathInSharedMemory(path);
    if (sharedName != nullptr && ::access(SHARED_MEMORY_DIRECTORY, F_OK) != 0)
    {
        return openInHostSharedMemory(sharedName, flags, mode);
    }
    return openAt(AT_FDCWD, path, flags, mode);
}

ssize_t read(int descriptor, void* buffer, std::size_t size)
{
    const unsigned long long deadlineNs = beginTransfer();
    return deadlineNs == NO_DEADLINE ? ::read(descriptor, buffer, size)
                                     : readUntil(descriptor, buffer, size, deadlineNs);
}

ssize_t write(int descriptor, const void* buffer, std::size_t size)
{
    const unsigned long long deadlineNs = beginTransfer();
    return deadlineNs == NO_DEADLINE ? ::write(descriptor, buffer, size)
                                     : writeUntil(descriptor, buffer, size, deadlineNs);
}

int devctl(int descriptor, int command, void* data, std::size_t size, int* info)
{
    beginTransfer();
    const auto request = static_cast<unsigned int>(command);
    // The driver trusts the number, not the size.
    if (size < bytesOf(request) || size > SSIZE_MAX || (data == nullptr && size != 0U))
    {
        return EINVAL;
    }
    const KoErrnoGuard guard;
    const int answer = ::ioctl(descriptor, request, data);
    if (answer == -1)
    {
        return errno;
    }
    if (info != nullptr)
    {
        *info = answer;
    }
    return 0;
}

} // namespace KoPlatform

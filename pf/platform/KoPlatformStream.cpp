#include "pf/platform/KoPlatformStream.h"

#include "pf/platform/KoPlatformClose.h"
#include "pf/platform/KoPlatformFile.h"
#include "pf/platform/KoPlatformRetry.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

namespace
{

/// Permission bits of a new file, before the process's file-creation mask.
constexpr mode_t NEW_FILE = 0666;

// What the C library calls has the descriptor for its cookie, so that a stream needs no block of its own.
static_assert(sizeof(std::intptr_t) >= sizeof(int), "a descriptor fits into a cookie");

void* cookieOf(int descriptor)
{
    return reinterpret_cast<void*>(static_cast<std::intptr_t>(descriptor));
}

int descriptorOf(void* cookie)
{
    return static_cast<int>(reinterpret_cast<std::intptr_t>(cookie));
}

ssize_t readFrom(void* cookie, char* buffer, std::size_t size)
{
    return ::read(descriptorOf(cookie), buffer, size);
}

/// Fewer bytes than asked for are a failure to the C library, which forgets them all.
ssize_t writeTo(void* cookie, const char* buffer, std::size_t size)
{
    std::size_t done = 0;
    while (done != size)
    {
        const ssize_t written = KoPlatform::repeatInterrupted(
            [&] { return ::write(descriptorOf(cookie), buffer + done, size - done); });
        if (written <= 0)
        {
            errno = written == 0 ? EIO : errno;
            break;
        }
        done += static_cast<std::size_t>(written);
    }
    return static_cast<ssize_t>(done);
}

int moveIn(void* cookie, off64_t* position, int origin)
{
    const off64_t moved = ::lseek64(descriptorOf(cookie), *position, origin);
    if (moved == -1)
    {
        return -1;
    }
    *position = moved;
    return 0;
}

int closeFile(void* cookie)
{
    return KoPlatform::close(descriptorOf(cookie));
}

/// The flags that a mode of `fopen` stands for, -1 for what is no mode.
int flagsOf(const char* mode)
{
    const int access = std::strchr(mode, '+') != nullptr ? O_RDWR : O_WRONLY;
    switch (*mode)
    {
    case 'r':
        return access == O_RDWR ? O_RDWR : O_RDONLY;
    case 'w':
        return access | O_CREAT | O_TRUNC;
    case 'a':
        return access | O_CREAT | O_APPEND;
    default:
        return -1;
    }
}

/// A stream that only reads has nothing to lose, and the host's own reads large pieces around its buffer.
FILE* streamOn(int descriptor, int flags, const char* mode)
{
    if ((flags & O_ACCMODE) == O_RDONLY)
    {
        return ::fdopen(descriptor, mode);
    }
    return ::fopencookie(cookieOf(descriptor), mode, {readFrom, writeTo, moveIn, closeFile});
}

} // namespace

FILE* KoPlatform::openStream(const char* path, const char* mode)
{
    const int flags = flagsOf(mode);
    if (flags == -1)
    {
        errno = EINVAL;
        return nullptr;
    }
    const int descriptor = KoPlatform::open(path, flags, NEW_FILE);
    if (descriptor == -1)
    {
        return nullptr;
    }
    FILE* const stream = streamOn(descriptor, flags, mode);
    if (stream == nullptr)
    {
        KoPlatform::close(descriptor);
        errno = ENOMEM;
    }
    return stream;
}

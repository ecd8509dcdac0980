#pragma once

#include "pf/base/KoExport.h"

#include <cstddef>

#include <sys/types.h>

/// Files and devices of the platform, under the kernel's own call names.
///
/// read, write and devctl take the calling thread's armed timeout (KoPlatformTimeout.h, TIMEOUT_SEND or
/// TIMEOUT_REPLY). Without one, read and write are the bare calls. A thread that is to end leaves at their
/// start or while it waits with a timeout; a bare call that blocks has to return first. Any thread may call
/// any function; none allocates.
namespace KoPlatform
{

/// Opens a file like the C library's `open`, retrying interruptions. The flags are passed as they stand.
///
/// Paths in the directory "/dev/shmem" lead to the host's shared-memory directory where "/dev/shmem" does
/// not exist. Takes an armed timeout without heeding it: opening one end of a named pipe waits for the other.
/// \return the descriptor, or -1 with `errno`.
KO_EXPORT int open(const char* path, int flags, mode_t mode = 0);

/// Reads once, like the C library's `read`.
///
/// With a timeout the call waits for data until the deadline at most; what is there already is read even if
/// the deadline has passed. The descriptor's flags, which others may share, are left alone. Regular files
/// and block devices are read without waiting. A descriptor that does not block on its own account
/// (`O_NONBLOCK`) fails with `EAGAIN` as ever.
/// \return the bytes read, 0 at the end; -1 with `errno`: `ETIMEDOUT` at the deadline, never before it;
/// `EINTR` when a signal handler ran, which does not end the wait of a call with a timeout.
KO_EXPORT ssize_t read(int descriptor, void* buffer, std::size_t size);

/// Writes like the C library's `write`: as much as can be written without failing or running out of time.
///
/// With a timeout the call returns by the deadline, also in the middle of a large transfer; the rest as for
/// read.
/// \return the bytes written, fewer than `size` when the deadline or a failure came in between; -1 with
/// `errno` when that happened before the first one: `ETIMEDOUT` and `EINTR` as for read.
KO_EXPORT ssize_t write(int descriptor, const void* buffer, std::size_t size);

/// Sends a command to the driver of a device. The numbers of the commands are the host's.
///
/// An armed timeout is taken, but a driver that delays its answer is waited for.
/// \param data what the command transfers, either way. A command whose number says how much that is needs
/// that many bytes at least. \param size bytes at `data`. \param info receives the driver's answer on
/// success; may be null.
/// \return 0 or an error number (`errno` is not used): `EINVAL` for data that is too small, `ENOTTY` for a
/// command that the device does not know.
KO_EXPORT int devctl(int descriptor, int command, void* data, std::size_t size, int* info);

/// Bytes of a file system's type name, the terminating zero included.
constexpr std::size_t FILE_SYSTEM_TYPE_SIZE = 16;

/// The name of a file's type of file system, as the host's table of mounts spells it ("ext4", "tmpfs").
/// A longer name is cut; it always ends in zero.
/// \return 0, or -1 with `errno`: the path cannot be reached, descriptors have run out, or the host does not
/// tell (`ENOTSUP`).
KO_EXPORT int fileSystemType(const char* path, char (&type)[FILE_SYSTEM_TYPE_SIZE]);

} // namespace KoPlatform

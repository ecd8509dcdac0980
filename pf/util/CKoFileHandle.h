#pragma once

/// \file
/// One open file, device, pipe or socket, read and written without a buffer in between, each transfer with a
/// limit in time if wanted. For many small pieces of a plain file a buffered stream (CKoFILEDevice) is the
/// better choice.
///
///     CKoFileHandle file;
///     if (file.open(path, O_WRONLY | O_CREAT | O_TRUNC)) { file.writeN(record, sizeof(record), -1); }

#include "pf/base/KoExport.h"
#include "pf/stream/SeekDirection.h"
#include "pf/util/CKoPath.h"

/// Owns a file descriptor, and closes it at the end.
///
/// Time-outs are milliseconds: -1 waits without limit, 0 not at all. A transfer has one deadline however
/// often signals interrupt it; no call ever fails because of a signal. Failures leave their reason in
/// `errno`; on a closed handle it is `EBADF`. One word; one object is used by one thread at a time; not
/// copyable.
class KO_EXPORT CKoFileHandle
{
public:
    /// A closed handle.
    CKoFileHandle() noexcept;

    /// Opens a file; ask isOpen whether that worked.
    CKoFileHandle(const CKoPath& path, unsigned int flags);

    /// Closes the file. A failure is logged; `errno` is preserved.
    ~CKoFileHandle();

    CKoFileHandle(const CKoFileHandle&) = delete;
    CKoFileHandle& operator=(const CKoFileHandle&) = delete;

    /// Closes what is open, then opens a file.
    /// \param flags the platform's (`O_RDONLY`, `O_CREAT`, ...), passed on as they are. A new file may be
    /// read, written and executed by everybody, except for what the process's file-creation mask takes away.
    bool open(const CKoPath& path, unsigned int flags);

    /// Closes the file; true when it is closed already. What false means: the platform refused, and the
    /// handle keeps the descriptor; or the platform reports that written data is lost (`EIO`, `ENOSPC`,
    /// `EDQUOT`), and the descriptor is gone.
    bool close();

    /// Reads up to `size` bytes by one call of the platform.
    /// \return the bytes read; 0 at the end of the file with `errno` 0, when the time is up with `errno`
    /// `ETIMEDOUT`; -1 on failure (`EINVAL`: null for a buffer that has a size).
    int read(void* buffer, unsigned int size, int timeoutMs);

    /// Writes up to `size` bytes by one call of the platform. \return as read, with the bytes written.
    int write(const void* buffer, unsigned int size, int timeoutMs);

    /// Writes all bytes, in as many calls as it takes before the one deadline.
    /// \return whether all were written; if not, part of them may have been. A platform that takes nothing
    /// and reports no error ends the call, too.
    bool writeN(const void* buffer, unsigned int size, int timeoutMs);

    /// Waits until what was written has reached the device.
    bool sync();

    /// The position in bytes from the start, or -1.
    long long tell();

    /// Moves the position; it may lie behind the end of the file. SEEK_DIRECTION_NONE is `EINVAL`.
    bool seek(long long offset, SeekDirection origin);

    /// Cuts the file to `size` bytes, or extends it by zeros; the position stays.
    bool truncate(unsigned long long size);

    bool isOpen() const noexcept { return m_descriptor != -1; }

    /// The descriptor, still owned by the handle; -1 when it is closed.
    int getDescriptor() const noexcept { return m_descriptor; }

private:
    int m_descriptor;
};

#pragma once

/// \file
/// A file read and written through a buffered stream of the C library, for many small pieces. Transfers that
/// have a limit in time, positioning and truncation are what CKoFileHandle is for.
///
///     CKoFILEDevice file;
///     if (file.open(path, O_WRONLY | O_CREAT | O_TRUNC)) { file.write(line, length, -1); }
///     const bool isComplete = file.close();

#include "pf/base/KoExport.h"
#include "pf/util/CKoPath.h"

#include <cstddef>
#include <cstdio>

/// Owns a stream, and closes it at the end. Two words; not copyable.
///
/// What is written may stay in the stream's buffer: whether it arrived is known when sync or close has
/// succeeded. Calls block as long as the file does, and no call fails because of a signal. Failures leave
/// their reason in `errno`. One object is used by one thread at a time.
class KO_EXPORT CKoFILEDevice
{
public:
    /// A closed device.
    CKoFILEDevice() noexcept
        : m_stream(nullptr)
        , m_opened(false)
    {
    }

    /// Closes the stream. A failure is logged; `errno` is preserved.
    ~CKoFILEDevice();

    CKoFILEDevice(const CKoFILEDevice&) = delete;
    CKoFILEDevice& operator=(const CKoFILEDevice&) = delete;

    /// Closes what is open (a failure is logged), then opens a file.
    ///
    /// \param flags the platform's. `O_RDONLY` reads. `O_TRUNC`, `O_APPEND` and `O_CREAT`, looked for in this
    /// order, need `O_WRONLY` or `O_RDWR`; the first and the last of them empty the file or create it, the
    /// second writes at its end. Everything else opens an existing file for reading and writing.
    bool open(const CKoPath& path, unsigned int flags);

    /// Reads `size` bytes, fewer only at the end of the file. `timeoutMs` is not used.
    /// \return the bytes read, 0 at the end of the file; -1 on failure. Without a stream it is reported as an
    /// assertion. A null buffer of size 0 gives 0; `EINVAL`: a null buffer that has a size, or more bytes
    /// than the result can count. A buffer of size 0 gives -1.
    int read(void* buffer, unsigned int size, int timeoutMs);

    /// Writes all bytes into the stream. \return `size`, or -1 as read; part of the bytes may be written
    /// then.
    int write(const void* buffer, unsigned int size, int timeoutMs);

    /// Hands over to the platform what is in the buffer. Without a stream it is reported as an assertion.
    bool sync();

    /// Hands over what is in the buffer and closes the stream. True when it is closed already. After false
    /// the stream is lost and bytes that were written may be, too; all further calls but open fail with
    /// `EBADF`.
    bool close();

private:
    bool isUsable() const;
    void closeFormer();
    template <class Transfer>
    int transferAll(std::size_t size, Transfer transfer);

    FILE* m_stream;
    bool m_opened; ///< false while the stream is one whose close has failed
};

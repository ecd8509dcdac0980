#include "pf/util/CKoFileHandle.h"

#include "pf/oswrapper/KoErrnoGuard.h"
#include "pf/oswrapper/KoError.h"
#include "pf/oswrapper/SKoKernelTimer.h"
#include "pf/platform/KoPlatformClose.h"
#include "pf/platform/KoPlatformFile.h"
#include "pf/platform/KoPlatformRetry.h"
#include "pf/util/TKoErrnoSafeFunction.h"

#include <algorithm>
#include <cerrno>
#include <climits>

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

static_assert(sizeof(CKoFileHandle) == sizeof(int), "just the descriptor");
static_assert(sizeof(off_t) == 8, "positions beyond 4 GiB");
static_assert(SEEK_DIRECTION_BEGIN == SEEK_SET && SEEK_DIRECTION_CURRENT == SEEK_CUR &&
                  SEEK_DIRECTION_END == SEEK_END,
              "directions are handed to the platform as they are");

namespace
{

constexpr int CLOSED = -1;
constexpr int NO_LIMIT_MS = -1;
constexpr mode_t NEW_FILE_MODE = 0777;

/// The one deadline of an operation, over all of its transfers.
class Transfers
{
public:
    explicit Transfers(int timeoutMs)
        : m_timer(timeoutMs)
        , m_isLimited(timeoutMs != NO_LIMIT_MS)
    {
    }

    /// Makes a transfer, again while signals interrupt it. \return its result; -1 with `ETIMEDOUT` when the
    /// time is up.
    template <class Transfer>
    ssize_t make(Transfer transfer)
    {
        return m_isLimited ? KoPlatform::repeatInterrupted([&] { return makeInTime(transfer); })
                           : KoPlatform::repeatInterrupted(transfer);
    }

private:
    template <class Transfer>
    ssize_t makeInTime(Transfer transfer)
    {
        const ssize_t count = m_timer.start() ? transfer() : -1;
        if (count < 0 && errno == EINTR && m_timer.timeoutOccurred())
        {
            errno = ETIMEDOUT;
        }
        return count;
    }

    SKoKernelTimer m_timer;
    bool m_isLimited;
};

bool isBuffer(const void* buffer, unsigned int size)
{
    if (buffer == nullptr && size != 0U)
    {
        errno = EINVAL;
        return false;
    }
    return true;
}

/// The most that one transfer is asked for: its count has to fit into an int.
unsigned int pieceOf(unsigned int size)
{
    constexpr unsigned int LARGEST = INT_MAX;
    return std::min(size, LARGEST);
}

/// What a caller is told: 0 is the end of the file or the end of the time, and `errno` says which.
int resultOf(ssize_t count)
{
    if (count == 0)
    {
        errno = 0;
    }
    const bool isTimeout = count < 0 && errno == ETIMEDOUT;
    return isTimeout ? 0 : static_cast<int>(count);
}

} // namespace

CKoFileHandle::CKoFileHandle() noexcept
    : m_descriptor(CLOSED)
{
}

CKoFileHandle::CKoFileHandle(const CKoPath& path, unsigned int flags)
    : m_descriptor(CLOSED)
{
    open(path, flags);
}

CKoFileHandle::~CKoFileHandle()
{
    const KoErrnoGuard guard;
    if (!close())
    {
        KoError::reportOSError(0, KoSyslog::Error, errno, "closing file failed");
    }
}

bool CKoFileHandle::open(const CKoPath& path, unsigned int flags)
{
    close();
    const CKoString text = path.getOSSpecific();
    m_descriptor =
        TKoErrnoSafeFunction(KoPlatform::open)(text.c_str(), static_cast<int>(flags), NEW_FILE_MODE);
    return isOpen();
}

bool CKoFileHandle::close()
{
    if (!isOpen())
    {
        return true;
    }
    errno = 0;
    const bool isClosed = KoPlatform::close(m_descriptor) == 0;
    if (isClosed || errno != EBADF)
    {
        m_descriptor = CLOSED;
    }
    return isClosed;
}

int CKoFileHandle::read(void* buffer, unsigned int size, int timeoutMs)
{
    if (!isBuffer(buffer, size))
    {
        return -1;
    }
    return resultOf(
        Transfers(timeoutMs).make([&] { return KoPlatform::read(m_descriptor, buffer, pieceOf(size)); }));
}

int CKoFileHandle::write(const void* buffer, unsigned int size, int timeoutMs)
{
    if (!isBuffer(buffer, size))
    {
        return -1;
    }
    return resultOf(
        Transfers(timeoutMs).make([&] { return KoPlatform::write(m_descriptor, buffer, pieceOf(size)); }));
}

bool CKoFileHandle::writeN(const void* buffer, unsigned int size, int timeoutMs)
{
    if (!isBuffer(buffer, size))
    {
        return false;
    }
    Transfers transfers(timeoutMs);
    const char* const bytes = static_cast<const char*>(buffer);
    unsigned int written = 0U;
    ssize_t count = 0;
    while (written < size)
    {
        count = transfers.make(
            [&] { return KoPlatform::write(m_descriptor, bytes + written, pieceOf(size - written)); });
        if (count <= 0)
        {
            break; // a device that takes nothing would be asked for ever
        }
        written += static_cast<unsigned int>(count);
    }
    if (written == 0U && count == 0)
    {
        errno = 0;
    }
    return written == size;
}

bool CKoFileHandle::sync()
{
    return TKoErrnoSafeFunction(::fsync)(m_descriptor) == 0;
}

long long CKoFileHandle::tell()
{
    return TKoErrnoSafeFunction(::lseek)(m_descriptor, 0, SEEK_CUR);
}

bool CKoFileHandle::seek(long long offset, SeekDirection origin)
{
    if (origin < SEEK_DIRECTION_BEGIN || origin > SEEK_DIRECTION_END)
    {
        errno = EINVAL; // other numbers have meanings of their own for the platform
        return false;
    }
    return TKoErrnoSafeFunction(::lseek)(m_descriptor, offset, static_cast<int>(origin)) != -1;
}

bool CKoFileHandle::truncate(unsigned long long size)
{
    return TKoErrnoSafeFunction(::ftruncate)(m_descriptor, static_cast<off_t>(size)) == 0;
}

#include "pf/util/CKoFILEDevice.h"

#include "pf/oswrapper/CKoAsserter.h"
#include "pf/oswrapper/KoErrnoGuard.h"
#include "pf/oswrapper/KoError.h"
#include "pf/platform/KoPlatformStream.h"

#include <cerrno>
#include <climits>
#include <cstddef>
#include <fcntl.h>

namespace
{

static_assert(sizeof(CKoFILEDevice) == 2 * sizeof(void*), "a stream and a flag");

// What reports name is part of the interface of this class.
constexpr char FILE_NAME[] = "CKoFILEDevice";
constexpr unsigned int SYNC_LINE = 93;
constexpr unsigned int WRITE_LINE = 108;
constexpr unsigned int READ_LINE = 156;

/// \return the one of the two modes that the access asks for; one that no stream has when it asks for
/// neither.
const char* modeFor(unsigned int flags, const char* writing, const char* updating)
{
    const unsigned int access = flags & static_cast<unsigned int>(O_ACCMODE);
    if (access == static_cast<unsigned int>(O_WRONLY))
    {
        return writing;
    }
    return access == static_cast<unsigned int>(O_RDWR) ? updating : "b";
}

const char* modeOf(unsigned int flags)
{
    if (flags == 0U)
    {
        return "rb";
    }
    if ((flags & static_cast<unsigned int>(O_TRUNC)) != 0U)
    {
        return modeFor(flags, "wb", "w+b");
    }
    if ((flags & static_cast<unsigned int>(O_APPEND)) != 0U)
    {
        return modeFor(flags, "ab", "a+b");
    }
    if ((flags & static_cast<unsigned int>(O_CREAT)) != 0U)
    {
        return modeFor(flags, "wb", "w+b");
    }
    return "r+b";
}

/// What a transfer of these arguments gives without the stream being asked: 0 or -1, or `size` when the
/// stream is to be asked.
int checkArguments(const void* buffer, unsigned int size)
{
    if (size == 0U)
    {
        return buffer == nullptr ? 0 : -1;
    }
    if (buffer == nullptr || size > static_cast<unsigned int>(INT_MAX))
    {
        errno = EINVAL;
        return -1;
    }
    return static_cast<int>(size);
}

} // namespace

CKoFILEDevice::~CKoFILEDevice()
{
    const KoErrnoGuard guard;
    closeFormer();
}

bool CKoFILEDevice::open(const CKoPath& path, unsigned int flags)
{
    closeFormer();
    m_opened = true;
    m_stream = KoPlatform::openStream(path.getOSSpecific().c_str(), modeOf(flags));
    return m_stream != nullptr;
}

int CKoFILEDevice::read(void* buffer, unsigned int size, int)
{
    if (m_stream == nullptr)
    {
        doCheapAssert(READ_LINE, FILE_NAME);
        return -1;
    }
    const int expected = checkArguments(buffer, size);
    if (expected <= 0)
    {
        return expected;
    }
    char* const bytes = static_cast<char*>(buffer);
    return transferAll(size, [=](std::size_t done, std::size_t rest)
                       { return std::fread(bytes + done, 1, rest, m_stream); });
}

int CKoFILEDevice::write(const void* buffer, unsigned int size, int)
{
    if (m_stream == nullptr)
    {
        doCheapAssert(WRITE_LINE, FILE_NAME);
        return -1;
    }
    const int expected = checkArguments(buffer, size);
    if (expected <= 0)
    {
        return expected;
    }
    const char* const bytes = static_cast<const char*>(buffer);
    const int written = transferAll(size, [=](std::size_t done, std::size_t rest)
                                    { return std::fwrite(bytes + done, 1, rest, m_stream); });
    return written == expected ? written : -1;
}

bool CKoFILEDevice::sync()
{
    if (m_stream == nullptr)
    {
        doCheapAssert(SYNC_LINE, FILE_NAME);
        return false;
    }
    if (!isUsable())
    {
        return false;
    }
    const bool isSynchronised = std::fflush(m_stream) == 0;
    if (!isSynchronised)
    {
        std::clearerr(m_stream);
    }
    return isSynchronised;
}

bool CKoFILEDevice::close()
{
    if (m_stream == nullptr)
    {
        return true;
    }
    if (!isUsable())
    {
        return false;
    }
    if (std::fclose(m_stream) != 0)
    {
        m_opened = false;
        return false;
    }
    m_stream = nullptr;
    return true;
}

/// Whether the C library still knows the stream.
bool CKoFILEDevice::isUsable() const
{
    if (!m_opened)
    {
        errno = EBADF;
    }
    return m_opened;
}

/// Closes what was open before. Nobody is there to be told of a failure but the log.
void CKoFILEDevice::closeFormer()
{
    if (m_opened && !close())
    {
        KoError::reportOSError(0, KoSyslog::Error, errno, "closing file failed");
    }
}

/// Makes `transfer(done, rest)` until everything is transferred or nothing more comes. Each transfer is
/// judged by itself: the stream's memory of a failure is erased.
/// \return the bytes transferred, -1 on failure.
template <class Transfer>
int CKoFILEDevice::transferAll(std::size_t size, Transfer transfer)
{
    if (!isUsable())
    {
        return -1;
    }
    std::size_t done = 0;
    for (;;)
    {
        done += transfer(done, size - done);
        if (done == size || std::ferror(m_stream) == 0)
        {
            return static_cast<int>(done);
        }
        std::clearerr(m_stream);
        if (errno != EINTR)
        {
            return -1;
        }
    }
}

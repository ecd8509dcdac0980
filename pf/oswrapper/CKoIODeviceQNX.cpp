#include "pf/oswrapper/CKoIODevice.h"

#include "pf/oswrapper/CKoAsserter.h"
#include "pf/oswrapper/KoIODeviceServerRegistry.h"
#include "pf/oswrapper/KoOperatingSystem.h"
#include "pf/oswrapper/SKoKernelTimer.h"
#include "pf/platform/KoPlatformClose.h"
#include "pf/platform/KoPlatformFile.h"
#include "pf/platform/KoPlatformRetry.h"

#include <cerrno>
#include <iterator>
#include <type_traits>

#include <fcntl.h>
#include <unistd.h>

namespace
{

/// By AccessMode.
constexpr int OPEN_FLAGS[] = {O_RDONLY, O_RDONLY | O_CLOEXEC, O_WRONLY | O_CLOEXEC, O_RDWR | O_CLOEXEC};

constexpr unsigned int NULL_PATH_LINE = 111;

/// A call that is made again while it is interrupted, until its deadline at most.
template <class Call>
ssize_t callUntil(SKoKernelTimer& timer, Call call)
{
    for (;;)
    {
        const ssize_t result = timer.start() ? call() : -1;
        if (result >= 0 || errno != EINTR)
        {
            return result;
        }
        if (timer.timeoutOccurred())
        {
            errno = ETIMEDOUT;
            return -1;
        }
    }
}

template <class Call>
ssize_t makeCall(SKoKernelTimer& timer, int timeoutMs, Call call)
{
    return timeoutMs == -1 ? KoPlatform::repeatInterrupted(call) : callUntil(timer, call);
}

int codeOf(ssize_t result)
{
    if (result >= 0)
    {
        return CKoIODevice::NO_ERROR;
    }
    return errno == ETIMEDOUT ? CKoIODevice::TIMED_OUT : CKoIODevice::FAILED;
}

/// What read and write have in common. \param code receives the last-error code.
template <class Call>
int transfer(int timeoutMs, int& code, Call call)
{
    SKoKernelTimer timer(timeoutMs);
    if (timer.deadlineNs == 0ULL)
    {
        code = CKoIODevice::NO_ERROR; // the device is not to blame when the clock cannot be read
        return -1;
    }
    const ssize_t result = makeCall(timer, timeoutMs, call);
    code = codeOf(result);
    if (result >= 0 && timeoutMs != -1)
    {
        KoOperatingSystem::setLastError(0);
    }
    return code == CKoIODevice::TIMED_OUT ? 0 : static_cast<int>(result);
}

} // namespace

static_assert(sizeof(CKoIODevice) == 3 * sizeof(int), "code, descriptor and server's key");
static_assert(!std::is_polymorphic_v<CKoIODevice>, "a plain handle");

CKoIODevice::~CKoIODevice()
{
    if (m_descriptor != -1)
    {
        KoPlatform::close(m_descriptor);
    }
}

void CKoIODevice::duplicate(int descriptor)
{
    if (descriptor != -1)
    {
        m_descriptor = KoPlatform::repeatInterrupted([=] { return ::dup(descriptor); });
    }
    if (m_descriptor == -1)
    {
        m_lastError = FAILED;
    }
}

bool CKoIODevice::doOpen(const char* path, AccessMode mode)
{
    if (m_descriptor != -1)
    {
        m_lastError = FAILED;
        return false;
    }
    if (path == nullptr)
    {
        doCheapAssert(NULL_PATH_LINE, "CKoIODeviceQNX");
        m_lastError = FAILED;
        return false;
    }
    const bool isOpen = KoIODeviceServerRegistry::onOpen(m_serverHandle, path, mode);
    m_lastError = isOpen ? NO_ERROR : FAILED;
    return isBound() ? isOpen : openFile(path, mode);
}

bool CKoIODevice::openFile(const char* path, AccessMode mode)
{
    const auto index = static_cast<unsigned int>(mode);
    if (index >= std::size(OPEN_FLAGS))
    {
        KoOperatingSystem::setLastError(EINVAL);
    }
    else
    {
        m_descriptor = KoPlatform::open(path, OPEN_FLAGS[index]);
    }
    m_lastError = m_descriptor != -1 ? NO_ERROR : FAILED;
    return m_descriptor != -1;
}

bool CKoIODevice::close()
{
    if (isBound())
    {
        const bool isClosed = KoIODeviceServerRegistry::onClose(m_serverHandle);
        m_lastError = isClosed ? NO_ERROR : FAILED;
        if (isBound())
        {
            return isClosed;
        }
    }
    const bool isClosed = KoPlatform::close(m_descriptor) == 0 || errno == ENOSYS;
    m_descriptor = -1;
    m_lastError = isClosed ? NO_ERROR : FAILED;
    return isClosed;
}

int CKoIODevice::read(void* buffer, int size, int timeoutMs)
{
    if (isBound())
    {
        const int count = KoIODeviceServerRegistry::onRead(m_serverHandle, buffer, size, timeoutMs);
        if (isBound())
        {
            return count;
        }
    }
    return transfer(timeoutMs, m_lastError,
                    [&] { return KoPlatform::read(m_descriptor, buffer, static_cast<std::size_t>(size)); });
}

int CKoIODevice::write(const void* buffer, int size, int timeoutMs)
{
    if (isBound())
    {
        const int count = KoIODeviceServerRegistry::onWrite(m_serverHandle, buffer, size, timeoutMs);
        if (isBound())
        {
            return count;
        }
    }
    return transfer(timeoutMs, m_lastError,
                    [&] { return KoPlatform::write(m_descriptor, buffer, static_cast<std::size_t>(size)); });
}

bool CKoIODevice::devctl(int command, void* data, int size, int* info, int timeoutMs)
{
    if (isBound())
    {
        const bool isDone =
            KoIODeviceServerRegistry::onDevctl(m_serverHandle, command, data, size, info, timeoutMs);
        if (isBound())
        {
            KoOperatingSystem::setLastError(isDone ? 0 : -1);
            return isDone;
        }
    }
    SKoKernelTimer timer(timeoutMs);
    if (timer.deadlineNs == 0ULL)
    {
        m_lastError = FAILED;
        return false;
    }
    // As a call that tells its failure by the last error, which it leaves at 0 after success.
    const auto call = [&]
    {
        errno = KoPlatform::devctl(m_descriptor, command, data, static_cast<std::size_t>(size), info);
        return errno == 0 ? 0 : -1;
    };
    m_lastError = codeOf(makeCall(timer, timeoutMs, call));
    return m_lastError == NO_ERROR;
}

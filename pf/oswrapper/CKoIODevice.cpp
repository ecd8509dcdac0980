#include "pf/oswrapper/CKoIODevice.h"

#include "pf/oswrapper/KoIODeviceServerRegistry.h"

#include <cstddef>
#include <cstdio>

namespace
{

constexpr std::size_t PATH_SIZE = 1024;

} // namespace

const char* (*CKoIODevice::spDeviceIO2MountPointFunc)(const char*) = CKoIODevice::getMountPointNullImpl;

CKoIODevice::CKoIODevice()
    : m_lastError(NO_ERROR)
    , m_descriptor(-1)
    , m_serverHandle(-1)
{
}

CKoIODevice::CKoIODevice(const CKoIODevice& other)
    : m_lastError(NO_ERROR)
    , m_descriptor(-1)
    , m_serverHandle(other.m_serverHandle)
{
    if (isBound())
    {
        m_lastError = KoIODeviceServerRegistry::onDup(m_serverHandle) ? NO_ERROR : FAILED;
    }
    if (!isBound())
    {
        duplicate(other.m_descriptor);
    }
}

bool CKoIODevice::open(const char* name, AccessMode mode)
{
    return doOpen(getMountPoint(name), mode);
}

bool CKoIODevice::open(const char* mountPointName, const char* fileName, AccessMode mode)
{
    const char* const mountPoint = getMountPoint(mountPointName);
    if (mountPoint == nullptr || fileName == nullptr)
    {
        return doOpen(nullptr, mode);
    }
    char path[PATH_SIZE];
    const int length = std::snprintf(path, sizeof(path), "%s/%s", mountPoint, fileName);
    if (length < 0 || static_cast<std::size_t>(length) >= sizeof(path))
    {
        return false;
    }
    return doOpen(path, mode);
}

bool CKoIODevice::isOpened() const
{
    return isBound() ? KoIODeviceServerRegistry::onIsOpened(m_serverHandle) : m_descriptor != -1;
}

int CKoIODevice::getLastError() const
{
    return isBound() ? KoIODeviceServerRegistry::onGetLastError(m_serverHandle) : m_lastError;
}

const char* CKoIODevice::getMountPoint(const char* name)
{
    return spDeviceIO2MountPointFunc(name);
}

const char* CKoIODevice::getMountPointNullImpl(const char* name)
{
    return name;
}

bool CKoIODevice::isBound() const
{
    return m_serverHandle != -1;
}

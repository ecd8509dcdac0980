#pragma once

#include "pf/oswrapper/CKoIODevice.h"

/// A device made of code of this process: it registers itself under a path, and a CKoIODevice that is opened
/// with exactly that path is bound to it. For a stand-in that is never registered use CKoSimuIODeviceServer.
///
/// Operations are called from the threads that use the devices, one at a time in the whole process, while the
/// lock of the registry is held: a slow one holds up all servers. An operation must not open, close or use
/// a device that is bound to a server, nor register or unregister one.
///
/// A server is registered from this class's constructor to its destructor. Where other threads may use it
/// before the derived object is complete, or while it is being destroyed, construct it with
/// eUsageSimulation, call KoIODeviceServerRegistry::registerServer last in the derived constructor and
/// unRegisterServer first in the derived destructor.
class KO_EXPORT IKoIODeviceServer
{
public:
    enum eUsage
    {
        eUsageSimulation = 0, ///< never registered, so never called
        eUsageRegistered = 1
    };

    /// \param name the path that devices are opened with; copied.
    IKoIODeviceServer(eUsage usage, const char* name);
    IKoIODeviceServer(const IKoIODeviceServer&) = delete;
    IKoIODeviceServer& operator=(const IKoIODeviceServer&) = delete;

    /// The last-error code of the device: CKoIODevice::LastError.
    virtual int onGetLastError() = 0;
    /// A device is opened with the name of this server. \return whether it is open; it is bound in any case.
    virtual bool onOpen(const char* path, CKoIODevice::AccessMode mode) = 0;
    /// A bound device is copied. \return whether the copy is usable; false unless overridden.
    virtual bool onDup();
    virtual bool onIsOpened() = 0;
    virtual bool onClose() = 0;
    /// \return the bytes read, negative on failure.
    virtual int onRead(void* buffer, int size, int timeoutMs) = 0;
    /// \return the bytes written, negative on failure.
    virtual int onWrite(const void* buffer, int size, int timeoutMs) = 0;
    virtual bool onDevctl(int command, void* data, int size, int* info, int timeoutMs) = 0;

    /// Unregisters the server; devices that are bound to it find it gone.
    virtual ~IKoIODeviceServer();
};

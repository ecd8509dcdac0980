#pragma once

#include "pf/base/KoExport.h"

/// A device or file of the operating system, opened by its path, or a server of this process that stands in
/// for one: an open asks the registry (KoIODeviceServerRegistry) first whether a server goes by that path.
/// For files with positions use CKoFileHandle.
///
///     CKoIODevice port;
///     if (port.open("/dev/ser1", CKoIODevice::READ_WRITE_CLOEXEC)) { port.write(text, length, 100); }
///
/// Three integers: the last-error code, the descriptor and the key of the server that the device is bound to.
/// A device stays bound when it is closed, until its server goes; then it is an unopened one. One thread at a
/// time uses a device. Calls of a bound device hold the lock that all servers of the process share.
///
/// Time-outs are milliseconds; -1 waits without limit, 0 does not wait. Interruptions by signals are absorbed
/// and never extend a time-out.
class KO_EXPORT CKoIODevice
{
public:
    /// How a device is opened. With CLOEXEC started programs do not inherit the descriptor.
    enum AccessMode : int
    {
        READ_ONLY,
        READ_ONLY_CLOEXEC,
        WRITE_ONLY_CLOEXEC,
        READ_WRITE_CLOEXEC
    };

    /// The last-error codes.
    enum LastError
    {
        NO_ERROR = 0,
        TIMED_OUT = 1,
        FAILED = 3
    };

    /// An unopened device.
    CKoIODevice();

    /// A second device on the same open file (by `dup`, so started programs inherit it) or on the same
    /// server, which is told by onDup. The code of the copy is FAILED when `other` is not open or the server
    /// refused; a copy that the server refused is bound all the same.
    CKoIODevice(const CKoIODevice& other);
    CKoIODevice& operator=(const CKoIODevice&) = delete;

    /// Closes the descriptor. A server is not told.
    ~CKoIODevice();

    /// Opens the device at the mount point of `name`.
    /// \return whether it is open, or what the server says; FAILED if not, with the reason in the last error
    /// of the system. A device that is open, and a mode that does not exist, are refused. A null path is
    /// reported as an assertion.
    bool open(const char* name, AccessMode mode);

    /// Opens "mount point of `mountPointName`/`fileName`". \return as above; false without any change when
    /// that has 1024 bytes or more.
    bool open(const char* mountPointName, const char* fileName, AccessMode mode);

    /// Opens a path as it stands. \return as open.
    bool doOpen(const char* path, AccessMode mode);

    /// Closes the descriptor, which is gone whatever the result, or has the server close.
    /// \return whether that worked; false, with FAILED, for a device that is not open.
    bool close();

    /// Whether there is a descriptor, or what the server says.
    bool isOpened() const;

    /// The code of the last call that sets it, or what the server says; FAILED when asked for a server that
    /// has gone.
    int getLastError() const;

    /// Reads what is there, up to `size` bytes, and waits until something is.
    /// \return the bytes read, 0 at the end; 0 with TIMED_OUT when nothing came; negative with FAILED and the
    /// reason in the system's last error. A server's result is passed on, and the code is the server's.
    int read(void* buffer, int size, int timeoutMs);

    /// Writes up to `size` bytes. \return the bytes written, fewer than `size` when the time was over before;
    /// the rest as for read.
    int write(const void* buffer, int size, int timeoutMs);

    /// Sends a command to the device's driver (KoPlatform::devctl). Only interruptions are bounded by the
    /// time-out where the driver itself delays its answer.
    /// \param info receives the driver's answer; may be null. \return whether it succeeded; the code and the
    /// system's last error tell the reason. A server's refusal leaves -1 in the system's last error.
    bool devctl(int command, void* data, int size, int* info, int timeoutMs);

    /// The mount point of a device name: what the hook makes of it.
    static const char* getMountPoint(const char* name);

    /// The hook that changes nothing.
    static const char* getMountPointNullImpl(const char* name);

    /// The hook that maps device names to mount points; never null. To be replaced before devices are opened.
    static const char* (*spDeviceIO2MountPointFunc)(const char* name);

private:
    bool isBound() const;
    bool openFile(const char* path, AccessMode mode);
    void duplicate(int descriptor);

    int m_lastError;
    int m_descriptor;           ///< -1 without one
    mutable int m_serverHandle; ///< -1 when not bound; whoever finds the server gone drops it
};

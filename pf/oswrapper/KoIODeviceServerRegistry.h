#pragma once

#include "pf/oswrapper/IKoIODeviceServer.h"

/// The device servers of the process, each under a name and a key. Keys are counted from 0 and never used
/// again.
///
/// One lock guards the registry and is held during every call into a server. Any thread may call. An
/// operation of a server must not; one that does is let through all the same.
///
/// The functions that take a key call the server's operation of the same name and return its result. A key
/// whose server has gone becomes -1; for that, for -1 and for -2 they answer -1 (reading, writing), FAILED
/// (the error code) or false.
namespace KoIODeviceServerRegistry
{

/// Gives the server the next key. Ignored unless the usage is eUsageRegistered. \param name copied.
KO_EXPORT void registerServer(IKoIODeviceServer::eUsage usage, const char* name, IKoIODeviceServer& server);

/// Removes the server, the newest entry of it first; ignored when there is none. Waits for a call into a
/// server that is under way.
KO_EXPORT void unRegisterServer(IKoIODeviceServer& server);

/// Looks the path up among the names, the newest first, and calls that server.
/// \param handle receives the key, -1 when no server has that name. \return what the server says, else false.
KO_EXPORT bool onOpen(int& handle, const char* path, CKoIODevice::AccessMode mode);

KO_EXPORT int onGetLastError(int& handle);
KO_EXPORT bool onDup(int& handle);
KO_EXPORT bool onIsOpened(int& handle);
KO_EXPORT bool onClose(int& handle);
KO_EXPORT int onRead(int& handle, void* buffer, int size, int timeoutMs);
KO_EXPORT int onWrite(int& handle, const void* buffer, int size, int timeoutMs);
KO_EXPORT bool onDevctl(int& handle, int command, void* data, int size, int* info, int timeoutMs);

} // namespace KoIODeviceServerRegistry

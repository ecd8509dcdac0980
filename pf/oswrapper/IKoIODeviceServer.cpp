#include "pf/oswrapper/IKoIODeviceServer.h"

#include "pf/oswrapper/KoIODeviceServerRegistry.h"

static_assert(sizeof(IKoIODeviceServer) == sizeof(void*), "no data of its own");

IKoIODeviceServer::IKoIODeviceServer(eUsage usage, const char* name)
{
    KoIODeviceServerRegistry::registerServer(usage, name, *this);
}

bool IKoIODeviceServer::onDup()
{
    return false;
}

IKoIODeviceServer::~IKoIODeviceServer()
{
    KoIODeviceServerRegistry::unRegisterServer(*this);
}

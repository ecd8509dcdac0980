#include "pf/oswrapper/CKoSimuIODeviceServer.h"

CKoSimuIODeviceServer::CKoSimuIODeviceServer(const char* name)
    : IKoIODeviceServer(eUsageSimulation, name)
{
}

CKoSimuIODeviceServer::~CKoSimuIODeviceServer() = default;

#pragma once

#include "pf/oswrapper/IKoIODeviceServer.h"

/// A device server that is never registered: its operations are called by whoever holds the object. For
/// simulations that share their code with a real server.
class KO_EXPORT CKoSimuIODeviceServer : public IKoIODeviceServer
{
public:
    explicit CKoSimuIODeviceServer(const char* name);
    ~CKoSimuIODeviceServer() override;
};

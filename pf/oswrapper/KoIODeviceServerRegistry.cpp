#include "pf/oswrapper/KoIODeviceServerRegistry.h"

#include "pf/base/CKoString.h"
#include "pf/containers/TKoMap.h"
#include "pf/oswrapper/CKoCriticalSection.h"
#include "pf/oswrapper/KoLoadOrder.h"

#include <atomic>
#include <climits>
#include <cstring>

namespace
{

/// Keys that no server has: of a device that is not bound, and one that others may use to say the like.
constexpr int NO_SERVER = -1;
constexpr int NO_SERVER_EITHER = -2;

using ServerMap = TKoMap<int, TKoPair<CKoString, IKoIODeviceServer*>, TKoBefore<int>>;

struct SRegistry
{
    ServerMap servers;
    CKoCriticalSection lock;
    unsigned int nextHandle = 0U;
};

/// The registry without a destructor: servers that are static objects may go later.
union ULastingRegistry
{
    ULastingRegistry()
        : registry()
    {
    }
    ~ULastingRegistry() {}

    SRegistry registry;
};

ULastingRegistry sLasting KO_INIT_ORDER(KoLoadOrder::DEVICE_SERVER_REGISTRY);

/// Whether there is any server, to be asked without the lock. Relaxed: who counts on a server that another
/// thread has registered has heard of it from that thread; the map is read under the lock only.
std::atomic<bool> sHasServers{false};

/// Holds the registry for the length of a scope, unless the thread does already, in a server's operation.
class RegistryAccess
{
public:
    RegistryAccess()
        : m_isNested(sLasting.registry.lock.isHeldByCaller())
    {
        if (!m_isNested)
        {
            sLasting.registry.lock.lock();
        }
    }
    ~RegistryAccess()
    {
        if (!m_isNested)
        {
            sLasting.registry.lock.unlock();
        }
    }
    RegistryAccess(const RegistryAccess&) = delete;
    RegistryAccess& operator=(const RegistryAccess&) = delete;

    SRegistry& operator*() const { return sLasting.registry; }
    SRegistry* operator->() const { return &sLasting.registry; }

private:
    const bool m_isNested;
};

/// \return the server of the key; null, with the key dropped, when it has gone.
IKoIODeviceServer* findServer(const SRegistry& registry, int& handle)
{
    if (handle == NO_SERVER || handle == NO_SERVER_EITHER)
    {
        return nullptr;
    }
    const int index = registry.servers.find(handle);
    if (index < 0)
    {
        handle = NO_SERVER;
        return nullptr;
    }
    return registry.servers.get(index)->second.second;
}

/// Calls the key's server. \return its result, or `otherwise` without one.
template <class Result, class Call>
Result callServer(int& handle, Result otherwise, Call call)
{
    const RegistryAccess registry;
    IKoIODeviceServer* const server = findServer(*registry, handle);
    return server != nullptr ? call(*server) : otherwise;
}

/// The entry that a condition holds for, the newest first; the end without one.
template <class Condition>
ServerMap::iterator findNewest(ServerMap& servers, Condition condition)
{
    for (auto entry = servers.end(); entry != servers.begin();)
    {
        --entry;
        if (condition(entry->second))
        {
            return entry;
        }
    }
    return servers.end();
}

} // namespace

namespace KoIODeviceServerRegistry
{

void registerServer(IKoIODeviceServer::eUsage usage, const char* name, IKoIODeviceServer& server)
{
    if (usage != IKoIODeviceServer::eUsageRegistered)
    {
        return;
    }
    const RegistryAccess registry;
    if (registry->nextHandle > static_cast<unsigned int>(INT_MAX))
    {
        return; // keys are never used again, and all have been
    }
    const auto handle = static_cast<int>(registry->nextHandle++);
    registry->servers.insert(handle, TKoPair<CKoString, IKoIODeviceServer*>(name, &server));
    sHasServers.store(true, std::memory_order_relaxed);
}

void unRegisterServer(IKoIODeviceServer& server)
{
    if (!sHasServers.load(std::memory_order_relaxed))
    {
        return;
    }
    const RegistryAccess registry;
    ServerMap& servers = registry->servers;
    const auto entry = findNewest(servers, [&](const auto& named) { return named.second == &server; });
    if (entry == servers.end())
    {
        return;
    }
    servers.erase(entry);
    if (servers.empty())
    {
        ServerMap().swap(servers);
        sHasServers.store(false, std::memory_order_relaxed);
    }
}

bool onOpen(int& handle, const char* path, CKoIODevice::AccessMode mode)
{
    handle = NO_SERVER;
    if (path == nullptr || !sHasServers.load(std::memory_order_relaxed))
    {
        return false;
    }
    const RegistryAccess registry;
    const auto hasName = [=](const auto& named) { return std::strcmp(named.first.c_str(), path) == 0; };
    const auto entry = findNewest(registry->servers, hasName);
    if (entry == registry->servers.end())
    {
        return false;
    }
    handle = entry->first;
    return entry->second.second->onOpen(path, mode);
}

int onGetLastError(int& handle)
{
    constexpr int FAILED = CKoIODevice::FAILED;
    return callServer(handle, FAILED, [](IKoIODeviceServer& server) { return server.onGetLastError(); });
}

bool onDup(int& handle)
{
    return callServer(handle, false, [](IKoIODeviceServer& server) { return server.onDup(); });
}

bool onIsOpened(int& handle)
{
    return callServer(handle, false, [](IKoIODeviceServer& server) { return server.onIsOpened(); });
}

bool onClose(int& handle)
{
    return callServer(handle, false, [](IKoIODeviceServer& server) { return server.onClose(); });
}

int onRead(int& handle, void* buffer, int size, int timeoutMs)
{
    return callServer(handle, -1,
                      [=](IKoIODeviceServer& server) { return server.onRead(buffer, size, timeoutMs); });
}

int onWrite(int& handle, const void* buffer, int size, int timeoutMs)
{
    return callServer(handle, -1,
                      [=](IKoIODeviceServer& server) { return server.onWrite(buffer, size, timeoutMs); });
}

bool onDevctl(int& handle, int command, void* data, int size, int* info, int timeoutMs)
{
    return callServer(handle, false,
                      [=](IKoIODeviceServer& server)
                      { return server.onDevctl(command, data, size, info, timeoutMs); });
}

} // namespace KoIODeviceServerRegistry

// VelmoVpnAgentProxy: the console's handle on the local agent's methods.
//
// One RPC client per method of the agent, declared in the agent's order; each
// method blocks the calling fiber or thread for at most its timeout and
// returns false on any failure, with the reason in lastError(method). The
// browser recognises the agent by its two mandatory methods, createTun and
// closeTun. A proxy belongs to the thread that made it (the console's main
// thread); calls may come from fibers of that thread's loop.
#pragma once

#include <memory>

#include "core/types/KyList.h"
#include "core/types/KyString.h"
#include "ipc/ProxyObjectBase.h"
#include "ipc/RpcMethodClient.h"

/// Proxy of the agent "VelmoVpnAgent".
class VelmoVpnAgentProxy : public ky::ipc::ProxyObjectBase {
public:
    /// The console's default timeout for agent calls, in milliseconds.
    static constexpr int kDefaultTimeoutMs = 2000;

    VelmoVpnAgentProxy(const KyString& domain, const KyString& object, const KyString& clientName);
    ~VelmoVpnAgentProxy() override;

    bool createTun(int timeoutMs = kDefaultTimeoutMs);
    bool closeTun(int timeoutMs = kDefaultTimeoutMs);
    bool connectWs(int timeoutMs = kDefaultTimeoutMs);
    bool disconnectWs(int timeoutMs = kDefaultTimeoutMs);
    bool clearLog(int timeoutMs = kDefaultTimeoutMs);
    bool tunIsOpen(int timeoutMs = kDefaultTimeoutMs);
    bool wsIsConnected(int timeoutMs = kDefaultTimeoutMs);
    bool setRemoteConfig(const KyString& key, const KyString& value, int timeoutMs = kDefaultTimeoutMs);
    bool loginUser(const KyString& baseUrl, const KyString& email, const KyString& password,
                   int timeoutMs = kDefaultTimeoutMs);
    bool logoutUser(int timeoutMs = kDefaultTimeoutMs);
    bool refreshVpnCatalog(int timeoutMs = kDefaultTimeoutMs);
    bool refreshVpnEndpoints(const KyString& hotspotId, int timeoutMs = kDefaultTimeoutMs);
    bool setInspectedHotspot(const KyString& hotspotId, int timeoutMs = kDefaultTimeoutMs);
    bool setEndpointVpnState(const KyString& hotspotId, const KyString& clientId, bool enabled,
                             int timeoutMs = kDefaultTimeoutMs);
    bool connectHotspot(const KyString& hotspotId, int timeoutMs = kDefaultTimeoutMs);
    bool disconnectHotspot(int timeoutMs = kDefaultTimeoutMs);
    bool requestShutdown(int timeoutMs = 1500);

    /// The last error text of one method's client ("rpc: timeout", ...), empty after a success.
    KyString lastError(const KyString& method) const;

    /// The methods that make a remote object an agent: createTun and closeTun.
    static void kyIpcRemoteAppendAllSpecs_(KyList<ky::ipc::RpcRequestSpec>& specs);

private:
    struct Clients;
    std::unique_ptr<Clients> clients_;
};

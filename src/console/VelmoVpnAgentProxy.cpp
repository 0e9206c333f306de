// VelmoVpnAgentProxy: seventeen method clients in the agent's order.
#include "console/VelmoVpnAgentProxy.h"

using ky::ipc::RpcMethodClient;

struct VelmoVpnAgentProxy::Clients {
    Clients(const KyString& d, const KyString& o, const KyString& c)
        : createTun(d, o, "createTun", c),
          closeTun(d, o, "closeTun", c),
          connectWs(d, o, "connectWs", c),
          disconnectWs(d, o, "disconnectWs", c),
          clearLog(d, o, "clearLog", c),
          tunIsOpen(d, o, "tunIsOpen", c),
          wsIsConnected(d, o, "wsIsConnected", c),
          setRemoteConfig(d, o, "setRemoteConfig", c),
          loginUser(d, o, "loginUser", c),
          logoutUser(d, o, "logoutUser", c),
          refreshVpnCatalog(d, o, "refreshVpnCatalog", c),
          refreshVpnEndpoints(d, o, "refreshVpnEndpoints", c),
          setInspectedHotspot(d, o, "setInspectedHotspot", c),
          setEndpointVpnState(d, o, "setEndpointVpnState", c),
          connectHotspot(d, o, "connectHotspot", c),
          disconnectHotspot(d, o, "disconnectHotspot", c),
          requestShutdown(d, o, "requestShutdown", c) {}

    RpcMethodClient<bool> createTun;
    RpcMethodClient<bool> closeTun;
    RpcMethodClient<bool> connectWs;
    RpcMethodClient<bool> disconnectWs;
    RpcMethodClient<bool> clearLog;
    RpcMethodClient<bool> tunIsOpen;
    RpcMethodClient<bool> wsIsConnected;
    RpcMethodClient<bool, KyString, KyString> setRemoteConfig;
    RpcMethodClient<bool, KyString, KyString, KyString> loginUser;
    RpcMethodClient<bool> logoutUser;
    RpcMethodClient<bool> refreshVpnCatalog;
    RpcMethodClient<bool, KyString> refreshVpnEndpoints;
    RpcMethodClient<bool, KyString> setInspectedHotspot;
    RpcMethodClient<bool, KyString, KyString, bool> setEndpointVpnState;
    RpcMethodClient<bool, KyString> connectHotspot;
    RpcMethodClient<bool> disconnectHotspot;
    RpcMethodClient<bool> requestShutdown;
};

VelmoVpnAgentProxy::VelmoVpnAgentProxy(const KyString& domain, const KyString& object, const KyString& clientName)
    : ProxyObjectBase(domain, object, clientName), clients_(std::make_unique<Clients>(domain, object, clientName)) {}

VelmoVpnAgentProxy::~VelmoVpnAgentProxy() = default;

bool VelmoVpnAgentProxy::createTun(int t) { return clients_->createTun.call(t); }
bool VelmoVpnAgentProxy::closeTun(int t) { return clients_->closeTun.call(t); }
bool VelmoVpnAgentProxy::connectWs(int t) { return clients_->connectWs.call(t); }
bool VelmoVpnAgentProxy::disconnectWs(int t) { return clients_->disconnectWs.call(t); }
bool VelmoVpnAgentProxy::clearLog(int t) { return clients_->clearLog.call(t); }
bool VelmoVpnAgentProxy::tunIsOpen(int t) { return clients_->tunIsOpen.call(t); }
bool VelmoVpnAgentProxy::wsIsConnected(int t) { return clients_->wsIsConnected.call(t); }
bool VelmoVpnAgentProxy::setRemoteConfig(const KyString& key, const KyString& value, int t) {
    return clients_->setRemoteConfig.call(key, value, t);
}
bool VelmoVpnAgentProxy::loginUser(const KyString& baseUrl, const KyString& email, const KyString& password, int t) {
    return clients_->loginUser.call(baseUrl, email, password, t);
}
bool VelmoVpnAgentProxy::logoutUser(int t) { return clients_->logoutUser.call(t); }
bool VelmoVpnAgentProxy::refreshVpnCatalog(int t) { return clients_->refreshVpnCatalog.call(t); }
bool VelmoVpnAgentProxy::refreshVpnEndpoints(const KyString& id, int t) {
    return clients_->refreshVpnEndpoints.call(id, t);
}
bool VelmoVpnAgentProxy::setInspectedHotspot(const KyString& id, int t) {
    return clients_->setInspectedHotspot.call(id, t);
}
bool VelmoVpnAgentProxy::setEndpointVpnState(const KyString& hotspotId, const KyString& clientId, bool enabled,
                                             int t) {
    return clients_->setEndpointVpnState.call(hotspotId, clientId, enabled, t);
}
bool VelmoVpnAgentProxy::connectHotspot(const KyString& id, int t) { return clients_->connectHotspot.call(id, t); }
bool VelmoVpnAgentProxy::disconnectHotspot(int t) { return clients_->disconnectHotspot.call(t); }
bool VelmoVpnAgentProxy::requestShutdown(int t) { return clients_->requestShutdown.call(t); }

KyString VelmoVpnAgentProxy::lastError(const KyString& method) const {
    const Clients& c = *clients_;
    if (method == "createTun") return c.createTun.lastError();
    if (method == "closeTun") return c.closeTun.lastError();
    if (method == "connectWs") return c.connectWs.lastError();
    if (method == "disconnectWs") return c.disconnectWs.lastError();
    if (method == "clearLog") return c.clearLog.lastError();
    if (method == "tunIsOpen") return c.tunIsOpen.lastError();
    if (method == "wsIsConnected") return c.wsIsConnected.lastError();
    if (method == "setRemoteConfig") return c.setRemoteConfig.lastError();
    if (method == "loginUser") return c.loginUser.lastError();
    if (method == "logoutUser") return c.logoutUser.lastError();
    if (method == "refreshVpnCatalog") return c.refreshVpnCatalog.lastError();
    if (method == "refreshVpnEndpoints") return c.refreshVpnEndpoints.lastError();
    if (method == "setInspectedHotspot") return c.setInspectedHotspot.lastError();
    if (method == "setEndpointVpnState") return c.setEndpointVpnState.lastError();
    if (method == "connectHotspot") return c.connectHotspot.lastError();
    if (method == "disconnectHotspot") return c.disconnectHotspot.lastError();
    if (method == "requestShutdown") return c.requestShutdown.lastError();
    return KyString();
}

void VelmoVpnAgentProxy::kyIpcRemoteAppendAllSpecs_(KyList<ky::ipc::RpcRequestSpec>& specs) {
    specs.append(ky::ipc::rpcRequestSpec<>("createTun"));
    specs.append(ky::ipc::rpcRequestSpec<>("closeTun"));
}

// VelmoDemoAgent: methods exposed over RPC, workspace callbacks published on signals.
#include "tools/velmo-demo-agent/VelmoDemoAgent.h"

#include <time.h>

#include "core/io/KyDebug.h"
#include "core/runtime/KyCoreApplication.h"
#include "core/runtime/KyTimer.h"
#include "ipc/IpcNames.h"

namespace {

constexpr const char* kCategory = "velmo.demo.agent";

KyString clockPrefix() {
    const time_t now = ::time(nullptr);
    struct tm parts {};
    ::localtime_r(&now, &parts);
    return KyString::format("[%02d:%02d:%02d] ", parts.tm_hour, parts.tm_min, parts.tm_sec);
}

} // namespace

VelmoDemoAgent::VelmoDemoAgent(VelmoDemoWorkspaceOptions options, KyObject* parent)
    : KyRemoteObject(options.domain, "velnet", "VelmoVpnAgent", parent),
      logLine_(ipcRegistry(), "logLine"),
      stats_(ipcRegistry(), "stats"),
      tunState_(ipcRegistry(), "tunState"),
      wsState_(ipcRegistry(), "wsState"),
      clientConfigState_(ipcRegistry(), "clientConfigState"),
      assignedNetworkState_(ipcRegistry(), "assignedNetworkState"),
      authState_(ipcRegistry(), "authState"),
      vpnCatalogState_(ipcRegistry(), "vpnCatalogState"),
      vpnEndpointsState_(ipcRegistry(), "vpnEndpointsState") {
    if (!options.shutdownRequested) {
        options.shutdownRequested = [] {
            if (KyCoreApplication* app = KyCoreApplication::instance()) app->quit();
        };
    }
    workspace_ = std::make_unique<VelmoDemoWorkspace>(std::move(options), makeSignals_());
}

VelmoDemoAgent::~VelmoDemoAgent() {
    if (timer_) timer_->stop();
}

VelmoDemoSignals VelmoDemoAgent::makeSignals_() {
    VelmoDemoSignals s;
    s.logLine = [this](const KyString& line) { queueLogLine_(line); };
    s.stats = [this](int rx, int tx, int drop) { stats_.publish(rx, tx, drop); };
    s.tunState = [this](bool open, const KyString& text) { tunState_.publish(open, text); };
    s.wsState = [this](int state, const KyString& text) { wsState_.publish(state, text); };
    s.clientConfigState = [this](const KyString& id, bool flag) { clientConfigState_.publish(id, flag); };
    s.assignedNetworkState = [this](const KyString& a, const KyString& b, const KyString& c) {
        assignedNetworkState_.publish(a, b, c);
    };
    s.authState = [this](const KyString& json) {
        if (!authState_.publish(json)) kyLogWarning(kCategory) << "authState snapshot too large, dropped";
    };
    s.vpnCatalogState = [this](const KyString& json) {
        if (!vpnCatalogState_.publish(json)) kyLogWarning(kCategory) << "vpnCatalogState snapshot too large, dropped";
    };
    s.vpnEndpointsState = [this](const KyString& json) {
        if (!vpnEndpointsState_.publish(json)) kyLogWarning(kCategory) << "vpnEndpointsState snapshot too large, dropped";
    };
    return s;
}

void VelmoDemoAgent::startServing() {
    if (serving_) return;
    serving_ = true;
    // Requests that a console queued before the agent came up are served at once (fireInitial).
    ipcExposeRpcT("createTun", this, &VelmoDemoAgent::createTun, true);
    ipcExposeRpcT("closeTun", this, &VelmoDemoAgent::closeTun, true);
    ipcExposeRpcT("connectWs", this, &VelmoDemoAgent::connectWs, true);
    ipcExposeRpcT("disconnectWs", this, &VelmoDemoAgent::disconnectWs, true);
    ipcExposeRpcT("clearLog", this, &VelmoDemoAgent::clearLog, true);
    ipcExposeRpcT("tunIsOpen", this, &VelmoDemoAgent::tunIsOpen, true);
    ipcExposeRpcT("wsIsConnected", this, &VelmoDemoAgent::wsIsConnected, true);
    ipcExposeRpcT("setRemoteConfig", this, &VelmoDemoAgent::setRemoteConfig, true);
    ipcExposeRpcT("loginUser", this, &VelmoDemoAgent::loginUser, true);
    ipcExposeRpcT("logoutUser", this, &VelmoDemoAgent::logoutUser, true);
    ipcExposeRpcT("refreshVpnCatalog", this, &VelmoDemoAgent::refreshVpnCatalog, true);
    ipcExposeRpcT("refreshVpnEndpoints", this, &VelmoDemoAgent::refreshVpnEndpoints, true);
    ipcExposeRpcT("setInspectedHotspot", this, &VelmoDemoAgent::setInspectedHotspot, true);
    ipcExposeRpcT("setEndpointVpnState", this, &VelmoDemoAgent::setEndpointVpnState, true);
    ipcExposeRpcT("connectHotspot", this, &VelmoDemoAgent::connectHotspot, true);
    ipcExposeRpcT("disconnectHotspot", this, &VelmoDemoAgent::disconnectHotspot, true);
    ipcExposeRpcT("requestShutdown", this, &VelmoDemoAgent::requestShutdown, true);

    workspace_->start(static_cast<std::int64_t>(ky::ipc::detail::nowMs()));
    timer_ = new KyTimer(this);
    timer_->setInterval(kTickMs);
    timer_->connectTimeout([this] { tick_(); });
    timer_->start();
}

void VelmoDemoAgent::tick_() {
    workspace_->tick(static_cast<std::int64_t>(ky::ipc::detail::nowMs()));
    if (!pendingLog_.empty()) {
        logLine_.publish(pendingLog_.front());
        pendingLog_.pop_front();
    }
}

void VelmoDemoAgent::queueLogLine_(const KyString& line) {
    kyLogDebug(kCategory) << line;
    pendingLog_.push_back(clockPrefix() + line);
    while (pendingLog_.size() > kMaxPendingLogLines) pendingLog_.pop_front();
}

bool VelmoDemoAgent::createTun() { return workspace_->createTun(); }
bool VelmoDemoAgent::closeTun() { return workspace_->closeTun(); }
bool VelmoDemoAgent::connectWs() { return workspace_->connectWs(); }
bool VelmoDemoAgent::disconnectWs() { return workspace_->disconnectWs(); }

bool VelmoDemoAgent::clearLog() {
    // Lines not yet sent belong to the log being cleared.
    pendingLog_.clear();
    return workspace_->clearLog();
}

bool VelmoDemoAgent::tunIsOpen() { return workspace_->tunIsOpen(); }
bool VelmoDemoAgent::wsIsConnected() { return workspace_->wsIsConnected(); }
bool VelmoDemoAgent::setRemoteConfig(KyString key, KyString value) { return workspace_->setRemoteConfig(key, value); }

bool VelmoDemoAgent::loginUser(KyString baseUrl, KyString email, KyString password) {
    return workspace_->loginUser(baseUrl, email, password);
}

bool VelmoDemoAgent::logoutUser() { return workspace_->logoutUser(); }
bool VelmoDemoAgent::refreshVpnCatalog() { return workspace_->refreshVpnCatalog(); }
bool VelmoDemoAgent::refreshVpnEndpoints(KyString hotspotId) { return workspace_->refreshVpnEndpoints(hotspotId); }
bool VelmoDemoAgent::setInspectedHotspot(KyString hotspotId) { return workspace_->setInspectedHotspot(hotspotId); }

bool VelmoDemoAgent::setEndpointVpnState(KyString hotspotId, KyString clientId, bool enabled) {
    return workspace_->setEndpointVpnState(hotspotId, clientId, enabled);
}

bool VelmoDemoAgent::connectHotspot(KyString hotspotId) { return workspace_->connectHotspot(hotspotId); }
bool VelmoDemoAgent::disconnectHotspot() { return workspace_->disconnectHotspot(); }
bool VelmoDemoAgent::requestShutdown() { return workspace_->requestShutdown(); }
